#!/bin/bash
# What may stand next on a command line, with the names that there are; and in bash itself.
. "$(dirname "$0")/lib/driver.bash"

new_root company
good domain create example.com
good domain create bücher.example --no-auto-add
good refresh
good domain names add example.com other.example
good alias create example.com team --user anna
# The words typed, the last one being typed; the candidates.
while IFS='|' read -r words candidates; do
  read -ra typed <<<"$words"
  [ "${words: -1}" != " " ] || typed+=("")
  good complete -- "${typed[@]}"
  same "after 'mdomain $words'" "$(tr '\n' ' ' <<<"$out")" "$candidates "
done <<'END'
dom|domain
domain na|names
domain names |add list remove set
domain show |example.com bücher.example
domain show b|bücher.example
user add example.com er|erik erika
user add example.com --group s|sales
--json user set example.com anna --role d|domain_admin
user set example.com anna --rem|--remove-alias
config get virt|virtual_multiple_domain
undo --dry|--dry-run
help domain na|names
bcc list 1 --type s|sender
alias show example.com t|team
alias create example.com t|
domain names remove 1 other|other.example
history show 2|2
END
good complete -- nonsense ''
same "after a word that is none" "$out" ""
# shellcheck disable=SC2016
same "in bash" "$(bash -c '. "$1" && COMP_WORDS=(mdomain user add example.com er) COMP_CWORD=4 && _mdomain &&
  echo "${COMPREPLY[@]}"' - "$source_dir/packaging/completion/mdomain.bash")" "erik erika"
