# Sourced after private.bash and driver.bash: Redis servers and sentinels on the loopback.

redis() { REDISCLI_AUTH=s3cret redis-cli -p "$@"; }
redis_says() { grep -q -- "$1" <<<"$(redis "${@:2}" 2>&1)"; }
pid_of() { cat "$scratch/$1/pid"; }

# server PORT [CONFIGURATION LINE] : a server with a password and users who may touch only mail:*
server() {
  local folder=$scratch/$1 mail='resetchannels ~mail:* -@all +@read +@connection -@dangerous +role'
  mkdir -p "$folder"
  cat >"$folder/users.acl" <<C
user default on >s3cret ~* &* +@all
user publisher on >pubpw $mail +@write +@transaction +wait
user reader on >readpw $mail
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
  disown
  wait_for "the Redis server on port $1" redis_says PONG "$1" ping
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

# settled : every sentinel knows the other two and two replicas that follow the primary and are not
# down. A failover that starts before is started by too few, or finds no replica to promote.
settled() {
  local port said
  for port in 26379 26380 26381; do
    redis_says '^OK 3 usable' "$port" sentinel ckquorum mail || { echo "$port: no quorum" && return 1; }
    said=$(redis "$port" sentinel replicas mail | grep -A1 -E '^(flags|master-link-status)$' |
      grep -vE '^(flags|master-link-status|--)$' | sort | paste -sd ' ')
    [ "$said" = "ok ok slave slave" ] || { echo "$port: $said" && return 1; }
  done
}

# sentinels : a primary (16379), two replicas (16380, 16381) and three sentinels that know them
sentinels() {
  local port
  server 16379
  server 16380 "replicaof 127.0.0.1 16379"
  server 16381 "replicaof 127.0.0.1 16379"
  for port in 26379 26380 26381; do sentinel $port; done
  wait_for "three sentinels with two replicas" settled
  password_file right s3cret
}

password_file() { (umask 077 && echo "$2" >"$scratch/$1"); } # NAME PASSWORD

# host_ini [LINE...] : host settings of the root in force: the sentinels unless PORT names a server
host_ini() {
  local place='sentinels = 127.0.0.1:26379, 127.0.0.1:26380, 127.0.0.1:26381\nmaster = mail'
  [ -z "${PORT:-}" ] || place="port = $PORT"
  mkdir -p "$MDOMAIN_ROOT/etc/mailserver-domain"
  printf '%b\n' '[keystore]\nbackend = redis' "password_file = $scratch/${PASSWORD:-right}" "$place" \
    "$@" >"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
}
