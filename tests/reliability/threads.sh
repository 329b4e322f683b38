#!/bin/bash
# threads.sh BUILD : two threads with objects of their own and one mutex around every call of the
# library, under valgrind's helgrind, which sees no race; and none around it, so that it sees some. In
# a build without sanitizers.
set -eu
[ $# -eq 1 ] || { echo "usage: threads.sh BUILD" >&2 && exit 2; }
libraries=$(realpath "$1")/lib
source_dir=$(realpath "$(dirname "$0")/../..")
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
g++ -std=c++17 -g -Wall -Wextra -Werror -I"$source_dir" "$source_dir/tests/reliability/two_threads.cpp" \
  -o "$root/two_threads" -L"$libraries" -lmailserver-domain -lmailserver-platform -pthread \
  -Wl,-rpath,"$libraries"
mkdir "$root/etc"
printf '%s:x:%s:1500::/nonexistent:/bin/false\n' anna 1001 ben 1002 >"$root/etc/passwd"
echo 'sales:x:2001:anna' >"$root/etc/group"
export MDOMAIN_ROOT=$root

# races guarded|unguarded : how many are seen
races() {
  rm -rf "${root:?}/var"
  timeout 900 valgrind -q --tool=helgrind "$root/two_threads" "$1" >"$root/$1" 2>&1 || true
  grep -c 'Possible data race' "$root/$1" || true
}
seen=$(races guarded)
[ "$seen" -eq 0 ] || { echo "FAILED: $seen races with a mutex:" && head -80 "$root/guarded" && exit 1; }
! grep 'a call failed' "$root/guarded" || exit 1
[ "$(races unguarded)" -gt 0 ] || { echo "FAILED: without a mutex nothing was seen" && exit 1; }
echo "with a mutex no race, without one some"
