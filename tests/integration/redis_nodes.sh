#!/bin/bash
# The quickstart's company, published through sentinels and pulled by a second machine (a root of its
# own): the mail services' questions get the same bytes there. Only one machine changes anything, and
# which one can be moved.
# ctest-label: redis
# ctest-timeout: 240
. "$(dirname "$0")/../support/redis.sh"
. "$(dirname "$0")/../support/cli.sh"
sentinels
command -v postmap >/dev/null || fail "postmap is missing"

# machine NAME : a root with the company's accounts, in force for all that follows
machine() {
  export MDOMAIN_ROOT=$scratch/$1
  local root=$MDOMAIN_ROOT
  [ ! -d "$root" ] || return 0
  mkdir -p "$root/etc/mailserver-domain" "$root/var/packages/Postara-Server/target/bin"
  eval "$(sed -n '/^cat >"\$root\/etc\//,/^END$/p' "$source_dir/quickstart")"
  host_ini "node = $1"
  ln -s "$build/bin/korv_bcc_map" "$root/var/packages/Postara-Server/target/bin/"
}
target() { echo "$MDOMAIN_ROOT/var/packages/Postara-Server/target/etc"; }
# answers FOLDER : what the mail services of the machine in force answer
answers() {
  mkdir -p "$1"
  mdomain disclaimer generate >"$1/disclaimers" 2>"$1/messages" || fail "generate: $(cat "$1/messages")"
  mdomain owner lookup erika@bücher.example erik@xn--bcher-kva.example zoe@example.org \
    >"$1/owners" 2>&1 || fail "lookup: $(cat "$1/owners")"
  "$build/bin/korv_bcc_map" >"$1/compiler" 2>&1 || fail "korv_bcc_map: $(cat "$1/compiler")"
  cp "$(target)/recipient_bcc" "$(target)/sender_bcc" "$1"
  sed "s|$MDOMAIN_ROOT||g" "$(target)/bcc_maps.json" >"$1/bcc_maps.json"
  mdomain --json domain list >"$1/domains" && mdomain --json user list 2 >"$1/users" ||
    fail "domains and users cannot be listed"
}
# alike NAME : both machines answer the same
alike() {
  (machine first && answers "$scratch/$1-first")
  (machine second && answers "$scratch/$1-second")
  diff -r "$scratch/$1-first" "$scratch/$1-second" || fail "$1: the machines answer differently"
}
# digests : of everything that was pulled
digests() { find "$MDOMAIN_ROOT/var" -type f ! -name '*bcc*' ! -name mdomain.lock -exec sha256sum {} +; }

machine first
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
sqlite3 "$MDOMAIN_ROOT/var/packages/Postara-Server/etc/alias.db" \
  "create table alias_table(name TEXT NOT NULL, domain_id INTEGER NOT NULL,
     PRIMARY KEY(domain_id, name));
   create table alias_member_table(alias TEXT NOT NULL, domain_id INTEGER NOT NULL,
     kind TEXT NOT NULL, member TEXT NOT NULL, PRIMARY KEY(domain_id, alias, kind, member));
   insert into alias_table values('team', 1);
   insert into alias_member_table values('team', 1, 'user', 'anna');
   pragma user_version = 1"
good bcc add 1 team ben
good publish

machine second
good --json node pull
field '[.[] | select(.result != "replaced")]' '[]'
field '[.[].key]' '["alias_db","bcc_db","email_owner_db","mailserver_domain_db","sync_disclaimer_content_file-1"]'
before=$(digests)
alike published
same "files that were only read" "$(digests)" "$before"
grep -q 'Grüße' "$scratch/published-second/disclaimers" || fail "no disclaimer was generated"
grep -q 'xn--bcher-kva.example' "$scratch/published-second/recipient_bcc" || fail "no rule in a map"
good --json node pull
field '[.[].result] | unique' '["unchanged"]'

# The second machine refuses what would change something, makes its own maps, and shows what it has.
for command in "domain create a.example" "refresh" "publish" "bcc remove 1 anna" "owner build" \
  "config set a b" "domain delete 2 --yes"; do
  # shellcheck disable=SC2086
  run $command
  same "status of $command on the second machine" "$status" 3
  matches "message of $command" "$err" 'managed on first'
done
same "files after refusals" "$(digests)" "$before"
good bcc maps
good --json node status
field '[.[] | select(.node == "second") | .state] | unique' '["current"]'
field '[.[] | select(.node == "first") | .state] | unique' '["published"]'

# A login that may only read is enough to pull.
password_file reader readpw
PASSWORD=reader host_ini "node = second" "user = reader"
good --json node pull
field '[.[].result] | unique' '["unchanged"]'
matches "pulling without writing" "$err" 'NOPERM'
host_ini "node = second"

# Each of these publishes what it changes; a watching machine follows.
mdomain node pull --watch --interval 1 >"$scratch/watch" 2>&1 &
watcher=$!
machine first
good user set 1 anna --alias anna.schmidt
good owner build
good bcc add 1 ben anna@example.com
good disclaimer disable 1 1
good disclaimer enable 1 1
sqlite3 "$MDOMAIN_ROOT/var/packages/Postara-Server/etc/alias.db" \
  "insert into alias_table values('info', 1)"
good --json node status
field '[.[] | select(.node == "second") | .path | startswith("/var/packages/")] | unique' '[true]'
good publish
wait_for '! mdomain --json node status | jq -e ".[] | select(.state == \"old\")" >/dev/null'
kill $watcher
wait $watcher 2>/dev/null
matches "what a watching machine shows" "$(cat "$scratch/watch")" 'replaced +email_owner_db'
alike changed
cmp -s "$scratch/published-first/recipient_bcc" "$scratch/changed-first/recipient_bcc" &&
  fail "nothing changed"

# The writer moves: the first machine is the one that is refused, and follows.
machine second
run node take-over
same "taking over without a yes" "$status" 2
good --json node take-over --yes
field . '{"before":"first","node":"second"}'
good domain create moved.example
machine first
run domain create late.example
same "the machine that managed before" "$status" 3
good node pull
matches "pulled by the machine that managed before" "$out" 'replaced +mailserver_domain_db'
alike moved
good domain show moved.example

# And back, with what this machine has instead of what was published.
rm "$(target)/email_owner.db"
sqlite3 "$MDOMAIN_ROOT/var/packages/Postara-Server/etc/local_DOMAIN.db" \
  "update domain_table set domain_desc = 'kept' where domain_name = 'moved.example'"
good node take-over --keep --yes
machine second
good node pull
good --json domain show moved.example
field .description '"kept"'
finish
