#!/bin/bash
# Every changing command, on copies first: what --dry-run tells is what the run then records, a dry
# run changes nothing, and undo brings everything back to the state of before.
. "$(dirname "$0")/lib/driver.bash"

# What is stored, by value: row numbers and the program's own notes do not count.
stored() {
  local table
  for table in $(sqlite3 "$1" "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'mdomain_%' AND name NOT LIKE 'sqlite_%'"); do
    sqlite3 "$1" "SELECT '$table', * FROM \"$table\"" | grep -v '|smtp_changed_uids|' | sort
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

new_root company
good domain list
mkdir -p "$MDOMAIN_ROOT/var/run/postara_server"
goes domain create example.com --pattern '<1a>'
goes refresh
idle refresh
printf '[{"id":"d1","name":"Greeting","enable":true,"position":"bottom","content_plain":"Bye","content_html":"<p>Bye</p>"}]' >"$scratch/list.json"
while IFS='|' read -ra words; do
  and_back "${words[@]}"
done <<'END'
domain|create|example.org|--no-auto-add
domain|create|bücher.example
domain|names|add|example.org|example.net
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
group|remove|renamed.example|books
alias|create|renamed.example|team|--user|anna|--address|a@elsewhere.example
alias|set|renamed.example|team|--group|sales
alias|delete|renamed.example|team
bcc|add|renamed.example|ben|archive@elsewhere.example
bcc|remove|renamed.example|ben
config|set|postmaster|anna
domain|primary|renamed.example
domain|delete|bücher.example
END
matches "what is not there any more" "$(mdomain --json undo --dry-run -y | jq -r '.[].text')" 'domain bücher.example is created'

# A refusal is the plan's too; a member that left shows, and a refresh is passed over.
remember
refused 3 'already has this name' domain create renamed.example --dry-run
refused 4 'nobody' user remove renamed.example nobody --dry-run
sed -i '/^erik:/d' "$MDOMAIN_ROOT/etc/passwd"
goes refresh
matches "who is gone" "$plan" 'account erik is gone'

# What was changed since, by whatever program, stands against it.
good user set renamed.example ben --role domain_admin
sqlite3 "$database" "UPDATE domain_user_role_table SET role = 'other' WHERE domain_idx = 2 AND uid = 1002"
remember
refused 3 'something was changed since: domain_user_role_table' undo -y
refused 2 'Nobody can answer here' undo
sqlite3 "$database" "UPDATE domain_user_role_table SET role = 'domain_admin' WHERE domain_idx = 2 AND uid = 1002"
good undo -y
matches "what was taken back" "$out" 'user set renamed.example ben --role domain_admin'
fails 4 'no entry 9999' history show 9999
same "copies left behind" "$(find "${TMPDIR:-/tmp}" -maxdepth 1 -name 'mdomain-trial*')" ""
