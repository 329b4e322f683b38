#!/bin/bash
# With a Dovecot that mdomain dovecot configure has set up, an account's name and every address of
# it log in with its password and no other, and mail from Postfix by LMTP is there.
# ctest-label: postfix dovecot
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/postfix.bash"
. "$here/lib/dovecot.bash"

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
dovecot_of_host anna ben erika

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
dovecot_start

deliver anna.schmidt@example.org erika@bücher.example
logins "logins" <<'END'
of-anna anna Anna.Schmidt@EXAMPLE.org ANNA chef@bücher.example
of-erika erika@bücher.example erika@xn--bcher-kva.example
of-ben ben@example.com
of-anna ben@example.com erika anna@example.net anna@bücher.example
wrong anna anna@example.com ghost@example.com
of-ben chef@bücher.example anna@example.com
--
anna of-anna in: to anna.schmidt@example.org
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
anna@example.com of-ben refused
END

# Changes, also where the registry is written anew as a whole.
good user set 1 ben --alias ben --alias benjamin
logins "a new alias" <<'END'
of-ben benjamin@example.com
--
benjamin@example.com of-ben in:
END
sqlite3 "$target/etc/email_owner.db" "UPDATE local_part SET user_name = 'ghost'; INSERT INTO local_part
  SELECT 'row' || value, 9, 'ghost' FROM generate_series(1, 5000)"
good owner build
good user set 1 ben --alias ben --alias fresh
logins "a new registry" <<'END'
of-ben fresh@example.com benjamin@example.com
--
fresh@example.com of-ben in:
benjamin@example.com of-ben refused
END

# By LMTP.
mkdir -p "$MDOMAIN_ROOT/etc/mailserver-domain"
printf '[delivery]\nlocal = lmtp\n' >"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
run postfix configure --config "$postfix/etc"
matches "no LMTP yet" "$err" 'mail waits in the queue until unix:private/dovecot-lmtp'
gives '[(.written | length), .reloaded]' '[1,true]' dovecot configure --apply "${config[@]}"
wait_for "the socket" test -S "$postfix/queue/private/dovecot-lmtp"
gives '[[.changed[].name], .reloaded]' '[["smtpd_discard_ehlo_keywords"],true]' \
  postfix configure --apply --config "$postfix/etc"
matches "a spelling that LMTP does not take" "$err" 'SMTPUTF8'
gives '.changed' '[]' postfix configure --apply --config "$postfix/etc"
good postfix check --config "$postfix/etc"
matches "what was not asked" "$out" 'of them are beyond ASCII'
# What Dovecot would not take is refused at once, and not taken and returned.
for mail in 'x@away.example erika@bücher.example' 'bücher@away.example ben@example.com'; do
  # shellcheck disable=SC2086
  matches "mail with SMTPUTF8" "$(mail_py send no $mail 2>&1)" 'SMTPUTF8 not supported by server'
done
deliver fresh+x@example.org ben@example.com erika@xn--bcher-kva.example
logins "mail by LMTP" <<'END'
of-ben ben
of-erika erika
--
ben of-ben in: to ben@example.com to fresh+x@example.org
erika of-erika in: to erika@bücher.example to erika@xn--bcher-kva.example
END
same "LMTP" "$(grep -c 'relay=.*dovecot-lmtp.*status=sent' "$postfix/log/maillog")" 3
postfix_stop
