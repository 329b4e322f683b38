#!/bin/bash
# What the packages bring besides programs: maintainer scripts and units, run as dpkg and systemd
# would, on a copy of this system that nobody keeps. The units get the account, the capabilities and
# the writable folders that they name. tests/reliability/packages.sh does it with real packages.
# ctest-label: redis
# ctest-timeout: 300
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
debian=$source_dir/packaging/debian units=$source_dir/packaging/systemd

mkdir "$scratch/copy"
mount -t tmpfs none "$scratch/copy" && mkdir "$scratch"/copy/{up,work} && mkdir "$scratch/system" &&
  mount -t overlay -o "lowerdir=/,upperdir=$scratch/copy/up,workdir=$scratch/copy/work" none "$scratch/system" &&
  [ "$(awk 'NR == 1 { print $3 }' /proc/self/uid_map)" -gt 1 ] ||
  { echo "this test needs root and an overlay file system" && exit 77; }
system=$scratch/system home=$scratch/system/var/packages/Postara-Server
mount --rbind /dev "$system/dev" && mount -t proc proc "$system/proc"
rm -rf "$home" "$system/run/postara_server" "$system/etc/mailserver-domain"
cmake --install "$build" --prefix "$system/usr" >"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"
chroot "$system" ldconfig
grep -vE '^Postara-Server:' /etc/passwd >"$system/etc/passwd"
grep -vE '^Postara-Server:' /etc/group >"$system/etc/group"

inside() { chroot "$system" "$@"; }
# script NAME ARGUMENT... : a maintainer script, without what debhelper adds
script() {
  grep -v '^#DEBHELPER#' "$debian/mailserver-domain-tools.$1" >"$system/script"
  inside sh /script "${@:2}" || fail "$*"
}
mdomain() { inside mdomain "$@"; }
setting() { sed -n "s/^$1=//p" "$units/$unit"; } # KEY : its values in the unit in force

# run_unit UNIT : its condition and its program, whose output and messages are in $said and in a file.
set -o pipefail
run_unit() {
  unit=$1 said=
  local words word paths user capabilities="-all"
  user=$(setting User)
  read -ra paths <<<"$(setting ReadWritePaths | tr '\n' ' ')"
  for word in $(setting CapabilityBoundingSet); do capabilities+=",+${word#CAP_}"; done
  eval "words=($(setting ExecCondition))"
  inside "${words[@]}" || return 1
  read -ra words <<<"$(setting ExecStart)"
  said=$(restricted setpriv --reuid "${user:-root}" --regid "${user:-root}" --init-groups --no-new-privs \
    --inh-caps=-all --bounding-set "${capabilities,,}" "${words[@]}" 2>&1 | tee "$scratch/said")
}
restricted() {
  # shellcheck disable=SC2016
  unshare --mount bash -c 'system=$1 paths=$2 && shift 2
    for path in $paths; do mount --bind "$system$path" "$system$path" || exit; done
    mount -o remount,bind,ro "$system" && mount -t tmpfs none "$system/tmp" && mount -t tmpfs none "$system/home" &&
    exec chroot "$system" "$@"' - "$system" "${paths[*]}" "$@"
}

if command -v systemd-analyze >/dev/null; then
  cp "$units"/*.{service,timer} "$system/etc/systemd/system/"
  same "units" "$(inside systemd-analyze verify --man=no mdomain-refresh.timer mdomain-node-pull.service 2>&1)" ""
fi

script postinst configure
script postinst configure 1.0.0
read -r _ folder mode owner group _ <<<"$(grep '^d' "$units/mailserver-domain.conf")"
inside install -d -m "$mode" -o "$owner" -g "$group" "$folder"
same "who owns the databases' folder" "$(inside stat -c '%U %a' "${home#"$system"}/etc")" "Postara-Server 755"

# What root made by hand the timer goes on with, as the service account, and the other way round.
printf 'm%d:x:2100%d:100::/:/bin/sh\n' 1 1 2 2 >>"$system/etc/passwd"
good domain create timer.example --pattern '<2a>'
same "whether there is a model for the timer" "$(inside sh -c "ls $(sed -n 's/^ConditionPathExistsGlob=//p' "$units/mdomain-refresh.service")")" \
  /var/packages/Postara-Server/etc/local_DOMAIN.db
good refresh
good domain names add timer.example timer.org
for name in m1 m3; do
  sed -i "/^m1:/d; \$a $name:x:21004:100::/:/bin/sh" "$system/etc/passwd"
  run_unit mdomain-refresh.service || fail "the timer's refresh: $said"
  matches "what the timer says of a change" "$said" 'users +1'
  run_unit mdomain-refresh.service || fail "the timer's second refresh: $said"
  same "what the timer says when nothing changed" "$said" ""
  good user set timer.example m2 --add-alias "$name"
  sed -i '/:21004:/d' "$system/etc/passwd"
done
flags=$system/run/postara_server/update_smtp_user_list
same "who leaves notices" "$(inside find "${flags#"$system"}" -type f -printf '%u\n' | sort -u | paste -sd ' ')" \
  "Postara-Server root"

# A machine that pulls: the timer rests, the service brings everything and runs the programs.
run_unit mdomain-node-pull.service && fail "a machine alone pulls"
same "what a machine alone says" "$said" ""
server 16390
password_file right s3cret
( unset -f mdomain; new_root manager; PORT=16390 host_ini "node = manager"
  good node manage --yes; good domain create pulled.example; good refresh )
mkdir -p "$system/etc/mailserver-domain/hooks/after-pull.d"
rm -rf "${home:?}"/etc/*
printf '%s\n' '[keystore]' 'backend = redis' 'port = 16390' 'node = member' 'password_file = store.secret' \
  >"$system/etc/mailserver-domain/host.ini"
inside install -m 600 -o Postara-Server /dev/null /etc/mailserver-domain/store.secret
cat "$scratch/right" >"$system/etc/mailserver-domain/store.secret"
cat >"$system/etc/mailserver-domain/hooks/after-pull.d/10-look" <<'END'
#!/bin/sh
id -u >/run/postara_server/hook; touch /etc/hook || exit 9
END
chmod 755 "$system/etc/mailserver-domain/hooks/after-pull.d/10-look"
run_unit mdomain-node-pull.service & # ends with the namespace
pulled() { cat "$scratch/said"; mdomain domain list | grep -q pulled.example && [ -s "$system/run/postara_server/hook" ]; }
wait_for "the pull" pulled
same "what the service pulled, and for whom" "$(inside stat -c %U "${home#"$system"}"/etc/{local_DOMAIN,keystore}.db | sort -u)" Postara-Server
[ ! -e "$system/etc/hook" ] || fail "a program after a pull wrote to /etc"
run_unit mdomain-refresh.service && fail "the timer refreshes on a machine that pulls"
same "what the timer says there" "$said" ""

# Removing keeps what is there, purging takes it, but for what somebody else put there.
mkdir "$home/etc/dkim.key"
script prerm remove
script postrm remove
[ -s "$home/etc/local_DOMAIN.db" ] || fail "removing took the databases"
script postrm purge
same "what a purge leaves" "$(find "$home" "$system/run/postara_server" ! -type d -o -name dkim.key 2>/dev/null)" "$home/etc/dkim.key"
inside getent passwd Postara-Server >/dev/null || fail "the account went, and its files stayed"
rmdir "$home/etc/dkim.key"
script postrm purge
[ ! -e "$home" ] || fail "a purge leaves a folder"
inside getent passwd Postara-Server >/dev/null && fail "a purge leaves the account"
[ -s "$system/etc/mailserver-domain/host.ini" ] || fail "a purge took host.ini"
