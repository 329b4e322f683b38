# Functions for the scripts that start Redis; sourced, with the build and the scratch folder as the
# script's arguments. Everything runs in namespaces of its own: a loopback with every port free, and
# the kernel ends all servers with the script.
build=$1 scratch=$2
if [ -z "${REDIS_INNER:-}" ]; then
  as=
  [ "$(id -u)" -eq 0 ] || as="--user --map-root-user"
  # shellcheck disable=SC2086
  exec env REDIS_INNER=1 unshare $as --mount --net --pid --fork --mount-proc --kill-child \
    bash "$0" "$build" "$scratch"
fi
ip link set lo up

# server PORT [CONFIGURATION LINE] : a server with a password and a user who may touch only mail:*
server() {
  local folder=$scratch/$1
  mkdir -p "$folder"
  cat >"$folder/users.acl" <<C
user default on >s3cret ~* &* +@all
user publisher on >pubpw ~mail:* resetchannels -@all +@read +@write +@transaction +@connection -@dangerous +role +wait
user reader on >readpw ~mail:* resetchannels -@all +@read +@connection -@dangerous +role
C
  cat >"$folder/redis.conf" <<C
port $1
bind 127.0.0.1
unixsocket $folder/redis.sock
dir $folder
save ""
appendonly no
logfile $folder/log
masteruser default
masterauth s3cret
aclfile $folder/users.acl
repl-diskless-sync-delay 0
${2:-}
C
  redis-server "$folder/redis.conf" </dev/null >/dev/null 2>&1 &
  echo $! >"$folder/pid"
  wait_for "REDISCLI_AUTH=s3cret redis-cli -p $1 ping 2>/dev/null | grep -q PONG"
}

# sentinel PORT : one that watches 127.0.0.1:16379 under the name mail, quorum 2
sentinel() {
  local folder=$scratch/$1
  mkdir -p "$folder"
  cat >"$folder/sentinel.conf" <<C
port $1
bind 127.0.0.1
dir $folder
logfile $folder/log
sentinel monitor mail 127.0.0.1 16379 2
sentinel auth-pass mail s3cret
sentinel down-after-milliseconds mail 1000
sentinel failover-timeout mail 5000
C
  redis-server "$folder/sentinel.conf" --sentinel </dev/null >/dev/null 2>&1 &
}

wait_for() {
  local i
  for i in $(seq 1000); do
    eval "$1" && return
    sleep .02
  done
  echo "never: $1" >&2
  exit 1
}

password_file() { # NAME PASSWORD
  (umask 077 && echo "$2" >"$scratch/$1")
}

# sentinels : a primary (16379), two replicas (16380, 16381) and three sentinels that know them
sentinels() {
  server 16379
  server 16380 "replicaof 127.0.0.1 16379"
  server 16381 "replicaof 127.0.0.1 16379"
  for port in 26379 26380 26381; do sentinel $port; done
  wait_for 'redis-cli -p 26379 sentinel ckquorum mail 2>/dev/null | grep -q "OK 3 usable"'
  wait_for '[ "$(replicas | grep -c "^127.0.0.1:1638")" -eq 2 ]'
  password_file right s3cret
}
replicas() { redis-cli -p 26379 sentinel replicas mail | tr -d '\r'; }

# host_ini [LINE...] : host settings of the root in force; the sentinels unless HOST tells otherwise
host_ini() {
  mkdir -p "$MDOMAIN_ROOT/etc/mailserver-domain"
  {
    printf '[keystore]\nbackend = redis\npassword_file = %s/%s\n' "$scratch" "${PASSWORD:-right}"
    if [ -n "${PORT:-}" ]; then
      echo "port = $PORT"
    else
      echo "sentinels = 127.0.0.1:26379, 127.0.0.1:26380, 127.0.0.1:26381"
      echo "master = mail"
    fi
    printf '%s\n' "$@"
  } >"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
}
