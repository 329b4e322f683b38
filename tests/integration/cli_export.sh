#!/bin/bash
# The whole model as one document: into an empty root and out again byte by byte, nothing done twice,
# and whatever is refused changes nothing.
. "$(dirname "$0")/lib/driver.bash"
document=$scratch/model.json

entries() { mdomain --json history list | jq length; }

# carried FILE : the model of the root in force is that of the document, and applying it again does
# nothing.
carried() {
  good export "$scratch/again.json"
  alike "export after apply of $1" "$1" "$scratch/again.json"
  fits_schema "$scratch/again.json"
  local before
  before=$(entries)
  good apply "$1"
  same "a second apply" "$out" "nothing to change"
  same "entries of the history" "$(entries)" "$before"
}

# becomes FILE : the plan, the run and the history say the same.
becomes() {
  remember
  good --json apply "$1" --dry-run
  local plan=$out
  unchanged "apply $1 --dry-run"
  good --json -y apply "$1"
  same "what was done" "$out" "$plan"
  same "what the history has" "$(mdomain --json history show "$(mdomain --json history list | jq '.[0].id')" | jq -cS .changes)" "$(jq -cS . <<<"$plan")"
}

new_root company
mkdir -p "$MDOMAIN_ROOT/var/run/postara_server"
good domain create example.com --pattern '<1a>' --no-auto-add
good refresh
while IFS='|' read -ra words; do
  good -y "${words[@]}"
done <<'END'
domain|create|bücher.example|--description|Books "and" more
domain|names|add|example.com|example.net|xn--fsq.example
group|add|example.com|books
group|add|bücher.example|sales
group|set|bücher.example|sales|--role|domain_admin
user|add|example.com|anna|ben|erika
user|set|example.com|anna|--role|domain_admin|--add-alias|boss
user|add|bücher.example|erik|--alias|e
user|add|bücher.example|erika|--alias|e
user|set|bücher.example|erika|--role|normal
user|remove|bücher.example|ben
alias|create|example.com|team|--user|anna|--group|sales|--address|a@elsewhere.example
alias|create|example.com|all|--address|team@example.com
bcc|add|example.com|anna@example.com|archive@elsewhere.example
bcc|add|example.com|example.com|all@elsewhere.example|--type|domain
config|set|postmaster|anna
END
cat >"$scratch/list.json" <<'END'
[{"id":7,"name":"Grüße","enabled":true,"op":"or","content_html":"<p>Bye</p>","content_txt":"Bye",
"match_rule_list":[{"target":"sender","pattern_type":"uid","pattern":"1001"},{"target":"recipient","pattern_type":"email","pattern":"*@example.org"}],
"exception_rule_list":[{"target":"sender","pattern_type":"gid","pattern":"2002"}]}]
END
good disclaimer set example.com "$scratch/list.json"
good export "$document"
same "mode of the document" "$(stat -c %a "$document")" 600
same "the document on standard output" "$(mdomain export)" "$(cat "$document")"
matches "a rule by its account's name" "$(jq -c '.domains[]|.disclaimers[].match_rule_list[0]' "$document")" '"pattern":"anna","pattern_type":"user"'
same "who has the alias that another owns" "$(jq -c '[.domains[].users[]|select(.taken)|[.name,.taken]]' "$document")" '[["erika",["e"]],["erika",["e"]]]'
same "who was removed" "$(jq -c '[.domains[].removed]' "$document")" '[["ben"],[]]'
for wrong in '{domains: []}' '. + {more: 1}' '.settings = {postmaster: 1}'; do
  jq "$wrong" "$document" >"$scratch/wrong.json"
  schema_takes "$scratch/wrong.json" 2>"$scratch/said" && fail "the schema takes $wrong"
  matches "what the schema says to $wrong" "$(cat "$scratch/said")" '^\$'
done
carried "$document"

# Into another machine with other numbers, and from a model that has other things.
new_root other
mkdir -p "$MDOMAIN_ROOT/var/run/postara_server"
awk -F: -v OFS=: '$3 > 1000 { $3 += 500 } { print }' "$MDOMAIN_ROOT/etc/passwd" >"$scratch/passwd"
cp "$scratch/passwd" "$MDOMAIN_ROOT/etc/passwd"
good refresh
becomes "$document"
carried "$document"
while IFS='|' read -r what filter; do
  good export "$scratch/from.json"
  jq --slurpfile old "$document" "$filter" "$scratch/from.json" >"$scratch/changed.json"
  becomes "$scratch/changed.json"
  mdomain export | jq -S . >"$scratch/is"
  jq -S . "$scratch/changed.json" >"$scratch/wanted"
  alike "$what" "$scratch/is" "$scratch/wanted"
done <<'END'
groups and users go|.domains[1].groups = [] | .domains[1].users |= [.[] | select(.name == "anna" or .name == "erika") | if .taken then {name, aliases: .taken} else . end]
roles and aliases|.domains[1].users |= map(if .name == "anna" then del(.role) | .aliases = ["a.schmidt"] else .role = "domain_admin" | .aliases = ["boss", "e"] end) | .domains[1].description = "x"
an alias becomes an entry, an entry an alias|.domains[1].entries[0].name = "boss" | .domains[1].users |= map(.aliases -= ["boss"]) | .domains[1].entries[0].addresses = ["x@elsewhere.example"] | .domains[1].users[0].aliases += ["all"]
another owner|.domains[0].users |= map(if .name == "erik" then .aliases = ["erik"] | .taken = ["e"] elif .name == "erika" then .aliases = ["e"] | del(.taken) else . end)
rules and texts|.domains[1].copies = [.domains[1].copies[0] | .to = "ben"] | .domains[1].disclaimers[0].content_txt = "Ciao" | .settings = {}
another primary domain and other names|.domains[0].primary = true | .domains[1].primary = false | .domains[1].names = ["example.org"] | .domains[0].names = ["example.net"]
a domain goes|del(.domains[1])
END
becomes "$document"
carried "$document"

# What is refused, and where.
remember
while IFS='|' read -r status regex filter; do
  jq "$filter" "$document" >"$scratch/wrong.json"
  refused "$status" "$regex" -y apply "$scratch/wrong.json"
done <<'END'
3|\$\.domains\[1\]\.users\[0\]\.role: must be normal|.domains[1].users[0].role = "king"
3|\$\.domains\[0\]\.users\[1\]\.aliases\[0\]: "a b" is no local part|.domains[0].users[1].aliases = ["a b"]
3|\$\.domains\[1\]\.users: "boss" of erika is that of anna|.domains[1].users |= map(if .name == "erika" then .aliases += ["boss"] else . end)
3|\$\.domains\[1\]\.entry: unknown member|.domains[1].entry = []
3|\$\.domains\[0\]\.users: is missing|del(.domains[0].users)
3|\$\.domains: one of them must be primary, not 0|.domains |= map(.primary = false)
3|\$\.domains\[1\]\.names\[0\]: stands here twice|.domains[1].names += ["BÜCHER.example"] | .domains[1].names |= sort
3|\$\.domains\[1\]\.disclaimers\[0\]\.op: must be|.domains[1].disclaimers[0].op = "nor"
3|\$\.\$schema: must be|.["$schema"] = "2"
3|cannot be made, because of "all@example.com"|.domains[1].entries[0].addresses = ["all@example.com"]
3|\$\.domains\[1\]\.copies\[2\]\.name: stands here twice|.domains[1].copies += [.domains[1].copies[] | select(.type == "recipient") | .name = "ANNA@example.com"]
3|\$\.domains\[0\]\.pattern: |.domains[0].pattern = "x y<a>"
3|\$\.domains: has none|.domains = []
3|\$\.domains\[bücher.example\]\.removed.*anna|.domains[0].users |= map(select(.name != "anna"))
4|not in the mirror: group nogroup, user nobody\. Next|.domains[1].groups += [{name: "nogroup", role: "normal"}] | .domains[1].users[0].name = "nobody"
END
printf '{"domains": [' >"$scratch/wrong.json"
refused 3 '^mdomain: \$: no JSON' -y apply "$scratch/wrong.json"
refused 4 'No such file' -y apply "$scratch/none.json"
jq '.domains[1].description = "x"' "$document" >"$scratch/changed.json"
refused 2 'Nobody can answer here' apply "$scratch/changed.json"

# A rule that is older than the domain of its address stands in another one; its export says so.
jq '.domains[1].copies[0].name = "x@bücher.example"' "$document" >"$scratch/changed.json"
good -y apply "$scratch/changed.json"
matches "a rule elsewhere" "$err" 'warning: \$\.domains\[1\]\.copies\[0\]\.name: .*another domain'

# Accounts that this machine has not are left out when it is told so.
jq '.domains[1].entries[0].users = ["nobody"] | .domains[1].removed = ["nobody"]' "$document" >"$scratch/changed.json"
good -y apply --skip-unknown "$scratch/changed.json"
matches "who is left out" "$err" 'left out: user nobody'
mdomain -y apply - <"$document" >"$scratch/said" 2>&1 || fail "apply from standard input: $(cat "$scratch/said")"
carried "$document"
good -y undo

# A document that fails on the way leaves the DKIM keys of the domains that it had removed as they were.
new_root keys
good domain create example.com
good export "$scratch/one.json"
good domain create example.org
mkdir "$etc/dkim.key" && (umask 077 && echo secret >"$etc/dkim.key/dkim.private-2")
good postfix maps
rm "$target/etc/postfix_addresses.lmdb" && mkdir "$target/etc/postfix_addresses.lmdb"
run -y apply "$scratch/one.json"
same "status of an apply that fails" "$status" 1
same "the key of before" "$(stat -c %a "$etc/dkim.key/dkim.private-2") $(cat "$etc/dkim.key/dkim.private-2")" '600 secret'
