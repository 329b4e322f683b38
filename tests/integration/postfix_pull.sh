#!/bin/bash
# A machine that pulls what another one manages, with a Postfix and a Dovecot of its own: mail and
# logins follow each pull, without a reload.
# ctest-label: postfix redis dovecot
# ctest-timeout: 300
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
. "$here/lib/postfix.bash"
. "$here/lib/dovecot.bash"

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
dovecot_of_host anna ben
good dovecot configure --apply --config "$dovecot" --postfix "$postfix/etc"
postfix_start
dovecot_start
good postfix check "${config[@]}"
answers() { same "$1" "$(mail_py answers "$@" 2>&1)" ""; }
arrives() { same "mail" "$(mail_py deliver "$postfix/mail" 2>&1)" ""; }
arrives <<'END'
anna@example.com anna
grac@bücher.example grace
frit@xn--bcher-kva.example fritz
END
answers 550 printer@example.com anna@bücher.example ghost@example.com
logins "before a pull" <<'END'
of-anna anna@example.com anna.schmidt@example.com
--
anna@example.com of-anna in: to anna@example.com
anna.schmidt@example.com of-anna refused
END

# Each change is in force with the pull.
first user set 1 anna --alias anna.schmidt
first user remove 2 fritz --yes
first domain names add 2 café.example
first alias create 1 team --user ben --user carla
answers 250 anna@example.com frit@bücher.example
good node pull
answers 250 anna.schmidt@example.com grac@café.example grac@xn--caf-dma.example team@example.com
answers 550 anna@example.com frit@bücher.example frit@café.example
arrives <<<'team@example.com ben carla'
logins "after a pull" <<'END'
of-anna anna@example.com anna.schmidt@example.com
wrong anna.schmidt@example.com
--
anna@example.com of-anna refused
anna.schmidt@example.com of-anna in: to anna@example.com
anna.schmidt@example.com wrong refused
END

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
answers 250 anna@example.com
answers 550 grac@bücher.example
stop TERM $!
good postfix check "${config[@]}"

# One that takes over goes on with what it has.
use_root host
good node take-over --yes
first node join --yes
gives .written '[]' dovecot configure --apply --config "$dovecot" --postfix "$postfix/etc"
good user set 1 ben --alias benjamin
answers 250 benjamin@example.com
answers 550 ben@example.com
logins "after a take-over" <<'END'
of-ben benjamin@example.com ben@example.com
--
benjamin@example.com of-ben in: to team@example.com
ben@example.com of-ben refused
END
good doctor
first node take-over --yes
good node join --yes

# What no longer follows is made no more.
fails 3 'take it out' postfix maps --remove "${config[@]}"
postconf -c "$postfix/etc" -e 'virtual_alias_domains =' 'virtual_alias_maps ='
good postfix maps --remove "${config[@]}"
first user set 1 ben --alias ben
good node pull
same "maps" "$(find "$target/etc" "$etc" -name '*postfix*')" ""
postfix_stop
