#!/bin/bash
# mdomain while the key store fails: a change is done all the same and its status says that it was not
# published; a server stops in the middle of a publication, comes back empty or with an older state, is
# a replica; a pull is killed.
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
  same "$1: left behind" "$(find "$etc" -name '.mdomain-*')" ""
  third
}
# unpublished REGEX COMMAND... : it is done here, and says so.
unpublished() {
  run "${@:2}"
  same "status of ${*:2}" "$status" 6
  matches "message of ${*:2}" "$err" "^mdomain: done here, not published: .*$1"
}
# fill TEXT : texts of disclaimers that take their time, no part of them twice
size=30000000
fill() { mkdir -p "$etc/disclaimer_content" && seq -f "$1 %.0f" 9999999 | head -c $size >"$etc/disclaimer_content/domain-1"; }
new_root third
PORT=16390
third
good node manage --yes
good domain create example.com
fill before
good publish
arrives "the first publication"

# A server that stops while a content is sent: said within the time-outs; what was there before is
# still whole, and the next publication completes it. Sometimes mdomain is quicker than this script.
for attempt in 1 2 3 4 5; do
  fill "after$attempt"
  before=$(redis 16390 hlen mail:pieces:sync_disclaimer_content_file-1)
  mdomain publish >"$scratch/publish" 2>&1 &
  publisher=$!
  until [ "$(redis 16390 hlen mail:pieces:sync_disclaimer_content_file-1)" != "$before" ] ||
    ! kill -0 $publisher 2>/dev/null; do :; done
  kill -STOP "$(pid_of 16390)"
  wait $publisher
  status=$?
  kill -CONT "$(pid_of 16390)"
  [ $status -eq 0 ] || break
  fill before
  good publish
done
same "status of a publication that was cut off" "$status" 1
matches "its message" "$(cat "$scratch/publish")" 'nothing was published: .*no answer in time'
fourth
good node pull
matches "after a publication that was cut off" "$(head -c 6 "$etc/disclaimer_content/domain-1")" before
third
good domain names add 1 next.example
arrives "the next publication"

# A server that is away changes no answer and stops no change. It comes back empty, and the next
# change fills it; a machine that watches outlives that, and says so once.
fourth
mdomain node pull --watch --interval 1 >"$scratch/watched" 2>"$scratch/watch" &
watcher=$!
third
stop KILL "$(pid_of 16390)"
wait_for "the watching machine's word" grep -q "cannot connect" "$scratch/watch"
unpublished 'cannot connect' config set kept 1 --force
unpublished 'cannot connect' domain names add 1 while.example
run --json domain create other.example
same "a change with --json" "$status $(jq .name <<<"$out")" '6 "other.example"'
fails 3 '' domain create other.example
good config get kept
same "a setting that was not published" "$out" 1
run --json node status
same "status without a server" "$status $(jq -c 'map(.state)' <<<"$out")" '1 ["unpublished changes"]'
fails 1 'nothing was published: .*cannot connect' publish
fails 1 'cannot connect' node check
server 16390
run node status
matches "an empty store" "$err" 'the key store is empty'
fill refilled
good config set kept 2
wait_for "the watching machine's copy" cmp "$etc/disclaimer_content/domain-1" "$scratch/fourth${etc#"$MDOMAIN_ROOT"}/disclaimer_content/domain-1"
wait_for "its word" grep -q "pulling again" "$scratch/watch"
stop TERM $watcher
same "how often it said that the server is away" "$(grep -c 'not everything' "$scratch/watch")" 1
arrives "a server that came back empty"
fourth
good config get kept
same "a setting that was set while the server was away" "$out" 2

# A replica is all there is: changes are not published, and that is said.
wait_for "the replica" redis_says master_link_status:up 16391 info replication
PORT=16391 third
unpublished 'is a replica of 127.0.0.1:16390 and takes no writes' domain names add 1 unpublished.example
unpublished 'takes no writes' config set key value --force
unpublished 'takes no writes' owner build
fails 1 'takes no writes' publish
PORT=16391 fourth
good node pull
matches "a pull from a replica" "$err" 'takes no writes'
third
run node check --quiet
matches "what the replica refused" "$out" 'mended: .*additional_domain-1'
fourth
good node pull
good config get additional_domain-1
same "the next publication" "$out" "next.example, unpublished.example, while.example"

# A store with an older state takes nobody back, and its manager puts it right.
redis 16390 hset mail:state version 1 >/dev/null
fails 3 'publication 1, which is older than .*--accept-older' node pull
third
good publish
fourth
good node pull
third

# A change that nobody published is not thrown away by a join, unless that is said.
stop KILL "$(pid_of 16391)"
PORT=16391 third
unpublished 'cannot connect' domain create mine.example
third
fourth
good node take-over --yes
good domain create theirs.example
third
fails 3 'another machine took the domains over, fourth' domain create late.example
fails 3 'changes since .* never published; domain mine.example' node join
fails 3 'what this machine lacks: publication .*; domain theirs.example' node take-over --keep --yes
run node take-over --keep --discard --yes
same "taking over with what was never published" "$status" 0
matches "what is thrown away" "$err" 'only the key store has domain theirs.example'
fourth
good node join --discard
good domain show mine.example

# A pull that is killed leaves the old or the new file; the next one finishes.
third
fill again
good publish
fourth
for delay in .1 .2 .3 .4; do
  mdomain node pull >/dev/null 2>&1 &
  puller=$!
  sleep $delay
  stop KILL $puller
  same "size after a killed pull" "$(stat -c %s "$etc/disclaimer_content/domain-1")" $size
  same "a file after a killed pull" "$(cut -d ' ' -f 1 "$etc/disclaimer_content/domain-1" | sort -u | wc -l)" 1
done
third
arrives "a pull after killed ones"
