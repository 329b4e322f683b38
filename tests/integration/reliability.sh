#!/bin/bash
# Short forms of the reliability drivers: what a kill or a full disk leaves is repaired, what processes
# do at once is there. docs/reliability.md tells the whole forms and their figures.
# ctest-timeout: 900
. "$(dirname "$0")/lib/driver.bash"

if ! said=$(strace -qq -o "$scratch/trace" -e trace=getpid -e inject=getpid:error=EPERM:when=1 true 2>&1); then
  echo "strace cannot follow a program here (ptrace is not permitted?): $said"
  exit 77
fi
drivers=$source_dir/tests/reliability
for driver in 'kills.py --count 50' 'disk_faults.py --count 100' 'random_models.py --count 2 --steps 30' \
  'parallel.py --processes 4 --changes 10'; do
  # shellcheck disable=SC2086
  "$drivers/"${driver/ / $build } >"$scratch/said" 2>&1 || fail "$driver: $(tail -n 60 "$scratch/said")"
done
