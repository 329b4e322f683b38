#!/bin/bash
# Blind-copy rules made with mdomain, compiled and answered for by Postfix's own map programs.
# ctest-label: postfix
# ctest-timeout: 300
. "$(dirname "$0")/../support/cli.sh" || exit 1

new_root company
target=$MDOMAIN_ROOT/var/packages/Postara-Server/target
mkdir -p "$target/bin" "$scratch/postfix"
ln -s "$(realpath "$build/bin/korv_bcc_map")" "$target/bin/"
export MAIL_CONFIG=$scratch/postfix
: >"$MAIL_CONFIG/master.cf"

# map_type TYPE : Postfix compiles this kind from here on.
map_type() {
  printf 'compatibility_level = 3.6\ndefault_database_type = %s\n' "$1" >"$MAIL_CONFIG/main.cf"
  type=$1
}
# ask MAP KEY WANT : the compiled map's answer; "" for none.
ask() { same "$type $1 of $2" "$(postmap -q "$2" "$type:$target/etc/$1" 2>&1)" "$3"; }
# postmap says on its error output what it left out of a map, so the text and the map must agree.
whole() {
  postmap -s "$type:$target/etc/$1" 2>"$scratch/warnings" | tr '\t' ' ' | sort >"$scratch/compiled"
  python3 -c 'import sys; [print(k.casefold(), v) for k, v in map(str.split, open(sys.argv[1]))]' \
    "$target/etc/$1" | sort | diff - "$scratch/compiled" || fail "$type $1 is not whole"
  same "warnings of $1" "$(cat "$scratch/warnings")" ""
}

map_type hash
good domain create example.com
good domain names add 1 example.net
good domain create bücher.example --no-auto-add
good refresh
good user set 1 erik --alias erik --alias erik.larsen
good user add 2 ben

# Maps without any rule are there and empty: one that is missing stops all mail.
good --json bcc maps
field '[.maps[] | .kind, .keys]' '["recipient",0,"sender",0]'
field .left_out '[]'
ask recipient_bcc anna@example.com ""

good bcc add 1 Anna@Example.com Archive@outside.example
good bcc add 1 erik ben
good bcc add 1 boss@outside.example audit@bücher.example --type sender
good bcc add 2 bücher.example all@outside.example --type domain
good bcc add 2 ünï@bücher.example ben
good bcc add 2 ben ünï@outside.example
for type in hash lmdb; do
  map_type $type
  good --json bcc maps
  field '.maps[0].main_cf' "\"recipient_bcc_maps = $type:$target/etc/recipient_bcc\""
  field .left_out '[]'
  whole recipient_bcc
  whole sender_bcc
  ask recipient_bcc anna@example.com Archive@outside.example
  ask recipient_bcc ANNA@EXAMPLE.COM Archive@outside.example
  ask recipient_bcc anna@example.net ""
  for domain in example.com example.net; do
    ask recipient_bcc erik@$domain ben@$domain
    ask recipient_bcc erik.larsen@$domain ben@$domain
  done
  for domain in bücher.example xn--bcher-kva.example; do
    ask recipient_bcc "@$domain" all@outside.example
    ask sender_bcc "@$domain" all@outside.example
    ask recipient_bcc "ünï@$domain" ben@xn--bcher-kva.example
    ask recipient_bcc "ben@$domain" ünï@outside.example
  done
  ask sender_bcc boss@outside.example audit@xn--bcher-kva.example
  ask recipient_bcc nobody@example.com ""
  ask recipient_bcc boss@outside.example ""
  ask sender_bcc anna@example.com ""
done

# Several rules for one key: the first by name is written, the others are reported. Keys meet as
# postmap compares them, not as the table does. Another domain's address is that domain's.
echo 'ben@xn--bcher-kva.example stranger@outside.example' >"$scratch/stranger"
good bcc import 1 "$scratch/stranger"
good bcc add 1 erik.larsen@example.com late@outside.example
good bcc add 2 ÜNÏ@bücher.example first@outside.example
good --json bcc maps
field '[.left_out[] | .map, .rule, .destination] | .[0:6]' \
  '["recipient","ben@xn--bcher-kva.example","stranger@outside.example","recipient","erik.larsen@example.com","late@outside.example"]'
field '[.left_out[] | .map, .rule, .key] | .[6:]' \
  '["recipient","ünï@bücher.example","ünï@bücher.example"]'
whole recipient_bcc
ask recipient_bcc erik.larsen@example.com ben@example.com
ask recipient_bcc ben@bücher.example ünï@outside.example
ask recipient_bcc Ünï@bücher.example first@outside.example
good bcc maps
matches "the report as text" "$out" 'left out of the recipient map: erik.larsen@example.com to late'
matches "the settings" "$out" '^  sender_bcc_maps = lmdb:'
good bcc remove 1 erik.larsen@example.com ben@bücher.example
good bcc remove 2 ÜNÏ@xn--bcher-kva.example

# A compiler that fails, or only warns, keeps the old maps, and its words are shown.
sha256sum "$target"/etc/*_bcc* >"$scratch/maps"
good bcc remove 1 anna@example.com
printf 'myhostname = %s.example\n' one two >>"$MAIL_CONFIG/main.cf"
run bcc maps
same "status after a warning" "$status" 1
matches "the warning" "$err" 'overriding earlier entry'
rm "$MAIL_CONFIG/main.cf"
run bcc maps
same "status without main.cf" "$status" 1
sha256sum --quiet -c "$scratch/maps" || fail "a failed run changed the maps"
same "left behind" "$(find "$target/etc" -name '.bcc_map*')" ""
map_type lmdb
good bcc maps
ask recipient_bcc anna@example.com ""

# A file of rules: out, everything gone, in again, out again.
seq 2500 | sed 's/.*/account& copy&@bücher.example/' >"$scratch/many"
printf '%s\n' 'a@bücher.example x@xn--bcher-kva.example' "o'brien ben" >>"$scratch/many"
good bcc import 2 "$scratch/many" --type sender
good bcc export 2 "$scratch/first" --type sender
good bcc remove 2 --all --yes
good --json bcc list 2
field length 0
good bcc import bücher.example "$scratch/first" --type sender
good bcc export 2 "$scratch/second" --type sender
cmp "$scratch/first" "$scratch/second" || fail "import and export are not inverse"
same "rules in the file" "$(wc -l <"$scratch/second")" 2502
good bcc maps
whole sender_bcc
ask sender_bcc account77@xn--bcher-kva.example copy77@xn--bcher-kva.example

# What is refused changes nothing.
state >"$scratch/before"
printf 'good copy\na..b@x copy\n\nthree fields here\n' >"$scratch/bad"
refused() {
  run bcc "$@"
  same "status of bcc $*" "$status" "$want"
}
want=3
refused import 1 "$scratch/bad"
matches "the bad lines" "$err" "$scratch/bad:2: "
matches "the bad lines" "$err" "$scratch/bad:4: "
refused add 1 ERIK anna
refused add 2 A@XN--BCHER-KVA.example anna --type sender
refused add 1 x@bücher.example anna
refused add 1 example.org anna --type domain
refused add 1 $'two\nlines' anna
refused add 1 'two words' anna
refused add 1 x@example.com 'a@b.example, c@d.example'
refused add 1 '#x@example.com' anna
want=4
refused remove 1 nobody
refused list nowhere.example
want=2
refused add 1 x y --type both
refused remove 1
state | diff "$scratch/before" - || fail "a refused command changed something"

# Deleting a user or a domain takes exactly its rules, and publishes the rules again.
published() { sqlite3 "$MDOMAIN_ROOT/var/packages/Postara-Server/etc/keystore.db" \
  "SELECT count(*) FROM key_table WHERE name = 'bcc_db'; DELETE FROM key_table WHERE name = 'bcc_db'"; }
good bcc add 1 'user' ERIKA
good bcc add 1 erika anna
good bcc add 2 erika@bücher.example erika
published >/dev/null
good user remove 1 erika --yes
same "published after a user" "$(published)" 1
good --json bcc list 1
field '[.[].name] | sort' '["boss@outside.example","erik","erika"]'
good --json bcc list 2
field length 2503
good domain delete 2 --yes
same "published after a domain" "$(published)" 1
same "rules of domain 2" "$(sqlite3 "$MDOMAIN_ROOT/var/packages/Postara-Server/etc/mailserver.db" \
  'SELECT count(*) FROM bcc_table WHERE domain_id = 2')" 0
good --json bcc list 1
field length 3
good bcc maps
same "a deleted domain's keys" "$(cut -d' ' -f1 "$target"/etc/{recipient,sender}_bcc | grep cher)" ""
finish
