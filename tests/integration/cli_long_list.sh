#!/bin/bash
# A listing too long for memory is the same bytes as one of its pages after the other.
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"

new_root long
users=9000
good domain create example.com --no-auto-add
sqlite3 "$database" "BEGIN; WITH n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < $users)
  INSERT INTO user_table SELECT 2000 + i, printf('%.60c', 'n') || i FROM n;
  INSERT INTO domain_user_role_table SELECT 1, uid, 'normal', 0 FROM user_table;
  INSERT INTO domain_user_alias_table SELECT 1, uid, user_name, uid % 1001 = 0 FROM user_table;
  UPDATE user_table SET user_name = 'zoë ' || char(10, 31) || '\"\\' WHERE uid = 5000; COMMIT"

mdomain --json user list 1 >"$scratch/whole" || fail "the listing"
jq --indent 2 . "$scratch/whole" | cmp - "$scratch/whole" || fail "the layout"
same "the number of users" "$(jq length "$scratch/whole")" "$users"
same "who comes first" "$(jq -c '[.[range(10)].aliases[0].duplicated]' "$scratch/whole")" \
  '[true,true,true,true,true,true,true,true,true,false]'
for ((page = 0; page < users; page += 3000)); do
  mdomain --json user list 1 --limit 3000 --offset $page
done | jq -s --indent 2 add | cmp - "$scratch/whole" || fail "the pages"

# As text: the same cells, in columns as wide as the widest.
mdomain user list 1 >"$scratch/text" || fail "the listing as text"
{
  printf 'UID\tNAME\tROLE\tBY GROUP\tALIASES\n'
  jq -r '.[] | [.uid, if .uid == 5000 then "zoë <U+000A><U+001F>\"\\" else .name end, .role, "no",
    .aliases[0].alias + if .aliases[0].duplicated then " (collides)" else "" end] | map(tostring) |
    join("\t")' "$scratch/whole"
} | python3 -c '
import sys
rows = [line.rstrip("\n").split("\t") for line in sys.stdin]
widths = [max(map(len, column)) + 2 for column in zip(*rows)]
for row in rows:
    print("".join(map(str.ljust, row, widths)).rstrip())' | cmp - "$scratch/text" || fail "the table"

# Who is slow to read the answer keeps nobody waiting.
mdomain user list 1 | { read -r _; good domain create other.example; }
