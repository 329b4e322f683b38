#!/bin/bash
# A database that cannot be used: clear message, status 1, the file as it was. And one that another
# process holds: waited for.
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"

new_root truncated
good domain create example.com
truncate -s 5000 "$database"
sum=$(sha256sum "$database")
for command in 'domain list' 'domain create example.net' 'refresh' 'refresh --dry-run'; do
  # shellcheck disable=SC2086
  fails 1 'malformed|not a database|disk image' $command
done
same "the truncated file" "$(sha256sum "$database")" "$sum"

# Read-only: somebody who may not write can look, and is told which file a change cannot write. Root may write
# everywhere; nobody runs a copy of the program, for the checkout may be closed to others.
new_root readonly
good domain create example.com
remember
chmod -R a+rX,a-w "$MDOMAIN_ROOT"
mkdir "$scratch/copy"
cp "$build/bin/mdomain" "$build"/lib/lib*.so.1 "$scratch/copy/"
as_other=()
if [ "$(id -u)" -eq 0 ]; then
  chown -R nobody "$MDOMAIN_ROOT/var/run/postara_server"
  as_other=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
fi
mdomain() { LD_LIBRARY_PATH=$scratch/copy "${as_other[@]}" "$scratch/copy/mdomain" "$@"; }
good domain list
for command in 'user list 1' 'group list 1' 'bcc list 1' 'disclaimer generate' 'config list'; do
  # shellcheck disable=SC2086
  good $command
done
for command in 'domain create example.net' refresh; do
  # shellcheck disable=SC2086
  fails 1 'local_DOMAIN.db: attempt to write a readonly database$' $command
done
run refresh --dry-run
matches "read-only, refresh --dry-run" "$out" 'would be created +5: anna, ben'
unset -f mdomain
chmod -R u+w "$MDOMAIN_ROOT"
unchanged "somebody who may only read"

# What killed runs left goes with the next change. A set-id copy would ignore the root and change the
# machine instead.
new_root leftovers
good domain create example.com
mkdir -p "$target/etc/.bcc_map.abcdef"
touch "$target/etc/.bcc_map.abcdef/recipient_bcc" "$etc/.mdomain-new-abcdef"
good domain list
same "half-made files before a change" "$(find "$MDOMAIN_ROOT" -name '.?*' | wc -l)" 2
good domain set 1 --description x
same "half-made files" "$(find "$MDOMAIN_ROOT" -name '.?*')" ""
if [ "$(id -u)" -eq 0 ]; then
  mdomain() { setpriv --ruid=nobody "$build/bin/mdomain" "$@"; }
  remember
  refused 2 'set-id' domain list
  refused 2 'set-id' --root "$MDOMAIN_ROOT" domain set 1 --description y
  unset -f mdomain
fi

# hold FILE : another process has a database for itself until release.
hold() {
  coproc sqlite3 "$1"
  holder=$COPROC_PID
  printf 'BEGIN EXCLUSIVE;\n.system echo held\n' >&"${COPROC[1]}"
  read -r _ <&"${COPROC[0]}"
}
release() { stop TERM "$holder"; }

new_root held
good domain create example.com
hold "$database"
(sleep 4 && release) &
good domain create example.net
wait
good owner build
hold "$target/etc/email_owner.db"
fails 1 'locked|busy' owner lookup anna@example.com
release
hold "$database"
fails 1 'locked|busy' domain create example.info
release
gives '[.[].name]' '["example.com","example.net"]' domain list
