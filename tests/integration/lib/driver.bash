# What an integration script includes first: the root it works in, mdomain, checks, waiting.
#
# A script is called with a build folder and an empty scratch folder ($build, $scratch) and finds the
# checkout in $source_dir. A check that fails says what it wanted and what it got, and the script goes
# on; at its end it exits with 1 when a check failed, also one in a subshell.
set -u
build=$(realpath "$1") scratch=$(realpath "$2")
source_dir=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../../..")
PATH=$build/bin:$PATH
export ASAN_OPTIONS=${ASAN_OPTIONS:-}:exitcode=99 UBSAN_OPTIONS=print_stacktrace=1

# sanitizer_options LIBRARY : the options with which a program that uses it is built
sanitizer_options() {
  local symbols
  symbols=$(nm -D "$1")
  ! grep -q __asan_init <<<"$symbols" || echo "-fsanitize=address -fsanitize=undefined"
  ! grep -q __tsan_init <<<"$symbols" || echo "-fsanitize=thread"
}

fail() { echo "FAILED: $*" | tee -a "$scratch/failures"; }
finish() {
  local ended=$?
  [ ! -s "$scratch/failures" ] || { echo "$(grep -c ^FAILED "$scratch/failures") checks failed" && exit 1; }
  exit $ended
}
trap finish EXIT

# same NAME GOT WANT
same() { [ "$2" = "$3" ] || fail "$1: got '$2', want '$3'"; }

# matches NAME TEXT REGEX
matches() { grep -qE -- "$3" <<<"$2" || fail "$1: got '$2', want a match of '$3'"; }

# alike NAME FILE FILE : the same bytes, also as folders.
alike() { diff -r "$2" "$3" || fail "$1: differs"; }

# schema_takes FILE : whether this export is what docs/export.schema.json says (python3-jsonschema).
schema_takes() {
  python3 - "$source_dir/docs/export.schema.json" "$1" <<'END'
import json, sys, jsonschema
schema, document = (json.load(open(path)) for path in sys.argv[1:])
try:
    jsonschema.validate(document, schema)
except jsonschema.ValidationError as error:
    sys.exit(f"{error.json_path}: {error.message}")
END
}
fits_schema() { schema_takes "$1" || fail "$1 is not what its schema says"; }

# run COMMAND... : runs mdomain; its output, messages and exit status are in $out, $err, $status.
run() {
  local messages=$scratch/stderr-$BASHPID
  out=$(mdomain "$@" 2>"$messages" </dev/null)
  status=$?
  err=$(cat "$messages")
}

# typing TEXT COMMAND... : as run, with a terminal 80 columns wide at which somebody types that.
typing() {
  local messages=$scratch/stderr-$BASHPID
  out=$(TYPED=$1 TERM=dumb python3 "$source_dir/tests/integration/lib/terminal.py" 80 mdomain "${@:2}" 2>"$messages")
  status=$?
  err=$(cat "$messages")
  out=${out%widest *}
}

# good COMMAND... : as run; it must succeed.
good() {
  run "$@"
  [ "$status" -eq 0 ] || fail "mdomain $*: status $status, $err"
}

# fails STATUS REGEX COMMAND... : as run; it must end so, say something that matches, print nothing.
fails() {
  local want=$1 regex=$2
  shift 2
  run "$@"
  same "status of: $*" "$status" "$want"
  matches "message of: $*" "$err" "$regex"
  same "output of: $*" "$out" ""
}

# field FILTER WANT : the last output, as JSON, through jq.
field() { same "$1" "$(jq -c "$1" <<<"$out" 2>&1)" "$2"; }

# gives FILTER WANT COMMAND... : mdomain --json succeeds, and its output through jq is WANT.
gives() {
  good --json "${@:3}"
  same "${*:3}: $1" "$(jq -c "$1" <<<"$out" 2>&1)" "$2"
}

# use_root NAME : a root below the scratch folder is in force for all that follows.
use_root() {
  export MDOMAIN_ROOT=$scratch/$1
  etc=$MDOMAIN_ROOT/var/packages/Postara-Server/etc
  target=$MDOMAIN_ROOT/var/packages/Postara-Server/target
  database=$etc/local_DOMAIN.db
}

# new_root NAME : as use_root; an empty one with the accounts of a small company.
new_root() {
  use_root "$1"
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

# bcc_compiler : the root in force gets the compiler of blind-copy maps.
bcc_compiler() { mkdir -p "$target/bin" && ln -s "$build/bin/korv_bcc_map" "$target/bin/"; }

# state : everything in the root in force that a change could leave behind. Databases count by what
# they hold: a change that was taken back may leave other bytes.
state() {
  local file
  for file in "$etc"/*.db "$target"/etc/*.db; do
    [ ! -f "$file" ] || sqlite3 "$file" 'PRAGMA user_version' .dump 2>/dev/null || sha256sum "$file"
  done
  find "$MDOMAIN_ROOT" ! -name '*.lock' \
    \( -type f ! -name '*.db' -exec sha256sum {} + -o -print \) | sort
}

# remember : the state that unchanged and refused compare with.
remember() { state >"$scratch/before"; }

# unchanged NAME : the state is the one that was remembered.
unchanged() {
  state >"$scratch/after"
  diff "$scratch/before" "$scratch/after" >"$scratch/changes" && return
  fail "changed by: $1: $(head -n 20 "$scratch/changes")"
  cp "$scratch/after" "$scratch/before"
}

# refused STATUS REGEX COMMAND... : as fails, and nothing changes.
refused() {
  fails "$@"
  unchanged "${*:3}"
}

# wait_for WHAT COMMAND... : until the command succeeds. After $limit seconds it gives up, and the
# script with it, and says what was waited for and what the command said last.
limit=60
wait_for() {
  local end=$((SECONDS + limit)) said
  until said=$("${@:2}" 2>&1); do
    [ "$SECONDS" -lt "$end" ] || { fail "waited $limit seconds for $1; $2 says: $said" && exit 1; }
    sleep .02
  done
}

# listens PORT : somebody takes connections there.
listens() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

# stop SIGNAL PID : ends a child, without the shell's word about it.
stop() {
  kill "-$1" "$2"
  wait "$2" 2>/dev/null
  wait_for "the end of process $2" bash -c "! kill -0 $2 2>/dev/null"
}
