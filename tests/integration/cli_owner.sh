#!/bin/bash
# The owner registry built from the domain database agrees with it, and odd questions are answered
# as documented.
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"

new_root company
good domain create example.com
good domain create bücher.example --no-auto-add --pattern '<4a>'
good domain names add 1 example.org
good refresh
good group add 2 books
good user set 2 user --add-alias "o'brien"
gives . '{"domain_names":4,"local_parts":8}' owner build

# Every address of every user. The flagged one is only the other's.
good --json user addresses --all --additional
jq -r '.[][]' <<<"$out" >"$scratch/addresses"
want=$(jq -c '[to_entries[] | .key as $name | .value[] | [., $name]]' <<<"$out")
out=$(mdomain --json owner lookup - <"$scratch/addresses")
same "owners" "$(jq -c 'map([.address, .owner])' <<<"$out")" "$want"

# lookup STATUS OWNERS ADDRESS...
lookup() {
  run --json owner lookup "${@:3}"
  same "status of ${*:3}" "$status" "$1"
  field '[.[].owner]' "$2"
}
lookup 0 '["anna","user","erik"]' anna@EXAMPLE.com "O'Brien@xn--bcher-kva.example" ERIK@bücher.example
lookup 4 '["anna",""]' anna@example.com anna@nosuch.example
lookup 3 '["","","","anna"]' anna @example.com anna@ anna@example.com
out=$(printf 'anna\0x@example.com\nanna@example.com\r\n' | mdomain --json owner lookup - 2>/dev/null)
field '[.[].owner]' '["","anna"]'

# What one enters by hand stays until the next build, and check finds it. What leaves goes at once.
good owner add info@example.com ben
lookup 0 '["ben"]' Info@Example.com
fails 3 '' owner add anna@example.com ben
fails 4 '' owner add a@nosuch.example ben
run --json owner check
same "status of check" "$status" 1
field '[.[] | [.kind, .entry, .owner]]' '[["local_part","info","ben"]]'
good user remove 1 erik --yes
run --json owner check
field '[.[].entry] | sort' '["info"]'
lookup 4 '[""]' erik@example.com
good owner build
gives . '[]' owner check

# An entry comes before an account that gets its name as an alias later.
good alias create 1 Späti --user ben
echo 'späti:x:1090:1011:Späti:/home/spaeti:/bin/sh' >>"$MDOMAIN_ROOT/etc/passwd"
good refresh
fails 3 'has several members' user set 1 ben --add-alias SPÄTI
gives '.[] | [.owner, .entry, .members[0]]' '["späti","Späti@example.com","ben"]' owner lookup späti@example.org

# A registry that is garbage: said, and a build replaces it only by a whole one.
head -c 5000 /dev/urandom >"$target/etc/email_owner.db"
fails 1 'email_owner.db|not a database' owner lookup anna@example.com
good owner build
lookup 0 '["anna"]' anna@example.com
same "files beside the registry" "$(ls -A "$target/etc")" email_owner.db
