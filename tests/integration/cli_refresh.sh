#!/bin/bash
# Refreshes that must not lose anybody, and the one that only looks.
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"

listing() { find "$MDOMAIN_ROOT" -type f ! -name '*.lock' -exec sha256sum {} + | sort; }

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

# For a timer: silent where nothing changed, whoever waits; else as without --quiet, a change that
# creates and deletes nobody too.
quiet() {
  run refresh --quiet "${@:3}"
  same "status of $1" "$status" 0
  matches "output of $1" "$out/$err" "$2"
}
quiet "a refresh with nothing to do" '^/$'
exec 3>"$MDOMAIN_ROOT/var/run/postara_server/mdomain.lock"
flock 3
sleep 1 3>&- && flock -u 3 &
exec 3>&-
quiet "one that waits for another run" '^/$'
wait
sed -i 's/^sales:.*/&erik/' "$MDOMAIN_ROOT/etc/group"
quiet "a new membership" '^complete +yes'
quiet "the next one" '^/$'
good --json refresh --quiet
field .complete true
echo 'broken line' >>"$MDOMAIN_ROOT/etc/passwd"
quiet "an incomplete answer" 'complete +no'
cp "$scratch/passwd" "$MDOMAIN_ROOT/etc/passwd"

# A known uid under another name, and a name that is no local part, are shown with what they have.
good user set 1 ben --add-alias boss --role domain_admin
sed -i 's/^ben:/benno:/' "$MDOMAIN_ROOT/etc/passwd"
long=$(printf 'n%.0s' {1..70})
sed -i "\$a $long:x:1101:2001::/:/bin/sh" "$MDOMAIN_ROOT/etc/passwd"
good refresh --dry-run
matches "who would be renamed" "$out" 'renamed +1: benno was ben: aliases ben, boss; domain_admin of example.com'
gives '[.renamed_users[0].was, .without_address[0].users[0]]' "[\"ben\",\"$long\"]" refresh
gives '[.[0].aliases, .[0].refused_alias]' "[[],\"$long\"]" user preview 1 "$long"
good group add 1 sales
gives '[.[] | select(.name | startswith("n")) | .status]' '["no alias","normal"]' group status 1 sales

# Above the limit nobody goes; the others are still taken in, and --force deletes.
printf 'g%d:x:120%d:2001::/:/bin/sh\n' 1 1 2 2 3 3 4 4 5 5 6 6 7 7 >>"$MDOMAIN_ROOT/etc/passwd"
good refresh
sed -i '$a late:x:1150:2001::/:/bin/sh
/^g[0-9]:/d' "$MDOMAIN_ROOT/etc/passwd"
run --json refresh
same "status above the limit" "$status" 5
field '[.new_users, .deleted_users, .spared_users]' '[["late"],[],["g1","g2","g3","g4","g5","g6","g7"]]'
matches "who was spared" "$err" 'not deleted: users 7: g1, g2, g3, g4, g5, g6, g7'
run refresh --dry-run
same "status of the look" "$status" 5
gives '.deleted_users | length' 7 refresh --deletion-limit 7 --deletion-percent 0 --dry-run
gives '.deleted_users | length' 7 refresh --force

# After half a success the last line says what is written, where it failed and why.
good domain create bad.example --pattern '<a>' --auto-add
sqlite3 "$database" "UPDATE domain_table SET domain_default_alias_pattern = '<99999999999a>' WHERE domain_idx = 2"
sed -i '$a last:x:1160:2001::/:/bin/sh' "$MDOMAIN_ROOT/etc/passwd"
fails 1 'failed: domain bad.example: its alias pattern gives .*; written: users \(1 new, 0 renamed, 0 deleted\), .*1 user added to domain example.com' refresh
good domain set 2 --pattern '<a>'
good refresh
gives '[.[].name]' '["last"]' user list 2
