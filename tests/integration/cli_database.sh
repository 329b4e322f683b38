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

# The same on a file system that is read-only for everybody, and with databases that a reader who may
# write would make.
can_mount() { unshare -m mount -t tmpfs none /mnt 2>/dev/null; }
mdomain() {
  # shellcheck disable=SC2016
  LD_LIBRARY_PATH=$scratch/copy unshare -m bash -c 'mount --bind "$0" "$0" && mount -o remount,bind,ro "$0" &&
    exec setpriv --reuid=nobody --regid=nogroup --clear-groups "$@"' "$MDOMAIN_ROOT" "$scratch/copy/mdomain" "$@"
}
if [ "$(id -u)" -eq 0 ] && can_mount; then
  for command in 'domain list' 'user list 1' 'group list 1' 'bcc list 1' 'disclaimer list 1' \
    'disclaimer generate' 'config list'; do
    # shellcheck disable=SC2086
    good $command
  done
  rm -f "$etc/mailserver.db"
  good bcc list 1
  rm "$database" "$etc/keystore.db" "$etc/history.db"
  good domain list
  same "domains of a missing file" "$(grep -c example <<<"$out")" 0
  fails 4 'no domain "1"' user list 1
  fails 1 'Read-only file system' domain create example.net
  same "files that reading made" "$(find "$etc" -name '*.db*')" ""
fi
unset -f mdomain

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

# A model that lost its domains empties nothing: what is published stays until somebody says so.
# refuses_to_empty REGEX : the commands that would empty it, and what they say.
refuses_to_empty() {
  local command
  for command in refresh publish; do fails 3 "$1" "$command"; done
  gives '.virtual_multiple_domain' '"1/example.com"' config list
}
new_root lost
good domain create example.com --no-auto-add
rm "$database"
fails 3 'local_DOMAIN.db. is missing' refresh
good domain list
matches "a lost model, once more" "$err" 'local_DOMAIN.db. has no domain, although domains of it are published'
refuses_to_empty 'nothing is published: .*local_DOMAIN.db has no domain any more.*restore that file'
fails 3 'lost or emptied.*restore that file' domain create example.net
fails 3 'lost or emptied' init
truncate -s 0 "$database"
fails 3 'local_DOMAIN.db. is empty' publish
mkdir -p "$target/etc"
: >"$target/etc/email_owner.db"
remember
refused 4 'no owner registry yet' owner lookup anna@example.com
rm -f "$etc/mailserver.db"
mkdir "$etc/mailserver.db"
fails 1 'mailserver.db' publish --force
rmdir "$etc/mailserver.db"
good publish --force
gives '[.virtual_multiple_domain, .smtp_main_domain]' '["",""]' config list
good domain create example.net
rm "$etc/mailserver.db"
sqlite3 "$etc/mailserver.db" 'CREATE TABLE songs(name)'
fails 1 'mailserver.db: it belongs to another program' publish
same "another program's tables" "$(sqlite3 "$etc/mailserver.db" .tables)" songs
new_root older
good config set smtp_main_domain old.example
for command in refresh publish; do fails 3 'settings name "old.example".*mdomain init' "$command"; done
good init
good publish

# Another account domain is another model. The settings under domain indexes are handed to nobody.
new_root switched
good domain create example.com --no-auto-add
good config set acc_domain_name dir.example
remember
refused 3 'dir.example_DOMAIN.db, which has no domain,.*local_DOMAIN.db keeps 1 domain \(example.com\)' \
  config set account_type ldap
refused 3 'acc_domain_name "../x".*not allowed' config set acc_domain_name ../x
refused 3 'win_domain_short_name "a/b".*not allowed' config set win_domain_short_name a/b
bcc_compiler
good refresh
good user add 1 anna ben
good bcc add 1 anna ben
good config set account_type ldap --force
matches "what stands where" "$err" 'local_DOMAIN.db keeps 1 domain.*BCC rules \(1\)'
fails 3 'published domains are those of local_DOMAIN.db.*set the account source back' publish
fails 3 'belong to the domains of local_DOMAIN.db: BCC rules \(1\)' domain create dir.example
good domain create dir.example --no-auto-add --force
gives '.mdomain_model' '"dir.example_DOMAIN.db"' config list
sqlite3 "$etc/keystore.db" "UPDATE key_table SET value = '../x' WHERE name = 'acc_domain_name'"
fails 1 'acc_domain_name \[../x\] forms no file name' domain list
