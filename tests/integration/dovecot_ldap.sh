#!/bin/bash
# Accounts of an LDAP directory whose mail goes to Dovecot by LMTP, under the short and under the
# full name: whatever address mail is for and whatever name logs in, it is one mailbox, opened by
# the password that the directory has.
# ctest-label: postfix dovecot
# ctest-timeout: 300
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/slapd.bash"
. "$here/lib/postfix.bash"
. "$here/lib/dovecot.bash"

directory=$scratch/directory
mkdir "$directory"
{
  ldif_top
  number=20000
  for user in anna "b'en" carla; do
    ldif_user People "$user" "$user" $((++number)) 30000 "mail: $user@example.com" \
      "userPassword: of-$user"
  done
  ldif_group Groups all 30000
} >"$directory/data.ldif"
slapd_start "$directory" 3890 || exit 1

postfix_host
settings=$MDOMAIN_ROOT/etc/mailserver-domain
mkdir -p "$settings"
(umask 077 && echo readpw >"$settings/reader")
# host_ini NAME... : host settings with these lines of [delivery]
host_ini() {
  printf '%s\n' '[ldap]' 'uri = ldap://127.0.0.1:3890' 'password_file = reader' \
    'bind_dn = cn=reader,dc=example,dc=com' 'user_base = ou=People,dc=example,dc=com' \
    'group_base = ou=Groups,dc=example,dc=com' '[delivery]' "$@" >"$settings/host.ini"
}
host_ini
good config set account_type ldap
good config set acc_domain_name dir.example
good domain create example.com --pattern '<m>'
good domain names add 1 bücher.example
good refresh
good user set 1 anna --alias anna --alias anna.schmidt

cat >"$scratch/ldap.conf" <<C
hosts = 127.0.0.1:3890
dn = cn=reader,dc=example,dc=com
dnpass = readpw
base = ou=People,dc=example,dc=com
auth_bind = yes
pass_attrs =
pass_filter = (uid=%n)
user_filter = (uid=%n)
user_attrs = =uid=65534,=gid=65534,=home=$scratch/home/%u
C
dovecot_configure " driver = ldap
 args = $scratch/ldap.conf" " driver = ldap
 args = $scratch/ldap.conf"
printf 'first_valid_uid = 1\nfirst_valid_gid = 1\n' >>"$dovecot/dovecot.conf"
configure() {
  good dovecot configure --apply --config "$dovecot" --postfix "$postfix/etc"
  good postfix configure --apply --config "$postfix/etc"
}
configure
postfix_start
dovecot_start

# mailboxes NAME.. : of anna and ben, by short and full names and by addresses
mailboxes() {
  deliver anna.schmidt@example.com anna+x@xn--bcher-kva.example "b'en@example.com"
  logins "logins by $1 names" <<END
of-anna anna anna@dir.example anna.schmidt@bücher.example Anna@xn--bcher-kva.example
of-b'en b'en b'en@dir.example b'en@example.com
of-anna b'en b'en@example.com ghost@example.com
wrong anna anna@dir.example anna@example.com
--
anna of-anna in: to anna+x@xn--bcher-kva.example to anna.schmidt@example.com
anna@dir.example of-anna in: to anna+x@xn--bcher-kva.example to anna.schmidt@example.com
anna.schmidt@bücher.example of-anna in: to anna+x@xn--bcher-kva.example to anna.schmidt@example.com
Anna@xn--bcher-kva.example of-anna in: to anna+x@xn--bcher-kva.example to anna.schmidt@example.com
b'en of-b'en in: to b'en@example.com
b'en@dir.example of-b'en in: to b'en@example.com
b'en@example.com of-b'en in: to b'en@example.com
b'en of-anna refused
b'en@example.com of-anna refused
ghost@example.com of-anna refused
anna wrong refused
anna@dir.example wrong refused
anna@example.com wrong refused
END
  same "mailboxes of $1 names" "$(find "$postfix/mail" -mindepth 1 -maxdepth 1 -printf '%f ' | tr ' ' '\n' | sort | xargs -d "\n")" "$2"
  good postfix check --config "$postfix/etc"
}
mailboxes short "anna b'en"
rm -rf "$postfix"/mail/*
host_ini 'lmtp_name = full'
configure
mailboxes full "anna@dir.example b'en@dir.example"
same "LMTP" "$(grep -c 'relay=.*dovecot-lmtp.*status=sent' "$postfix/log/maillog")" 6

# A server elsewhere is no listener here.
host_ini 'lmtp = inet:192.0.2.1:24'
gives '.[1].text | contains("lmtp")' false dovecot configure --config "$dovecot" --postfix "$postfix/etc"
host_ini 'lmtp = inet:[127.0.0.1]:2400'
gives '.[1].text | contains("address = 127.0.0.1\n    port = 2400")' true \
  dovecot configure --config "$dovecot" --postfix "$postfix/etc"
host_ini 'lmtp = inet:mail.invalid'
fails 3 'mail.invalid.* is not known' dovecot configure --config "$dovecot" --postfix "$postfix/etc"
postfix_stop
