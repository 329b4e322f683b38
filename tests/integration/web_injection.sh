#!/bin/bash
# What attackers send, through every field of every form and every argument of the HTTP interface: no
# failure, nothing of it in a page or header as it is, nothing changed by a dry run or of another domain.
# EVERY=1 sends every text to each; by itself each gets some of them.
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/web.bash"

export TMPDIR=$scratch # each dry run has a copy of the company there: a scratch folder in memory makes it quicker
web_company
web_start anna ben
python3 "$here/lib/web_injection.py" "${EVERY:-20}" || fail "web_injection.py: $(tail -n 20 "$scratch/web.log")"
web_stop
