#!/bin/bash
# What people do in a real browser: sign in, solve the collision of Erik and Erika in two clicks, give
# the domain a disclaimer, take a change back, all by keyboard and without scripts; every page at two
# widths has names for what can be used and nothing beside the window. Pictures go to web-pictures/ of
# the build folder.
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/web.bash"

new_root web
good domain create example.com --description Everybody
good domain create bücher.example --pattern '<4a>' --no-auto-add
good refresh
good group add bücher.example sales
good user add bücher.example erik erika
good user set bücher.example anna --role domain_admin
web_start anna

mkdir -p "$build/web-pictures"
timeout 300 /usr/bin/python3 "$here/lib/web_browser.py" "$build/web-pictures" || fail "web_browser.py: $(tail -n 20 "$scratch/web.log")"
gives '[.[].person] | unique | map(select(. == "anna"))' '["anna"]' history list
gives '[.[].aliases[].alias] | sort | map(select(startswith("erik")))' '["erik","erika"]' user list bücher.example
gives '[.[] | .name, .content_txt]' '["signature","No offer is final."]' disclaimer get bücher.example
web_stop
