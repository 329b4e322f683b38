#!/bin/bash
# A short form of tests/reliability/nodes.py: machines that share a key store, and random steps.
# ctest-label: redis
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"
"$source_dir/tests/reliability/nodes.py" "$build" --steps 60 --seed "${SEED:-1}" >"$scratch/said" 2>&1 ||
  fail "$(tail -n 60 "$scratch/said")"
