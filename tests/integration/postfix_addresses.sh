#!/bin/bash
# A Postfix that mdomain postfix configure has set up delivers what is sent to the addresses of a
# company, refuses everything else at once, and follows each change without a reload.
# ctest-label: postfix
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/postfix.bash"

postfix_host
config=(--config "$postfix/etc")
good domain create example.com
good domain names add 1 example.org
good domain create bücher.example --pattern '<4a>' --no-auto-add
good refresh
good group add 2 books
good user set 2 erika --alias erika

# What stands against it, by what is set for it, changes nothing.
against() {
  cp "$postfix/etc/main.cf" "$scratch/main.cf"
  postconf -c "$postfix/etc" -e "$2"
  cp "$postfix/etc/main.cf" "$scratch/main.cf.against"
  fails 3 "$1" postfix configure --apply "${config[@]}" "${@:3}"
  alike "main.cf with $2" "$postfix/etc/main.cf" "$scratch/main.cf.against"
  mv "$scratch/main.cf" "$postfix/etc/main.cf"
}
echo 'bücher.example' >"$scratch/names"
against 'mydestination holds example.org' 'mydestination = localhost, Example.ORG'
against 'relay_domains holds bücher.example' "relay_domains = $scratch/names"
against 'virtual_mailbox_domains holds example.com' \
  'virtual_mailbox_domains = inline:{ { example.com = x } }'
against 'does not hold localhost' 'mydestination = $myhostname'
socket=$postfix/queue/milter
against 'milter: No such file' 'soft_bounce = no' --milter unix:/milter
python3 -c 'import socket, sys, time; s = socket.socket(socket.AF_UNIX); s.bind(sys.argv[1])
s.listen(); time.sleep(600)' "$socket" &
wait_for "a milter" test -S "$socket"
chmod 700 "$socket"
against 'postfix has no right to' 'soft_bounce = no' --milter unix:/milter
against 'milter inet:127.0.0.1:9 cannot' 'soft_bounce = no' --milter inet:127.0.0.1:9
fails 2 'unix:PATH' postfix configure "${config[@]}" --milter /milter
fails 2 '--config' postfix configure --apply
chmod 777 "$socket"
gives '[.settings[].name]' '["virtual_alias_domains","virtual_alias_maps","transport_maps","smtpd_milters"]' \
  postfix configure "${config[@]}" --milter unix:/milter
same "copies of main.cf" "$(find "$postfix/etc" -name 'main.cf.*')" ""

# What is there stays.
postconf -c "$postfix/etc" -e 'virtual_alias_maps = inline:{ { press@old.example = ben@localhost } { old.example = x } }'
good postfix configure --apply "${config[@]}"
fails 1 'no mail server listens on 127.0.0.1 port 25' postfix check "${config[@]}"
postfix_start
gives '[.changed, .copy, .reloaded]' '[[],"",false]' postfix configure --apply "${config[@]}"
good bcc add 1 zoe@example.com hugo
bcc_compiler
gives '[[.changed[].name], .reloaded]' '[["recipient_bcc_maps","sender_bcc_maps"],true]' \
  postfix configure --apply "${config[@]}"

# answers CODE ADDRESS.. : each is answered with it, soon.
answers() { same "$1" "$(mail_py answers "$@" 2>&1)" ""; }
deliver() { same "mail" "$(mail_py deliver "$postfix/mail" 2>&1)" ""; }

good user set 1 anna --alias anna --alias straße --alias "o'h=a*ra"
good postfix check "${config[@]}"
same "the check" "$out" "model, map and server agree on 40 addresses"
deliver <<'END'
anna@example.com anna
ANNA@Example.ORG anna
anna+list@example.org anna
o'h=a*ra@example.com anna
Strasse@example.com anna
straße@example.org anna
erik@bücher.example erik
erika@xn--bcher-kva.example erika
grac@BÜCHER.example grace
press@old.example ben
zoe@example.com hugo zoe
END
answers 550 printer@example.com root@example.com daemon@example.org fritz@example.net \
  anna@bücher.example anna@xn--bcher-kva.example olivia+x+y@bücher.example zoe.@example.com

# Changes.
good user set 1 anna --alias anna.schmidt
answers 250 anna.schmidt@example.org
answers 550 anna@example.com straße@example.org
good user remove 2 fritz --yes
answers 550 frit@bücher.example
good domain names add 2 café.example
answers 250 grac@café.example grac@xn--caf-dma.example
good domain delete 2 --yes
answers 550 erik@bücher.example grac@xn--caf-dma.example
gives '.[0].server | .[:3]' '"250"' postfix check "${config[@]}" ben+x@example.com
fails 4 'no domain of this host' postfix check "${config[@]}" erik@bücher.example

# What leads nowhere is refused, and told where it comes to be so; so is a shared mailbox.
fails 3 'nobody has the address "ghost@example.org"' alias create 1 press --user ben --address ghost@example.org
good alias create 1 press --user ben --address zoe@example.org
good alias create 1 news --address press+x@example.com
fails 3 '"news@example.org" leads back to "press"' alias set 1 press --address news@example.org
good alias create 1 gone --user fritz
good user set 1 zoe --alias zo
good config set postmaster postmaster@example.com
sed -n 's/^ben:x:1003/Ben:x:1093/p; /^fritz/d' "$MDOMAIN_ROOT/etc/passwd" >"$scratch/more"
sed -i '/^fritz/d' "$MDOMAIN_ROOT/etc/passwd" && cat "$scratch/more" >>"$MDOMAIN_ROOT/etc/passwd"
good refresh
good user set 1 Ben --alias big.ben
good postfix check "${config[@]}"
for said in 'mail for press@example.com goes to zoe@example.org, an address that nobody has' \
  'mail for postmaster@example.com goes to postmaster@example.com, which leads back to it' \
  'nobody gets the mail for gone@example.com: its members are gone' \
  'the mail of Ben, ben goes to one mailbox, ben@localhost'; do
  matches "what the check warns of" "$err" "$said"
done
good config set postmaster ben
deliver <<<'Postmaster@example.org ben'
for entry in news press gone; do good alias delete 1 $entry --yes; done
good user set 1 zoe --alias zoe

# An entry that is not the model's.
addresses=$target/etc/postfix_addresses
echo 'ghost@example.com ben@localhost' | postmap -i "lmdb:$addresses"
run postfix check "${config[@]}"
same "status with an entry too many" "$status" 1
matches "an entry too many" "$out" '^ghost@example.com +ben@localhost'
postmap -d ghost@example.com "lmdb:$addresses"

# While changes go on, nothing is put off or lost.
(
  while [ ! -e "$scratch/enough" ]; do
    good user set 1 david --alias david --alias "d$RANDOM"
  done
) &
changer=$!
few=(ben@example.com hugo@example.org zoe@example.com ines@example.org carla@example.com)
for turn in 1 2 3; do
  # Postfix lets a client wait that is refused often.
  same "look-ups" "$(mail_py ask 900 "${few[@]}" ghost@example.com 2>&1)" "250:750 550:150"
  deliver <<<"ben+$turn@example.com ben"
done
touch "$scratch/enough"
wait $changer
good postfix check "${config[@]}"

# Without the maps nothing is left that follows; they go when main.cf no longer names them.
fails 3 'take it out' postfix maps --remove "${config[@]}"
postconf -c "$postfix/etc" -e 'virtual_alias_domains =' 'virtual_alias_maps ='
good postfix maps --remove "${config[@]}"
same "triggers" "$(sqlite3 "$database" "SELECT count(*) FROM sqlite_master WHERE type = 'trigger'")" 0
good user set 1 david --alias dave
same "maps" "$(find "$target/etc" -name 'postfix_*')" ""

# Without LMDB Postfix's own compiler makes the maps anew with each change.
maps() {
  same "maps" "$(find "$target/etc" -name 'postfix_*' -printf '%f %m\n' | sort | xargs)" "$2"
  same "main.cf" "$(postconf -c "$postfix/etc" -hx virtual_alias_maps)" "$1:$target/etc/postfix_addresses"
  same "leftovers" "$(find "$target/etc" -name '.*' -type d)" ""
}
mkdir "$postfix/types"
: >"$postfix/types/dynamicmaps.cf"
postconf -c "$postfix/etc" -e "meta_directory = $postfix/types"
good postfix configure --apply "${config[@]}"
matches "what is said" "$err" 'type hash anew.*apt-get install postfix-lmdb'
lmdb='postfix_addresses.lmdb 644'
both="postfix_addresses.db 644 $lmdb postfix_compiled 644 postfix_domains.db 644 postfix_domains.lmdb 644"
maps hash "$both"
answers 250 dave@example.com anna.schmidt@example.org
good user set 1 david --alias dora
answers 250 dora@example.com
answers 550 dave@example.com
good domain names add 1 late.example
answers 250 dora@late.example
good postfix check "${config[@]}"
# What such a map cannot hold is said.
good user set 1 david --alias dora --alias '#dora'
for command in "postfix maps" "postfix configure ${config[*]}" "postfix check ${config[*]}" doctor; do
  # shellcheck disable=SC2086
  run $command
  matches "$command" "$out$err" 'no mail comes to #dora@example.com'
done
# One that fails is made up for.
mv "$target/etc/postfix_addresses.db" "$scratch/old.db"
mkdir "$target/etc/postfix_addresses.db"
run user set 1 david --alias dave
matches "what is said" "$err" 'Failed to compile the maps for Postfix'
rmdir "$target/etc/postfix_addresses.db"
mv "$scratch/old.db" "$target/etc/postfix_addresses.db"
answers 550 dave@example.com
good refresh
answers 250 dave@example.com
maps hash "$both"
# LMDB comes.
postconf -c "$postfix/etc" -X meta_directory
good postfix configure "${config[@]}"
maps hash "$both"
good postfix configure --apply "${config[@]}"
maps lmdb "$lmdb postfix_domains.lmdb 644"
answers 250 dave@example.com
postfix_stop
