# A fresh Debian 12 below $work, and the packages of trees for it: for scripts that install as its
# administrator would. They set work, and need root, debootstrap, debhelper and dh-python. What an earlier run
# left in $work is used again.
source_dir=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../..") failures=0
fail() { echo "FAILED: $*"; failures=$((failures + 1)); }
same() { [ "$2" = "$3" ] || fail "$1: got '$2', want '$3'"; }
# logged NAME COMMAND... : its output is shown only when it fails, and then ends the script.
logged() {
  echo "$1 ..."
  "${@:2}" >"$work/log" 2>&1 </dev/null || { tail -n 40 "$work/log"; echo "FAILED: $1"; exit 1; }
}

# tree NAME : what comes from standard input as a tar file becomes WORK/NAME/tree
tree() { rm -rf "${work:?}/$1" && mkdir -p "$work/$1/tree" && tar -x -C "$work/$1/tree"; }
# build NAME : packages of the tree in WORK/NAME/tree, beside it. debhelper gives each build a home of
# its own, in which a cache of compiled files would be lost.
build() { (cd "$work/$1/tree" && CCACHE_DIR=${CCACHE_DIR:-$HOME/.cache/ccache} dpkg-buildpackage -us -uc -b -j"$(nproc)"); }
# Packages of this tree in WORK/new, and the system of which fresh makes copies.
prepare() {
  if ! ls "$work"/new/*.changes >/dev/null 2>&1; then
    git -C "$source_dir" ls-files -z | tar -C "$source_dir" -c --null -T - | tree new
    logged "building the packages" build new
  fi
  [ -e "$work/debian/etc/debian_version" ] ||
    logged "a fresh Debian 12" debootstrap --variant=minbase bookworm "$work/debian" \
      "${MIRROR:-http://deb.debian.org/debian}"
  cp /etc/resolv.conf "$work/debian/etc/"
  logged "its lists of packages" chroot "$work/debian" apt-get update -q
  mkdir -p "$work/system" "$work/changes"
}

unmount() { umount -R "$work/system" "$work/changes" 2>/dev/null || true; }
# fresh : the system in force is the fresh one, in which services do not start
fresh() {
  unmount
  mount -t tmpfs none "$work/changes" && mkdir "$work"/changes/{up,work}
  mount -t overlay -o "lowerdir=$work/debian,upperdir=$work/changes/up,workdir=$work/changes/work" \
    none "$work/system"
  mount -t proc proc "$work/system/proc"
  mkdir "$work/system/new"
  cp "$work"/new/*.deb "$work/system/new/"
  printf '#!/bin/sh\nexit 101\n' >"$work/system/usr/sbin/policy-rc.d"
  chmod 755 "$work/system/usr/sbin/policy-rc.d"
}
# Whatever would ask has nobody to answer, and fails.
inside() { env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 chroot "$work/system" "$@" </dev/null; }
install() { logged "installing $1" inside apt-get install -q -y --no-install-recommends "${@:2}"; }
# people : the accounts of ./quickstart and their groups; everybody's password is "secret".
people() {
  grep -E '^[a-z]+(:[^:]*){3}$' "$source_dir/quickstart" | grep -v ^root >>"$work/system/etc/group"
  grep -E '^[a-z]+(:[^:]*){6}$' "$source_dir/quickstart" | grep -v ^root |
    while IFS=: read -r name _ uid gid _; do
      grep -q ":$gid:" "$work/system/etc/group" || echo "$name:x:$gid:" >>"$work/system/etc/group"
      echo "$name:secret:$uid:$gid::/home/$name:/bin/bash"
    done >"$work/system/people"
  inside newusers /people
}
# booted SCRIPT : runs /SCRIPT of the system under a systemd of its own, without a network; what it
# prints is in $said
booted() {
  printf '[Service]\nType=oneshot\nStandardOutput=file:/said\nExecStart=sh /%s\nExecStopPost=systemctl --no-block poweroff\n' \
    "$1" >"$work/system/etc/systemd/system/script.service"
  inside systemctl add-wants multi-user.target script.service
  umount "$work/system/proc" # else it would see the processes of this host instead of its own
  logged "booting it for $1" timeout 600 systemd-nspawn -q -D "$work/system" -b --private-network \
    --register=no --keep-unit
  mount -t proc proc "$work/system/proc"
  said=$(cat "$work/system/said")
}

# page PAGE [BEFORE PROGRAM] : /page of the system runs every command of the page, as root in the folder with
# the packages; PROGRAM before the first one that is called BEFORE. Says "FAILED:" behind one that fails.
# What the page installs is downloaded now. The administrator agrees to what apt asks, and to what a
# package proposes.
page() {
  # Commands stand in code blocks without a language.
  awk '/^```/ { is_block = !is_block; is_plain = $0 == "```"; next } is_block && is_plain' "$1" |
    sed -e ':next' -e '/\\$/ { N; s/\\\n *//; b next' -e '}' >"$work/commands"
  echo 'APT::Get::Assume-Yes "true";' >"$work/system/etc/apt/apt.conf.d/yes"
  rm "$work/system/usr/sbin/policy-rc.d"
  # At once: one package may need another that the page installs before it.
  sed -n 's/^apt-get install//p' "$work/commands" | { echo apt-get install --download-only && cat; } | tr '\n' ' ' >"$work/system/new/download"
  logged "downloading what the page installs" inside sh -c 'cd /new && sh -e download'
  {
    echo 'cd /new; export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin; exec 2>&1'
    while read -r command; do
      [ "$command" != "${2:-}" ] || echo "$3"
      printf "echo '$ %s'\n%s || echo \"FAILED: status \$?\"\n" "${command//\'/\'\\\'\'}" "$command"
    done <"$work/commands"
  } >"$work/system/page"
}
