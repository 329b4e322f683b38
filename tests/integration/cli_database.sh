#!/bin/bash
# A database that cannot be used: clear message, status 1, the file as it was. And one that another
# process holds: waited for.
# ctest-timeout: 300
. "$(dirname "$0")/../support/cli.sh"

# unusable NAME REGEX : reading and changing must fail.
unusable() {
  local sum
  sum=$(sha256sum "$(database)" 2>&1)
  for command in 'domain list' 'domain create example.net' 'refresh' 'refresh --dry-run'; do
    # shellcheck disable=SC2086
    run $command
    same "$1, $command" "$status" 1
    matches "$1, $command" "$err" "$2"
    same "$1, $command" "$out" ""
  done
  same "$1, the file" "$(sha256sum "$(database)" 2>&1)" "$sum"
}

new_root directory
mkdir -p "$(database)"
unusable directory 'local_DOMAIN.db.*(directory|unable to open)|(directory|unable to open).*local_DOMAIN.db'

new_root garbage
mkdir -p "$(dirname "$(database)")"
head -c 10000 /dev/urandom >"$(database)"
unusable garbage 'not a database'

new_root truncated
good domain create example.com
truncate -s 5000 "$(database)"
unusable truncated 'malformed|not a database|disk image'

# Read-only: for somebody who may not write there is nothing but a look at a refresh.
new_root readonly
good domain create example.com
state >"$scratch/before"
chmod -R a+rX,go-w "$MDOMAIN_ROOT"
as_other=
if [ "$(id -u)" -eq 0 ]; then
  chown nobody "$MDOMAIN_ROOT/var/run/postara_server" "$MDOMAIN_ROOT"/var/run/postara_server/*
  as_other="setpriv --reuid=nobody --regid=nogroup --clear-groups"
else
  chmod a-w "$(database)" "$(dirname "$(database)")"
fi
for command in 'domain list' 'domain create example.net' refresh; do
  # shellcheck disable=SC2086
  out=$($as_other "$build/bin/mdomain" $command 2>&1)
  same "read-only, $command" $? 1
  matches "read-only, $command" "$out" 'local_DOMAIN.db.*read-only'
done
out=$($as_other "$build/bin/mdomain" refresh --dry-run 2>&1)
matches "read-only, refresh --dry-run" "$out" 'would be created +5: anna, ben'
chmod u+w "$(database)" "$(dirname "$(database)")"
state | diff "$scratch/before" - || fail "the read-only database changed"

# hold SECONDS FILE : another process has a database for itself.
hold() {
  python3 - "$2" "$1" >/dev/null <<'END' &
import sqlite3, sys, time
db = sqlite3.connect(sys.argv[1], isolation_level=None)
db.execute("BEGIN EXCLUSIVE")
time.sleep(float(sys.argv[2]))
END
  holder=$!
  sleep 1
}

new_root held
good domain create example.com
hold 4 "$(database)"
good domain create example.net
wait "$holder"
good --json domain list
field '[.[].name]' '["example.com","example.net"]'

good owner build
registry=$MDOMAIN_ROOT/var/packages/Postara-Server/target/etc/email_owner.db
hold 200 "$registry"
run owner lookup anna@example.com
same "a registry that stays locked" "$status" 1
matches "a registry that stays locked" "$err" 'locked|busy'
kill "$holder"
wait "$holder" 2>/dev/null

hold 200 "$(database)"
run domain create example.info
same "a database that stays locked" "$status" 1
matches "a database that stays locked" "$err" 'locked|busy'
kill "$holder"
wait "$holder" 2>/dev/null
good --json domain list
field '[.[].name]' '["example.com","example.net"]'
finish
