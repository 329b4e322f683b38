# Sourced after private.bash and driver.bash: Redis servers and sentinels, on the loopback or each on
# a machine of its own in a network that can be cut.

# Where a port's server is, and what stands before a command that runs there: network() fills them.
declare -A address=() place=()

redis() { REDISCLI_AUTH=s3cret redis-cli -h "${address[$1]:-127.0.0.1}" -p "$@"; }
redis_says() { grep -q -- "$1" <<<"$(redis "${@:2}" 2>&1)"; }
pid_of() { cat "$scratch/$1/pid"; }

# server PORT [CONFIGURATION LINE] : a server with a password and users who may touch only mail:*
server() {
  local folder=$scratch/$1
  local mail='resetchannels ~mail:* &mail:* -@all +@read +@connection -@dangerous +role +subscribe +info'
  mkdir -p "$folder"
  cat >"$folder/users.acl" <<C
user default on >s3cret ~* &* +@all
user publisher on >pubpw $mail +@write +@transaction +publish +wait
user reader on >readpw $mail
C
  cat >"$folder/redis.conf" <<C
port $1
bind ${address[$1]:-127.0.0.1}
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
  ${place[$1]:-} redis-server "$folder/redis.conf" </dev/null >/dev/null 2>&1 &
  echo $! >"$folder/pid"
  disown
  wait_for "the Redis server on port $1" redis_says PONG "$1" ping
}

# sentinel PORT : one that watches the server on port 16379 under the name mail, quorum 2
sentinel() {
  local folder=$scratch/$1
  mkdir -p "$folder"
  cat >"$folder/sentinel.conf" <<C
port $1
bind ${address[$1]:-127.0.0.1}
protected-mode no
dir $folder
logfile $folder/log
sentinel monitor mail ${address[16379]:-127.0.0.1} 16379 2
sentinel auth-pass mail s3cret
sentinel down-after-milliseconds mail 1000
sentinel failover-timeout mail 5000
C
  ${place[$1]:-} redis-server "$folder/sentinel.conf" --sentinel </dev/null >/dev/null 2>&1 &
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

# sentinels [CONFIGURATION LINE] : a primary (16379), two replicas (16380, 16381), with that line, and
# three sentinels that know them
sentinels() {
  local port replica=$'\n'"replicaof ${address[16379]:-127.0.0.1} 16379"
  server 16379 "${1:-}"
  server 16380 "${1:-}$replica"
  server 16381 "${1:-}$replica"
  for port in 26379 26380 26381; do sentinel $port; done
  wait_for "three sentinels with two replicas" settled
  password_file right s3cret
}

password_file() { (umask 077 && echo "$2" >"$scratch/$1"); } # NAME PASSWORD

# host_ini [LINE...] : host settings of the root in force: the sentinels unless PORT names a server
host_ini() {
  local port found=
  for port in 26379 26380 26381; do found+=${found:+, }${address[$port]:-127.0.0.1}:$port; done
  found="sentinels = $found\nmaster = mail"
  [ -z "${PORT:-}" ] || found="port = $PORT"
  mkdir -p "$MDOMAIN_ROOT/etc/mailserver-domain"
  printf '%b\n' '[keystore]\nbackend = redis' "password_file = $scratch/${PASSWORD:-right}" "$found" \
    "$@" >"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
}

# network NAME... : a machine of that name each, a port's number or another, in a network namespace of
# its own on one switch, at 10.9.0.1 and up; this script is on the switch, too. False where a kernel
# gives no such network.
network() {
  local number=0 name
  ip link add switch type bridge && ip link add away type bridge || return
  ip addr add 10.9.0.254/24 dev switch && ip link set switch up && ip link set away up || return
  for name in "$@"; do
    number=$((number + 1))
    unshare --net sleep infinity &
    place[$name]="nsenter --net=/proc/$!/ns/net"
    address[$name]=10.9.0.$number
    wait_for "the namespace of $name" bash -c "! cmp -s <(readlink /proc/$!/ns/net) <(readlink /proc/$$/ns/net)"
    ip link add "to$name" type veth peer name eth0 netns $! && ip link set "to$name" master switch up || return
    ${place[$name]} ip link set lo up
    ${place[$name]} ip addr add "${address[$name]}/24" dev eth0 && ${place[$name]} ip link set eth0 up || return
  done
}
# sever NAME... : these machines reach each other, and nobody else. rejoin NAME... : as before.
sever() { for name in "$@"; do ip link set "to$name" master away; done; }
rejoin() { for name in "$@"; do ip link set "to$name" master switch; done; }
