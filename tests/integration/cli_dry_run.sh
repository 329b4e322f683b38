#!/bin/bash
# Every changing command, on copies first: what --dry-run tells is what the run then records, a dry
# run changes nothing, and undo brings everything back to the state of before. The table of commands
# says which there are: one without a case here fails the test.
# ctest-timeout: 900
. "$(dirname "$0")/lib/driver.bash"

# What is stored, by value: row numbers and the program's own notes do not count.
# The texts of domain 3 go with it, and what is left of them with any later change.
stored() {
  local table
  for table in $(sqlite3 "$1" "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'mdomain_%' AND name NOT LIKE 'sqlite_%'"); do
    sqlite3 "$1" "SELECT '$table', * FROM \"$table\"" | grep -vE '[|](smtp_changed_uids|bcc_db|alias_db|sync_disclaimer_content_file-3)[|]' | sort
  done
}
model() {
  local file
  for file in local_DOMAIN alias mailserver keystore; do
    [ ! -f "$etc/$file.db" ] || stored "$etc/$file.db"
  done
  [ ! -d "$etc/disclaimer_content" ] || (cd "$etc" && find disclaimer_content dkim.key -type f -exec sha256sum {} + 2>/dev/null | sort)
}
latest() { mdomain --json history list --limit 1 | jq -r '.[0].id // 0'; }

# goes COMMAND... : the plan is what the run does.
goes() {
  echo "$*" >>"$scratch/tried"
  remember
  good --json "$@" --dry-run
  plan=$(jq -c 'if type == "object" then .plan else . end' <<<"$out")
  unchanged "$* --dry-run"
  local before
  before=$(latest)
  good -y "$@"
  [ "$(latest)" != "$before" ] || fail "$*: the history has no entry"
  same "what was done by: $*" "$(mdomain --json history show "$(latest)" | jq -cS .changes)" "$(jq -cS . <<<"$plan")"
  [ "$plan" != "[]" ] || fail "$*: an empty plan"
}
# and_back COMMAND... : the same, taken back, and done again.
and_back() {
  model >"$scratch/model"
  goes "$@"
  model >"$scratch/done"
  good -y undo
  model >"$scratch/back"
  alike "the model after undo of: $*" "$scratch/model" "$scratch/back"
  good -y "$@"
  model >"$scratch/again"
  alike "the same command after its undo: $*" "$scratch/done" "$scratch/again"
}
# idle COMMAND... : nothing would change, and no entry is made.
idle() {
  good "$@" --dry-run
  matches "$* --dry-run" "$out" 'nothing would change'
}
# tells REGEX : among the sentences of the last plan.
tells() { matches "what is told" "$(jq -r '.[].text' <<<"$plan")" "$1"; }

new_root company
good domain list
mkdir -p "$MDOMAIN_ROOT/var/run/postara_server"
goes domain create example.com
goes refresh
idle refresh
printf '[{"id":7,"name":"Greeting","enabled":true,"op":"or","disabled_for_local_recipient":false,"match_rule_list":[{"target":"sender","pattern_type":"uid","pattern":"1003"}],"exception_rule_list":[],"content_html":"<p>Bye</p>","content_txt":"Bye"}]' >"$scratch/list.json"
printf 'erik ben\nuser anna\n' >"$scratch/rules"
while IFS='|' read -ra words; do
  and_back "${words[@]}"
done <<END
domain|create|example.org|--no-auto-add
domain|create|bücher.example
domain|migrate|example.com|--description|Moved|--auto-add
domain|names|add|example.org|a.example|b.example
domain|names|set|example.org|b.example|a.example|c.example
domain|names|set|example.org|other.example
domain|names|remove|example.org|other.example
domain|set|example.org|--pattern|<2a>.<s>|--description|Second
domain|set|example.org|--name|renamed.example
user|add|renamed.example|anna|ben
user|add|bücher.example|--all
user|set|renamed.example|anna|--role|domain_admin|--add-alias|boss
user|set|renamed.example|ben|--alias|boss
user|remove|renamed.example|anna
group|add|renamed.example|books
group|set|renamed.example|books|--role|domain_admin
user|remove|renamed.example|user
group|restore|renamed.example|books
group|remove|renamed.example|books
alias|create|renamed.example|team|--user|anna|--user|ben|--address|a@elsewhere.example
alias|set|renamed.example|team|--user|ben|--user|anna|--user|erik
alias|set|renamed.example|team|--group|sales
alias|delete|renamed.example|team
bcc|add|renamed.example|ben|archive@elsewhere.example
bcc|remove|renamed.example|ben
bcc|import|renamed.example|$scratch/rules
disclaimer|set|renamed.example|$scratch/list.json
disclaimer|disable|renamed.example|7
disclaimer|enable|renamed.example|7
disclaimer|remove|renamed.example|7
config|set|postmaster|anna
config|set|enable_dkim_sign-1|yes
domain|primary|renamed.example
domain|delete|bücher.example
END
matches "what is not there any more" "$(mdomain --json undo --dry-run -y | jq -r '.[].text')" 'domain bücher.example is created'
and_back config set postmaster ''
good disclaimer set renamed.example "$scratch/list.json"
good disclaimer backup "$scratch/backup"
good -y disclaimer remove renamed.example 7
and_back disclaimer restore "$scratch/backup"
good export "$scratch/model.json"
sed -i 's/"Second"/"Third"/' "$scratch/model.json"
and_back apply "$scratch/model.json"
echo undo >>"$scratch/tried"

# Who is replaced in a row is told as well as who comes.
good alias create renamed.example two --user anna
goes alias set renamed.example two --user erik
tells 'also goes to erik'
tells 'no longer goes to anna'

# A refusal is the plan's too; a member that left shows, and a refresh is passed over: the row that it
# put in the place of the removed one stays.
remember
refused 3 'already has this name' domain create renamed.example --dry-run
refused 4 'nobody' user remove renamed.example nobody --dry-run
good user add renamed.example user
good -y user remove renamed.example user
sed -i '/^erik:/d' "$MDOMAIN_ROOT/etc/passwd"
echo 'zoe:x:1099:2001:Zoe New:/home/zoe:/bin/bash' >>"$MDOMAIN_ROOT/etc/passwd"
goes refresh
tells 'account erik is gone'
good -y undo
matches "who is in the domain again" "$(mdomain user list renamed.example)" '^1005 +user '
matches "who came with the refresh" "$(mdomain user list example.com)" '^1099 +zoe '

# What was changed since, by whatever program, stands against it; so do things that others have made
# under a new domain, and keys that the history does not keep.
good user set renamed.example ben --role domain_admin
sqlite3 "$database" "UPDATE domain_user_role_table SET role = 'other' WHERE domain_idx = 2 AND uid = 1002"
remember
refused 3 'something was changed since: domain_user_role_table' undo -y
refused 2 'Nobody can answer here' undo
sqlite3 "$database" "UPDATE domain_user_role_table SET role = 'domain_admin' WHERE domain_idx = 2 AND uid = 1002"
good undo -y
matches "what was taken back" "$out" 'user set renamed.example ben --role domain_admin'
fails 4 'no entry 9999' history show 9999
good domain create signed.example --no-auto-add
idx=$(mdomain --json domain show signed.example | jq .id)
mkdir -p "$etc/dkim.key" && echo key >"$etc/dkim.key/dkim.private-$idx"
remember
refused 3 'DKIM keys of the new domain' undo -y
good -y domain delete signed.example
remember
refused 3 'it changed DKIM keys' undo -y

# An undo that was interrupted before it said anything is finished by the next one, which takes nothing
# else back; one that stands against something else by then says so.
good domain set 1 --description one
good domain set 1 --description two
sqlite3 "$etc/history.db" "UPDATE entry_table SET state = 'undoing' WHERE id = $(latest)"
good -y undo
matches "what an interrupted undo says" "$out" 'undo was interrupted; now it is taken back: .*two'
same "the change before" "$(mdomain --json domain show 1 | jq -r .description)" one

new_root older
good domain list
good config set smtp_main_domain older.example --force
goes init
sqlite3 "$etc/keystore.db" "DELETE FROM key_table WHERE name = 'virtual_multiple_domain'"
echo publish >>"$scratch/tried"
good --json publish --dry-run
plan=$out
tells 'setting virtual_multiple_domain becomes "1/older.example"'
good publish
idle publish

while IFS=: read -r words kind; do
  case $kind in
    ' tried') grep -qE "^$words( |\$)" "$scratch/tried" || fail "no case tries: mdomain $words" ;;
    ' told') ;;
    *) fail "mdomain $words has no --dry-run and does not say why" ;;
  esac
done < <(mdomain docs changing)
same "copies left behind" "$(find "${TMPDIR:-/tmp}" -maxdepth 1 -name 'mdomain-trial*' -user "$(id -u)" -newer "$scratch/list.json")" ""
