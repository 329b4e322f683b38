# Sourced by the scripts that run mdomain: a root with the accounts of a small company, and checks.
# A failed check is told and counted; finish ends with 1 when there was one.
set -u
build=$1 scratch=$2
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
PATH=$build/bin:$PATH
export ASAN_OPTIONS=${ASAN_OPTIONS:-}:exitcode=99 UBSAN_OPTIONS=print_stacktrace=1
failures=0

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

finish() {
  [ "$failures" -eq 0 ] || {
    echo "$failures checks failed"
    exit 1
  }
  exit 0
}

# same NAME GOT WANT
same() { [ "$2" = "$3" ] || fail "$1: got '$2', want '$3'"; }

# matches NAME TEXT REGEX
matches() { grep -qE -- "$3" <<<"$2" || fail "$1: got '$2', want a match of '$3'"; }

# run COMMAND... : runs mdomain; its output, messages and exit status are in $out, $err, $status.
run() {
  out=$(mdomain "$@" 2>"$scratch/stderr" </dev/null)
  status=$?
  err=$(cat "$scratch/stderr")
}

# good COMMAND... : as run; it must succeed.
good() {
  run "$@"
  [ "$status" -eq 0 ] || fail "mdomain $*: status $status, $err"
}

# field FILTER WANT : the last output, as JSON, through jq.
field() {
  local got
  got=$(jq -c "$1" <<<"$out") || fail "no JSON: $out"
  same "$1" "$got" "$2"
}

# new_root NAME : an empty root with the company's accounts, in force for all that follows.
new_root() {
  export MDOMAIN_ROOT=$scratch/$1
  mkdir -p "$MDOMAIN_ROOT/etc"
  cat >"$MDOMAIN_ROOT/etc/passwd" <<'END'
root:x:0:0:root:/root:/bin/bash
printer:x:900:900:Printer queue:/nonexistent:/usr/sbin/nologin
anna:x:1001:2001:Anna Schmidt:/home/anna:/bin/bash
ben:x:1002:2001:Ben Carter:/home/ben:/bin/bash
erik:x:1003:2002:Erik Larsen:/home/erik:/bin/bash
erika:x:1004:2002:Erika Larsson:/home/erika:/bin/bash
user:x:1005:1005:Zoë Müller:/home/user:/bin/bash
END
  printf 'root:x:0:\nsales:x:2001:\nbooks:x:2002:user\ninterns:x:2003:\n' >"$MDOMAIN_ROOT/etc/group"
}

database() { echo "$MDOMAIN_ROOT/var/packages/Postara-Server/etc/local_DOMAIN.db"; }

# Everything that a change could leave behind, as text. Reading must not change it either.
state() {
  for file in "$MDOMAIN_ROOT"/var/packages/Postara-Server/{etc,target/etc}/*.db; do
    [ ! -f "$file" ] || { echo "$file" && sqlite3 "$file" .dump; }
  done
  find "$MDOMAIN_ROOT" ! -name '*.lock' ! -path '*/etc/passwd' | sort
  find "$MDOMAIN_ROOT/var" -type f ! -name '*.lock' ! -name '*.db' -exec sha256sum {} + | sort
}

# bad STATUS REGEX COMMAND... : runs mdomain, which must end so, say something that matches, print
# nothing, and leave $scratch/before, a state, as it is.
bad() {
  local want=$1 regex=$2
  shift 2
  run "$@"
  same "status of: $*" "$status" "$want"
  matches "message of: $*" "$err" "$regex"
  same "output of: $*" "$out" ""
  state >"$scratch/after"
  cmp -s "$scratch/before" "$scratch/after" || {
    fail "changed by: $*"
    diff "$scratch/before" "$scratch/after" | head -n 20
    cp "$scratch/after" "$scratch/before"
  }
}
