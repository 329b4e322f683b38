# Sourced after private.bash and driver.bash: a Postfix that delivers on 127.0.0.1, port 25, and
# MIMEDefang as its milter. Needs root.
[ "$(id -u)" -eq 0 ] || { fail "needs root" && exit 1; }
postfix=$scratch/postfix
mail_py() { python3 "$source_dir/tests/integration/lib/mail.py" "$@"; }

# postfix_configure DOMAINS [MAIN.CF LINES] : its files, in $postfix. All mail for DOMAINS
# (comma-separated) ends in $postfix/mail/all/new/, a file a copy; other mail bounces.
postfix_configure() {
  mkdir -p "$postfix"/{etc,queue,data,mail,log}
  chown postfix "$postfix/data"
  chown nobody "$postfix/mail"
  cat >"$postfix/etc/main.cf" <<C
compatibility_level = 3.6
queue_directory = $postfix/queue
data_directory = $postfix/data
maillog_file = $postfix/log/maillog
maillog_file_prefixes = $postfix
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
myhostname = mx.example.com
mydestination =
mynetworks = 127.0.0.0/8
alias_maps =
smtpd_relay_restrictions = permit_mynetworks, reject_unauth_destination
virtual_mailbox_domains = $1
virtual_mailbox_base = $postfix/mail
virtual_mailbox_maps = static:all/
virtual_minimum_uid = 1
virtual_uid_maps = static:65534
virtual_gid_maps = static:65534
default_transport = error:no outside network
smtp_dns_support_level = disabled
${2:-}
C
  cat >"$postfix/etc/master.cf" <<C
127.0.0.1:25 inet n - n - - smtpd
cleanup unix n - n - 0 cleanup
qmgr unix n - n 300 1 qmgr
rewrite unix - - n - - trivial-rewrite
bounce unix - - n - 0 bounce
defer unix - - n - 0 bounce
trace unix - - n - 0 bounce
error unix - - n - - error
retry unix - - n - - error
proxymap unix - - n - - proxymap
virtual unix - n n - - virtual
anvil unix - - n - 1 anvil
scache unix - - n - 1 scache
postlog unix-dgram n - n - 1 postlogd
C
}

postfix_start() {
  postfix -c "$postfix/etc" start </dev/null >"$postfix/log/start" 2>&1 ||
    { fail "Postfix does not start: $(cat "$postfix/log/start")" && exit 1; }
  wait_for "Postfix on port 25" listens 25
}

# postfix_stop : it must not have complained, but of the machine's clock, by which a file can be of the
# next second, and of its service of addresses: that begins anew when a map has changed, and whoever
# is just asking asks again.
postfix_stop() {
  postfix -c "$postfix/etc" stop </dev/null >/dev/null 2>&1
  same "the log of Postfix" "$(grep -E 'warning|error|fatal|panic' "$postfix/log/maillog" |
    grep -vE 'problem talking to service rewrite|file system clock|resetting file time stamps')" ""
}

# mimedefang_start PORT FILTER : FILTER and its folder must be readable by the user defang, as whom
# MIMEDefang runs. A filter that does not compile would only make its workers die, and mail wait.
mimedefang_start() {
  local dir=$scratch/mimedefang
  mkdir -p "$dir/spool"
  mimedefang.pl -f "$2" -test >"$dir.test" 2>&1 || { fail "$2: $(cat "$dir.test")" && exit 1; }
  chown -R defang:defang "$dir"
  chmod 750 "$dir/spool"
  mimedefang-multiplexor -D -U defang -m 1 -x 2 -F "$2" -z "$dir/spool" -s "$dir/mx.sock" \
    </dev/null >"$dir.mx.log" 2>&1 &
  wait_for "MIMEDefang's multiplexor" test -S "$dir/mx.sock"
  mimedefang -D -U defang -m "$dir/mx.sock" -z "$dir/spool" -p "inet:$1@127.0.0.1" \
    </dev/null >"$dir.md.log" 2>&1 &
  wait_for "MIMEDefang on port $1" listens "$1"
}

# postfix_host : Postfix on a host as it is installed, with the accounts of a root "host" that is in
# force; it delivers to $postfix/mail/ACCOUNT/new. What takes mail runs in the queue's folder as the
# root.
postfix_host() {
  use_root host
  mkdir -p "$MDOMAIN_ROOT/etc"
  grep -E '^[a-z]+(:[^:]*){6}$' "$source_dir/quickstart" >"$MDOMAIN_ROOT/etc/passwd"
  grep -E '^[a-z]+(:[^:]*){3}$' "$source_dir/quickstart" >"$MDOMAIN_ROOT/etc/group"
  cat /etc/passwd "$MDOMAIN_ROOT/etc/passwd" >"$scratch/passwd"
  mount --bind "$scratch/passwd" /etc/passwd
  postfix_as_installed
}

# postfix_as_installed : its files, in $postfix; it delivers to $postfix/mail/ACCOUNT/new.
postfix_as_installed() {
  postfix_configure ""
  chmod 1777 "$postfix/mail"
  postconf -c "$postfix/etc" -e 'mydestination = $myhostname, localhost' 'recipient_delimiter = +' \
    "mail_spool_directory = $postfix/mail/" 'home_mailbox =' virtual_mailbox_maps= \
    'smtpd_relay_restrictions = permit_mynetworks permit_sasl_authenticated defer_unauth_destination'
  sed -i -E 's/^((127|cleanup|rewrite).*) n ( *-.*)$/\1 y \3/' "$postfix/etc/master.cf"
  printf '%s\n' 'local unix - n n - - local' 'lmtp unix - - y - - lmtp' >>"$postfix/etc/master.cf"
}
