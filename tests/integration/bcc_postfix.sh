#!/bin/bash
# A Postfix on a loopback of its own delivers the copies that the rules ask for.
# ctest-label: postfix
# ctest-timeout: 300
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/postfix.bash"

new_root company
bcc_compiler
export MAIL_CONFIG=$postfix/etc
postfix_configure "example.com, example.net, xn--bcher-kva.example, bücher.example, archive.example"

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
jq -r '.maps[].main_cf' <<<"$out" >>"$MAIL_CONFIG/main.cf"
postfix_start

idle() { [ -z "$(find "$postfix"/queue/{maildrop,incoming,active,deferred} -type f 2>&1)" ]; }
# mail SUBJECT FROM TO,.. COPIES,.. : those, and nobody else, get it.
mail() {
  mail_py send "$1" "$2" "$3" || fail "$1 was not taken"
  wait_for "$1 to leave the queue" idle
  same "$1" "$(mail_py recipients "$postfix/mail/all/new" "$1")" \
    "$(tr ',' '\n' <<<"$3${4:+,$4}" | LC_ALL=C sort | paste -sd ' ')"
}

mail none ben@example.com ben@example.com
mail recipient ben@example.com anna@example.com anna@archive.example
mail upper-case ben@example.com ANNA@Example.COM anna@archive.example
mail account ben@example.com erik.larsen@example.net erik@archive.example
mail sender boss@example.com ben@example.com boss@archive.example
mail several boss@example.com anna@example.com,erik@example.com,ben@example.com \
  anna@archive.example,erik@archive.example,boss@archive.example
mail to-domain ben@example.com x@xn--bcher-kva.example books@archive.example
mail from-domain y@bücher.example ben@example.com books@archive.example

# Without a reload of Postfix.
good bcc remove 1 anna@example.com
good bcc maps
mail removed ben@example.com anna@example.com
mail kept ben@example.com erik@example.com erik@archive.example
postfix_stop
