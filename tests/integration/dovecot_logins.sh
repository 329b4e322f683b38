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
mkdir -p "$dovecot"/{conf.d,run,state}
cat >"$dovecot/dovecot.conf" <<C
protocols = imap lmtp
base_dir = $dovecot/run
state_dir = $dovecot/state
log_path = $dovecot/log
listen = 127.0.0.1
ssl = no
disable_plaintext_auth = no
auth_failure_delay = 0
service anvil {
  unix_listener anvil-auth-penalty {
    mode = 0
  }
}
mail_location = maildir:$postfix/mail/%u
!include conf.d/*.conf
C
printf 'passdb {\n driver = pam\n}\nuserdb {\n driver = passwd\n}\n' >"$dovecot/conf.d/10-auth.conf"

config=(--config "$dovecot" --postfix "$postfix/etc")
gives '[.[].path]' "[\"$dovecot/mdomain-sql.conf.ext\",\"$dovecot/conf.d/05-mdomain.conf\"]" \
  dovecot configure "${config[@]}"
echo kept >"$dovecot/mdomain-sql.conf.ext"
fails 3 'somebody else' dovecot configure --apply "${config[@]}"
rm "$dovecot/mdomain-sql.conf.ext"
good dovecot configure --apply "${config[@]}"
gives '[.written, .reloaded]' '[[],false]' dovecot configure --apply "${config[@]}"
good postfix configure --apply --config "$postfix/etc"
postfix_start
dovecot -F -c "$dovecot/dovecot.conf" </dev/null >"$dovecot/out" 2>&1 &
wait_for "Dovecot" listens 143
logins() { mail_py logins >"$scratch/logins"; }
is_idle() { [ -z "$(find "$postfix"/queue/{maildrop,incoming,active,deferred} -type f 2>&1)" ]; }
deliver() {
  local to
  for to; do mail_py send "to $to" x@away.example "$to" || fail "$to was not taken"; done
  wait_for "the queue" is_idle
}

deliver anna.schmidt@example.org erika@bücher.example
logins <<'END'
of-anna anna Anna.Schmidt@EXAMPLE.org ANNA chef@bücher.example
of-erika erika@bücher.example erika@xn--bcher-kva.example
of-ben ben@example.com
of-anna ben@example.com erika anna@example.net anna@bücher.example
wrong anna anna@example.com ghost@example.com
of-ben chef@bücher.example anna@example.com
END
same "logins" "$(cat "$scratch/logins")" "anna of-anna in: to anna.schmidt@example.org
Anna.Schmidt@EXAMPLE.org of-anna in: to anna.schmidt@example.org
ANNA of-anna in: to anna.schmidt@example.org
chef@bücher.example of-anna in: to anna.schmidt@example.org
erika@bücher.example of-erika in: to erika@bücher.example
erika@xn--bcher-kva.example of-erika in: to erika@bücher.example
ben@example.com of-ben in:
ben@example.com of-anna refused
erika of-anna refused
anna@example.net of-anna refused
anna@bücher.example of-anna refused
anna wrong refused
anna@example.com wrong refused
ghost@example.com wrong refused
chef@bücher.example of-ben refused
anna@example.com of-ben refused"

# Changes. Of a registry that is another file afterwards Dovecot knows when it is told.
good user set 1 ben --alias ben --alias benjamin
logins <<<'of-ben benjamin@example.com'
same "a new alias" "$(cat "$scratch/logins")" "benjamin@example.com of-ben in:"
rm "$target/etc/email_owner.db"
good owner build
doveadm -c "$dovecot/dovecot.conf" reload
good user set 1 ben --alias ben --alias fresh
logins <<<'of-ben fresh@example.com benjamin@example.com'
same "a new registry" "$(cat "$scratch/logins")" "fresh@example.com of-ben in:
benjamin@example.com of-ben refused"

# By LMTP.
mkdir -p "$MDOMAIN_ROOT/etc/mailserver-domain"
printf '[delivery]\nlocal = lmtp\n' >"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
run postfix configure --config "$postfix/etc"
matches "no LMTP yet" "$err" 'mail waits in the queue until unix:private/dovecot-lmtp'
gives '[(.written | length), .reloaded]' '[1,true]' dovecot configure --apply "${config[@]}"
wait_for "the socket" test -S "$postfix/queue/private/dovecot-lmtp"
gives '[[.changed[].name], .reloaded]' '[[],false]' \
  postfix configure --apply --config "$postfix/etc"
matches "a spelling that LMTP does not take" "$err" 'SMTPUTF8'
gives '.changed' '[]' postfix configure --apply --config "$postfix/etc"
good postfix check --config "$postfix/etc"
deliver fresh+x@example.org ben@example.com
logins <<<'of-ben ben'
same "mail by LMTP" "$(cat "$scratch/logins")" "ben of-ben in: to ben@example.com to fresh+x@example.org"
same "LMTP" "$(grep -c 'relay=.*dovecot-lmtp.*status=sent' "$postfix/log/maillog")" 2
postfix_stop
