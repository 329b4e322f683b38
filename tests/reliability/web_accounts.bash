# Sourced in a system of web_accounts.sh: makes its accounts, then signs in. Of each kind the accounts are anna and
# ben, who are people of the domains, ben in boards, whose members administer one; olivia, in mailadmins, who
# administer the host; ended and must, whose account has ended and who must change the password; and late, who has
# come since the last refresh. Passwords are "of NAME".
exec 2>&1

# domains ACCOUNT_TYPE [BEFORE] : the model of the host, whose groups have names that begin so
domains() {
  [ "$1" = local ] || mdomain config set account_type "$1" || echo FAILED
  mdomain domain create example.com
  mdomain domain create bücher.example --no-auto-add
  mdomain refresh || echo "FAILED: refresh"
  mdomain group add bücher.example "${2:-}boards"
  mdomain group set bücher.example "${2:-}boards" --role domain_admin || echo "FAILED: group"
}

local_host() {
  local name
  groupadd -g 2500 boards && groupadd -g 2501 mailadmins
  for name in anna ben olivia ended must; do
    useradd "$name"
    echo "$name:of $name" | chpasswd
  done
  usermod -a -G boards ben
  usermod -a -G mailadmins olivia
  chage -E 1 ended
  chage -d 0 must
  # As pam_faillock(8) has it.
  printf '%s\n' 'auth required pam_faillock.so preauth silent' 'auth [success=1 default=ignore] pam_unix.so' \
    'auth [default=die] pam_faillock.so authfail' 'auth sufficient pam_faillock.so authsucc' 'auth required pam_permit.so' \
    >/etc/pam.d/common-auth
  domains local
  useradd late
  echo "late:of late" | chpasswd
}

with_shadow() { sed 's/^objectClass: posixAccount/&\nobjectClass: shadowAccount/'; }

directory() {
  . /slapd.bash
  directory=/directory
  mkdir "$directory"
  test_certificate "$directory"
  {
    ldif_top
    {
      ldif_user People anna Anna 20001 30000 "userPassword: of anna" "shadowLastChange: 20000"
      ldif_user People ben Ben 20002 30000 "userPassword: of ben" "shadowLastChange: 20000"
      ldif_user People olivia Olivia 20003 30000 "userPassword: of olivia" "shadowLastChange: 20000"
      ldif_user People ended Ended 20004 30000 "userPassword: of ended" "shadowLastChange: 20000" "shadowExpire: 1"
      ldif_user People must Must 20005 30000 "userPassword: of must" "shadowLastChange: 0" "shadowMax: 90"
    } | with_shadow
    ldif_group Groups staff 30000
    ldif_group Groups boards 30001 ben
    ldif_group Groups mailadmins 30002 olivia
  } >"$directory/data.ldif"
  systemctl stop slapd
  slapd_start "$directory" 3890 || echo FAILED
  printf '%s\n' '[ldap]' 'uri = ldap://127.0.0.1:3890' 'password_file = reader' \
    'bind_dn = cn=reader,dc=example,dc=com' 'user_base = ou=People,dc=example,dc=com' \
    'group_base = ou=Groups,dc=example,dc=com' >/etc/mailserver-domain/host.ini
  install -m 600 -o Postara-Server /dev/null /etc/mailserver-domain/reader
  echo readpw >/etc/mailserver-domain/reader
  mdomain config set acc_domain_name dir.example
  domains ldap
  ldif_user People late Late 20006 30000 "userPassword: of late" "shadowLastChange: 20000" | with_shadow |
    ldapadd -x -H ldap://127.0.0.1:3890 -D cn=admin,dc=example,dc=com -w secret
}

nslcd_host() {
  directory
  printf '%s\n' 'uid nslcd' 'gid nslcd' 'uri ldap://127.0.0.1:3890/' 'base dc=example,dc=com' \
    'binddn cn=reader,dc=example,dc=com' 'bindpw readpw' >/etc/nslcd.conf
  sed -i -E 's/^(passwd|group|shadow):.*/\1: files ldap/' /etc/nsswitch.conf
  systemctl restart nslcd || echo "FAILED: nslcd"
}

sssd_host() {
  directory
  cat >/etc/sssd/sssd.conf <<'END'
[sssd]
services = nss, pam
domains = example.com

[domain/example.com]
id_provider = ldap
auth_provider = ldap
access_provider = ldap
ldap_uri = ldaps://127.0.0.1:3891
ldap_tls_cacert = /directory/ca.pem
ldap_search_base = dc=example,dc=com
ldap_default_bind_dn = cn=reader,dc=example,dc=com
ldap_default_authtok = readpw
ldap_access_order = expire
ldap_account_expire_policy = shadow
ldap_pwd_policy = shadow
END
  chmod 600 /etc/sssd/sssd.conf
  systemctl restart sssd
}

winbind_host() {
  . /ad.bash
  local name
  systemctl stop smbd nmbd winbind samba-ad-dc
  mkdir /ad
  ad_surroundings /ad
  make_people() {
    local at=--URL=$1
    {
      samba-tool domain passwordsettings set --complexity=off --min-pwd-length=0 "$at"
      for name in anna ben olivia ended must; do samba-tool user create "$name" "of $name" "$at"; done
      samba-tool group add boards "$at" && samba-tool group addmembers boards ben "$at"
      samba-tool group add mailadmins "$at" && samba-tool group addmembers mailadmins olivia "$at"
      samba-tool user setexpiry ended --days=-1 "$at"
      samba-tool user setpassword must --newpassword="of must" --must-change-at-next-login "$at"
    } >/dev/null || echo "FAILED: the domain's people"
  }
  ad_provision /ad make_people
  ad_start_dc /ad
  ad_join /ad
  pam-auth-update --package --enable winbind
  mdomain config set win_domain_short_name ADEX
  domains win "ADEX\\"
  samba-tool user create late "of late" -H /ad/dc/private/sam.ldb
}

# walk BEFORE : what everybody sees, and what the unit and PAM complained of
walk() {
  printf '%s\n' '[sign-in]' "administrators = $1mailadmins" >/etc/mailserver-domain/web.ini
  getent passwd "$1anna"
  python3 /web_accounts.py "$1"
  grep NoNewPrivs "/proc/$(systemctl show -P MainPID mdomain-web)/status"
  journalctl --sync
  journalctl -o cat -u mdomain-web | sed 's/^/LOG /'
}
