#!/bin/bash
# A Postfix on a loopback of its own delivers the copies that the rules ask for.
# ctest-label: postfix
# ctest-timeout: 300
. "$(dirname "$0")/../support/cli.sh" || exit 1
[ "$(id -u)" -eq 0 ] || { echo "needs root" && exit 1; }
if [ -z "${BCC_POSTFIX_INNER:-}" ]; then
  exec env BCC_POSTFIX_INNER=1 unshare --mount --net --pid --fork --mount-proc --kill-child \
    bash "$0" "$build" "$scratch"
fi
ip link set lo up

new_root company
target=$MDOMAIN_ROOT/var/packages/Postara-Server/target
mkdir -p "$target/bin"
ln -s "$(realpath "$build/bin/korv_bcc_map")" "$target/bin/"
D=$scratch/postfix
mkdir -p "$D"/{etc,queue,data,mail,log}
chown postfix "$D/data"
chown nobody "$D/mail"
export MAIL_CONFIG=$D/etc
cat >"$D/etc/main.cf" <<C
compatibility_level = 3.6
queue_directory = $D/queue
data_directory = $D/data
maillog_file = $D/log/maillog
maillog_file_prefixes = $D
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
myhostname = mx.example.com
mydestination =
mynetworks = 127.0.0.0/8
alias_maps =
smtpd_relay_restrictions = permit_mynetworks, reject_unauth_destination
virtual_mailbox_domains = example.com, example.net, xn--bcher-kva.example, bücher.example, archive.example
virtual_mailbox_base = $D/mail
virtual_mailbox_maps = static:all/
virtual_minimum_uid = 1
virtual_uid_maps = static:65534
virtual_gid_maps = static:65534
default_transport = error:no outside network
smtp_dns_support_level = disabled
C
cat >"$D/etc/master.cf" <<C
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

good domain create example.com
good domain names add 1 example.net
good domain create bücher.example --no-auto-add
good refresh
good user set 1 erik --alias erik --alias erik.larsen
good bcc add 1 anna@example.com anna@archive.example
good bcc add 1 erik erik@archive.example
good bcc add 1 boss@example.com boss@archive.example --type sender
good bcc add 2 bücher.example books@archive.example --type domain

# In the order that the tool tells: the maps first, then main.cf, then Postfix.
good --json bcc maps
jq -r '.maps[].main_cf' <<<"$out" >>"$D/etc/main.cf"
postfix start </dev/null >"$D/log/start" 2>&1 || fail "Postfix does not start: $(cat "$D/log/start")"
for _ in $(seq 200); do (exec 3<>/dev/tcp/127.0.0.1/25) 2>/dev/null && break || sleep .05; done

cat >"$scratch/send.py" <<'P'
import smtplib, sys
sender, recipients, subject = sys.argv[1], sys.argv[2].split(','), sys.argv[3]
with smtplib.SMTP('127.0.0.1', 25) as smtp:
    options = ['SMTPUTF8'] if any(not a.isascii() for a in [sender] + recipients) else []
    smtp.sendmail(sender, recipients, f'Subject: {subject}\r\n\r\nhello\r\n'.encode(), options)
P
# delivered SUBJECT : who got it, sorted, in one line.
delivered() {
  grep -ls "^Subject: $1$" "$D"/mail/all/new/* 2>/dev/null | xargs -r grep -h '^Delivered-To: ' |
    sed 's/^Delivered-To: //' | sort | paste -sd ' '
}
# mail SUBJECT FROM TO,.. WANT.. : sends a message and waits until those, and nobody else, have it.
mail() {
  local subject=$1 from=$2 to=$3 got
  shift 3
  python3 "$scratch/send.py" "$from" "$to" "$subject" || fail "$subject was not taken"
  for _ in $(seq 100); do
    got=$(delivered "$subject")
    [ "$(wc -w <<<"$got")" -lt $# ] || [ -n "$(find "$D"/queue/{incoming,active} -type f)" ] || break
    sleep .1
  done
  same "$subject" "$(delivered "$subject")" "$(printf '%s\n' "$@" | sort | paste -sd ' ')"
}

mail none ben@example.com ben@example.com ben@example.com
mail recipient ben@example.com anna@example.com anna@example.com anna@archive.example
mail upper-case ben@example.com ANNA@Example.COM ANNA@Example.COM anna@archive.example
mail account ben@example.com erik.larsen@example.net erik.larsen@example.net erik@archive.example
mail sender boss@example.com ben@example.com ben@example.com boss@archive.example
mail several boss@example.com anna@example.com,erik@example.com,ben@example.com \
  anna@example.com erik@example.com ben@example.com \
  anna@archive.example erik@archive.example boss@archive.example
mail to-domain ben@example.com x@xn--bcher-kva.example x@xn--bcher-kva.example books@archive.example
mail from-domain y@bücher.example ben@example.com ben@example.com books@archive.example

# Without a reload of Postfix.
good bcc remove 1 anna@example.com
good bcc maps
mail removed ben@example.com anna@example.com anna@example.com
mail kept ben@example.com erik@example.com erik@example.com erik@archive.example

problems=$(grep -E 'warning|error|fatal|panic' "$D/log/maillog")
same "the log of Postfix" "$problems" ""
postfix stop </dev/null >/dev/null 2>&1
finish
