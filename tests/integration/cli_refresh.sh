#!/bin/bash
# Refreshes that must not lose anybody, and the one that only looks.
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"

listing() { find "$MDOMAIN_ROOT" -type f -exec sha256sum {} + | sort; }

# A look at a root without a database leaves it without one.
new_root fresh
listing >"$scratch/before"
gives '[.complete, .dry_run, (.new_users | length), (.new_groups | length)]' '[true,true,5,3]' \
  refresh --dry-run
listing | diff "$scratch/before" - || fail "the look changed the root"

new_root company
good domain create example.com
good refresh
sed -i '/^anna:/d; $a newby:x:1100:2001:New:/:/bin/sh' "$MDOMAIN_ROOT/etc/passwd"
sed -i '/^interns/d' "$MDOMAIN_ROOT/etc/group"
# A look does not upgrade an older database either.
sqlite3 "$database" 'PRAGMA user_version = 3'
listing >"$scratch/before"
gives '[.new_users, .deleted_users, .new_groups, .deleted_groups]' '[["newby"],[1001],[],[2003]]' \
  refresh --dry-run
good refresh --dry-run
matches "the look as text" "$out" 'would be deleted +1: 1001'
listing | diff "$scratch/before" - || fail "the look changed the database"
sqlite3 "$database" 'PRAGMA user_version = 4'

# What was announced is what happens.
gives '[.complete, .new_users, .deleted_users, .deleted_groups]' '[true,["newby"],[1001],[2003]]' refresh
gives '[.[].name] | sort' '["ben","erik","erika","newby","user"]' user list 1

# A file with malformed lines: they are said once, and nobody is deleted.
cp "$MDOMAIN_ROOT/etc/passwd" "$scratch/passwd"
sed -i '/^ben:/d; $a broken line\nalso:broken' "$MDOMAIN_ROOT/etc/passwd"
gives '[.complete, .deleted_users]' '[false,[]]' refresh
same "lines about the malformed file" "$(grep -c 'entries are missing' <<<"$err")" 1
cp "$scratch/passwd" "$MDOMAIN_ROOT/etc/passwd"

# Notices are shown when asked for.
good refresh
same "lines without -v" "$err" ""
good -v refresh
matches "notices with -v" "$err" 'notice: .* 5 zelm_users|notice: .*\[5\] zelm_users'
same "what -v prints besides" "$(head -n 1 <<<"$out")" "complete      yes"
