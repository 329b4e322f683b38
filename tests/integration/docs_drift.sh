#!/bin/bash
# docs/mdomain.1 and docs/reference.md are what the table of commands says (scripts/update-docs),
# every command answers --help, and the package's needs are those of the build.
. "$(dirname "$0")/lib/driver.bash"

use_root .
mdomain docs man | diff "$source_dir/docs/mdomain.1" - || fail "docs/mdomain.1 is out of date"
mdomain docs markdown | diff "$source_dir/docs/reference.md" - ||
  fail "docs/reference.md is out of date"
sed -n 's/^### `mdomain \([a-z -]*[a-z]\).*/\1/p' "$source_dir/docs/reference.md" |
  while read -r words; do
    # shellcheck disable=SC2086
    good $words --help
  done

# The Debian package needs for its build what scripts/install-packages installs for one.
list() { tr -s ' ,' '\n' | grep -vE '^(|debhelper-compat|\(=|13\)|g\+\+|ccache)$' | LC_ALL=C sort; }
sed -n '/^build="/,/"$/p' "$source_dir/scripts/install-packages" | sed 's/^build="//; s/"$//' |
  list >"$scratch/installed"
sed -n '/^Build-Depends:/,/^[A-Z]/p' "$source_dir/packaging/debian/control" |
  sed '$d; s/^Build-Depends://' | list >"$scratch/depends"
alike "Build-Depends and scripts/install-packages" "$scratch/installed" "$scratch/depends"
