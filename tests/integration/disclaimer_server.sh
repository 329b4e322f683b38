#!/bin/bash
# The sample filter, run by MIMEDefang in its -server mode over a generated configuration, answers
# for every pair of senders and recipients what the rules say when they are judged without Perl.
# ctest-label: mimedefang
# ctest-timeout: 300
. "$(dirname "$0")/../support/cli.sh" || exit 1
here=$(realpath "$(dirname "$0")")

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
for idx in 1 2; do
  good --json user list "$idx"
  printf '%s' "$out" >"$scratch/users-$idx.json"
done
good --json account groups
printf '%s' "$out" >"$scratch/groups.json"
cp "$MDOMAIN_ROOT/etc/group" "$MDOMAIN_ROOT/etc/passwd" "$scratch/"

python3 "$here/disclaimer_server.py" write "$scratch" || fail "no rules were written"
for idx in 1 2; do
  good disclaimer set "$idx" "$scratch/disclaimers-$idx.json"
done
good disclaimer generate
printf '%s' "$out" >"$scratch/disclaimers.json"
cp "$here/../../docs/examples/disclaimer-filter.pl" "$scratch/filter.pl"
mimedefang.pl -f "$scratch/filter.pl" -test >"$scratch/test.log" 2>&1 ||
  fail "the filter does not compile: $(cat "$scratch/test.log")"
mimedefang.pl -f "$scratch/filter.pl" -server <"$scratch/questions" >"$scratch/answers" \
  2>"$scratch/server.log" || fail "the filter ended with $?"
same "messages of the filter" "$(cat "$scratch/server.log")" ""
python3 "$here/disclaimer_server.py" check "$scratch" || fail "answers differ"
[ ! -e "$scratch/pwned" ] || fail "a text of a rule was run as a program"

# What explain tells is what the filter does.
while IFS=$'\t' read -r sender recipient want; do
  good --json disclaimer explain 1 --from "$sender" --to "$recipient"
  same "$sender to $recipient" "$(jq -r 'map(if .applies then "1" else "0" end) | add' <<<"$out")" \
    "$want"
done <"$scratch/explained"
finish
