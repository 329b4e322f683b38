#!/bin/bash
# Builds the Debian packages, has lintian judge them, and installs them into a fresh Debian 12 as its
# administrator would: new, over 1.0.0, removed, purged; then programs against the development
# package alone. As root, with debootstrap, lintian, debhelper and dh-python; downloads from the mirror. Says
# what was wrong, and ends with 1 when something was.
#
# packages.sh WORK_DIR : what is there from an earlier run is used again (new/, old/, debian/).
# With systemd-nspawn (systemd-container) the units also run under a systemd of their own.
# MIRROR: where from (http://deb.debian.org/debian). OLD: the revision that was 1.0.0.
set -eu
trap 'echo "FAILED: line $LINENO"' ERR
if [ -z "${MDOMAIN_PRIVATE:-}" ]; then
  MDOMAIN_PRIVATE=1 exec unshare --mount bash "$0" "$@"
fi
[ $# -eq 1 ] || { echo "usage: packages.sh WORK_DIR" >&2 && exit 2; }
mkdir -p "$1"
work=$(realpath "$1")
. "$(dirname "$0")/debian.bash"

prepare
if ! ls "$work"/old/*.changes >/dev/null 2>&1; then
  old=${OLD:-$(git -C "$source_dir" log --reverse --format=%h -S'## Unreleased' -- CHANGELOG.md | head -n 1)^}
  git -C "$source_dir" archive "$old" | tree old
  logged "building those of 1.0.0" build old
fi
logged "lintian" lintian --allow-root --fail-on error,warning "$work"/new/*.changes
# host : a fresh system with an account, and both packages in folders
host() {
  fresh
  mkdir "$work/system/old"
  cp "$work"/old/*.deb "$work/system/old/"
  printf 'anna:x:1001:1001:Anna Schmidt:/home/anna:/bin/sh\n' >>"$work/system/etc/passwd"
}
from() { cd "$work/system" && ls -d "./$1"/libmailserver-domain1_*.deb "./$1"/mailserver-domain-tools_*.deb; }
data() { (cd "$work/system" && find var/packages etc/mailserver-domain -type f -exec sha256sum {} + | sort -k 2); }

host
# shellcheck disable=SC2046
install "the new packages" $(from new)
inside mdomain domain create example.com >/dev/null
inside mdomain refresh --quiet >/dev/null
same "addresses" "$(inside mdomain user addresses anna)" anna@example.com
same "a second refresh" "$(inside mdomain refresh --quiet 2>&1)" ""
inside test -L /etc/systemd/system/timers.target.wants/mdomain-refresh.timer || fail "the timer is not enabled"
inside test ! -e /etc/systemd/system/multi-user.target.wants/mdomain-node-pull.service || fail "pulling is enabled"
install "the pages" "$(cd "$work/system" && ls -d ./new/mailserver-domain-web_*.deb)"
inside test -L /etc/systemd/system/sockets.target.wants/mdomain-web.socket || fail "the pages' socket is not enabled"
if command -v systemd-nspawn >/dev/null; then
  install "systemd" systemd dbus
  printf 'ben:x:1002:1002:Ben Carter:/home/ben:/bin/sh\n' >>"$work/system/etc/passwd"
  cat >"$work/system/look" <<'END'
systemctl start mdomain-refresh.service && mdomain user addresses ben
systemctl start mdomain-refresh.service mdomain-node-pull.service
perl -MIO::Socket::UNIX -e '$s = IO::Socket::UNIX->new("/run/mdomain-web.sock"); print $s "GET /sign-in HTTP/1.0\r\n\r\n"; print grep(/<h1>/, <$s>)'
journalctl --sync
journalctl -o cat -u mdomain-refresh -u mdomain-node-pull | grep -E '^mdomain: |exec-condition|unmet'
END
  booted look
  same "what they do" "$said" "ben@example.com
<h1>Sign in</h1>
mdomain-node-pull.service - Pull what the machine that manages the mail domains publishes was skipped because of an unmet condition check (ConditionPathExists=/etc/mailserver-domain/host.ini)."
fi
logged "purging them" inside apt-get purge -q -y mailserver-domain-tools mailserver-domain-web
same "what is left" "$(inside find /var/packages /etc/mailserver-domain /run/postara_server 2>/dev/null)" ""
same "the account" "$(inside getent passwd Postara-Server)" ""

host
# shellcheck disable=SC2046
install "1.0.0" $(from old)
inside mdomain domain create example.com >/dev/null
inside mdomain domain create bücher.example --no-auto-add --pattern '<4a>' >/dev/null
inside mdomain refresh >/dev/null
inside mdomain user add bücher.example anna --alias anna.s >/dev/null
inside mdomain owner build >/dev/null
mkdir -p "$work/system/etc/mailserver-domain/hooks/after-pull.d"
echo '; of the administrator' >"$work/system/etc/mailserver-domain/host.ini"
data >"$work/before"
listing=$(inside mdomain --json user addresses --all)
# shellcheck disable=SC2046
install "the new packages over it" $(from new)
data | diff "$work/before" - || fail "the upgrade changed what was stored"
same "what the new ones read" "$(inside mdomain --json user addresses --all)" "$listing"
inside mdomain refresh --quiet >/dev/null || fail "a refresh after the upgrade"
inside test -L /etc/systemd/system/timers.target.wants/mdomain-refresh.timer || fail "the timer is not enabled"
data >"$work/before"
logged "removing them" inside apt-get remove -q -y mailserver-domain-tools libmailserver-domain1
data | diff "$work/before" - || fail "removing changed what was stored"
logged "purging them" inside apt-get purge -q -y mailserver-domain-tools
same "what is left of 1.0.0" "$(inside find /var/packages /etc/mailserver-domain -type f 2>/dev/null)" /etc/mailserver-domain/host.ini

host
# shellcheck disable=SC2046
install "a compiler and the development package" g++ cmake make \
  $(cd "$work/system" && ls -d ./new/libmailserver-domain1_*.deb ./new/libmailserver-domain-dev_*.deb)
mkdir "$work/system/program"
sed -n '/^```cpp$/,/^```$/p' "$source_dir/README.md" | sed '/^```/d' >"$work/system/program/example.cpp"
cat >"$work/system/program/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.21)
project(example CXX)
set(CMAKE_CXX_STANDARD 17)
find_package(mailserver-domain 1.0 REQUIRED)
add_executable(example example.cpp)
target_link_libraries(example mailserver-domain::mailserver-domain)
END
logged "a program with CMake alone" inside sh -c 'cmake -S /program -B /program/build && cmake --build /program/build'
install "pkg-config" pkg-config
logged "a program with pkg-config" inside sh -c \
  'cd /program && g++ -std=c++17 example.cpp -o example $(pkg-config --cflags --libs mailserver-domain)'
logged "running both" inside sh -c \
  'cd /program && for e in ./example build/example; do d=$(mktemp -d) && MDOMAIN_ROOT=$d $e | grep anna || exit; done'
install "the pages on the library" "$(cd "$work/system" && ls -d ./new/mailserver-domain-doc_*.deb)"
inside grep -q 'mdomain::Session' /usr/share/doc/mailserver-domain-doc/html/index.html || fail "the pages are empty"
cd / && unmount
[ "$failures" -eq 0 ] || { echo "$failures checks failed" && exit 1; }
echo "packages OK"
