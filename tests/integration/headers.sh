#!/bin/bash
# headers.sh BUILD_DIR SCRATCH : what programs include. Each installed header compiles alone, and all
# of them together in either order, before and after <syslog.h>, whose macros have common names. None
# needs a header that stays at home, and the library offers every function that one declares. Doxygen,
# where it is there, finds a comment before each.
# ctest-timeout: 600
set -eu
source_dir=$(realpath "$(dirname "$0")/../..") scratch=$2
fail() { echo "$1"; exit 1; }

cmake -DSOURCE_DIR="$source_dir" -DINCLUDE_DIR="$scratch" -P "$source_dir/cmake/install-headers.cmake"
cd "$scratch"
mapfile -t headers < <(find mailserver-domain -name '*.h' -o -name '*.hpp' | LC_ALL=C sort)
[ "${#headers[@]}" -gt 40 ] || fail "hardly any header is installed"
grep -rhoE '^ *# *include "[^"]*"' mailserver-domain | cut -d'"' -f2 | sort -u |
  while read -r needed; do [ -f "$needed" ] || fail "an installed header needs $needed"; done

! grep -rnE '^(class [A-Za-z]+ ?[:{]|[A-Za-z][A-Za-z_:<> *]* \*?[A-Za-z]+\()' mailserver-domain |
  grep -v MDOMAIN_EXPORT || fail "declared, and not offered"

shuffled() { shuf --random-source=<(yes "$1") -e "${headers[@]}"; }
for header in "${headers[@]}"; do
  echo "#include <$header>" >"alone-${header//\//-}.cpp"
done
{ echo '#include <syslog.h>'; printf '#include <%s>\n' "${headers[@]}"; } >forward.cpp
{ printf '#include <%s>\n' "${headers[@]}" | tac; echo '#include <syslog.h>'; } >backward.cpp
for seed in 1 2; do shuffled $seed | sed 's/.*/#include <&>/' >"shuffled-$seed.cpp"; done
read -ra flags <<<"-fsyntax-only -Wall -Wextra -Werror -I. $(pkg-config --cflags jsoncpp)"
printf '%s\0' ./*.cpp | xargs -0 -n 8 -P 2 g++ -std=c++17 "${flags[@]}" || fail "g++ refuses a header"
for compiler in g++ clang++; do
  ! command -v $compiler >/dev/null || for standard in 17 20; do
    $compiler -std=c++$standard "${flags[@]}" forward.cpp backward.cpp shuffled-*.cpp ||
      fail "$compiler refuses the headers together, C++$standard"
  done
done
! command -v doxygen >/dev/null || "$source_dir/scripts/make-doxygen" "$scratch/doxygen" || fail "Doxygen"
