#!/bin/bash
# threads.sh [ROUNDS] : the libraries under ThreadSanitizer (preset thread, built here), which must say
# nothing of threads on sessions of all kinds beside forks, of two threads with objects of the other
# classes and one mutex around every call, and of the examples of docs/library.md. Without the mutex it
# must see races, so that its silence means something.
set -eu
source_dir=$(realpath "$(dirname "$0")/../..")
build=$source_dir/build/thread rounds=${1:-5}
cd "$source_dir"
cmake --preset thread >/dev/null
cmake --build "$build" -j "$(nproc)"
scratch=$(mktemp -d)
chmod 755 "$scratch"
trap 'rm -rf "$scratch"' EXIT
# A forked process of several threads may go on; where it forks the library has no call under way.
export TSAN_OPTIONS="die_after_fork=0 exitcode=66 suppressions=$source_dir/tests/reliability/threads.suppressions"

# program NAME : it is built
program() {
  g++ -std=c++17 -g -O1 -fsanitize=thread -Wall -Wextra -Werror -I. "tests/reliability/$1.cpp" -o "$scratch/$1" \
    -L"$build/lib" -lmailserver-domain -lmailserver-platform -pthread -Wl,-rpath,"$build/lib"
}
# run NAME WORD : in a root of its own; its output goes to NAME-WORD, its status is the result's
run() {
  export MDOMAIN_ROOT=$scratch/root-$2
  mkdir -p "$MDOMAIN_ROOT/etc"
  printf '%s:x:%s:1500::/nonexistent:/bin/false\n' anna 1001 ben 1002 >"$MDOMAIN_ROOT/etc/passwd"
  echo 'sales:x:2001:anna' >"$MDOMAIN_ROOT/etc/group"
  timeout 1800 "$scratch/$1" "$2" >"$scratch/$1-$2" 2>&1
}
fail() { echo "FAILED: $1:" && head -80 "$2" && exit 1; }

program two_threads
program many_sessions
run many_sessions "$rounds" || fail "threads on sessions" "$scratch/many_sessions-$rounds"
run two_threads guarded || fail "two threads with a mutex" "$scratch/two_threads-guarded"
TSAN_OPTIONS="$TSAN_OPTIONS halt_on_error=1" run two_threads unguarded || true  # what raced may never end
grep -q 'ThreadSanitizer: data race' "$scratch/two_threads-unguarded" ||
  fail "without a mutex nothing was seen" "$scratch/two_threads-unguarded"
for script in library_examples session_languages; do
  mkdir -m 755 "$scratch/$script"
  bash "tests/integration/$script.sh" "$build" "$scratch/$script" || fail "$script" "$scratch/$script/log"
done
echo "ThreadSanitizer is silent about sessions, guarded objects and the examples, and sees unguarded ones"
