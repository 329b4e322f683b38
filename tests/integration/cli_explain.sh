#!/bin/bash
# Who gets the mail for an address and why not: one line for each reason that there is.
. "$(dirname "$0")/lib/driver.bash"

new_root company
good domain create bücher.example --pattern '<4a>'
good domain names add bücher.example books.example
good refresh
good domain create example.org --no-auto-add
good bcc add bücher.example erik archive@elsewhere.example
good alias create bücher.example team --user anna --address x@elsewhere.example
good user remove bücher.example ben -y
good owner build

# explains ADDRESS RECEIVER STEPS SENTENCE
explains() {
  run explain "$1" --json
  same "status for $1" "$status" "$([ -n "$2" ] && echo 0 || echo 4)"
  same "who gets $1" "$(jq -r .receiver <<<"$out")" "$2"
  same "steps for $1" "$(jq -r '[.steps[].step] | unique | join(" ")' <<<"$out")" "$3"
  matches "what is said of $1" "$(jq -r '.steps[].text' <<<"$out")" "$4"
}
while IFS='|' read -r address receiver steps sentence; do
  explains "$address" "$receiver" "$steps" "$sentence"
done <<'END'
erik@bücher.example|erik|collision copy domain holder postfix registry spelling|erika has the alias .*, but it is flagged
ERIK@xn--bcher-kva.example|erik|collision copy domain holder postfix registry spelling|same address as ERIK@bücher.example
anna@books.example|anna|domain holder postfix registry|further name of domain 1
team@books.example|anna@localhost, x@elsewhere.example|domain entry postfix registry|several members: anna, x@
anna+news@books.example|anna|domain extension holder postfix registry|what stands behind .* does not count
ben@books.example||account domain postfix registry|ben was taken out of the domain by name
anna@example.org||account domain postfix registry|anna is known and not in the domain \(mdomain user add example.org anna\); the pattern would give it anna
erika@books.example||account domain postfix registry|erika is in the domain as erik \(mdomain user set
ghost@books.example||account domain postfix registry|no account that the last refresh found
abuse@books.example||account domain postfix registry role|its administrators get it
anna@nowhere.example||domain|no domain of this host has the name nowhere.example
anna@boks.example||domain|did you mean "books.example"
anna@books.example|anna|domain holder postfix registry|role normal, from group sales
END
sed -i 's/^anna:/newby:x:1100:2001::\/:\/bin\/sh\n&/' "$MDOMAIN_ROOT/etc/passwd"
explains newby@books.example "" "account domain postfix registry" 'no refresh has found it yet'
sed -i '/^newby:\|^anna:/d' "$MDOMAIN_ROOT/etc/passwd"
explains anna@books.example anna "account domain holder postfix registry" 'anna is gone from the account system'
printf 'anna:x:1001:2001:::\n' >>"$MDOMAIN_ROOT/etc/passwd"
good user set bücher.example anna --role domain_admin
explains postmaster@books.example anna@localhost "account domain postfix registry role" 'its administrators get it'
good explain erik@books.example
same "the first line" "$(head -n 1 <<<"$out")" "mail for erik@books.example goes to erik"
sqlite3 "$database" "DELETE FROM domain_group_role_table"
explains user@books.example "" "domain holder postfix registry" 'no role in the domain: an alias without a role gets no mail'
sqlite3 "$etc/keystore.db" "DELETE FROM key_table WHERE name = 'virtual_multiple_domain'"
explains user@books.example "" "domain holder postfix published registry" 'not published: mdomain publish'
fails 3 'is not an address' explain anna
