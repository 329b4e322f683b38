#!/bin/bash
# What must be refused: each with its exit status, a message that names what was wrong, nothing on
# standard output, and nothing changed.
# ctest-timeout: 300
. "$(dirname "$0")/../support/cli.sh"

new_root company
good domain create example.com
good domain create bücher.example --no-auto-add --pattern '<4a>'
good domain names add example.com example.org
good refresh
good group add 2 books
state >"$scratch/before"

long=$(printf 'a%.0s' {1..64})
# Domain names: their form, and names that are taken.
bad 3 '"example".*valid' domain create example
bad 3 '""' domain create ''
bad 3 'valid domain name' domain create "$long.com"
bad 3 'valid domain name' domain create "$(printf 'abcdefg.%.0s' {1..40})com"
bad 3 'valid domain name' domain create 'exa mple.net'
bad 3 'valid domain name' domain create $'ex\xff.net'
bad 3 'valid domain name' domain create $'example.net\nevil.net'
bad 3 'valid domain name' domain create xn--a.example
bad 3 'valid domain name' domain create System.Alias.To.User.Postara
bad 3 'already has this name' domain create EXAMPLE.com
bad 3 'already has this name' domain create example.org
bad 3 'already has this name' domain create xn--bcher-kva.example
bad 3 'already has this name' domain create BÜCHER.example
bad 3 'already has this name' domain set 1 --name Example.com
bad 3 'already has this name' domain set 2 --name example.com
bad 3 'valid domain name' domain set 2 --name nodot
bad 3 'already has this name' domain names add 2 new.example EXAMPLE.org
bad 3 '"nodot"' domain names add 2 new.example nodot
bad 3 'already has this name' domain names set 1 example.info bücher.example
bad 3 '"nodot"' domain names set 1 example.info nodot
bad 4 '"example.info"' domain names remove 1 example.info
# Properties.
bad 3 '"plain" is not an alias pattern' domain create new.example --pattern plain
bad 3 '"" is not an alias pattern' domain set 1 --pattern ''
bad 3 '"<a" is not' domain set 1 --pattern '<a'
bad 3 '"<a>b c" makes no local parts' domain create new.example --pattern '<a>b c'
bad 3 '"..<a>" makes no local parts' domain set 1 --pattern '..<a>'
bad 3 'not valid UTF-8' domain set 1 --description $'\xff'
bad 3 'control characters' domain set 1 --description $'a\nb'
bad 2 'nothing to set' domain set 1
bad 2 'exclude' domain set 1 --auto-add --no-auto-add
# The primary domain, and questions that nobody can answer.
bad 3 'primary' domain delete 1 --yes
bad 3 'primary' domain delete 2 example.org --yes
bad 2 'of 3 users .*--yes' domain delete 2
bad 2 '--yes' user remove 2 erik
bad 2 '--yes' group remove 2 books
# What is not there.
for verb in 'domain show' 'domain delete --yes' 'domain names list' 'user list' 'group list' \
  'domain primary' 'user duplicates'; do
  # shellcheck disable=SC2086
  bad 4 '"nosuch.example"' $verb nosuch.example
  # shellcheck disable=SC2086
  bad 4 '"7"' $verb 7
done
bad 4 '"-1"' domain show -- -1
bad 4 'user "nobody-here"' user add 1 nobody-here
bad 4 'user "nobody-here"' user add 1 anna nobody-here
bad 4 'user "printer"' user add 1 printer
bad 4 'user "uid"' user addresses uid
bad 4 'user "%"' user addresses %
bad 4 'user "an_a"' user addresses an_a
bad 4 'user ""' user addresses ''
bad 4 'user "9999"' user add 2 9999
bad 4 'user "a"b"' user add 2 'a"b'
bad 4 'no user of domain 2' user set 2 anna --role normal
bad 4 'no user of domain 2' user remove 2 erik anna --yes
bad 4 'group "nosuch"' user add 1 --group nosuch
bad 4 'group "nosuch"' group add 2 nosuch
bad 4 'no group of domain 2' group status 2 sales
bad 4 'no group of domain 2' group remove 2 books sales --yes
bad 4 'nobody.*"zz"' user find 1 zz
bad 4 'no alias "zz"' user set 2 erik --remove-alias zz
# Aliases and roles.
for alias in '' 'a b' 'a@b' '.a' 'a..b' "a$(printf 'b%.0s' {1..64})" $'a\xff' $'a\nb' '"a"'; do
  bad 3 'alias' user add 2 anna --alias "$alias"
  bad 3 'alias' user set 2 erik --add-alias "$alias"
done
bad 3 'at least one alias' user set 2 erik --remove-alias erik
bad 3 '"boss" is no role' user set 2 erik --role boss
bad 3 '"group" is no role' group set 2 books --role group
bad 2 'nothing to set' user set 2 erik
bad 2 'exactly one user' user add 2 anna ben --alias x
bad 2 'name a user' user add 2
# Arguments.
bad 2 'required' domain
bad 2 'required' domain create
bad 2 'not expected' domain list extra
bad 2 'not expected' domain list --nosuch
bad 2 '"x" is not a number' domain list --limit x
bad 2 '"99999999999" is not a number' user list 1 --offset 99999999999
bad 2 'not exist' --root "$scratch/nosuch" domain list
bad 3 'account type' config set account_type nis
bad 3 'key is empty' config set '' x
bad 3 'control characters' config set key $'a\nb'
bad 4 'no owner registry' owner lookup anna@example.com

# Host settings are looked at before anything else.
mkdir -p "$MDOMAIN_ROOT/etc/mailserver-domain"
printf '[local]\ncolour = red\n' >"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
state >"$scratch/before"
bad 2 'host.ini:2.*colour' domain list
# Called internal by the host settings after it was mirrored.
printf '[local]\ninternal = ben\n' >"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
state >"$scratch/before"
bad 3 '"ben" is an internal account' user add 2 anna ben
bad 3 '"ben" is an internal account' user preview 2 ben

finish
