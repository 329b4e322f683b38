#!/bin/bash
# The owner registry built from the domain database agrees with it, and odd questions are answered
# as documented.
# ctest-timeout: 300
. "$(dirname "$0")/../support/cli.sh"

registry() { echo "$MDOMAIN_ROOT/var/packages/Postara-Server/target/etc/email_owner.db"; }

new_root company
good domain create example.com
good domain create bücher.example --no-auto-add --pattern '<4a>'
good domain names add 1 example.org
good refresh
good group add 2 books
good user set 2 user --add-alias "o'brien"
good --json owner build
field . '{"domain_names":4,"local_parts":8}'

# Every address of every user, but the flagged one, which belongs to the other.
good --json user addresses --all --additional
all=$out
for name in $(jq -r 'keys[]' <<<"$all"); do
  jq -r --arg name "$name" '.[$name][]' <<<"$all" >"$scratch/addresses"
  out=$(mdomain --json owner lookup - <"$scratch/addresses")
  field "[.[] | select(.owner != \"$name\") | .address]" \
    "$([ "$name" = erika ] && echo '["erik@bücher.example"]' || echo '[]')"
done
run --json owner lookup anna@EXAMPLE.com "O'Brien@xn--bcher-kva.example" ERIK@bücher.example
same "all known" "$status" 0
field '[.[].owner]' '["anna","user","erik"]'

# lookup STATUS OWNERS ADDRESS...
lookup() {
  local want=$1 owners=$2
  shift 2
  run --json owner lookup "$@"
  same "status of $*" "$status" "$want"
  field '[.[].owner]' "$owners"
}
lookup 4 '["anna",""]' anna@example.com anna@nosuch.example
lookup 4 '[""]' anna@example.com@example.org
lookup 4 '[""]' "$(head -c 10000 /dev/zero | tr '\0' a)@example.com"
lookup 3 '["",""]' anna nosuch@example.com
lookup 3 '["","","anna"]' @example.com anna@ anna@example.com
out=$(printf 'anna\0x@example.com\nanna@example.com\r\n' | mdomain --json owner lookup - 2>/dev/null)
field '[.[].owner]' '["","anna"]'

# What one enters by hand stays until the next build, and check finds it.
good owner add info@example.com ben
lookup 0 '["ben"]' Info@Example.com
run owner add anna@example.com ben
same "an address that belongs to another" "$status" 3
run owner add a@nosuch.example ben
same "an address at an unknown domain" "$status" 4
run --json owner check
same "status of check" "$status" 1
field '[.[] | [.kind, .entry, .owner]]' '[["local_part","info","ben"]]'
good user remove 1 erik --yes
run --json owner check
field '[.[].entry] | sort' '["erik","info"]'
good owner build
good --json owner check
field . '[]'

# A registry that is garbage: said, and a build replaces it only by a whole one.
head -c 5000 /dev/urandom >"$(registry)"
run owner lookup anna@example.com
same "status with garbage" "$status" 1
matches "message with garbage" "$err" 'email_owner.db|not a database'
good owner build
lookup 0 '["anna"]' anna@example.com
ls "$(dirname "$(registry)")" | grep -v '^email_owner.db$' && fail "build left files behind"
finish
