#!/bin/bash
# The sample filter, run by MIMEDefang in its -server mode over a generated configuration, answers
# for every pair of senders and recipients what the rules say when they are judged without Perl.
# ctest-label: mimedefang
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"
model() { python3 "$source_dir/tests/integration/disclaimer_server.py" "$1" "$scratch"; }
# keep FILE : the last output
keep() { printf '%s' "$out" >"$scratch/$1"; }

new_root company
# Group names are no part of a condition; if they become one, these end it, or run a program.
printf '%s:x:2004:anna,user\n' '@{[`touch${IFS}'"$scratch"'/pwned`]}' >>"$MDOMAIN_ROOT/etc/group"
printf '%s:x:2005:ben\n' '"}) || 1 #' >>"$MDOMAIN_ROOT/etc/group"
good domain create example.com
good domain names add 1 Example.NET bücher.example
good domain create other.example --pattern '<a>.x'
good refresh
good user set 1 erik --alias erik --alias Erik.Larsen --alias 'e+l'
good user set 1 ben --alias "ben" --alias "o'brien" --alias '${`id`}' --alias '$ENV{PATH}' \
  --alias '%ENV' --alias 'a|b' --alias 'x/y' --alias '#z' --alias '{' --alias "'"
good user set 1 user --alias user --alias jörg --alias 'a*b' --alias 'a?b^c'
good publish
for idx in 1 2; do good --json user list "$idx" && keep "users-$idx.json"; done
for gid in 2001 2002 2004 2005; do good --json account members "$gid" && keep "members-$gid.json"; done

model write || fail "no rules were written"
for idx in 1 2; do good disclaimer set "$idx" "$scratch/disclaimers-$idx.json"; done
good disclaimer generate
keep disclaimers.json
cp "$source_dir/docs/examples/disclaimer-filter.pl" "$scratch/filter.pl"
mimedefang.pl -f "$scratch/filter.pl" -test >"$scratch/test.log" 2>&1 ||
  fail "the filter does not compile: $(cat "$scratch/test.log")"
mimedefang.pl -f "$scratch/filter.pl" -server <"$scratch/questions" >"$scratch/answers" \
  2>"$scratch/server.log" || fail "the filter ended with $?"
same "messages of the filter" "$(cat "$scratch/server.log")" ""
model check || fail "answers differ"
[ ! -e "$scratch/pwned" ] || fail "a text of a rule was run as a program"

# What explain tells is what the filter does.
while IFS=$'\t' read -r sender recipient want; do
  gives 'map(if .applies then "1" else "0" end) | add' "\"$want\"" \
    disclaimer explain 1 --from "$sender" --to "$recipient"
done <"$scratch/explained"
