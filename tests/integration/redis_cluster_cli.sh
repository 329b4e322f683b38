#!/bin/bash
# mdomain while the key store fails: a server stops in the middle of a publication and comes back
# empty, a replica is all there is, a pull is killed.
# ctest-label: redis
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
password_file right s3cret
server 16390
server 16391 "replicaof 127.0.0.1 16390"

# publishes and pulls: third is the machine that publishes, to one server; fourth pulls.
third() {
  use_root third
  host_ini "node = third" "connect_timeout = 1" "command_timeout = 1"
}
fourth() {
  new_root fourth
  host_ini "node = fourth"
}
# arrives WHEN : what was published arrives at the fourth machine, whole.
third_etc=$scratch/third/var/packages/Postara-Server/etc
arrives() {
  fourth
  good node pull
  alike "$1: texts" "$third_etc/disclaimer_content/domain-1" "$etc/disclaimer_content/domain-1"
  same "$1: domains" "$(sqlite3 "$database" .dump)" "$(sqlite3 "$third_etc/local_DOMAIN.db" .dump)"
  same "$1: left behind" "$(find "$etc" -name '*pull*')" ""
  third
}
# fill TEXT : texts of disclaimers that take their time
size=30000000
fill() { mkdir -p "$etc/disclaimer_content" && yes "$1" | head -c $size >"$etc/disclaimer_content/domain-1"; }
new_root third
PORT=16390
third
good domain create example.com
fill before
good publish
arrives "the first publication"

# A server that stops while a content is sent: said within the time-outs; what was there before is
# still whole, and the next publication completes it. Sometimes mdomain is quicker than this script.
for attempt in 1 2 3 4 5; do
  fill "after$attempt"
  mdomain publish >"$scratch/publish" 2>&1 &
  publisher=$!
  until redis_says . 16390 --scan --pattern "mail:upload:*" || ! kill -0 $publisher; do :; done
  kill -STOP "$(pid_of 16390)"
  wait $publisher
  status=$?
  kill -CONT "$(pid_of 16390)"
  [ $status -eq 0 ] || break
  fill before
  good publish
done
same "status of a publication that was cut off" "$status" 1
matches "its message" "$(cat "$scratch/publish")" 'no answer in time'
fourth
good node pull
matches "after a publication that was cut off" "$(head -c 6 "$etc/disclaimer_content/domain-1")" before
third
good domain names add 1 next.example
arrives "the next publication"

# A server that lost everything is filled by the next publication; a machine that watches outlives it.
fourth
mdomain node pull --watch --interval 1 >/dev/null 2>"$scratch/watch" &
watcher=$!
third
stop KILL "$(pid_of 16390)"
wait_for "the watching machine's word" grep -q "could not\|cannot connect" "$scratch/watch"
server 16390
fill refilled
good publish
wait_for "the watching machine's copy" cmp "$etc/disclaimer_content/domain-1" "$scratch/fourth${etc#"$MDOMAIN_ROOT"}/disclaimer_content/domain-1"
stop TERM $watcher
arrives "a server that came back empty"
good config get additional_domain-1
same "keys of a server that came back empty" "$out" next.example

# A replica is all there is: it is read, changes are not published, and that is said.
wait_for "the replica" redis_says master_link_status:up 16391 info replication
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

# A pull that is killed leaves the old or the new file; the next one finishes.
fill again
good publish
fourth
for delay in .1 .2 .3 .4; do
  mdomain node pull >/dev/null 2>&1 &
  puller=$!
  sleep $delay
  stop KILL $puller
  same "size after a killed pull" "$(stat -c %s "$etc/disclaimer_content/domain-1")" $size
  [ "$(sort -u "$etc/disclaimer_content/domain-1" | wc -l)" -le 2 ] || fail "a mixed file after a killed pull"
done
third
arrives "a pull after killed ones"
