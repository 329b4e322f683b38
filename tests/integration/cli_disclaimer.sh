#!/bin/bash
# mdomain disclaimer: what its verbs show and refuse, and what goes with a user, a group, a domain.
# ctest-timeout: 600
. "$(dirname "$0")/lib/driver.bash"

# stored N : the domain's list, whose line end config shows as "?", and texts as they are stored.
stored() { mdomain config get "mimedefang_disclaimers-$1" && texts "$1"; }
texts() { cat "$etc/disclaimer_content/domain-$1"; }
# filter_after WANT VERB DOMAIN ID... : whether the mail filter is to run after that
filter_after() { good disclaimer "${@:2}" && same "filter after $2 $3" "$(mdomain config get mimedefang_enable)" "$1"; }

new_root company
good domain create example.com
good domain create bücher.example --pattern '<4a>'
good refresh
good group add 1 sales books
good group add 2 sales
good user set 2 ben --alias b.two
list=$scratch/list.json
cat >"$list" <<'J'
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
good disclaimer set 1 "$list"
good disclaimer get 1
same "what comes back" "$(jq -S . <<<"$out")" "$(jq -S . "$list")"
stored 1 >"$scratch/stored"
mdomain disclaimer get example.com | mdomain disclaimer set xn--bcher-kva.example - >/dev/null ||
  fail "set from standard input"
same "the texts of the copy" "$(texts 2)" "$(texts 1)"
gives 'map([.id, .name, .enabled, .op, .match_rules, .exception_rules])' \
  '[[7,"Grüße \"1\"",true,"or",3,2],[8,"two",false,"and",1,0]]' disclaimer list 1
gives 'map(.enabled)' '[true,true]' disclaimer enable 1 8
filter_after yes disable 1 7 8
filter_after no disable 2 7
good disclaimer enable 1 7
good disclaimer enable 2 7
same "the stored list" "$(stored 1)" "$(cat "$scratch/stored")"

# The configuration: JSON and nothing else, though rules are left out of it with an error line.
gives '[.all_domain_map, .local_domain_map | keys] | unique | flatten' \
  '["bücher.example","example.com","xn--bcher-kva.example"]' disclaimer generate
field '.gid_username_map["2001"] | keys' '["anna","b.two","ben"]'
field '.disclaimer_list | map(keys) | unique | flatten' \
  '["condition","content_html","content_txt","disabled_for_local_recipient"]'
matches "the rule for nobody" "$err" "Failed to get user by uid '2001'"
gives 'map([.id, .applies, .matched, .excepted, .reason])' \
  '[[7,true,[0,2],[],"match_rule_list[0], match_rule_list[2]"],[8,false,[],[],"disabled"]]' \
  disclaimer explain 1 --from erik@example.com --to x@away.example
gives 'map([.applies, .matched, .excepted, .reason])[0]' '[false,[1,2],[0],"exception_rule_list[0]"]' \
  disclaimer explain 1 --from '<ANNA@example.com>' --to ben@example.com
gives '.[0].reason' '"no match rule holds"' disclaimer explain 1 --from '' --to x@away.example

# A Perl that never ends is ended in time, and with mdomain, however that ends.
slow=(env "PERL5LIB=$scratch" PERL5OPT=-MSlow mdomain disclaimer explain 1 --from a@b.example --to c@d.example)
echo 'sleep 300; 1;' >"$scratch/Slow.pm"
matches "a slow answer" "$("${slow[@]}" --timeout 1 2>&1)" 'did not answer within 1 second '
"${slow[@]}" --timeout 200 &
killed=$!
wait_for "Perl to run" pgrep -P $killed perl
perl=$(pgrep -P $killed perl)
stop KILL $killed
wait_for "the end of Perl" bash -c "! kill -0 $perl"

# An "and" that lost a rule says so.
jq '.[1] * {enabled: true, match_rule_list: (.[1].match_rule_list + [.[0].match_rule_list[2],
  {target: "sender", pattern_type: "uid", pattern: "4711"}])} | [.]' "$list" >"$scratch/lost.json"
good disclaimer set 2 "$scratch/lost.json"
gives '.[0].left_out' '"match_rule_list[0], match_rule_list[2]"' disclaimer list 2
matches "the log" "$err" "'two' wants all of its match rules, of which 2 could not be used"
gives '.[0].reason' \
  '"match_rule_list[1] (without match_rule_list[0], match_rule_list[2])"' \
  disclaimer explain 2 --from x@example.com --to x@away.example
good disclaimer disable 2 008
good disclaimer set 2 "$list"

# Refusals.
remember
refused 4 '"nosuch.example"' disclaimer list nosuch.example
refused 4 '"nosuch.example"' disclaimer get nosuch.example
refused 4 '"7"' disclaimer set 7 "$list"
refused 4 'no disclaimer 9' disclaimer remove 1 7 9 --yes
refused 4 'no disclaimer x' disclaimer enable 1 7 x
refused 4 'no disclaimer ' disclaimer disable 1 ''
refused 4 '"nosuch.example"' disclaimer explain nosuch.example --from a@b.example --to c@d.example
refused 2 '--to' disclaimer explain 1 --from a@b.example
refused 2 '--yes' disclaimer remove 1 7
refused 2 '--yes' disclaimer restore "$list"
refused 2 'required' disclaimer set 1
refused 1 'nosuch could not be read' disclaimer set 1 "$scratch/nosuch"
refused 1 'could not be read' disclaimer set 1 "$scratch"
refused 1 'open file fail' disclaimer restore "$scratch/nosuch" --yes
refused 1 'json parse fail' disclaimer restore "$list" --yes
refused 1 'open file fail' disclaimer backup "$scratch/no/such/folder"
bad=$scratch/bad.json
while IFS='|' read -r regex json; do
  printf '%b' "$json" >"$bad"
  refused 3 "$regex" disclaimer set 1 "$bad"
done <<END
no JSON|
no JSON|[{"id": 1},]
no JSON|$(printf '[%.0s' {1..500})
no JSON|[] []
not UTF-8|["\\xff"]
\[\]: must be an array|{}
\[0\].id: is missing|[{}]
END
# The good list, changed by a jq filter.
while read -r filter regex; do
  jq "$filter" "$list" >"$bad"
  refused 3 "$regex" disclaimer set 1 "$bad"
done <<'END'
.[1].id=7 \[1\].id: is used twice
.[0].name="a\u202eb" the name .a<U\+202E>b. holds
.[1].id=1.5 \[1\].id: must be an integer
.[1].id=9999999999 \[1\].id: must be an integer
.[0].match_rule_list[2].pattern=5 match_rule_list\[2\].pattern: must be an address
.[0].match_rule_list[1].pattern=4294967296 match_rule_list\[1\].pattern: must be a gid
.[0].exception_rule_list[1].pattern_type="user" exception_rule_list\[1\].pattern_type
END

# A store that was broken by hand is told, and not written over.
good config set mimedefang_disclaimers-1 '{"broken'
remember
for command in 'get 1' "set 1 $list" generate "backup $scratch/backup"; do
  # shellcheck disable=SC2086
  refused 1 'Failed to get disclamer, domain_id\[1\]' disclaimer $command
done
[ ! -e "$scratch/backup" ] || fail "a backup of a broken store"
good config set mimedefang_disclaimers-1 ''
good disclaimer set 1 "$list"

# Backup and restore are inverse, for every domain.
good disclaimer backup "$scratch/backup"
same "mode of the backup" "$(stat -c %a "$scratch/backup")" 600
all=$(stored 1 && stored 2)
good disclaimer backup -
same "a backup on standard output" "$out" "$(cat "$scratch/backup")"
same "mode of the texts" "$(stat -c %a "$etc"/disclaimer_content/* | sort -u)" 640
good disclaimer remove 1 7 --yes
same "texts with what is gone" "$(texts 1 | grep -c Zoë)" 0
good disclaimer remove 2 7 8 --yes
good disclaimer restore "$scratch/backup" --yes
same "all lists" "$(stored 1 && stored 2)" "$all"
good disclaimer backup "$scratch/backup-2"
alike "a second backup" "$scratch/backup" "$scratch/backup-2"

# A domain leaves nothing of its rules and texts; the other one does not notice.
one=$(stored 1)
good domain delete 2 --yes
same "what is left" "$(stored 2)" $'[]<U+000A>\n[]'
same "the other domain" "$(stored 1)" "$one"
gives '[(.disclaimer_list | length), (.local_domain_map | keys)]' '[1,["example.com"]]' disclaimer generate
filter_after no disable 1 7
