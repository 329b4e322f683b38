#!/bin/bash
# docs/mdomain.1 and docs/reference.md are what the table of commands says (scripts/update-docs), and
# every command answers --help.
. "$(dirname "$0")/../support/cli.sh"

new_root empty
mdomain docs man | diff "$source_dir/docs/mdomain.1" - || fail "docs/mdomain.1 is out of date"
mdomain docs markdown | diff "$source_dir/docs/reference.md" - ||
  fail "docs/reference.md is out of date"
sed -n 's/^### `mdomain \([a-z ]*[a-z]\).*/\1/p' "$source_dir/docs/reference.md" |
  while read -r words; do
    # shellcheck disable=SC2086
    mdomain $words --help >/dev/null || echo "$words"
  done >"$scratch/mute"
[ ! -s "$scratch/mute" ] || fail "no help for: $(cat "$scratch/mute")"
finish
