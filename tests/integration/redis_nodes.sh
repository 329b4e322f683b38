#!/bin/bash
# The quickstart's company, published through sentinels and pulled by a second machine (a root of its
# own): mail services get the same bytes there. Only one machine changes anything, and which one can
# be moved.
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
  "$build/bin/korv_bcc_map" >"$1/compiler" 2>&1 || fail "korv_bcc_map: $(cat "$1/compiler")"
  cp "$target"/etc/{recipient,sender}_bcc "$1"
  sed "s|$MDOMAIN_ROOT||g" "$target/etc/bcc_maps.json" >"$1/bcc_maps.json"
  good --json domain list
  echo "$out" >"$1/domains"
  good --json user list 2
  echo "$out" >"$1/users"
}
# both NAME : both machines answer the same
both() {
  (machine first && answers "$scratch/$1-first")
  (machine second && answers "$scratch/$1-second")
  alike "$1" "$scratch/$1-first" "$scratch/$1-second"
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
sqlite3 "$etc/alias.db" "create table alias_table(name TEXT NOT NULL, domain_id INTEGER NOT NULL,
     PRIMARY KEY(domain_id, name));
   create table alias_member_table(alias TEXT NOT NULL, domain_id INTEGER NOT NULL,
     kind TEXT NOT NULL, member TEXT NOT NULL, PRIMARY KEY(domain_id, alias, kind, member));
   insert into alias_table values('team', 1);
   insert into alias_member_table values('team', 1, 'user', 'anna');
   pragma user_version = 1"
good bcc add 1 team ben
good publish

machine second
gives '[.[] | select(.result != "replaced")], [.[].key]' '[]
["alias_db","bcc_db","email_owner_db","mailserver_domain_db","sync_disclaimer_content_file-1"]' node pull
before=$(digests)
both published
same "files that were only read" "$(digests)" "$before"
grep -q 'Grüße' "$scratch/published-second/disclaimers" || fail "no disclaimer was generated"
grep -q 'xn--bcher-kva.example' "$scratch/published-second/recipient_bcc" || fail "no rule in a map"
gives '[.[].result] | unique' '["unchanged"]' node pull

# The second machine refuses what would change something, makes its own maps, and shows what it has.
for command in "domain create a.example" "refresh" "publish" "bcc remove 1 anna" "owner build" \
  "config set a b" "domain delete 2 --yes"; do
  # shellcheck disable=SC2086
  fails 3 'managed on first' $command
done
same "files after refusals" "$(digests)" "$before"
good bcc maps
gives '[.[] | select(.node == "second") | .state] | unique' '["current"]' node status
field '[.[] | select(.node == "first") | .state] | unique' '["published"]'

# A login that may only read is enough to pull.
password_file reader readpw
PASSWORD=reader host_ini "node = second" "user = reader"
gives '[.[].result] | unique' '["unchanged"]' node pull
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
sqlite3 "$etc/alias.db" "insert into alias_table values('info', 1)"
gives '[.[] | select(.node == "second") | .path | startswith("/var/packages/")] | unique' '[true]' \
  node status
good publish
current() { good --json node status && [ "$(jq 'map(select(.state == "old")) | length' <<<"$out")" = 0 ]; }
wait_for "the watching machine" current
stop TERM $watcher
matches "what a watching machine shows" "$(cat "$scratch/watch")" 'replaced +email_owner_db'
both changed
cmp -s "$scratch/published-first/recipient_bcc" "$scratch/changed-first/recipient_bcc" &&
  fail "nothing changed"

# The writer moves: the first machine is the one that is refused, and follows.
machine second
fails 2 '' node take-over
gives . '{"before":"first","node":"second"}' node take-over --yes
good domain create moved.example
machine first
fails 3 '' domain create late.example
good node pull
matches "pulled by the machine that managed before" "$out" 'replaced +mailserver_domain_db'
both moved
good domain show moved.example

# And back, with what this machine has instead of what was published.
rm "$target/etc/email_owner.db"
sqlite3 "$database" "update domain_table set domain_desc = 'kept' where domain_name = 'moved.example'"
good node take-over --keep --yes
machine second
good node pull
gives .description '"kept"' domain show moved.example
