#!/bin/bash
# Two mdomain processes on one root lose nothing; who waits too long says so and changes nothing.
# ctest-timeout: 300
. "$(dirname "$0")/../support/cli.sh"

new_root company
good domain create example.com
good refresh

# Each of them creates domains, names and aliases of its own; a refresh runs beside them.
worker() {
  local n
  for n in 1 2 3 4 5; do
    mdomain domain create "$1-$n.example" --no-auto-add >/dev/null || return 1
    mdomain domain names add example.com "$1-$n.example.org" >/dev/null || return 1
    mdomain user set example.com anna --add-alias "anna.$1$n" >/dev/null || return 1
    mdomain refresh >/dev/null || return 1
  done
}
worker a 2>"$scratch/a.err" &
first=$!
worker b 2>"$scratch/b.err" &
second=$!
wait "$first" || fail "first worker: $(cat "$scratch/a.err")"
wait "$second" || fail "second worker: $(cat "$scratch/b.err")"
good --json domain list
field 'length' 11
field '[.[].id] | unique | length' 11
field '[.[] | select(.id == 1) | .additional_names | length]' '[10]'
good --json user list 1 --query anna
field '[.[] | select(.name == "anna") | .aliases | length]' '[11]'
same integrity "$(sqlite3 "$(database)" 'PRAGMA integrity_check; PRAGMA foreign_key_check')" ok
good --json config list
field '.virtual_multiple_domain | split(", ") | length' 11

# Somebody holds the lock: readers pass, changes wait and give up.
exec 9>>"$MDOMAIN_ROOT/var/run/postara_server/mdomain.lock"
flock 9
good domain list
good refresh --dry-run
run --lock-timeout 1 domain create late.example 9>&-
same "status of who waited too long" "$status" 1
matches "message of who waits" "$err" 'waiting for another mdomain'
matches "message of who waited too long" "$err" 'after 1 seconds, nothing was changed'
(sleep 2 && flock -u 9) &
good domain create patient.example 9>&-
wait
good --json domain list
field '[.[].name] | [index("late.example"), index("patient.example") != null]' '[null,true]'
finish
