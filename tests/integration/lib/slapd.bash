# Sourced by integration scripts: OpenLDAP servers on the loopback.

# slapd_start DIR PORT [CONFIGURATION LINE] : starts a server for dc=example,dc=com with DIR/data.ldif
# in it, TLS with DIR/cert.pem and DIR/key.pem when they are there; waits until it answers. Sets
# SLAPD_PID. The bind dn of clients is cn=reader, password readpw.
slapd_start() {
  local dir=$1 port=$2 extra=${3:-} urls
  mkdir -p "$dir/db"
  urls="ldap://127.0.0.1:$port/"
  cat >"$dir/slapd.conf" <<C
include /etc/ldap/schema/core.schema
include /etc/ldap/schema/cosine.schema
include /etc/ldap/schema/nis.schema
include /etc/ldap/schema/inetorgperson.schema
attributetype ( 1.3.6.1.4.1.4203.666.1.901 NAME 'department' EQUALITY caseIgnoreMatch SYNTAX 1.3.6.1.4.1.1466.115.121.1.15 SINGLE-VALUE )
objectclass ( 1.3.6.1.4.1.4203.666.2.901 NAME 'testMailPerson' SUP top AUXILIARY MAY department )
objectclass ( 1.3.6.1.4.1.4203.666.2.902 NAME 'testUnixGroup' SUP top AUXILIARY MAY gidNumber )
pidfile $dir/slapd.pid
modulepath /usr/lib/ldap
moduleload back_mdb
database mdb
suffix "dc=example,dc=com"
rootdn "cn=admin,dc=example,dc=com"
rootpw secret
directory $dir/db
maxsize 268435456
dbnosync
index objectClass,uid,uidNumber,gidNumber,memberUid,cn eq
access to attrs=userPassword by self write by anonymous auth by * none
access to * by users read by anonymous auth
$extra
C
  if [ -e "$dir/cert.pem" ]; then
    urls="$urls ldaps://127.0.0.1:$((port + 1))/"
    sed -i "1i TLSCertificateFile $dir/cert.pem\nTLSCertificateKeyFile $dir/key.pem" "$dir/slapd.conf"
  fi
  [ -e "$dir/db/data.mdb" ] || slapadd -q -f "$dir/slapd.conf" -l "$dir/data.ldif" >"$dir/add.log" 2>&1 ||
    { cat "$dir/add.log" >&2; return 1; }
  # "-d 256" keeps it in front, so that it is a child that can be waited for.
  slapd -d "${SLAPD_LOG:-256}" -f "$dir/slapd.conf" -h "$urls" -n slapd-test </dev/null >>"$dir/log" 2>&1 &
  SLAPD_PID=$!
  for _ in $(seq 3000); do
    ldapwhoami -x -H "ldap://127.0.0.1:$port" >/dev/null 2>&1 && return 0
    sleep 0.02
  done
  echo "slapd does not answer" >&2
  cat "$dir/log" >&2
  return 1
}

# ldif_top : the suffix, ou=People, ou=Groups and the reader.
ldif_top() {
  cat <<L
dn: dc=example,dc=com
objectClass: dcObject
objectClass: organization
o: Example
dc: example

dn: cn=reader,dc=example,dc=com
objectClass: organizationalRole
objectClass: simpleSecurityObject
cn: reader
userPassword: readpw

L
  ldif_folder People
  ldif_folder Groups
}

# ldif_folder NAME
ldif_folder() {
  printf 'dn: ou=%s,dc=example,dc=com\nobjectClass: organizationalUnit\nou: %s\n\n' "$1" "$1"
}

# ldif_company : 1,200 people (u0001 to u1197 with the mail addresses m0001 ..., alice, bob, carol),
# their groups staff (alice, bob), empty, people and all (the primary groups).
ldif_company() {
  local i
  ldif_top
  for i in $(seq -f %04g 1197); do
    ldif_user People "u$i" "User $i" "3$i" 20001 "mail: m$i@example.com"
  done
  ldif_user People alice "Alice Archer" 10001 20001 "mail: alice.archer@example.com" \
    "mail: alice@example.com" "department: Sales" "jpegPhoto:: //4="
  ldif_user People bob "Bob Büch" 10002 20002 "mail: bob@elsewhere.example" "department: Öl"
  ldif_user People carol Carol 10003 20002
  ldif_group Groups staff 20009 alice bob
  ldif_group Groups empty 20004
  ldif_group Groups people 20002
  ldif_group Groups all 20001
}

# ldif_user FOLDER UID CN UIDNUMBER GIDNUMBER [LINES...]
ldif_user() {
  printf 'dn: uid=%s,ou=%s,dc=example,dc=com\nobjectClass: inetOrgPerson\nobjectClass: posixAccount\n' \
    "$2" "$1"
  printf 'objectClass: testMailPerson\nuid: %s\ncn: %s\nsn: %s\nuidNumber: %s\ngidNumber: %s\n' \
    "$2" "$3" "$3" "$4" "$5"
  printf 'homeDirectory: /home/x\n'
  shift 5
  for line in "$@"; do printf '%s\n' "$line"; done
  echo
}

# ldif_group FOLDER CN GIDNUMBER [MEMBERUID...]
ldif_group() {
  printf 'dn: cn=%s,ou=%s,dc=example,dc=com\nobjectClass: posixGroup\ncn: %s\ngidNumber: %s\n' \
    "$2" "$1" "$2" "$3"
  shift 3
  for member in "$@"; do printf 'memberUid: %s\n' "$member"; done
  echo
}

# ldif_dn_group FOLDER CN GIDNUMBER MEMBERDN...
ldif_dn_group() {
  printf 'dn: cn=%s,ou=%s,dc=example,dc=com\nobjectClass: groupOfNames\n' "$2" "$1"
  printf 'objectClass: testUnixGroup\ncn: %s\ngidNumber: %s\n' "$2" "$3"
  shift 3
  for member in "$@"; do printf 'member: %s\n' "$member"; done
  echo
}

# test_certificate DIR : a CA (ca.pem) and a certificate for 127.0.0.1 (cert.pem, key.pem) in DIR.
test_certificate() {
  local dir=$1
  {
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=TestCA -keyout "$dir/ca.key" \
      -out "$dir/ca.pem" -addext basicConstraints=critical,CA:TRUE
    openssl req -newkey rsa:2048 -nodes -subj /CN=127.0.0.1 -keyout "$dir/key.pem" \
      -out "$dir/cert.csr"
    printf 'subjectAltName=IP:127.0.0.1\n' >"$dir/san"
    openssl x509 -req -in "$dir/cert.csr" -CA "$dir/ca.pem" -CAkey "$dir/ca.key" -CAcreateserial \
      -days 2 -extfile "$dir/san" -out "$dir/cert.pem"
  } >"$dir/openssl.log" 2>&1
}
