#!/bin/bash
# The LDAP account source and LDAP searches against OpenLDAP servers.
# ctest-timeout: 180
. "$(dirname "$0")/lib/private.bash"
set -eu
. "$(dirname "$0")/lib/slapd.bash"
build=$1 scratch=$2
# The group entries below a folder of rfc2307bis are named by DN.
dn() { printf 'cn=%s,ou=Bis,dc=example,dc=com' "$1"; }
person() { printf 'uid=%s,ou=People,dc=example,dc=com' "$1"; }

mkdir -p "$scratch/whole" "$scratch/limited"
{
  ldif_company
  ldif_folder Bis
  ldif_dn_group Bis staff 20009 "$(person alice)" "uid=BOB, ou=People,dc=Example,dc=com"
  ldif_dn_group Bis nested 20005 "$(dn staff)" "$(person carol)" "$(dn nested)" "$(dn round)"
  ldif_dn_group Bis round 20006 "$(dn nested)" "cn=reader,dc=example,dc=com"
  ldif_dn_group Bis empty 20004 ""
  ldif_dn_group Bis people 20002 "$(person bob)"
  ldif_folder Odd
  ldif_user Odd jörg "Jörg Öl" 10101 20001 "mail: joerg@example.com"
  ldif_user Odd Anna "Anna Eins" 10102 20001
  ldif_user Odd anna2 "Anna Zwei" 10103 20001 "uid: second"
  printf 'dn: ou=Twin,ou=Odd,dc=example,dc=com\nobjectClass: organizationalUnit\nou: Twin\n\n'
  ldif_user Twin,ou=Odd anna "Anna Zwilling" 10104 20001
  ldif_folder Inner
  ldif_user Inner x "X" 10105 20001 "employeeNumber: 77"
  ldif_user Inner y "Y" 10106 20001 "employeeNumber: 7x7"
  ldif_user Inner z "Z" 10107 20001
  ldif_group Inner readers 20010 x y
  ldif_group Inner writers 20011 x
  ldif_folder Elsewhere
  ldif_user Elsewhere here "Here" 10108 20001
  printf 'dn: ou=There,ou=Elsewhere,dc=example,dc=com\nobjectClass: referral\n'
  printf 'objectClass: extensibleObject\nou: There\nref: ldap://127.0.0.1:1/ou=There\n\n'
} >"$scratch/whole/data.ldif"
test_certificate "$scratch/whole"
cp "$scratch/whole/"{data.ldif,cert.pem,key.pem} "$scratch/limited"

slapd_start "$scratch/whole" 3890 "limits users size.prtotal=unlimited size=unlimited"
slapd_start "$scratch/limited" 3900 "idletimeout 1"
export SLAPD_LIMITED_PID=$SLAPD_PID TEST_CA="$scratch/whole/ca.pem"
export WHOLE_URI=ldap://127.0.0.1:3890 LIMITED_URI=ldap://127.0.0.1:3900
export LIMITED_LDAPS=ldaps://127.0.0.1:3901
export WHOLE_LDAPS=ldaps://127.0.0.1:3891 OTHER_NAME=ldaps://localhost:3891

for kind in local ldap ldap-domain ldap-bis; do
  ACCOUNT_KIND=$kind "$build/bin/integration_account_conformance_test"
done
"$build/bin/integration_ldap_accounts_test"
