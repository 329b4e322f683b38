#!/bin/bash
# A machine that pulls what another one manages, with a Postfix of its own: its maps follow each pull,
# and it takes and refuses mail as the model says, without a reload.
# ctest-label: postfix redis
# ctest-timeout: 300
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
. "$here/lib/postfix.bash"

server 16379
password_file right s3cret
postfix_host
PORT=16379 host_ini "node = second"
config=(--config "$postfix/etc")
mkdir -p "$scratch/first/etc"
cp "$MDOMAIN_ROOT"/etc/{passwd,group} "$scratch/first/etc"
first() { (use_root first && good "$@"); }
(use_root first && PORT=16379 host_ini "node = first")

first node manage --yes
first domain create example.com
first domain create bücher.example --pattern '<4a>' --no-auto-add
first refresh
first group add 2 books
good node pull
good postfix configure --apply "${config[@]}"
postfix_start
good postfix check "${config[@]}"
answers() { same "$1" "$(mail_py answers "$@")" ""; }
deliver() { same "mail" "$(mail_py deliver "$postfix/mail")" ""; }
deliver <<'END'
anna@example.com anna
grac@bücher.example grace
frit@xn--bcher-kva.example fritz
END
answers 550 printer@example.com anna@bücher.example ghost@example.com

# Each change is in force with the pull.
first user set 1 anna --alias anna.schmidt
first user remove 2 fritz --yes
first domain names add 2 café.example
first alias create 1 team --user ben --user carla
answers 250 anna@example.com frit@bücher.example
good node pull
answers 250 anna.schmidt@example.com grac@café.example grac@xn--caf-dma.example team@example.com
answers 550 anna@example.com frit@bücher.example frit@café.example
deliver <<<'team@example.com ben carla'

# Without a map Postfix puts off all mail: a pull makes it again, also one that brings nothing.
maps=("$target"/etc/postfix_{addresses,domains}.lmdb)
for lost in "${maps[0]}" "${maps[1]}" "${maps[*]}"; do
  # shellcheck disable=SC2086
  rm $lost
  good node pull
  good postfix check "${config[@]}"
done

# A machine that watches.
mdomain node pull --watch --interval 1 >"$scratch/watch" 2>&1 &
first user set 1 anna --alias anna --alias anna.schmidt
first domain delete 2 --yes
is_taken() { [ -z "$(mail_py answers 250 anna@example.com)" ]; }
wait_for "the pull of a watching machine" is_taken
answers 550 grac@bücher.example
stop TERM $!
good postfix check "${config[@]}"
postfix_stop
