#!/bin/bash
# One document carries a site from local accounts into a directory, and from the embedded key store to
# a Redis server: afterwards the same people get the same mail.
# ctest-label: redis
# ctest-timeout: 300
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
. "$here/lib/slapd.bash"

new_root site
mkdir -p "$MDOMAIN_ROOT/var/run/postara_server"
printf '[{"id":7,"name":"Greeting","enabled":true,"op":"or","disabled_for_local_recipient":false,"match_rule_list":[{"target":"sender","pattern_type":"uid","pattern":"1003"}],"exception_rule_list":[],"content_html":"<p>Bye</p>","content_txt":"Bye"}]' >"$scratch/list.json"
while IFS='|' read -ra words; do
  good -y "${words[@]}"
done <<END
domain|create|example.com|--no-auto-add
domain|create|bücher.example
refresh
group|add|example.com|books
user|add|example.com|anna
user|add|example.com|erik|--alias|anna
user|set|example.com|anna|--role|domain_admin
user|remove|bücher.example|ben
alias|create|example.com|team|--user|ben|--group|sales
bcc|add|example.com|anna|archive@elsewhere.example
disclaimer|set|example.com|$scratch/list.json
config|set|postmaster|anna
END
document=$scratch/model.json
good export "$document"

# carried NAME : the document is the model in force, and everybody gets what they got.
addresses() { mdomain --json user addresses --all | sed 's/@dir.example"/"/'; }
carried() {
  good export "$scratch/again.json"
  alike "export of $1" "$document" "$scratch/again.json"
  same "addresses in $1" "$(addresses)" "$before"
}
before=$(addresses)

# A directory with the same people under other numbers.
mkdir "$scratch/directory"
{
  ldif_top
  while read -r name uid gid; do
    ldif_user People "$name" "$name" "$uid" "$gid"
  done <<<$'anna 10001 20001\nben 10002 20001\nerik 10003 20002\nerika 10004 20002\nuser 10005 20005'
  ldif_group Groups sales 20001
  ldif_group Groups books 20002 user
  ldif_group Groups interns 20003
} >"$scratch/directory/data.ldif"
slapd_start "$scratch/directory" 3890
mkdir -p "$MDOMAIN_ROOT/etc/mailserver-domain"
(umask 077 && echo readpw >"$MDOMAIN_ROOT/etc/mailserver-domain/reader")
ldap=('[ldap]' 'uri = ldap://127.0.0.1:3890' 'bind_dn = cn=reader,dc=example,dc=com' 'password_file = reader'
  'user_base = ou=People,dc=example,dc=com' 'group_base = ou=Groups,dc=example,dc=com')
printf '%s\n' "${ldap[@]}" >"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
good config set acc_domain_name dir.example
fails 3 'local_DOMAIN.db keeps 2 domains' config set account_type ldap
good config set account_type ldap --force
# Until the document is there, what is published stays.
run refresh
same "a refresh of a source without domains" "$status" 6
matches "what it says" "$err" 'the accounts are read, nothing is published.*Next: mdomain apply'
matches "what is published" "$(mdomain config get virtual_multiple_domain)" '1/example.com'
fails 3 'belong to the domains of local_DOMAIN.db.*or give --force' -y apply "$document"
good -y apply "$document" --force
carried "the directory"

# A server in place of the embedded key store: it gets everything, and the model is the same.
server 16379
password_file right s3cret
PORT=16379 host_ini "${ldap[@]}"
good -y node manage
carried "the server's time"
good apply "$document"
same "an apply of the same" "$out" "nothing to change"
good -y user set example.com anna --add-alias boss
matches "what the server has" "$(redis 16379 --scan)" 'virtual_multiple_domain'
matches "where this machine stands" "$(mdomain node status)" 'manages .*current'
