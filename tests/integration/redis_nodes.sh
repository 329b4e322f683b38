#!/bin/bash
# The quickstart's company, published through sentinels and pulled by a second machine (a root of its
# own): mail services get the same bytes there. One machine changes anything, which one can be moved,
# and nothing that only one side has is thrown away unless that is said.
# ctest-label: redis
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
sentinels

# machine NAME : a root with the quickstart's accounts, in force for all that follows
machine() {
  use_root "$1"
  root=$MDOMAIN_ROOT
  [ ! -d "$root" ] || return 0
  host_ini "node = $1"
  eval "$(sed -n '/^cat >"\$root\/etc\//,/^END$/p' "$source_dir/quickstart")"
  bcc_compiler
}
# answers FOLDER : what mail services of the machine in force are answered
answers() {
  mkdir "$1"
  good disclaimer generate
  echo "$out" >"$1/disclaimers"
  good owner lookup erika@bücher.example erik@xn--bcher-kva.example zoe@example.org
  echo "$out" >"$1/owners"
  [ "$2" != compile ] || "$build/bin/korv_bcc_map" >"$1/compiler" 2>&1 ||
    fail "korv_bcc_map: $(cat "$1/compiler")"
  cp "$target"/etc/{recipient,sender}_bcc "$1"
  sed "s|$MDOMAIN_ROOT||g" "$target/etc/bcc_maps.json" >"$1/bcc_maps.json"
  good --json domain list
  echo "$out" >"$1/domains"
  good --json user list 2
  echo "$out" >"$1/users"
}
# both NAME : both machines answer the same; the second one's maps are those that its pull made
both() {
  (machine first && answers "$scratch/$1-first" compile)
  (machine second && answers "$scratch/$1-second" "")
  rm -f "$scratch/$1-first/compiler"
  alike "$1" "$scratch/$1-first" "$scratch/$1-second"
}
# digests : of everything that was pulled
digests() { find "$MDOMAIN_ROOT/var" -type f ! -name '*bcc*' ! -name mdomain.lock -exec sha256sum {} +; }
# standing STATUS STATES : what node status says of all machines, in the order of their names
standing() {
  run --json node status
  same "node status" "$status $(jq -c 'sort_by(.node) | map(.state)' <<<"$out")" "$1 $2"
}

# Nothing begins by itself: somebody says which machine has the domains.
machine first
fails 3 'node manage if .* node join if' domain create early.example
fails 2 'publish 0 domains.* in which nothing is published' node manage
gives . '{"node":"first"}' node manage --yes
eval "$(grep '^run ' "$source_dir/quickstart" | sed 's/^run/good/')"
good bcc add 1 anna archive@elsewhere.example
good bcc add 1 erika@example.com olivia --type sender
good bcc add 2 bücher.example grace --type domain
cat >"$scratch/disclaimers.json" <<'END'
[{"id": 1, "name": "sales", "enabled": true, "op": "or", "disabled_for_local_recipient": true,
  "content_txt": "Grüße", "content_html": "<p>Grüße</p>", "exception_rule_list": [],
  "match_rule_list": [{"target": "sender", "pattern_type": "uid", "pattern": 1002},
                      {"target": "sender", "pattern_type": "gid", "pattern": 2001},
                      {"target": "recipient", "pattern_type": "email", "pattern": "*@bücher.example"}]}]
END
good disclaimer set 1 "$scratch/disclaimers.json"
sqlite3 "$etc/alias.db" "create table alias_table(name TEXT NOT NULL, domain_id INTEGER NOT NULL,
     PRIMARY KEY(domain_id, name));
   create table alias_member_table(alias TEXT NOT NULL, domain_id INTEGER NOT NULL,
     kind TEXT NOT NULL, member TEXT NOT NULL, PRIMARY KEY(domain_id, alias, kind, member));
   insert into alias_table values('team', 1);
   insert into alias_member_table values('team', 1, 'user', 'anna');
   pragma user_version = 1"
good bcc add 1 team ben
good publish
standing 0 '["current"]'
fails 3 'manages the domains and pulls from nobody' node pull

# A machine without domains joins with its first pull.
machine second
fails 3 'managed on first \(term 1\).*take-over' node manage
gives '[.[] | select(.path != "" and .result != "replaced")], [.[] | select(.path != "").key]' '[]
["alias_db","bcc_db","email_owner_db","mailserver_domain_db","sync_disclaimer_content_file-1"]' node pull
before=$(digests)
both published
same "files that were only read" "$(digests)" "$before"
grep -q 'Grüße' "$scratch/published-second/disclaimers" || fail "no disclaimer was generated"
grep -q 'xn--bcher-kva.example' "$scratch/published-second/recipient_bcc" || fail "no rule in a map"
gives '[.[].result] | unique' '["unchanged"]' node pull

# It refuses what would change something, and tells what it lacks.
for command in "domain create a.example" "refresh" "publish" "bcc remove 1 anna" "owner build" \
  "config set a b" "domain delete 2 --yes" "disclaimer disable 1 1"; do
  # shellcheck disable=SC2086
  fails 3 'managed on first' $command
done
same "files after refusals" "$(digests)" "$before"
standing 0 '["current","current"]'
rm "$etc/mailserver.db" "$target/etc/bcc_maps.json"
standing 1 '["current","file bcc_db is missing"]'
run --json node check
same "what check mended" "$(jq -c .mended <<<"$out")" '["file bcc_db was pulled"]'
[ -e "$target/etc/bcc_maps.json" ] || fail "no maps after the settings were pulled"
standing 0 '["current","current"]'

# A login that may only read is enough to pull.
password_file reader readpw
PASSWORD=reader host_ini "node = second" "user = reader"
gives '[.[].result] | unique' '["unchanged"]' node pull
matches "pulling without writing" "$err" 'NOPERM'
host_ini "node = second"

# Each of these publishes what it changes; a watching machine follows, with its maps.
mdomain node pull --watch --interval 1 >"$scratch/watch" 2>&1 &
watcher=$!
machine first
good user set 1 anna --alias anna.schmidt
good owner build
good bcc add 1 ben anna@example.com
good disclaimer disable 1 1
good disclaimer enable 1 1
sqlite3 "$etc/alias.db" "insert into alias_table values('info', 1)"
run --json node status
same "a file that nobody published" "$(jq -c '.[] | select(.node == "first").state' <<<"$out")" \
  '"in the key store: file alias_db differs"'
good publish
wait_for "the watching machine" mdomain node status
machine second
rm "$etc/alias.db"
wait_for "a file that was lost" test -e "$etc/alias.db"
wait_for "its maps" test "$target/etc/bcc_maps.json" -nt "$etc/alias.db"
stop TERM $watcher
matches "what a watching machine shows" "$(cat "$scratch/watch")" 'replaced +email_owner_db'
both changed
cmp -s "$scratch/published-first/recipient_bcc" "$scratch/changed-first/recipient_bcc" &&
  fail "nothing changed"

# The management moves: the first machine is the one that is refused, and joins.
machine second
fails 2 'no longer on first \(term 1\)' node take-over
gives '[.node, .before]' '["second","first"]' node take-over --yes
good domain create moved.example
machine first
fails 3 'second \(term 2\).*node join' domain create late.example
standing 1 '["replaced by second (term 2)","current"]'
fails 3 'node join' node pull
gives '[.manager, .version > 0]' '["second",true]' node join
both moved
good domain show moved.example

# And back, with what this machine has instead of what was published. The folder holds what it had.
rm "$target/etc/email_owner.db"
sqlite3 "$database" "update domain_table set domain_desc = 'kept' where domain_name = 'moved.example'"
gives .before '"second"' node take-over --keep --yes
same "a file kept aside" "$(sqlite3 "$(jq -r .kept <<<"$out")/local_DOMAIN.db" \
  "select domain_desc from domain_table where domain_name = 'moved.example'")" kept
machine second
good node join
gives .description '"kept"' domain show moved.example
mv "$database" "$scratch/model"
fails 3 'nothing is published: .* has no domain' node take-over --keep --discard --yes
mv "$scratch/model" "$database"

# A machine that has domains of its own joins only when they may go; they lie aside then.
machine third
rm "$root/etc/mailserver-domain/host.ini"
good domain create own.example
good config set only_here 1 --force
host_ini "node = third"
fails 3 'has domains' node pull
fails 3 'domain own.example; key only_here' node join
fails 3 'domain own.example' node take-over --yes
fails 3 'what this machine lacks: publication .*; domains .*, example.com, moved.example' node take-over --keep --yes
same "domains after refusals" "$(sqlite3 "$database" "select domain_name from domain_table")" own.example
good --json node join --discard
same "the domains kept aside" \
  "$(sqlite3 "$(jq -r .kept <<<"$out")/local_DOMAIN.db" "select domain_name from domain_table")" own.example
fails 4 'no key "only_here"' config get only_here
standing 0 '["current","current","current"]'

# Two machines take over at once: the one that was shown something else does not.
machine second
mkfifo "$scratch/answer"
script -qec "mdomain node take-over" /dev/null <"$scratch/answer" >"$scratch/question" 2>&1 &
asking=$!
exec 3>"$scratch/answer"
wait_for "the question" grep -q 'no longer on first' "$scratch/question"
(machine third && good node take-over --yes)
echo y >&3
wait $asking
same "status of the later one" $? 1
matches "its message" "$(cat "$scratch/question")" 'meanwhile another machine took over, third \(term 4\): nothing is lost'
good node pull
