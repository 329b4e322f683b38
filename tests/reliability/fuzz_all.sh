#!/bin/bash
# fuzz_all.sh BUILD SECONDS [TARGET...] : runs each fuzz target of a build (preset "fuzz") that long,
# two at a time (FUZZ_JOBS), from its corpus, which it leaves alone. Prints what each ran and found,
# and the processor time that it got; a finding stays in BUILD/findings. Ends with 1 when there is one.
set -u
build=$(realpath "$1") seconds=$2
shift 2
source_dir=$(realpath "$(dirname "$0")/../..")
findings=$build/findings
mkdir -p "$findings"
[ $# -gt 0 ] || mapfile -t targets < <(basename -s .cpp "$source_dir"/fuzz/*_fuzz.cpp)
[ $# -eq 0 ] || targets=("$@")

fuzz_one() {
  local new log=$findings/$1.log used
  new=$(mktemp -d)
  local TIMEFORMAT=%U
  used=$({ time "$build/bin/$1" -max_total_time="$seconds" -timeout=120 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$findings/$1-" "$new" "$source_dir/fuzz/corpus/$1" >"$log" 2>&1; } 2>&1)
  local status=$? runs
  rm -rf "$new"
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  echo "$1: ${runs:-0} runs in $used s, $([ $status -eq 0 ] && echo nothing found || echo "status $status, see $log")"
  return $status
}
export -f fuzz_one
export build seconds source_dir findings
printf '%s\n' "${targets[@]}" | xargs -P "${FUZZ_JOBS:-2}" -I{} nice bash -c 'fuzz_one {} || exit 1'
