#!/bin/bash
# mdomain on an LDAP directory: addresses from attributes, a server that is gone, and what a server is
# asked for 10,000 users in 500 groups and five domains.
# ctest-timeout: 400
. "$(dirname "$0")/lib/private.bash"
set -eu
. "$(dirname "$0")/lib/slapd.bash"
build=$1 scratch=$2
fail() { echo "FAILED: $*" >&2; exit 1; }
expect() { [ "$2" = "$3" ] || fail "$1: got \"$2\", want \"$3\""; }
m() { "$build/bin/mdomain" --root "$root" --json --yes "$@"; }

# new_root NAME URI : a root that asks the server at URI
new_root() {
  root=$scratch/$1
  settings=$root/etc/mailserver-domain/host.ini
  mkdir -p "${settings%/*}"
  (umask 077 && echo readpw >"${settings%/*}/reader")
  cat >"$settings" <<I
[ldap]
uri = $2
bind_dn = cn=reader,dc=example,dc=com
password_file = reader
user_base = ou=People,dc=example,dc=com
group_base = ou=Groups,dc=example,dc=com
I
  m config set account_type ldap >/dev/null
  m config set acc_domain_name dir.example >/dev/null
}

start() { slapd_start "$dir" "$port" "$1"; }
stop() { kill "$SLAPD_PID"; wait "$SLAPD_PID" || true; }

# 1. Addresses.
dir=$scratch/server port=3890
mkdir -p "$dir"
{ ldif_company && ldif_user People änne Anne 10004 20002 && ldif_group Groups Ärzte 20010 ÄNNE
} >"$dir/data.ldif"
whole="limits users size=unlimited"
start "$whole"
new_root people "ldap://127.0.0.1:$port"
m domain create example.com --pattern '<m>' --auto-add >/dev/null
m domain create example.org --pattern '<department>' --auto-add >/dev/null
expect "complete" "$(m refresh | jq -c .complete)" true
expect "members" "$(m user list example.com | jq length)" 1201
expect "mail" "$(m user addresses alice | jq -c 'sort')" \
  '["Sales@example.org","alice.archer@example.com"]'
expect "no mail" "$(m user addresses carol | jq -c 'sort')" '["carol@example.com","carol@example.org"]'
expect "UTF-8" "$(m user addresses bob | jq -c 'sort')" '["bob@example.com","Öl@example.org"]'

# Letter case beyond ASCII, as the directory compares it.
expect "another case" "$(m user addresses ÄNNE | jq length)" 2
expect "a member in another case" "$(m account members ärzte | jq -r '.[].name')" änne@dir.example
m domain set example.org --pattern '<99999999999g>' 2>"$scratch/err" && fail "a length beyond numbers"
grep -q '99999999999 bytes long' "$scratch/err" || fail "$(cat "$scratch/err")"

names() { m user list example.com | jq -r '.[].name' | sort; }

# A server that is gone: the refresh fails, and everything is as it was.
names >"$scratch/before"
stop
m refresh >/dev/null 2>"$scratch/err" && fail "a refresh without a server"
grep -q 'cannot connect to ldap://127.0.0.1:3890' "$scratch/err" || fail "$(cat "$scratch/err")"
m account check >"$scratch/check.json" && fail "the check found nothing"
jq -r '.[-1].detail' "$scratch/check.json" | grep -q 'cannot connect' || fail "$(cat "$scratch/check.json")"
expect "nobody deleted" "$(names | cmp - "$scratch/before" && echo same)" same

# 2. 10,000 users in 500 groups, five domains: what the server is asked does not grow with them.
dir=$scratch/large port=3900
mkdir -p "$dir"
{
  ldif_top
  seq -f %05g 10000 | awk '{
    printf "dn: uid=u%s,ou=People,dc=example,dc=com\nobjectClass: inetOrgPerson\nobjectClass: posixAccount\nuid: u%s\ncn: User\nsn: N\nmail: m%s@example.com\nuidNumber: 1%s\ngidNumber: 20001\nhomeDirectory: /h\n\n", $1, $1, $1, $1 }'
  seq 0 499 | awk '{
    printf "dn: cn=g%d,ou=Groups,dc=example,dc=com\nobjectClass: posixGroup\ncn: g%d\ngidNumber: %d\n", $1, $1, 30000 + $1
    for (i = 1; i <= 20; i++) printf "memberUid: u%05d\n", $1 * 20 + i
    print "" }'
} >"$dir/data.ldif"
start "$whole"
new_root large "ldap://127.0.0.1:$port"
for i in 1 2 3 4 5; do m domain create "d$i.example.com" --pattern '<m>' --auto-add >/dev/null; done
: >"$dir/log"
expect "large" "$(m refresh | jq -c .complete)" true
count() { grep -c "SRCH base=\"ou=$1,.*$2" "$dir/log" || true; }
searches=$(grep -c 'SRCH base=' "$dir/log")
echo "refresh of 10,000 users in 500 groups and 5 domains: $searches searches (pages of 500)," \
  "$(grep -c 'BIND dn=.* method' "$dir/log") binds, $(count People .) for users, $(count Groups .) for groups"
expect "pages of users, of groups, of attributes" "$searches" $((20 + 1 + 20))
expect "members" "$(m user list d5.example.com | jq length)" 10000
expect "an address" "$(m user addresses u00042 | jq -c sort | head -c 22)" '["m00042@d1.example.co'

# Nor does it grow with the groups whose members are asked for, nor with those members.
: >"$dir/log"
expect "preview" "$(m user preview d1.example.com --group g1 --group g2 --group g3 | jq length)" 60
expect "pages for a preview" "$(grep -c 'SRCH base=' "$dir/log")" $((20 + 1 + 20))
