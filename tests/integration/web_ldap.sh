#!/bin/bash
# The walk and the pages of web_browser.sh with accounts of a directory: slapd, and PAM and names of the host
# from it. Who joins and leaves the directory comes and goes by a refresh from the page.
# Who only shares a name or a number with an account of the model is not that one.
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/web.bash"
. "$here/lib/slapd.bash"

directory=$scratch/directory
mkdir "$directory"
{
  ldif_top
  ldif_user People anna Anna 20001 30000 "userPassword: of anna"
  ldif_user People erik Erik 20003 30000 "userPassword: of erik"
  ldif_user People erika Erika 20004 30000 "userPassword: of erika"
  ldif_user People gustav Gustav 20005 30001
  ldif_group Groups sales 30000
  ldif_group Groups mailadmins 30001 erik
} >"$directory/data.ldif"
slapd_start "$directory" 3890 || exit 1
use_root web
settings=$MDOMAIN_ROOT/etc/mailserver-domain
mkdir -p "$settings"
(umask 077 && echo readpw >"$settings/reader")
printf '%s\n' '[ldap]' 'uri = ldap://127.0.0.1:3890' 'password_file = reader' \
  'bind_dn = cn=reader,dc=example,dc=com' 'user_base = ou=People,dc=example,dc=com' \
  'group_base = ou=Groups,dc=example,dc=com' >"$settings/host.ini"
good config set account_type ldap
good config set acc_domain_name dir.example
good domain create example.com --description Everybody
good domain create bücher.example --pattern '<4a>' --no-auto-add
good refresh
good group add bücher.example sales
good user set bücher.example anna --role domain_admin
good alias create bücher.example desk --user anna@dir.example

mount -t tmpfs none /run && mkdir /run/nslcd
web_configure
# A local account with the name of one of the directory, and one named as the number of another.
printf 'erika:x:1500:1500::/:/bin/sh\n20001:x:1501:1501::/:/bin/sh\n' >>/etc/passwd
web_password erika 20001
# One that has ended, and one whose password must be changed first.
for rest in ended::1 must:0:; do
  name=${rest%%:*}
  echo "$name:x:$((1600 + ${#name})):1501::/:/bin/sh" >>/etc/passwd
  echo "$name:$(openssl passwd -6 "of $name"):$(cut -d: -f2 <<<"$rest"):0:99999:7::${rest##*:}:" >>/etc/shadow
done
printf '%s\n' 'uid 0' 'gid 0' 'uri ldap://127.0.0.1:3890/' 'base dc=example,dc=com' \
  'binddn cn=reader,dc=example,dc=com' 'bindpw readpw' 'nss_min_uid 1000' >/etc/nslcd.conf
chmod 600 /etc/nslcd.conf
printf '%s: files ldap\n' passwd group shadow >/etc/nsswitch.conf
printf '%s\n' 'auth sufficient pam_unix.so' 'auth required pam_ldap.so use_first_pass' \
  'account sufficient pam_unix.so' 'account required pam_ldap.so' >/etc/pam.d/mdomain-web
nslcd -n >"$scratch/nslcd.log" 2>&1 &
wait_for "names from the directory" getent passwd anna
web_run
ldif_user People frieda Frieda 20006 30001 >"$directory/frieda.ldif"
for change in "ldapadd -f $directory/frieda.ldif" "ldapdelete uid=gustav,ou=People,dc=example,dc=com"; do
  $change -x -H ldap://127.0.0.1:3890 -D cn=admin,dc=example,dc=com -w secret >>"$directory/log" 2>&1 || fail "$change"
done

timeout 300 /usr/bin/python3 "$here/lib/web_browser.py" "" @dir.example || fail "web_browser.py: $(tail -n 20 "$scratch/web.log" "$scratch/nslcd.log")"
gives '[.[].person] | unique | map(select(startswith("anna")))' '["anna@dir.example"]' history list
(cd "$here/lib" && python3 - <<'PY') || fail "who they are"
import sys
import web_client
from web_client import Browser, same
for name, password, why in (("erika", "of erika", "do not know"), ("20001", "of 20001", "do not know"), ("ended", "of ended", "has ended"),
                            ("must", "of must", "has to be changed"), ("ended", "wrong", "are wrong")):
    answer = Browser().sign_in(name, password)
    same(f"{name}, {password}", (answer.status, why in answer.text), (403, True))
same("of the host's group", Browser("erik").get("/domains/new").status, 200)
sys.exit(1 if web_client.failures else 0)
PY
kill "$SLAPD_PID"
same "a directory that is away" "$(curl -s -o /dev/null -w '%{http_code}' -d 'name=anna&password=of+anna' http://127.0.0.1:8025/sign-in)" 503
web_stop
