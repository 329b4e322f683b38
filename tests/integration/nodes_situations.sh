#!/bin/bash
# What goes wrong between machines that share a key store, case by case: the store emptied, evicted,
# full, older, damaged, away; a second machine that begins, a take-over in the middle of a refresh; the
# backend switched. Nobody loses anything, and each machine says how it stands.
# ctest-label: redis
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
password_file right s3cret
PORT=16390
server $PORT "appendonly yes"

# on NAME : the machine's root is in force; new_machine NAME : a new one
on() { use_root "$case-$1"; }
new_machine() { new_root "$case-$1" && host_ini "node = $1" "connect_timeout = 1" "command_timeout = 1"; }
# has NAME : whether the machine in force has the case's domain, setting and disclaimer
has() {
  gives '[.[].name]' '["example.com"]' domain list
  good config get setting
  same "$case, $1: setting" "$out" value
  gives '.[0].name' '"text"' disclaimer get 1
}
all_have() { for name in "$@"; do on "$name" && has "$name"; done; }
fill() {
  good domain create example.com
  good config set setting value --force
  disclaimer "${1:-10}"
}
# text LENGTH : a disclaimer with a text of random bytes; disclaimer LENGTH : sets it
text() {
  printf '[{"id": 1, "name": "text", "enabled": true, "op": "or", "disabled_for_local_recipient": false,
    "content_txt": "%s", "content_html": "", "exception_rule_list": [],
    "match_rule_list": [{"target": "sender", "pattern_type": "uid", "pattern": 1001}]}]' \
    "$(head -c "$1" /dev/urandom | base64 -w0)" >"$scratch/text"
}
disclaimer() { text "$1" && good disclaimer set 1 "$scratch/text"; }
# pair : "old" manages a domain, a setting and a disclaimer, "member" pulls
pair() {
  new_machine old
  good node manage --yes
  fill "$@"
  new_machine member
  good node join
}
# shellcheck disable=SC2086
refused_here() { for words in "$@"; do fails 3 '' $words; done; }
size() { redis $PORT dbsize; }

# A new machine's timer comes first, on a store that is empty: nothing begins by itself.
second_machine() {
  new_machine fresh
  refused_here refresh publish "config set a b" "domain create fresh.example"
  same "the store after a new machine's refresh" "$(size)" 0
  new_machine old
  good node manage --yes
  fill
  refused_here "node pull" "node pull --accept-older"
  on fresh
  refused_here refresh publish "node manage --yes"
  good node pull
  all_have fresh old
}

# An emptied or evicted store stays its manager's, who fills it by whatever comes next.
emptied() {
  pair
  new_machine fresh
  for lost in 'flushall' 'del mail:state' 'del mail:tree: mail:key:setting' 'unlink mail:files mail:file:bcc_db' \
    'hset mail:state token x' 'set mail:key:setting other'; do
    # shellcheck disable=SC2086
    redis $PORT $lost >/dev/null
    on fresh
    refused_here refresh
    on member
    run node pull # what it says depends on what is lost; it loses nothing
    all_have member old
    good domain names add 1 "n$((number += 1)).example"
    on member
    good node pull
    has "member after: $lost"
  done
}

# Machines answer while the server evicts and refuses; the next change makes it good, and leaves
# nothing of what was refused.
full() {
  pair
  on old
  redis $PORT config set maxmemory-policy allkeys-lru >/dev/null
  fails_with 1 'evict|allkeys-lru' node check
  redis $PORT config set maxmemory 1 >/dev/null
  redis $PORT set other 1 >/dev/null 2>&1
  all_have old member
  on old
  redis $PORT config set maxmemory-policy noeviction >/dev/null
  run config set more 1 --force
  same "status of a change that a full store refuses" "$status" 6
  matches "its message" "$err" 'done here, not published: .*(OOM|memory)'
  redis $PORT config set maxmemory "$(($(redis $PORT info memory | sed -n 's/^used_memory:\([0-9]*\).*/\1/p') + 600000))" >/dev/null
  text 3000000
  run disclaimer set 1 "$scratch/text"
  same "status of an upload that is refused" "$status" 6
  redis $PORT config set maxmemory 0 >/dev/null
  disclaimer 10
  good node check
  same "pieces of a small text" "$(redis $PORT hlen mail:pieces:sync_disclaimer_content_file-1)" 1
  on member
  good node pull
  all_have old member
}

# A machine takes over while the one before refreshes: what that publishes afterwards fails whole.
overtaken() {
  pair
  on old
  seq 300001 303000 | sed 's|.*|u&:x:&:2001:User:/home/u:/bin/bash|' >>"$MDOMAIN_ROOT/etc/passwd"
  printf 'UID_MAX 399999\n' >"$MDOMAIN_ROOT/etc/login.defs"
  mdomain refresh >"$scratch/refresh" 2>&1 &
  local refresh=$!
  wait_for "the refresh's transaction" test -e "$database-journal"
  kill -STOP $refresh
  on member
  good node take-over --yes
  good domain create new.example
  kill -CONT $refresh
  wait $refresh
  same "status of the overtaken refresh" $? 6
  matches "its last line" "$(tail -n 1 "$scratch/refresh")" 'done here, not published: .*member manages'
  gives '[.[].name]' '["example.com","new.example"]' domain list
  on old
  refused_here refresh "node pull"
  fails 3 'has what the key store lacks' node join
  gives 'length' 3005 user list 1
  good node join --discard
  gives '[.[].name]' '["example.com","new.example"]' domain list
  same "users that were kept aside" \
    "$(sqlite3 "$etc"/kept-*/local_DOMAIN.db 'select count(*) from domain_user_alias_table')" 3005
}

# The backend is switched there and back.
switched() {
  new_root "$case-old"
  fill
  has embedded
  host_ini "node = old"
  refused_here refresh "config set setting other"
  has undecided
  good node manage --yes
  new_machine member
  good node pull
  all_have old member
  on old
  mv "$MDOMAIN_ROOT/etc/mailserver-domain/host.ini" "$scratch/host.ini"
  has "embedded again"
  good config set later here --force
  mv "$scratch/host.ini" "$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
  good node check
  all_have member old
  on member
  good node pull
  good config get later
  same "what was set meanwhile" "$out" here
}

# status tells the truth, and so do the statuses of commands.
told() {
  pair
  gives '[.[] | [.node, .role, .state]] | sort' \
    '[["member","pulls","current"],["old","manages","current"]]' node status
  rm "$etc/mailserver.db"
  fails_with 1 'bcc_db is missing' node status
  good node check
  good node status
  redis $PORT flushall >/dev/null
  fails_with 1 'empty' node status
  on old
  fails_with 1 'empty' node status
  good publish
  stop KILL "$(pid_of $PORT)"
  run config set setting later
  same "status of a change without a server" "$status" 6
  run disclaimer disable 1 1
  same "status of a disclaimer without a server" "$status" 6
  matches "its last line" "$(tail -n 1 <<<"$err")" "^mdomain: done here, not published: .*$PORT"
  fails_with 1 'nothing was published' publish
  fails_with 1 'unpublished changes' node status
  on member
  fails_with 1 'does not answer' node status
  fails_with 1 '' node pull
  has "the member without a server"
  server $PORT "appendonly yes"
  on old
  fails_with 1 'unpublished changes' node status
  good node check
  good node status
}
# fails_with STATUS REGEX COMMAND... : as fails, and it may print rows before
fails_with() {
  run "${@:3}"
  same "status of: ${*:3}" "$status" "$1"
  matches "output of: ${*:3}" "$out$err" "$2"
}

# A server that comes back older takes no machine back, and a damaged piece none forward.
older() {
  pair 100000
  stop TERM "$(pid_of $PORT)"
  cp -r "$scratch/$PORT/appendonlydir" "$scratch/older"
  server $PORT "appendonly yes"
  on old
  good config set newer 1 --force
  on member
  good node pull
  stop TERM "$(pid_of $PORT)"
  rm -r "$scratch/$PORT/appendonlydir" && mv "$scratch/older" "$scratch/$PORT/appendonlydir"
  server $PORT "appendonly yes"
  refused_here "node pull"
  good config get newer
  same "what an older store lacks" "$out" 1
  good node pull --accept-older
  fails 4 'no key "newer"' config get newer
  on old
  good refresh
  on member
  good node pull
  good config get newer
  same "what the manager published again" "$out" 1

  local piece file=sync_disclaimer_content_file-1
  piece=$(redis $PORT --no-raw hkeys mail:pieces:$file | sed -n '2s/^[^"]*//p')
  printf 'hset mail:pieces:%s %s damaged\n' $file "$piece" | redis $PORT >/dev/null
  rm "$etc/disclaimer_content/domain-1"
  fails_with 1 '' node pull
  [ ! -e "$etc/disclaimer_content/domain-1" ] || fail "a damaged file was put in place"
  on old
  fails_with 0 "$file" node check
  on member
  good node pull
  all_have old member
}

# After a pull the maps, the flags and the administrator's programs have followed.
followed() {
  pair
  on old
  good refresh
  good user add 1 anna --alias anna.schmidt
  on member
  bcc_compiler
  good node pull
  local flags=$MDOMAIN_ROOT/var/run/postara_server/update_smtp_user_list hooks=$MDOMAIN_ROOT/etc/mailserver-domain/hooks/after-pull.d
  rm -rf "$flags"
  mkdir -p "$hooks"
  printf '#!/bin/sh\ncat >%s/told\n' "$scratch" >"$hooks/10-tell"
  printf '#!/bin/sh\nexit 3\n' >"$hooks/20-fail"
  chmod 755 "$hooks"/*
  on old
  good user set 1 anna --add-alias anna.new
  good bcc add 1 anna archive@elsewhere.example
  on member
  fails_with 1 '20-fail' node pull
  matches "the map" "$(cat "$target/etc/recipient_bcc")" 'anna.new@example.com'
  [ -e "$flags/1001" ] || fail "no flag for a user whose addresses changed: $(ls "$flags")"
  same "what a program was told" "$(jq -c '[.uids, ([.files[].key] | sort)]' "$scratch/told")" \
    '[[1001],["bcc_db","mailserver_domain_db"]]'
  # What an older manager published is read as it came; written to, it would be pulled again.
  local model=$MDOMAIN_ROOT/var/packages/Postara-Server/etc/local_DOMAIN.db before
  sqlite3 "$model" "DROP INDEX mdomain_alias; PRAGMA user_version = 3"
  before=$(sha256sum <"$model")
  good user list 1
  same "a model of an older manager" "$(sha256sum <"$model")" "$before"
}

number=0
for case in ${ONLY:-second_machine emptied full overtaken switched told older followed}; do
  redis $PORT flushall >/dev/null
  $case
done
