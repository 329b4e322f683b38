#!/bin/bash
# How mdomain talks: tables that fit the window, "none", colours, --quiet, --query as it is typed, and
# one object for whatever fails with --json.
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"

new_root company
printf 'long%s:x:1010:2001::/:/bin/sh\n' "$(printf '%050d' 0)" >>"$MDOMAIN_ROOT/etc/passwd"
good domain create example.com --description 'Everybody in the house and everybody beside it, too'
good domain create 日本語ドメイン名.example --no-auto-add --description "日本語の説明文がここにあります。e$(printf '\u0301%.0s' {1..40})"
good refresh
good user set 1 anna --add-alias a_b --add-alias 日本語の別名
good user set 1 ben --add-alias axb
good user set 1 erik --add-alias a%b
good user set 1 erika --role domain_admin

# on_terminal WIDTH COMMAND... : as run, $out is what a window of that width shows.
on_terminal() {
  out=$(COLUMNS='' TERM=${TERM_OF_TEST-xterm} python3 "$source_dir/tests/integration/lib/terminal.py" "$1" mdomain "${@:2}" 2>/dev/null)
  status=$?
  widest=${out##*widest }
  out=${out%widest *}
}
while IFS='|' read -r width command; do
  # shellcheck disable=SC2086
  on_terminal "$width" $command
  [ "$widest" -le "$width" ] && [ "${#out}" -gt 20 ] || fail "$command in $width columns takes $widest: $out"
done <<'END'
80|user list 1
17|user list 1
80|domain list
40|history list
40|history show 4
40|user remove 1 ben --dry-run
17|doctor
40|explain nobody-of-that-name@example.com
END
on_terminal 60 user list 1
matches "a cut name" "$out" '^1010  long0+\.\.\. +normal'
matches "one that fits" "$out" '^1002  ben '
on_terminal 60 help domain
[ "$widest" -le 60 ] || fail "help takes $widest columns"
good user list 1
matches "the same for a script" "$out" "^1010  long0{50} "

# coloured WANT ENVIRONMENT... : whether a terminal shows colours then.
coloured() {
  on_terminal 80 doctor
  same "colours with: ${*:2}" "$(grep -c $'\e\[[0-9]' <<<"$out" | sed 's/[1-9].*/some/')" "$1"
}
coloured some TERM=xterm
TERM_OF_TEST=dumb coloured 0 TERM=dumb
TERM_OF_TEST='' coloured 0 'no TERM'
NO_COLOR=1 coloured 0 NO_COLOR
good doctor
same "colours in a file" "${out//$'\e'/}" "$out"

# Without anything to list: a table says so, to scripts that read lines only a terminal does.
while IFS='|' read -r command piped json; do
  # shellcheck disable=SC2086
  good $command
  same "$command" "$out" "$piped"
  # shellcheck disable=SC2086
  gives . "$json" $command
  # shellcheck disable=SC2086
  on_terminal 80 $command
  same "$command on a terminal" "$out" $'none\n'
done <<'END'
user duplicates 1||[]
bcc list 1||[]
user list 1 --query zzz||[]
domain names list 1||[]
END

# quiet WANT COMMAND... : with --quiet it succeeds and prints this.
quiet() {
  good --quiet "${@:2}"
  matches "--quiet ${*:2}" "$out/$err" "^$1/\$"
}
quiet '' domain set 1 --description 'a\b'
quiet '' user set 1 anna --add-alias quiet
quiet '' domain names add 1 example.net
quiet '' publish
quiet '' refresh
quiet '' user remove 1 ben --yes
quiet '' domain primary 2
quiet '' user list 1 --query zzz
quiet ' *' config get postmaster
quiet 'would change: 1 person gets 1 address.*' user add 1 ben --dry-run
good --json --quiet user add 1 ben --alias axb
field '.[0].name' '"ben"'
fails 4 'no user "nobody"' --quiet user show nobody

# What is typed for --query is no pattern.
while IFS='|' read -r query command want; do
  # shellcheck disable=SC2086
  gives '[.[] | .name]' "$want" $command --query "$query"
done <<'END'
a_b|user list 1|["anna"]
A%B|user list 1|["erik"]
%|user list 1|["erik"]
_|user list 1|["anna"]
a\b|domain list|["example.com"]
\|domain list|["example.com"]
'|domain list|[]
_|account users|[]
%|account groups|[]
_|group list 1|[]
rik|account users|["erik","erika"]
END
gives '[.[].name]' '["anna"]' user list 1 --query _ --limit 1
gives . '[]' user list 1 --query _ --offset 1

sqlite3 "$etc/keystore.db" "DELETE FROM key_table WHERE name = 'smtp_main_domain'"
# Whatever fails with --json says one object on standard error, also where it had warned before.
exec 3>"$MDOMAIN_ROOT/var/run/postara_server/mdomain.lock"
while IFS='|' read -r want code next command; do
  case $code in locked) flock 3 && code=failed ;; esac
  # shellcheck disable=SC2086
  run --json --lock-timeout 0 $command
  flock -u 3
  same "status of: $command" "$status" "$want"
  same "code of: $command" "$(jq -r .code <<<"$err")" "$code"
  same "its status" "$(jq -r '.status, (.message | length > 0)' <<<"$err" | xargs)" "$want true"
  matches "what to do after: $command" "$(jq -r .next <<<"$err")" "$next"
done <<'END'
2|usage|^mdomain help$|frobnicate
2|usage|^mdomain help domain$|domain crate x
2|usage|^mdomain help domain names$|domain names
2|usage|^mdomain help user list$|user list
2|usage|^mdomain help domain list$|domain list --qurey x
2|usage|^mdomain help domain list$|domain list extra
2|usage|^mdomain help domain list$|--lock-timeout x domain list
2|usage|--yes|user remove 1 anna
3|refused|correct|domain create nodot
3|refused|--force|config set smtp_main_domain other.example
4|not-found|mdomain domain list|domain show nosuch
4|not-found|mdomain account users|user show nobody
4|not-found|config list|config get nosuch
1|failed|each finding names|doctor
1|locked|--lock-timeout|domain set 1 --description x
1|locked|--lock-timeout|refresh --dry-run
END
exec 3>&-
