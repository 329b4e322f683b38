#!/bin/bash
# Deletions of domains that could not be finished: what is said, and how they are finished.
. "$(dirname "$0")/lib/driver.bash"

new_root company
good domain create example.com
for name in example.org example.net; do
  good domain create "$name" --no-auto-add
  good bcc add "$name" info boss
done
# A folder in the place of a key file cannot be removed as a file, whoever runs this.
mkdir -p "$etc/dkim.key/dkim.private-2"

fails 1 "domain 2 \(example.org\) deleted, but its DKIM keys \($etc/dkim.key\) could not be removed" \
  domain delete 2 --yes
same "rules of the deleted domain" \
  "$(sqlite3 "$etc/mailserver.db" 'SELECT count(*) FROM bcc_table WHERE domain_id = 2')" 0
fails 1 'DKIM keys .* could not be removed' domain delete EXAMPLE.org --yes
fails 4 'there is no domain "example.info"' domain delete example.info --yes
fails 1 'could not be published or settled.*dkim.private-2' refresh
rmdir "$etc/dkim.key/dkim.private-2"
good domain delete example.org --yes
matches "the same command again" "$out" 'deletion of domain 2 \(example.org\) finished'
fails 4 'there is no domain' domain delete example.org --yes
gives '[.[].id]' '[1,3]' domain list
gives 'length' 1 bcc list example.net
