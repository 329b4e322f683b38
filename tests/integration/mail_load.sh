#!/bin/bash
# Mail and look-ups go on undisturbed while accounts come by the thousand and a user changes again and
# again. ACCOUNTS, LOOKUPS and MESSAGES make it longer (docs/reliability.md).
# ctest-label: postfix
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/postfix.bash"

accounts=${ACCOUNTS:-1000}
postfix_host
for ((number = 0; number < accounts; number++)); do
  echo "load$number:x:$((20000 + number)):2001::/:/bin/sh"
done >>/etc/passwd
good domain create example.com
good refresh
good postfix configure --apply --config "$postfix/etc"
good owner build
postfix_start
"$source_dir/tests/reliability/mail_load.py" "$MDOMAIN_ROOT" "$postfix" --accounts "$accounts" \
  --lookups "${LOOKUPS:-2000}" --messages "${MESSAGES:-50}" >"$scratch/said" || fail "under load"
cat "$scratch/said"
good postfix check --config "$postfix/etc" anna@example.com
good owner check
postfix_stop
