#!/bin/bash
# A Postfix on a loopback of its own delivers the copies that the rules ask for.
# ctest-label: postfix
# ctest-timeout: 300
here=$(dirname "$0")
[ "$(id -u)" -eq 0 ] || { echo "needs root" && exit 1; }
. "$here/lib/private.bash"
. "$here/../support/cli.sh" || exit 1
. "$here/lib/postfix.bash"

new_root company
target=$MDOMAIN_ROOT/var/packages/Postara-Server/target
mkdir -p "$target/bin"
ln -s "$(realpath "$build/bin/korv_bcc_map")" "$target/bin/"
D=$scratch/postfix
export MAIL_CONFIG=$D/etc
postfix_configure "$D" \
  "example.com, example.net, xn--bcher-kva.example, bücher.example, archive.example"

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
postfix_start "$D" || exit 1

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
postfix_stop "$D"
finish
