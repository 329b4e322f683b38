#!/bin/bash
# What people do in a real browser: sign in, solve the collision of Erik and Erika in two clicks, give
# the domain a disclaimer, take a change back, all by keyboard and without scripts; two change the same
# at once; a refresh is watched with scripts and without; every page is looked at, in two languages.
# Pictures go to web-pictures/ of the build folder.
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/web.bash"

new_root web
printf 'mailadmins:x:2004:ben,erik\n' >>"$MDOMAIN_ROOT/etc/group"
good domain create example.com --description Everybody
good domain create bücher.example --pattern '<4a>' --no-auto-add
good refresh
good group add bücher.example sales
good user add bücher.example erik erika
good user set bücher.example anna --role domain_admin
good alias create bücher.example desk --user anna
echo 'frieda:x:1006:2001::/:/bin/sh' >>"$MDOMAIN_ROOT/etc/passwd"
web_start anna ben erik

mkdir -p "$build/web-pictures/de"
timeout 500 /usr/bin/python3 "$here/lib/web_browser.py" "$build/web-pictures" || fail "web_browser.py: $(tail -n 20 "$scratch/web.log")"
gives '[.[].person] | unique' '["anna","ben","erik","root"]' history list
gives '[.[].aliases[].alias] | sort' '["anna","ben","boss","chief","erika"]' user list bücher.example
gives '[.[] | .name, .content_txt]' '["signature","Third."]' disclaimer get bücher.example
web_stop
