#!/bin/bash
# manual_examples.sh BUILD_DIR SCRATCH [--update] : every example of the manual pages prints what they
# show, ends as they say, and with --json has the members that they explain. --update writes what is
# printed now into tools/mdomain/manual.txt.
# ctest-label: redis
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
. "$here/lib/postfix.bash"
. "$here/lib/host.bash"
unset SUDO_USER SUDO_UID
manual=$source_dir/tools/mdomain/manual.txt
examples() { python3 "$here/lib/examples.py" "$1" "$manual" "$scratch/steps"; }

# steps FOLDER ENDING : does what stands there, in a folder of its own.
steps() {
  local step
  for step in "$1"/*.prepare "$1"/*.run; do [ ! -f "$step" ] || echo "$step"; done | sort >"$1/order"
  while read -r step <&3; do
    if [ "${step##*.}" = prepare ]; then
      eval "$(cat "$step")" >"$scratch/said" 2>&1 || fail "$(cat "$step" "$scratch/said")"
    else
      eval "$(cat "$step")" >"${step%.run}.$2" 2>&1 </dev/null
      status=$?
      [ -z "${MDOMAIN_ROOT:-}" ] || sed -i "s|$MDOMAIN_ROOT||g" "${step%.run}.$2"
      [ "$status" -eq 0 ] || echo "[status $status]" >>"${step%.run}.$2"
    fi
  done 3<"$1/order"
}

# at_terminal TEXT : from now on mdomain has a terminal, at which somebody types that.
at_terminal() {
  typed=$1
  mdomain() {
    typing "$typed"$'\n' ${as_json:+"$as_json"} "$@"
    cat <<<"$err$out"
    return "$status"
  }
}

examples split
mdomain() { command mdomain ${as_json:+"$as_json"} "$@"; }
new_root company
company=$MDOMAIN_ROOT
mkdir "$scratch/steps/all" && mv "$scratch"/steps/*.prepare "$scratch/steps/all"
steps "$scratch/steps/all" out
rm -r "$scratch/steps/all"
# Each noun in a copy of the company, as text and with --json; servers are its own.
for folder in "$scratch"/steps/*/; do
  folder=${folder%/}
  noun=$(basename "$folder")
  for ending in out json; do
    (
      rm -rf "$scratch"/{root,work,second,older,16390,host,postfix}
      cp -a "$company" "$scratch/root" && mkdir "$scratch/work" && cd "$scratch/work" || exit 1
      use_root root
      [ $ending = out ] || as_json=--json
      steps "$folder" $ending
      [ ! -f "$scratch/16390/pid" ] || stop TERM "$(cat "$scratch/16390/pid")"
      [ -n "${MDOMAIN_ROOT:-}" ] || leave_host
    )
  done
done
if [ "${3:-}" = --update ]; then
  examples update
else
  same "what the examples print" "$(examples compare)" ""
fi
same "what --json prints" "$(examples fields)" ""
