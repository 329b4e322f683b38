#!/bin/bash
# mdomain edit with editors that are scripts: what they write is checked, shown, asked for and done, what
# is not done is kept, and nobody else's change is lost.
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"
export TMPDIR=$scratch/private
mkdir "$TMPDIR"

# The editor does the commands of $work, in which "$file" is the document; its first run those of $first.
cat >"$scratch/editor" <<'EOF'
#!/bin/bash
[ "$1" = --wait ] || exit 9
file=$2
stat -c '%a %a' "$file" "${file%/*}" | xargs >>"$SCRATCH/modes"
if [ -n "$first" ] && mkdir "$SCRATCH/once" 2>/dev/null; then eval "$first"; else eval "$work"; fi
EOF
chmod +x "$scratch/editor"
export SCRATCH=$scratch EDITOR=false VISUAL="$scratch/editor --wait" work first
kept() { find "$TMPDIR" -type f; }
# describe TEXT : what an editor does to give the domain this description.
describe() { echo "sed -i 's/\"description\": \"[^\"]*\"/\"description\": \"$1\"/' \"\$file\""; }

new_root company
good domain create example.com
good refresh
entries() { mdomain --json history list | jq length; }

# What the editor does first, and when it is opened again; what is typed (- ends a line); then the status, what is said,
# whether the text is kept, and what the domain's description is afterwards.
while IFS='|' read -r first work typed want regex keeps description; do
  rm -rf "$scratch/once"
  before=$(entries)
  was=$(mdomain --json domain show example.com | jq -r .description)
  typing "${typed//-/$'\n'}" edit
  same "status after '$first$work'" "$status" "$want"
  matches "what is said" "$(tr "\n" " " <<<"$err$out")" "$regex"
  same "kept" "$(kept | grep -c .)" "$keeps"
  [ "$keeps" = 0 ] || matches "where it is kept" "$err" "kept in $(kept)\. Next: "
  is=$(mdomain --json domain show example.com | jq -r .description)
  same "the description" "$is" "$description"
  [ "$is" != "$was" ] || same "entries of the history" "$(entries)" "$before"
  rm -rf "${TMPDIR:?}"/*
done <<END
|true||0|nothing to change|0|
|$(describe One)|y-|0|Make the domains what you wrote.*description "" becomes "One".*1 change made|0|One
|$(describe Two)|n-|1|nothing was changed; what you wrote|1|One
|$(describe Two); exit 3|y-|1|ended with status 3, nothing was changed; what you wrote|1|One
|kill -9 \$\$||1|ended: Killed, nothing was changed|0|One
|echo more >>"\$file"|n-|3|no JSON.*Line.*again.*nothing was changed; what|1|One
echo more >>"\$file"|$(describe Two); sed -i '/^more/d' "\$file"|-y-|0|no JSON.*becomes "Two"|0|Two
|sed -i 's/"anna"/"nobody"/' "\$file"|n-|4|not in the mirror: user nobody|1|Two
|mdomain -y domain set example.com --description Three; $(describe Four)|y-|3|changed meanwhile|1|Three
|echo {} >"\$file.new"; mv "\$file.new" "\$file"|n-|3|is missing|1|Three
END
same "modes of file and folder" "$(tr " " "\n" <"$scratch/modes" | sort -u | xargs)" "600 700"

first=''
work=$(describe Five)
remember
typing '' edit --dry-run
unchanged "edit --dry-run"
matches "what would change" "$(xargs <<<"$out")" 'becomes Five 1 change would be made'
matches "where it is kept" "$err" "kept in $(kept)"
good -y apply "$(kept)"
rm -rf "${TMPDIR:?}"/*
work=$(describe Six) typing '' --json -y edit
same "the change as JSON" "$(jq -r '.[0].property' <<<"$out")" description
good -y undo
VISUAL='' EDITOR=$scratch/none typing '' edit
matches "no such editor" "$err" "$scratch/none cannot be started: No such file"
VISUAL='true $(touch${IFS}wrong) ; touch wrong' typing '' edit
same "what a shell would have made" "$(find . -name wrong)" ""
remember
refused 2 'needs a terminal' -y edit
