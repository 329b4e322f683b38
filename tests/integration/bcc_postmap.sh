#!/bin/bash
# Blind-copy rules made with mdomain, compiled and answered for by Postfix's own map programs.
# ctest-label: postfix
# ctest-timeout: 600
. "$(dirname "$0")/lib/driver.bash"

new_root company
bcc_compiler
mkdir "$scratch/postfix"
export MAIL_CONFIG=$scratch/postfix
: >"$MAIL_CONFIG/master.cf"

# map_type TYPE : Postfix compiles this kind from here on.
map_type() {
  printf 'compatibility_level = 3.6\ndefault_database_type = %s\n' "$1" >"$MAIL_CONFIG/main.cf"
  type=$1
}
# ask MAP WANT KEY... : the compiled map's answer; "" for none.
ask() {
  local key
  for key in "${@:3}"; do
    same "$type $1 of $key" "$(postmap -q "$key" "$type:$target/etc/$1_bcc" 2>&1)" "$2"
  done
}
# whole MAP... : postmap says on its error output what it left out, so text and map must agree.
whole() {
  local map
  for map in "${@/#/$target/etc/}"; do
    postmap -s "$type:${map}_bcc" 2>"$scratch/warnings" | tr '\t' ' ' | sort >"$scratch/compiled"
    python3 -c 'import sys; [print(k.casefold(), v) for k, v in map(str.split, open(sys.argv[1]))]' \
      "${map}_bcc" | sort | diff - "$scratch/compiled" || fail "$type $map is not whole"
    same "warnings of $map" "$(cat "$scratch/warnings")" ""
  done
}

map_type hash
good domain create example.com
good domain names add 1 example.net
good domain create bücher.example --no-auto-add
good refresh
good user set 1 erik --alias erik --alias erik.larsen
good user add 2 ben

# Maps without any rule are there and empty: one that is missing stops all mail.
gives '[.maps[] | .kind, .keys], .left_out' $'["recipient",0,"sender",0]\n[]' bcc maps
ask recipient "" anna@example.com

good bcc add 1 Anna@Example.com Archive@outside.example
good bcc add 1 erik ben
good bcc add 1 boss@outside.example audit@bücher.example --type sender
good bcc add 2 bücher.example all@outside.example --type domain
good bcc add 2 ünï@bücher.example ben
good bcc add 2 ben ünï@outside.example
for type in hash lmdb; do
  map_type $type
  gives '.maps[0].main_cf, .left_out' \
    "\"recipient_bcc_maps = $type:$target/etc/recipient_bcc\""$'\n[]' bcc maps
  whole recipient sender
  ask recipient Archive@outside.example anna@example.com ANNA@EXAMPLE.COM
  ask recipient "" anna@example.net nobody@example.com boss@outside.example
  ask sender "" anna@example.com
  for domain in example.com example.net; do
    ask recipient ben@$domain erik@$domain erik.larsen@$domain
  done
  for domain in bücher.example xn--bcher-kva.example; do
    ask recipient all@outside.example "@$domain"
    ask sender all@outside.example "@$domain"
    ask recipient ben@xn--bcher-kva.example "ünï@$domain"
    ask recipient ünï@outside.example "ben@$domain"
  done
  ask sender audit@xn--bcher-kva.example boss@outside.example
done

# Several rules for one key: the first by name is written, the others are reported. Keys meet as
# postmap compares them, not as the table does. Another domain's address is that domain's.
echo 'ben@xn--bcher-kva.example stranger@outside.example' >"$scratch/stranger"
good bcc import 1 "$scratch/stranger"
good bcc add 1 erik.larsen@example.com late@outside.example
good bcc add 2 ÜNÏ@bücher.example first@outside.example
gives '[.left_out[] | .map, .rule, .destination] | .[0:6]' \
  '["recipient","ben@xn--bcher-kva.example","stranger@outside.example","recipient","erik.larsen@example.com","late@outside.example"]' \
  bcc maps
field '[.left_out[] | .map, .rule, .key] | .[6:]' \
  '["recipient","ünï@bücher.example","ünï@bücher.example"]'
whole recipient
ask recipient ben@example.com erik.larsen@example.com
ask recipient ünï@outside.example ben@bücher.example
ask recipient first@outside.example Ünï@bücher.example
good bcc maps
matches "the report as text" "$out" 'left out of the recipient map: erik.larsen@example.com to late'
matches "the settings" "$out" '^  sender_bcc_maps = lmdb:'
good bcc remove 1 erik.larsen@example.com ben@bücher.example
good bcc remove 2 ÜNÏ@xn--bcher-kva.example

# A compiler that fails, or only warns, keeps the old maps, and its words are shown.
good bcc remove 1 anna@example.com
remember
printf 'myhostname = %s.example\n' one two >>"$MAIL_CONFIG/main.cf"
refused 1 'overriding earlier entry' bcc maps
rm "$MAIL_CONFIG/main.cf"
refused 1 'main.cf' bcc maps
map_type lmdb
good bcc maps
ask recipient "" anna@example.com

# What is refused changes nothing.
good bcc add 2 a@bücher.example ben --type sender
remember
printf 'good copy\na..b@x copy\n\nthree fields here\n' >"$scratch/bad"
refused 3 "$scratch/bad:2: " bcc import 1 "$scratch/bad"
matches "the bad lines" "$err" "$scratch/bad:4: "
for name in ERIK x@bücher.example $'two\nlines' ' words' '#x@example.com'; do
  refused 3 '' bcc add 1 "$name" anna
done
refused 3 '' bcc add 2 A@XN--BCHER-KVA.example anna --type sender
refused 3 '' bcc add 1 example.org anna --type domain
refused 3 '' bcc add 1 x@example.com 'a@b.example, c@d.example'
refused 4 '' bcc remove 1 nobody
refused 4 '' bcc list nowhere.example
refused 2 '' bcc add 1 x y --type both
refused 2 '' bcc remove 1

# A destination that nobody has is taken, and said.
good bcc add 1 x@example.com nodoby@example.net
matches "the warning" "$err" 'nodoby@example.net: nobody has this address'
gives '[.unknown_destinations[] | .rule, .destination]' \
  '["x@example.com","nodoby@example.net","boss@outside.example","audit@xn--bcher-kva.example"]' \
  bcc maps
good bcc remove 1 x@example.com

# Names that differ in case are two accounts; an alias that collides is neither key nor destination.
printf '%s\n' 'Erik:x:1006:2002::/:/' 'info:x:1007:2002::/:/' >>"$MDOMAIN_ROOT/etc/passwd"
good refresh
good user set 1 1006 --alias big.erik
good user set 1 info --alias anna
good bcc add 1 Erik copy@outside.example
good bcc add 1 info copy@outside.example
good bcc add 1 user info
gives '[.left_out[] | .rule, .reason]' \
  '["info","every alias of info collides with another user'"'"'s","user","every alias of info collides with another user'"'"'s"]' \
  bcc maps
ask recipient copy@outside.example big.erik@example.com
ask recipient "" anna@example.com user@example.com
ask recipient ben@example.com erik@example.com
good bcc remove 1 Erik info user
gives 'map(.name)' '["erik"]' bcc list 1 --type recipient

# Nobody but the mail service and Postfix reads whose mail is copied, whatever the umask.
(umask 000 && good bcc maps)
same "mode of the maps" \
  "$(stat -c %a "$target"/etc/*_bcc{,.lmdb} "$target/etc/bcc_maps.json" | sort -u)" 640

# All rules of a domain at once. A terminal's or pipe's place is left alone.
good bcc export 2 "$scratch/exported"
same "mode of the file" "$(stat -c %a "$scratch/exported")" 600
same "rules in the file" "$(wc -l <"$scratch/exported")" 2
good bcc export 2 -
same "rules on standard output" "$out" "$(cat "$scratch/exported")"
ln -s "$scratch/exported" "$scratch/link"
fails 1 'link: Too many levels of symbolic links' bcc export 2 "$scratch/link"
good bcc remove 2 --all --yes
gives length 0 bcc list 2
good bcc maps
same "keys of removed rules" "$(cut -d' ' -f1 "$target"/etc/{recipient,sender}_bcc | grep cher)" ""

# Once made they follow rules and addresses by themselves.
good bcc add 1 ben later@outside.example
good user set 1 ben --add-alias benny
ask recipient later@outside.example benny@example.com
good bcc remove 1 ben
ask recipient "" benny@example.com
