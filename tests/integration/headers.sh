#!/bin/bash
# headers.sh BUILD_DIR SCRATCH : what programs include. Each installed header compiles alone, and all
# of them together in either order, before and after <syslog.h>, whose macros have common names. None
# needs a header that stays at home, and the library offers every function that one declares.
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

for header in "${headers[@]}"; do
  echo "#include <$header>" >"alone-${header//\//-}.cpp"
done
{ echo '#include <syslog.h>'; printf '#include <%s>\n' "${headers[@]}"; } >forward.cpp
{ printf '#include <%s>\n' "${headers[@]}" | tac; echo '#include <syslog.h>'; } >backward.cpp
read -ra flags <<<"-std=c++17 -fsyntax-only -Wall -Wextra -Werror -I. $(pkg-config --cflags jsoncpp)"
printf '%s\0' ./*.cpp | xargs -0 -n 8 -P 2 g++ "${flags[@]}" || fail "g++ refuses a header"
! command -v clang++ >/dev/null || clang++ "${flags[@]}" forward.cpp backward.cpp ||
  fail "clang++ refuses the headers together"
