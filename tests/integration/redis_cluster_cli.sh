#!/bin/bash
# mdomain while the key store fails: the primary dies under a loop of changes, a server stops in the
# middle of a publication and comes back empty, a replica is all there is, the password is wrong, a
# pull is killed.
# ctest-label: redis
# ctest-timeout: 240
. "$(dirname "$0")/../support/redis.sh"
. "$(dirname "$0")/../support/cli.sh"
sentinels
server 16390
server 16391 "replicaof 127.0.0.1 16390"
password_file wrong guess
etc() { echo "$MDOMAIN_ROOT/var/packages/Postara-Server/etc"; }
redis() { REDISCLI_AUTH=s3cret redis-cli -p "$@"; }
server_process() { cat "$scratch/$1/pid"; }

# Every name that was reported as published is asked for again, from the new primary before anything
# else is written to it.
new_root failover
host_ini "node = failover" "min_replicas = 1" "connect_timeout = 2" "command_timeout = 2"
good domain create example.com
reported=() failed=0 after=0
check_reported() {
  local name
  for name in "${reported[@]}"; do
    [[ ", $stored, " == *", $name, "* ]] || fail "$name was published and is gone: $stored"
  done
}
for i in $(seq 60); do
  [ "$i" -ne 5 ] || (sleep .2 && kill -KILL "$(server_process 16379)") &
  run domain names add 1 "name$i.example"
  if [ "$status" -eq 0 ] && ! grep -q 'not health' <<<"$err"; then
    reported+=("name$i.example")
    after=$((after + (failed > 0)))
  else
    failed=$((failed + 1))
    matches "message of a change that was not published" "$err" 'key store redis mail'
    wait_for 'mdomain config get additional_domain-1 >/dev/null 2>&1'
  fi
  stored=$(mdomain config get additional_domain-1 2>/dev/null) && check_reported
  [ "$after" -lt 4 ] || break
done
[ "$failed" -gt 0 ] || fail "no change met the failover"
[ "$after" -ge 4 ] || fail "no change was published after the failover"
good publish
good --json node status
field '[.[].state] | unique' '["published"]'

# publishes and pulls: third is the machine that publishes, to one server; fourth pulls.
third() {
  export MDOMAIN_ROOT=$scratch/third
  host_ini "node = third" "connect_timeout = 1" "command_timeout = 1"
}
fourth() {
  new_root fourth
  host_ini "node = fourth"
}
# alike WHEN : what was published has arrived, whole
alike() {
  fourth
  good node pull
  cmp "$scratch/third/var/packages/Postara-Server/etc/alias.db" "$(etc)/alias.db" ||
    fail "$1: not what was published"
  same "$1: domains" "$(sqlite3 "$(etc)/local_DOMAIN.db" .dump)" \
    "$(sqlite3 "$scratch/third/var/packages/Postara-Server/etc/local_DOMAIN.db" .dump)"
  ls -A "$(etc)" | grep pull && fail "$1: something was left behind"
  third
}
# fill TEXT : an alias store that takes its time
size=50000000
fill() { yes "$1" | head -c $size >"$(etc)/alias.db"; }
new_root third
PORT=16390
third
good domain create example.com
fill before
good publish
alike "the first publication"

# A server that stops while a content is sent: said within the time-outs; what was there before is
# still whole, and the next publication completes it.
for attempt in 1 2 3 4 5; do
  fill "after$attempt"
  mdomain publish >"$scratch/publish" 2>&1 &
  publisher=$!
  until [ -n "$(redis 16390 --scan --pattern "mail:upload:*")" ] || ! kill -0 $publisher; do :; done
  kill -STOP "$(server_process 16390)"
  wait $publisher
  status=$?
  [ $status -eq 0 ] || break
  # It was quicker than this script.
  kill -CONT "$(server_process 16390)"
  fill before
  good publish
done
same "status of a publication that was cut off" $status 1
matches "its message" "$(cat "$scratch/publish")" 'no answer in time'
kill -CONT "$(server_process 16390)"
fourth
good node pull
matches "after a publication that was cut off" "$(head -c 6 "$(etc)/alias.db")" before
third
good domain names add 1 next.example
alike "the next publication"

# A server that lost everything is filled by the next publication; a machine that watches outlives it.
fourth
mdomain node pull --watch --interval 1 >/dev/null 2>"$scratch/watch" &
watcher=$!
third
kill -KILL "$(server_process 16390)"
wait "$(server_process 16390)" 2>/dev/null
wait_for 'grep -q "could not\|cannot connect" "$scratch/watch"'
server 16390
fill refilled
good publish
wait_for 'cmp -s "$(etc)/alias.db" "$scratch/fourth/var/packages/Postara-Server/etc/alias.db"'
kill $watcher
wait $watcher 2>/dev/null
alike "a server that came back empty"
good config get additional_domain-1
same "keys of a server that came back empty" "$out" next.example

# A replica is all there is: it is read, changes are not published, and that is said.
wait_for 'redis 16391 info replication | grep -q master_link_status:up'
PORT=16391 third
good domain names add 1 unpublished.example
matches "a change at a replica" "$err" 'is a replica of 127.0.0.1:16390 and takes no writes'
for command in publish "config set key value" "owner build" "bcc add 1 anna ben"; do
  # shellcheck disable=SC2086
  run $command
  same "status of $command at a replica" "$status" 1
  matches "message of $command" "$err" 'takes no writes'
done
PORT=16391 fourth
good node pull
matches "a pull from a replica" "$err" 'takes no writes'
third
good config get additional_domain-1
same "what a replica refused" "$out" next.example
good publish
good config get additional_domain-1
same "the next publication" "$out" "next.example, unpublished.example"

# A wrong password changes nothing.
before=$(state)
PASSWORD=wrong third
for command in "domain names add 1 c.example" "config list" "node pull" publish "refresh"; do
  # shellcheck disable=SC2086
  run $command
  same "status of $command with a wrong password" "$status" 1
  matches "message of $command" "$err" 'AUTH refused: WRONGPASS'
done
third
same "after a wrong password" "$(state)" "$before"

# A pull that is killed leaves the old or the new file; the next one finishes.
fill again
good publish
fourth
for delay in .1 .2 .3 .4; do
  mdomain node pull >/dev/null 2>&1 &
  puller=$!
  sleep $delay
  kill -KILL $puller
  wait $puller 2>/dev/null
  same "size after a killed pull" "$(stat -c %s "$(etc)/alias.db")" $size
  [ "$(sort -u "$(etc)/alias.db" | wc -l)" -le 2 ] || fail "a mixed file after a killed pull"
done
third
alike "a pull after killed ones"
finish
