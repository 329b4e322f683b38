#!/bin/bash
# docs/reference.md is what the table of commands and manual.txt say (scripts/update-docs), every
# command answers --help with an example, manual pages have no faults, the page of the HTTP interface is
# what mdomain-web says, host.ini(5), web.ini(5) and the error numbers are those of the sources, and the package's needs are those of the build.
. "$(dirname "$0")/lib/driver.bash"

use_root .
mdomain docs markdown | diff "$source_dir/docs/reference.md" - ||
  fail "docs/reference.md is out of date"
"$source_dir/scripts/web-interface" "$build" | diff "$source_dir/docs/manual/web-interface.md" - ||
  fail "docs/manual/web-interface.md is out of date"
pages=("$build"/man/*.1 "$source_dir"/docs/man/*)
same "faults of the manual pages" "$(mandoc -T lint -W warning "${pages[@]}" 2>&1 | sed "s|.*/||")" ""
same "nouns without a page" "$(sed -n 's/^## \([a-z]*\)$/\1/p' "$source_dir/docs/reference.md" | while read -r noun; do
  [ -f "$build/man/mdomain-$noun.1" ] || echo "$noun"; done)" ""
same "pages named that there are not" "$(grep -ohE '^\.BR [^ ]+ \([135]\)' "${pages[@]}" | tr -d '\134' | sort -u |
  while read -r _ page section; do
    page=$page.${section:1:1}
    [ -f "$build/man/$page" ] || [ -f "$source_dir/docs/man/$page" ] || echo "$page"
  done)" ""

# Keys and defaults: "section key default" as the page has them, and as the sources do.
of_page() { tr -d '\134' <"$source_dir/docs/man/$1" | awk '/^\.SS/ { section = substr($2, 2, length($2) - 2) } /^\.SH FILES/ { exit }
  key != "" { print section, key, $1 == "Default" ? $2 : "none"; key = "" }
  /^\.B / && section != "" { key = $2 }' | sed 's/[.:,]*$//' | LC_ALL=C sort; }
of_page host.ini.5 >"$scratch/page"
settings=$source_dir/platform/include/host_settings.h
sed -n 's/.*keys\[{"\([a-z]*\)", "\([a-z_]*\)"}.*/\1 \2/p' "$source_dir/platform/config/host_settings.cpp" |
  while read -r section key; do
    default=$(sed -n "/^struct $section/I,/^};/s/.*[ ,]$key = {*\"*\([^\";,]*\).*/\1/p" \
      <(sed 's/^struct \(.*\)Settings {/struct \1/' "$settings"))
    echo "$section $key $(sed 's/^false$/no/; s/^true$/yes/; s/[.:,]*$//' <<<"${default:-none}")"
  done | LC_ALL=C sort >"$scratch/sources"
alike "host.ini(5) and the keys that are read" "$scratch/sources" "$scratch/page"
of_page web.ini.5 >"$scratch/page"
sed -n 's/^ *{"\([a-z-]*\)\.\([a-z_]*\)", .*/\1 \2/p' "$source_dir/web/settings.cpp" |
  while read -r section key; do
    default=$(sed -n "/^struct Settings/,/^};/s/.*[ ]$key = \"*\([^\";]*\).*/\1/p" "$source_dir/web/settings.h")
    echo "$section $key ${default:-none}"
  done | LC_ALL=C sort >"$scratch/sources"
alike "web.ini(5) and the keys that are read" "$scratch/sources" "$scratch/page"
sed -n 's/^  ERR_.* = \([1-9][0-9]*\),/\1/p' "$source_dir/lib-domain/base/error_code.h" >"$scratch/numbers"
sed -n 's/^number \([0-9]*\), .* :: .*/\1/p' "$source_dir/tools/mdomain/manual.txt" | alike "error numbers" "$scratch/numbers" -
sed -n 's/^    {ERR_.*, "\(.*\)"},/\1/p' "$source_dir/lib-domain/base/error_code.cpp" >"$scratch/texts"
sed -n 's/^number [0-9]*, \(.*\) :: .*/\1/p' "$source_dir/tools/mdomain/manual.txt" | alike "their texts" "$scratch/texts" -
sed -n 's/^### `mdomain \([a-z -]*[a-z]\).*/\1/p' "$source_dir/docs/reference.md" |
  while read -r words; do
    # shellcheck disable=SC2086
    good $words --help
    matches "the help of $words" "$out" "^  (.*[ |])?mdomain .*$words"
  done

# The Debian package needs for its build what scripts/install-packages installs for one.
list() { tr -s ' ,' '\n' | grep -vE '^(|debhelper-compat|dh-python|python3|\(=|13\)|g\+\+|ccache)$' | LC_ALL=C sort; }
sed -n '/^build="/,/"$/p' "$source_dir/scripts/install-packages" | sed 's/^build="//; s/"$//' |
  list >"$scratch/installed"
sed -n '/^Build-Depends:/,/^[A-Z]/p' "$source_dir/packaging/debian/control" |
  sed '$d; s/^Build-Depends://; s/doxygen <!nodoc>//' | list >"$scratch/depends"
alike "Build-Depends and scripts/install-packages" "$scratch/installed" "$scratch/depends"
