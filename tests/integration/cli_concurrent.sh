#!/bin/bash
# Two mdomain processes on one root lose nothing; who waits too long says so and changes nothing.
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"

new_root company
good domain create example.com
good refresh

# worker NAME : creates domains, names and aliases of its own, and refreshes between them.
worker() {
  local n
  for n in 1 2 3 4 5; do
    good domain create "$1-$n.example" --no-auto-add
    good domain names add example.com "$1-$n.example.org"
    good user set example.com anna --add-alias "anna.$1$n"
    good refresh
  done
}
worker a &
worker b &
wait
gives '[length, ([.[].id] | unique | length)]' '[11,11]' domain list
field '[.[] | select(.id == 1) | .additional_names | length]' '[10]'
gives '[.[] | select(.name == "anna") | .aliases | length]' '[11]' user list 1 --query anna
same integrity "$(sqlite3 "$database" 'PRAGMA integrity_check; PRAGMA foreign_key_check')" ok
gives '.virtual_multiple_domain | split(", ") | length' 11 config list

# Somebody holds the lock: readers pass, changes wait and give up.
exec 9>>"$MDOMAIN_ROOT/var/run/postara_server/mdomain.lock"
flock 9
good domain list
fails 1 'waiting for another mdomain' --lock-timeout 1 domain create late.example 9>&-
matches "message of who waited too long" "$err" 'after 1 seconds, nothing was changed'
(sleep 2 && flock -u 9) &
good domain create patient.example 9>&-
wait
gives '[.[].name] | [index("late.example"), index("patient.example") != null]' '[null,true]' domain list

# Somebody holds the table of addresses: who changes the model gives up soon, and holds up nobody else.
good alias create example.com team --user anna
echo 'zoe:x:1010:2001::/:/bin/sh' >>"$MDOMAIN_ROOT/etc/passwd"
mkfifo "$scratch/held"
(echo 'BEGIN EXCLUSIVE;' && read -r _ <"$scratch/held") | sqlite3 "$etc/alias.db" &
wait_for "the lock" bash -c "! sqlite3 '$etc/alias.db' 'SELECT 1 FROM alias_table' 2>/dev/null"
mdomain refresh >"$scratch/refresh" 2>&1 &
refresh=$!
wait_for "its lock of the model" bash -c "! sqlite3 '$database' 'BEGIN IMMEDIATE' 2>/dev/null || ! kill -0 $refresh 2>/dev/null"
sqlite3 -cmd '.timeout 6000' "$database" 'BEGIN IMMEDIATE; ROLLBACK' || fail "the model stays locked"
wait $refresh && fail "a refresh without the table of addresses"
matches "what it says" "$(cat "$scratch/refresh")" 'alias.db.*locked'
echo >"$scratch/held"
wait
good refresh
