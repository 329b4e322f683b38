#!/bin/bash
# mdomain disclaimer: what its verbs show and refuse, and what goes with a user, a group, a domain.
# ctest-timeout: 300
. "$(dirname "$0")/../support/cli.sh"

content=var/packages/Postara-Server/etc/disclaimer_content
# stored N : the domain's list, whose line end config shows as "?", and texts as they are stored.
stored() {
  mdomain config get "mimedefang_disclaimers-$1"
  cat "$MDOMAIN_ROOT/$content/domain-$1"
}

new_root company
good domain create example.com
good domain create bücher.example --pattern '<4a>'
good refresh
good group add 1 sales books
good group add 2 sales
cat >"$scratch/list.json" <<'J'
[{"id": 7, "name": "Grüße \"1\"", "enabled": true, "op": "or", "disabled_for_local_recipient": false,
  "match_rule_list": [{"target": "sender", "pattern_type": "uid", "pattern": 1003},
                      {"target": "recipient", "pattern_type": "gid", "pattern": 2001},
                      {"target": "sender", "pattern_type": "email", "pattern": "*@example.com"}],
  "exception_rule_list": [{"target": "sender", "pattern_type": "uid", "pattern": "1001"},
                          {"target": "recipient", "pattern_type": "uid", "pattern": "2001"}],
  "content_html": "<p>Zoë &amp; Co</p>\n", "content_txt": "Zoë\t\"quoted\" \\ 1\r\n"},
 {"id": 8, "name": "two", "enabled": false, "op": "and", "disabled_for_local_recipient": true,
  "match_rule_list": [{"target": "sender", "pattern_type": "gid", "pattern": "1003"}],
  "exception_rule_list": [], "content_html": "", "content_txt": "second"}]
J

# In, out, and in again: nothing is lost or turned round.
good disclaimer set 1 "$scratch/list.json"
good disclaimer get 1
same "what comes back" "$(jq -S . <<<"$out")" "$(jq -S . "$scratch/list.json")"
stored 1 >"$scratch/stored"
mdomain disclaimer get example.com | mdomain disclaimer set xn--bcher-kva.example - >/dev/null ||
  fail "set from standard input"
same "the texts of the copy" "$(cat "$MDOMAIN_ROOT/$content/domain-2")" \
  "$(cat "$MDOMAIN_ROOT/$content/domain-1")"
good --json disclaimer list 1
field 'map([.id, .name, .enabled, .op, .match_rules, .exception_rules])' \
  '[[7,"Grüße \"1\"",true,"or",3,2],[8,"two",false,"and",1,0]]'
good --json disclaimer enable 1 8
field 'map(.enabled)' '[true,true]'
good disclaimer disable 1 7 8
same "the filter still runs for domain 2" "$(mdomain config get mimedefang_enable)" yes
good disclaimer disable 2 7
same "no filter" "$(mdomain config get mimedefang_enable)" no
good disclaimer enable 1 7
good disclaimer enable 2 7
same "the stored list" "$(stored 1)" "$(cat "$scratch/stored")"

# The configuration: JSON and nothing else, though rules are left out of it with an error line.
good --json disclaimer generate
field '[.all_domain_map, .local_domain_map | keys] | unique | flatten' \
  '["bücher.example","example.com","xn--bcher-kva.example"]'
field '.gid_username_map["2001"] | keys' '["anna","ben"]'
field '.disclaimer_list | map(keys) | unique | flatten' \
  '["condition","content_html","content_txt","disabled_for_local_recipient"]'
matches "the rule for nobody" "$err" "Failed to get user by uid '2001'"
good --json disclaimer explain 1 --from erik@example.com --to x@away.example
field 'map([.id, .applies, .matched, .excepted, .reason])' \
  '[[7,true,[0,2],[],"match_rule_list[0], match_rule_list[2]"],[8,false,[],[],"disabled"]]'
good --json disclaimer explain 1 --from '<ANNA@example.com>' --to ben@example.com
field 'map([.applies, .matched, .excepted, .reason])[0]' \
  '[false,[1,2],[0],"exception_rule_list[0]"]'
good --json disclaimer explain 1 --from '' --to x@away.example
field '.[0].reason' '"no match rule holds"'

# Refusals.
cp "$scratch/list.json" "$scratch/good.json"
state >"$scratch/before"
bad 4 '"nosuch.example"' disclaimer list nosuch.example
bad 4 '"nosuch.example"' disclaimer get nosuch.example
bad 4 '"7"' disclaimer set 7 "$scratch/good.json"
bad 4 'no disclaimer 9' disclaimer remove 1 7 9 --yes
bad 4 'no disclaimer x' disclaimer enable 1 7 x
bad 4 'no disclaimer ' disclaimer disable 1 ''
bad 4 '"nosuch.example"' disclaimer explain nosuch.example --from a@b.example --to c@d.example
bad 2 '--to' disclaimer explain 1 --from a@b.example
bad 2 '--yes' disclaimer remove 1 7
bad 2 '--yes' disclaimer restore "$scratch/good.json"
bad 2 'required' disclaimer set 1
bad 2 'not expected' disclaimer generate 1
bad 1 'nosuch could not be read' disclaimer set 1 "$scratch/nosuch"
bad 1 'could not be read' disclaimer set 1 "$scratch"
bad 1 'open file fail' disclaimer restore "$scratch/nosuch" --yes
bad 1 'json parse fail' disclaimer restore "$scratch/good.json" --yes
bad 1 'open file fail' disclaimer backup "$scratch/no/such/folder"
# set_bad REGEX JSON
set_bad() {
  printf '%b' "$2" >"$scratch/bad.json"
  bad 3 "$1" disclaimer set 1 "$scratch/bad.json"
}
set_bad 'no JSON' ''
set_bad 'no JSON' '[{"id": 1},]'
set_bad 'no JSON' "$(printf '[%.0s' {1..500})"
set_bad 'no JSON' '[] []'
set_bad 'not UTF-8' '["\xff"]'
set_bad '\[\]: must be an array' '{}'
set_bad '\[0\].id: is missing' '[{}]'
# member FILTER REGEX : the good list changed by a jq filter is refused.
member() { set_bad "$2" "$(jq -c "$1" "$scratch/good.json" | sed 's/\\/\\\\/g')"; }
member '.[1].id = 7' '\[1\].id: is used twice'
member '.[1].id = 1.5' '\[1\].id: must be an integer'
member '.[1].id = 9999999999' '\[1\].id: must be an integer'
member '.[0].name = ""' '\[0\].name: must not be empty'
member '.[1].op = "OR"' '\[1\].op: must be "and" or "or"'
member '.[0].enabled = 1' '\[0\].enabled: must be true or false'
member '.[0].colour = 1' '\[0\].colour: unknown member'
member '.[0].match_rule_list[2].pattern = "a\\d@x"' 'match_rule_list\[2\].pattern: must be an address'
member '.[0].match_rule_list[2].pattern = 5' 'match_rule_list\[2\].pattern: must be an address'
member '.[0].match_rule_list[0].pattern = "root"' 'match_rule_list\[0\].pattern: must be a uid'
member '.[0].match_rule_list[1].pattern = 4294967296' 'match_rule_list\[1\].pattern: must be a gid'
member '.[0].exception_rule_list[1].target = "cc"' 'exception_rule_list\[1\].target: must be'
member '.[0].exception_rule_list[1].pattern_type = "user"' 'exception_rule_list\[1\].pattern_type'

# A store that was broken by hand is told, and not written over.
good config set mimedefang_disclaimers-1 '{"broken'
state >"$scratch/before"
bad 1 'Failed to get disclamer, domain_id\[1\]' disclaimer get 1
bad 1 'Failed to get disclamer, domain_id\[1\]' disclaimer set 1 "$scratch/good.json"
bad 1 'Failed to get disclamer, domain_id\[1\]' disclaimer generate
bad 1 'Failed to get disclamer, domain_id\[1\]' disclaimer backup "$scratch/backup"
same "no backup" "$(ls "$scratch/backup" 2>/dev/null)" ""
good config set mimedefang_disclaimers-1 ''
good disclaimer set 1 "$scratch/good.json"

# Backup and restore are inverse, for every domain.
good disclaimer backup "$scratch/backup"
same "mode of the backup" "$(stat -c %a "$scratch/backup")" 600
{ stored 1 && stored 2; } >"$scratch/all"
good disclaimer remove 1 7 --yes
same "the text is gone" "$(grep -c Zoë "$MDOMAIN_ROOT/$content/domain-1")" 0
good disclaimer remove 2 7 8 --yes
good disclaimer restore "$scratch/backup" --yes
same "all lists" "$(stored 1 && stored 2)" "$(cat "$scratch/all")"
good disclaimer backup "$scratch/backup-2"
cmp "$scratch/backup" "$scratch/backup-2" || fail "a second backup differs"

# What names a user goes with him, of that kind and in that domain only.
stored 2 >"$scratch/two"
good user remove 1 erik --yes
good disclaimer get 1
field '[.[].match_rule_list[] | [.pattern_type, .pattern]]' \
  '[["gid",2001],["email","*@example.com"],["gid","1003"]]'
field '[.[].exception_rule_list[].pattern]' '["1001","2001"]'
same "the texts" "$(cat "$MDOMAIN_ROOT/$content/domain-1")" "$(tail -n +2 "$scratch/stored")"
good group remove 1 sales --yes
good disclaimer get 1
field '[.[].match_rule_list[] | [.pattern_type, .pattern]]' \
  '[["email","*@example.com"],["gid","1003"]]'
field '[.[].exception_rule_list[].pattern]' '["1001","2001"]'
same "the other domain" "$(stored 2)" "$(cat "$scratch/two")"

# A domain leaves nothing of its rules and texts; the other one does not notice.
stored 1 >"$scratch/one"
good domain delete 2 --yes
same "what is left" "$(stored 2)" $'[]?\n[]'
same "the other domain" "$(stored 1)" "$(cat "$scratch/one")"
good --json disclaimer generate
field '.disclaimer_list | length' 1
field '.local_domain_map | keys' '["example.com"]'
good disclaimer disable 1 7
same "no filter" "$(mdomain config get mimedefang_enable)" no
finish
