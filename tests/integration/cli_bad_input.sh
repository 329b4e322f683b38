#!/bin/bash
# What must be refused: each with its exit status, a message that names what was wrong, nothing on
# standard output, and nothing changed.
# ctest-timeout: 600
. "$(dirname "$0")/lib/driver.bash"

new_root company
good domain create example.com
good domain create bücher.example --no-auto-add --pattern '<4a>'
good domain names add example.com example.org
good refresh
good group add 2 books
remember

long=$(printf 'a%.0s' {1..64})
# Domain names: their form, and names that are taken.
for name in '' example "$long.com" "$(printf 'abcdefg.%.0s' {1..40})com" 'exa mple.net' $'ex\xff.net' \
  $'example.net\nevil.net' xn--a.example System.Alias.To.User.Postara; do
  refused 3 'valid domain name' domain create "$name"
done
refused 3 '"nodot".*valid domain name' domain set 2 --name nodot
refused 3 '"nodot"' domain names add 2 new.example nodot
refused 3 '"nodot"' domain names set 1 example.info nodot
for name in EXAMPLE.com example.org xn--bcher-kva.example BÜCHER.example; do
  refused 3 'already has this name' domain create "$name"
done
refused 3 'already has this name' domain set 1 --name Example.com
refused 3 'already has this name' domain set 2 --name example.com
refused 3 'already has this name' domain names add 2 new.example EXAMPLE.org
refused 3 'already has this name' domain names set 1 example.info bücher.example
refused 4 '"example.info"' domain names remove 1 example.info
# Properties.
refused 3 '"plain" is not an alias pattern' domain create new.example --pattern plain
refused 3 '"" is not an alias pattern' domain set 1 --pattern ''
refused 3 '"<a" is not' domain set 1 --pattern '<a'
refused 3 '"<a>b c" makes no local parts' domain create new.example --pattern '<a>b c'
refused 3 '"..<a>" makes no local parts' domain set 1 --pattern '..<a>'
refused 3 'not valid UTF-8' domain set 1 --description $'\xff'
refused 3 'control characters' domain set 1 --description $'a\nb'
refused 3 '"a<U\+202E>b" holds' domain set 1 --description $'a\u202eb'
refused 2 'exclude' domain set 1 --auto-add --no-auto-add
# The primary domain, and questions that nobody can answer.
refused 3 'primary' domain delete 1 --yes
refused 3 'primary' domain delete 2 example.org --yes
refused 2 'of 3 users .*--yes' domain delete 2
refused 2 '--yes' user remove 2 erik
refused 2 '--yes' group remove 2 books
# What is not there.
for verb in 'domain show' 'domain delete --yes' 'domain names list' 'user list' 'group list' \
  'domain primary' 'user duplicates'; do
  # shellcheck disable=SC2086
  refused 4 '"nosuch.example"' $verb nosuch.example
  # shellcheck disable=SC2086
  refused 4 '"7"' $verb 7
done
refused 4 '"-1"' domain show -- -1
for user in nobody-here printer 9999 'a"b'; do refused 4 "user \"$user\"" user add 1 anna "$user"; done
for user in uid % an_a ''; do refused 4 "user \"$user\"" user addresses "$user"; done
refused 4 'no user of domain 2' user set 2 anna --role normal
refused 4 'no user of domain 2' user remove 2 erik anna --yes
refused 4 'group "nosuch"' user add 1 --group nosuch
refused 4 'group "nosuch"' group add 2 nosuch
refused 4 'no group of domain 2' group status 2 sales
refused 4 'no group of domain 2' group remove 2 books sales --yes
refused 4 'nobody.*"zz"' user find 1 zz
refused 4 'no alias "zz"' user set 2 erik --remove-alias zz
# Aliases and roles.
for alias in '' 'a b' 'a@b' '.a' 'a..b' "a$long" $'a\xff' $'a\nb' '"a"' $'a\u2067b'; do
  refused 3 'alias' user add 2 anna --alias "$alias"
  refused 3 'alias' user set 2 erik --add-alias "$alias"
done
refused 3 'at least one alias' user set 2 erik --remove-alias erik
refused 3 '"boss" is no role' user set 2 erik --role boss
refused 3 '"group" is no role' group set 2 books --role group
refused 2 'exactly one user' user add 2 anna ben --alias x
refused 2 'name a user' user add 2
# Arguments.
for command in 'domain set 1' 'user set 2 erik'; do
  # shellcheck disable=SC2086
  refused 2 'nothing to set' $command
done
refused 2 'required' domain
refused 2 'required' domain create
refused 2 'not expected' domain list extra
refused 2 'has no option "--nosuch"' domain list --nosuch
refused 2 '"x" is not a number' domain list --limit x
refused 2 '"99999999999" is not a number' user list 1 --offset 99999999999
refused 2 'x<U\+001B>\[2J<U\+061C>' domain list $'x\e[2J\u061c'
refused 2 'not exist' --root "$scratch/nosuch" domain list
refused 3 'account type' config set account_type nis
refused 3 'key is empty' config set '' x
refused 3 'control characters' config set key $'a\nb'
refused 4 'no owner registry' owner lookup anna@example.com

# Host settings are looked at before anything else.
mkdir -p "$MDOMAIN_ROOT/etc/mailserver-domain"
printf '[local]\ncolour = red\n' >"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
remember
refused 2 'host.ini:2.*colour' domain list
# Called internal by the host settings after it was mirrored.
printf '[local]\ninternal = ben\n' >"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
remember
refused 3 '"ben" is an internal account' user add 2 anna ben
refused 3 '"ben" is an internal account' user preview 2 ben
# Of two mistakes the account is told first.
refused 3 '"ben" is an internal account' user add 2 ben --alias 'no alias'
sqlite3 "$database" "UPDATE domain_table SET domain_default_alias_pattern = '<a'"
remember
refused 3 '"ben" is an internal account' user add 2 ben

# A wrong word is named, with what may have been meant; with --json as an object.
fails 2 'no command "domian"; did you mean "domain"' domian list
fails 2 'no command "domain crate"; did you mean "create"' domain crate x.example
fails 2 'no command "frobnicate"' frobnicate
good help domain create
matches "help for a command" "$out" 'Usage: mdomain domain create'
run --json domain show exmaple.com
same "code, status and message" "$(jq -c '[.code, .status, (.message | length > 0)]' <<<"$err")" '["not-found",4,true]'
