#!/bin/bash
# Changes on a machine that manages, beside a primary, two replicas and three sentinels on machines of
# their own, while the network is cut around the manager, the primary and one sentinel, and while the
# primary changes: what was reported as done, published (0) or not (6), is on the manager,
# and after a check in the store and on a machine that pulls. The short form has one failover besides
# the cut; CHANGES=300 is the long one, with three.
# ctest-label: redis
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
changes=${CHANGES:-60} ways=killed
[ "$changes" -lt 300 ] || ways="asked killed asked"

servers=(16379 16380 16381)
network "${servers[@]}" 26379 26380 26381 manager puller ||
  { echo "no network of namespaces here (bridge and veth are needed)" && exit 77; }
sentinels "appendonly yes"
mdomain() { ${place[$machine]} "$build/bin/mdomain" "$@"; }
manager() { machine=manager && use_root manager; }
puller() { machine=puller && use_root puller; }

# primary : the port of the server that the sentinels on this side have voted for
primary() { redis 26380 sentinel get-master-addr-by-name mail 2>/dev/null | tail -n 1; }
moved() { [ "$(primary)" != "$1" ] || { echo "still $1" && return 1; }; }

# change NUMBER : one change of a kind in turn; notes how it ended
change() {
  local kinds=("config set cut-$1 x --force" "domain names add 1 n$1.example" "bcc add 1 r$1@elsewhere.example ben"
    "disclaimer set 1 $scratch/list")
  local kind=$(($1 % 4))
  sed "s/NUMBER/$1/" "$scratch/template" >"$scratch/list"
  # shellcheck disable=SC2086
  run ${kinds[$kind]}
  echo "$status $kind $1 $err" >>"$scratch/made"
}
keep_changing() {
  local number=0
  until [ -e "$scratch/enough" ]; do change $((number += 1)); done
}
made() { [ "$(wc -l <"$scratch/made")" -ge "$1" ] || { echo "$(wc -l <"$scratch/made") of $1" && return 1; }; }
more() { wait_for "$1 more changes" made $(($(wc -l <"$scratch/made") + $1)); }
check() { mdomain node check; }

# what_is_there : kind and number of each change that the machine in force has
what_is_there() {
  good --json config list
  jq -r 'keys[] | select(startswith("cut-")) | "0 " + .[4:]' <<<"$out"
  good --json domain list
  jq -r '.[0].additional_names[] | select(test("^n[0-9]")) | "1 " + .[1:-8]' <<<"$out"
  good --json bcc list 1
  jq -r '.[].name | select(endswith("@elsewhere.example")) | "2 " + .[1:-18]' <<<"$out"
  good --json disclaimer get 1
  jq -r '.[0].name | "3 " + .' <<<"$out"
}
# nothing_missing NAME : of a disclaimer, which replaces the one before, the last one counts
nothing_missing() {
  awk '$1 == 0 || $1 == 6 {if ($2 == 3) last = $2 " " $3; else print $2, $3}
       END {if (last) print last}' "$scratch/made" | sort >"$scratch/done"
  what_is_there | sort >"$scratch/there"
  same "$1: missing" "$(comm -23 "$scratch/done" "$scratch/there" | paste -sd ,)" ""
}

# under REPLICAS : the whole story with that many replicas to be waited for
under() {
  local cut_off=(manager 26379) before
  rm -rf "$scratch"/{enough,made,manager,puller}
  for name in manager puller; do
    new_root $name
    host_ini "node = $name" "prefix = mail:$1:" "min_replicas = $1" "connect_timeout = 1" "command_timeout = 1"
  done
  manager
  good node manage --yes
  good domain create example.com
  good refresh
  puller
  good node join
  manager
  touch "$scratch/made"
  keep_changing &
  local changer=$!

  more $((changes / 6))
  before=$(primary)
  sever "${cut_off[@]}" "$before"
  wait_for "another primary" moved "$before"
  more 4
  rejoin "${cut_off[@]}" "$before"
  wait_for "three sentinels with two replicas after the cut" settled
  for way in $ways; do
    more $((changes / 6))
    before=$(primary)
    if [ "$way" = killed ]; then
      stop KILL "$(pid_of "$before")"
      wait_for "another primary" moved "$before"
      server "$before" "$(printf 'appendonly yes\nreplicaof %s %s' "${address[$(primary)]}" "$(primary)")"
    else
      redis 26380 sentinel failover mail >/dev/null 2>&1
      wait_for "another primary" moved "$before"
    fi
    wait_for "three sentinels with two replicas" settled
  done
  wait_for "$changes changes" made "$changes"
  touch "$scratch/enough"
  wait $changer

  same "$1 replicas: neither done nor done and unpublished" "$(grep -v '^[06] ' "$scratch/made")" ""
  grep -q '^6 ' "$scratch/made" || fail "$1 replicas: the cut and the failovers met no change"
  nothing_missing "$1 replicas, manager"
  wait_for "a check after all" check
  puller
  good node pull
  good node status
  nothing_missing "$1 replicas, puller"
  echo "$1 replicas: $(wc -l <"$scratch/made") changes, $(grep -c '^6 ' "$scratch/made") unpublished at first"
}
echo '[{"id": 1, "name": "NUMBER", "enabled": true, "op": "or", "disabled_for_local_recipient": false,
  "content_txt": "x", "content_html": "", "exception_rule_list": [],
  "match_rule_list": [{"target": "sender", "pattern_type": "uid", "pattern": 1001}]}]' >"$scratch/template"
under 0
under 1
