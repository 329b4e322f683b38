# Sourced after postfix.bash: a Dovecot that reads $postfix/mail, on the loopback's ports.
dovecot=$scratch/dovecot

# dovecot_configure PASSDB USERDB : its files, in $dovecot, with that passdb and userdb
dovecot_configure() {
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
  printf 'passdb {\n%s\n}\nuserdb {\n%s\n}\n' "$1" "$2" >"$dovecot/conf.d/10-auth.conf"
}

# dovecot_of_host ACCOUNT.. : as dovecot_configure, with the host's PAM; passwords are of-ACCOUNT
dovecot_of_host() {
  local account
  for account; do
    printf '%s:%s:1::::::\n' "$account" "$(openssl passwd -6 "of-$account")"
  done >"$scratch/shadow"
  mount --bind "$scratch/shadow" /etc/shadow
  dovecot_configure ' driver = pam' ' driver = passwd'
}

dovecot_start() {
  dovecot -F -c "$dovecot/dovecot.conf" </dev/null >"$dovecot/out" 2>&1 &
  wait_for "Dovecot" listens 143
}

is_idle() { [ -z "$(find "$postfix"/queue/{maildrop,incoming,active,deferred} -type f 2>&1)" ]; }

# deliver ADDRESS... : a message "to ADDRESS" to each; afterwards none waits
deliver() {
  local to
  for to; do mail_py send "to $to" x@away.example "$to" || fail "$to was not taken"; done
  wait_for "the queue" is_idle
}

# logins NAME : "PASSWORD NAME.." of each line of standard input, before a line "--", logs in as the
# lines behind it say
logins() {
  local input
  input=$(cat)
  same "$1" "$(mail_py logins <<<"${input%$'\n'--$'\n'*}")" "${input#*$'\n'--$'\n'}"
}
