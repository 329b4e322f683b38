#!/bin/bash
# Refreshes that must not lose anybody, and the one that only looks.
# ctest-timeout: 300
. "$(dirname "$0")/../support/cli.sh"

listing() { find "$MDOMAIN_ROOT" -type f -exec sha256sum {} + | sort; }

# A look at a root without a database leaves it without one.
new_root fresh
listing >"$scratch/before"
good --json refresh --dry-run
field '[.complete, .dry_run, (.new_users | length), (.new_groups | length)]' '[true,true,5,3]'
listing | diff "$scratch/before" - || fail "the look changed the root"

new_root company
good domain create example.com
good refresh
sed -i '/^anna:/d; $a newby:x:1100:2001:New:/:/bin/sh' "$MDOMAIN_ROOT/etc/passwd"
sed -i '/^interns/d' "$MDOMAIN_ROOT/etc/group"
listing >"$scratch/before"
good --json refresh --dry-run
field '[.new_users, .deleted_users, .new_groups, .deleted_groups]' '[["newby"],[1001],[],[2003]]'
good refresh --dry-run
matches "the look as text" "$out" 'would be deleted +1: 1001'
listing | diff "$scratch/before" - || fail "the look changed the database"

# An older database is not upgraded by a look.
sqlite3 "$(database)" 'PRAGMA user_version = 3'
good refresh --dry-run
same "version after a look" "$(sqlite3 "$(database)" 'PRAGMA user_version')" 3
sqlite3 "$(database)" 'PRAGMA user_version = 4'

# What was announced is what happens.
good --json refresh
field '[.complete, .new_users, .deleted_users, .deleted_groups]' '[true,["newby"],[1001],[2003]]'
good --json user list 1
field '[.[].name] | sort' '["ben","erik","erika","newby","user"]'

# A file with malformed lines: they are skipped, said once, and nobody is deleted.
cp "$MDOMAIN_ROOT/etc/passwd" "$scratch/passwd"
sed -i '/^ben:/d; $a broken line\nalso:broken' "$MDOMAIN_ROOT/etc/passwd"
good --json refresh
field '[.complete, .deleted_users]' '[false,[]]'
same "lines about the malformed file" "$(grep -c 'passwd' <<<"$err")" 1
good --json account users --query ben
field length 1
# An empty file is a broken account system, not a company without people.
: >"$MDOMAIN_ROOT/etc/passwd"
run --json refresh
same "status with an empty passwd" "$status" 1
same "output with an empty passwd" "$out" ""
matches "the reason" "$err" 'abnormal'
cp "$scratch/passwd" "$MDOMAIN_ROOT/etc/passwd"
good --json account users
field length 5
good --json refresh
field '[.complete, .deleted_users]' '[true,[]]'

# Notices are shown when asked for.
same "lines without -v" "$err" ""
good -v refresh
matches "notices with -v" "$err" 'notice: .* 5 zelm_users|notice: .*\[5\] zelm_users'
same "what -v prints besides" "$(head -n 1 <<<"$out")" "complete      yes"
finish
