#!/bin/bash
# A Postfix that is set up by mdomain postfix configure delivers what is sent to every address of a
# company, refuses everything else at once, and follows each change without a reload.
# ctest-label: postfix
# ctest-timeout: 300
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/postfix.bash"

postfix_host
config=(--config "$postfix/etc")
good domain create example.com
good domain names add example.com example.org
good domain create bücher.example --pattern '<4a>' --no-auto-add
good refresh
good group add bücher.example books
run postfix configure --config "$postfix/etc"
echo "$out"; echo "$err"; echo $status
good postfix configure --apply "${config[@]}"; echo "$out"
postfix_start
good postfix configure --apply "${config[@]}"; echo "$out"
cat $postfix/etc/main.cf
