#!/bin/bash
# With a Dovecot that mdomain dovecot configure has set up, an account's name and every address of
# it log in with its password and no other, and mail from Postfix by LMTP is there.
# ctest-label: postfix dovecot
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/postfix.bash"

postfix_host
mkdir -p "$MDOMAIN_ROOT/etc/mailserver-domain"
printf '[delivery]\nlocal = lmtp\n' >"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
good domain create example.com
good domain names add 1 example.org
good domain create bücher.example --pattern '<4a>' --no-auto-add
good refresh
good user add 2 erika --alias erika
good user set 1 anna --alias anna --alias anna.schmidt
good user add 2 anna --alias chef
good user add 2 ben --alias chef # collides, and stays anna's

# The host's Dovecot, with PAM.
for user in anna ben erika; do
  printf '%s:%s:1::::::\n' $user "$(openssl passwd -6 "of-$user")"
done >"$scratch/shadow"
mount --bind "$scratch/shadow" /etc/shadow
dovecot=$scratch/dovecot
mkdir -p "$dovecot"/{conf.d,run,state} && mkdir -m 1777 "$dovecot/mail"
cat >"$dovecot/dovecot.conf" <<C
protocols = imap lmtp
base_dir = $dovecot/run
state_dir = $dovecot/state
log_path = $dovecot/log
listen = 127.0.0.1
ssl = no
disable_plaintext_auth = no
mail_location = maildir:$dovecot/mail/%u
!include conf.d/*.conf
C
printf 'passdb {\n driver = pam\n}\nuserdb {\n driver = passwd\n}\n' >"$dovecot/conf.d/10-auth.conf"

config=(--config "$dovecot" --postfix "$postfix/etc")
good dovecot configure "${config[@]}"
echo kept >"$dovecot/mdomain-sql.conf.ext"
fails 3 'somebody else' dovecot configure --apply "${config[@]}"
rm "$dovecot/mdomain-sql.conf.ext"
good dovecot configure --apply "${config[@]}"
gives '[.written, .reloaded]' '[[],false]' dovecot configure --apply "${config[@]}"
run postfix configure --apply --config "$postfix/etc"
matches "before Dovecot runs" "$err" 'mail waits in the queue until unix:private/dovecot-lmtp'
postfix_start
dovecot -F -c "$dovecot/dovecot.conf" </dev/null >"$dovecot/out" 2>&1 &
wait_for "Dovecot" listens 143
gives '[.changed, .cautions]' '[[],null]' postfix configure --apply --config "$postfix/etc"
same "cautions with Dovecot" "$err" ""
good postfix check --config "$postfix/etc"

# Each line a password, and who tries it.
logins() { mail_py logins; }
for to in anna.schmidt@example.org anna+x@example.com erika@bücher.example; do
  mail_py send "$to" x@away.example "$to" || fail "$to was not taken"
done
is_idle() { [ -z "$(find "$postfix"/queue/{maildrop,incoming,active} -type f 2>&1)" ]; }
wait_for "the queue" is_idle
logins <<'END'
of-anna anna anna@example.com Anna.Schmidt@EXAMPLE.org ANNA ben@example.com erika
of-erika erika@bücher.example erika@xn--bcher-kva.example erika
wrong anna anna@example.com ghost@example.com
of-ben chef@bücher.example ben@example.com
of-anna chef@bücher.example anna@example.net
END
tail -30 $dovecot/log; tail -20 $postfix/log/maillog
