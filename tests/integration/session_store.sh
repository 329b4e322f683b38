#!/bin/bash
# A session that lives on while the key store that machines share stops, comes back empty, and is taken
# over by another machine and back: what it changes is done here, and it says what is not published. A
# dry run tells the same of all of it, and reaches the store with nothing.
# ctest-label: redis
# ctest-timeout: 300
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"

cat >"$scratch/session.py" <<'END'
import sys
import mailserver_domain

session = mailserver_domain.Session(person="python", lock_timeout=20)
for line in sys.stdin:
    name, _, arguments = line.strip().partition(" ")
    try:
        given = eval(arguments or "{}")
        told = session.call(name, **given)
        print("would:" + told["summary"] if "dry_run" in given else "published", flush=True)
    except mailserver_domain.Error as error:
        assert (error.number == 5635) == (error.reason == "unpublished"), error.number
        print(error.reason, error, flush=True)
END
preload=
[ -z "$(sanitizer_options "$build/lib/libmailserver-domain.so")" ] ||
  preload="$(gcc -print-file-name=libasan.so) $(gcc -print-file-name=libubsan.so)"
export PYTHONPATH=$source_dir/bindings/python LD_LIBRARY_PATH=$build/lib
# live : a session in the root in force, for `ask`
live() {
  coproc SESSION { LD_PRELOAD=$preload ASAN_OPTIONS=detect_leaks=0 exec python3 "$scratch/session.py" 2>"$scratch/said"; }
}
# ask WANTED CALL : a regular expression for the answer of the living session
ask() {
  local answer=
  echo "$2" >&"${SESSION[1]}" && read -t 60 -r answer <&"${SESSION[0]}"
  matches "$2" "$answer" "$1"
}
store() {
  server 16390 "appendonly yes"
  password_file right s3cret
}

store
new_root first
PORT=16390 host_ini "node = first"
good node manage --yes
live
ask '^published$' 'create_domain {"name": "one.example"}'
kill "$(pid_of 16390)"
wait_for "the end of the server" bash -c "! redis-cli -p 16390 ping"
ask '^unpublished done here, not published: .*16390' 'create_domain {"name": "two.example"}'
ask '^unpublished .*16390' 'set_domain {"domain": 1, "description": "new"}'
ask '^unpublished .*16390' 'publish'
ask '^would:1 thing changes$' 'set_domain {"domain": 1, "description": "tried", "dry_run": True}'
ask '^published$' 'domains'
store
ask '^published$' 'set_domain {"domain": 2, "description": "new"}'
names() { same "published" "$(redis 16390 get mail:key:virtual_multiple_domain)" "$1"; }
names "1/one.example, 2/two.example"
# trial WANTED CALL : neither the store nor a file here is another one then
trial() {
  local before
  before=$(state)
  ask "$1" "$2"
  same "what $2 left" "$(state)" "$before"
}
state() {
  redis 16390 --raw debug digest
  redis 16390 --raw info commandstats | grep -E 'cmdstat_(set|hset|del|exec|eval)' | sed 's/,.*//'
  find "$MDOMAIN_ROOT/var" -type f ! -name mdomain.lock -exec sha256sum {} + | sort -k 2
}
trial '^would:2 things change$' 'create_domain {"name": "tried.example", "dry_run": True}'
trial '^would:$' 'publish {"dry_run": True}'
redis 16390 set mail:key:smtp_main_domain other.example >"$scratch/flushed"
trial '^would:$' 'publish {"dry_run": True}'
redis 16390 flushall >"$scratch/flushed"
ask '^published$' 'publish'
names "1/one.example, 2/two.example"

# Somebody else manages: nothing is changed here until that is taken back.
new_root second
PORT=16390 host_ini "node = second"
good node join --yes
good node take-over --yes
good domain create three.example
use_root first
ask '^refused another machine took the domains over, second$' 'create_domain {"name": "four.example"}'
good node join
ask '^refused the domains are managed on second$' 'create_domain {"name": "four.example"}'
ask '^refused the domains are managed on second$' 'create_domain {"name": "four.example", "dry_run": True}'
good node take-over --yes
ask '^published$' 'create_domain {"name": "four.example"}'
names "1/one.example, 2/two.example, 3/three.example, 4/four.example"
