#!/bin/bash
# abi.sh BUILD_DIR SCRATCH : programs that were compiled against an earlier release still fit. What
# their objects look like is compared by abidiff, from the headers alone: abi/VERSION.abi.xz is
# the dump of a release, abi/VERSION.suppr what was changed since on purpose. Which functions there
# are is told by exports.sh. The dump of a tree:
#
#   abi-probe.py HEADER... >probe.cpp; g++ -std=c++17 -g -O0 -fPIC -shared ... probe.cpp -o probe.so
# (with -femit-class-debug-always, else those with virtual functions are left out)
#
#   abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed probe.so --out-file FILE
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"

here=$source_dir/tests/integration
cd "$source_dir" || exit 1
mapfile -t headers <cmake/public-headers.txt
"$here/lib/abi-probe.py" "${headers[@]}" >"$scratch/probe.cpp" || exit 1
[ "$(grep -c '^extern' "$scratch/probe.cpp")" -gt 40 ] || fail "hardly any class is found"
read -ra flags <<<"-std=c++17 -g -O0 -fPIC -shared -femit-class-debug-always -I. $(pkg-config --cflags jsoncpp)"
g++ "${flags[@]}" "$scratch/probe.cpp" -o "$scratch/probe.so" || exit 1
for dump in "$here"/abi/*.abi.xz; do
  version=$(basename "$dump" .abi.xz)
  xz -dc "$dump" >"$scratch/$version.abi"
  abidiff --no-added-syms --suppressions "$here/abi/$version.suppr" "$scratch/$version.abi" \
    "$scratch/probe.so" >"$scratch/said" || fail "since $version: $(cat "$scratch/said")"
done

# What 1.0.0 offered is offered (abi/VERSION.exports, as exports.sh writes it).
for list in "$here"/abi/*.exports; do
  LC_ALL=C comm -23 "$list" "$here/exports.list" >"$scratch/said"
  [ ! -s "$scratch/said" ] || fail "no longer offered: $(cat "$scratch/said")"
done

# A program of then, in a company of today.
new_root company
good domain create example.com
read -ra flags <<<"-std=c++17 -Wall -Wextra -Werror -I. $(pkg-config --cflags jsoncpp) $(sanitizer_options "$build/lib/libmailserver-domain.so")"
g++ "${flags[@]}" tests/integration/abi/program.cpp -o "$scratch/program" -L"$build/lib" \
  -lmailserver-domain -lmailserver-platform -Wl,-rpath,"$build/lib" 2>"$scratch/said" || fail "$(cat "$scratch/said")"
same "a program of 1.0.0" "$("$scratch/program" "$scratch/owners.db" 2>&1)" $'1 5 5 0\n1 1 1\n1 anna\n0'
