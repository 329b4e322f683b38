# Sourced by integration scripts: a Postfix that delivers on 127.0.0.1, port 25. Needs root and
# namespaces of its own (private.bash).

# postfix_configure DIR DOMAINS [MAIN.CF LINES] : its files, in DIR. All mail for DOMAINS
# (comma-separated) ends in DIR/mail/all/new/, a file a copy; other mail bounces.
postfix_configure() {
  local dir=$1 domains=$2 further=${3:-}
  mkdir -p "$dir"/{etc,queue,data,mail,log}
  chown postfix "$dir/data"
  chown nobody "$dir/mail"
  cat >"$dir/etc/main.cf" <<C
compatibility_level = 3.6
queue_directory = $dir/queue
data_directory = $dir/data
maillog_file = $dir/log/maillog
maillog_file_prefixes = $dir
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
myhostname = mx.example.com
mydestination =
mynetworks = 127.0.0.0/8
alias_maps =
smtpd_relay_restrictions = permit_mynetworks, reject_unauth_destination
virtual_mailbox_domains = $domains
virtual_mailbox_base = $dir/mail
virtual_mailbox_maps = static:all/
virtual_minimum_uid = 1
virtual_uid_maps = static:65534
virtual_gid_maps = static:65534
default_transport = error:no outside network
smtp_dns_support_level = disabled
$further
C
  cat >"$dir/etc/master.cf" <<C
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
postlog unix-dgram n - n - 1 postlogd
C
}

# postfix_start DIR : starts it and waits until it answers. Stop it with postfix_stop DIR.
postfix_start() {
  local dir=$1
  postfix -c "$dir/etc" start </dev/null >"$dir/log/start" 2>&1 || {
    cat "$dir/log/start" >&2
    return 1
  }
  for _ in $(seq 200); do
    (exec 3<>/dev/tcp/127.0.0.1/25) 2>/dev/null && return 0
    sleep 0.05
  done
  echo "Postfix does not answer" >&2
  return 1
}

# postfix_stop DIR
postfix_stop() { postfix -c "$1/etc" stop </dev/null >/dev/null 2>&1; }
