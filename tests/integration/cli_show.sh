#!/bin/bash
# What is asked about: everything of one user, group or domain, whose an address is, what a pattern
# would give, the keys of the configuration. Nothing of it writes.
. "$(dirname "$0")/lib/driver.bash"

new_root company
printf 'team:x:1006:2002::/home/team:/bin/bash\nan_a:x:1007:1007::/home/an_a:/bin/bash\n' >>"$MDOMAIN_ROOT/etc/passwd"
good domain create example.com --description '100% of us'
good domain create bücher.example --pattern '<4a>' --no-auto-add
good domain names add 2 books.example
good refresh
good alias create 2 team --user anna --address x@elsewhere.example
good group add 2 books
good user set 2 user --add-alias xerik --role domain_admin
good user add 2 ben
good user remove 1 erik -y
good bcc add 2 erik anna
good bcc add 2 user@books.example archive@elsewhere.example --type sender
good domain primary 2
remember

# asks WANT FILTER COMMAND... : one row of the tables below.
asks() { gives "$2" "$1" "${@:3}"; }
summary='[.[] | [.name, .alias, .from, .collision.users, .collision.entry, .reason]]'
long=$(printf '%.60d' 0)
asks '[["ben","ben","pattern",0,false,""],["erik","erik","pattern",1,false,""],["erika","erik","pattern",1,false,""],["user","user","pattern",0,false,""],["team","team","pattern",0,true,""]]' \
  "$summary" pattern try 2 '<4a>'
asks '["no value for <m>","account"]' '[.[] | .reason, .from] | unique | reverse' pattern try 2 '<m>'
asks '[["erika","erika","the pattern gives 65 bytes, more than 64"]]' \
  '[.[] | select(.from == "account") | [.name, .alias, .reason]]' pattern try 2 "$long<a>"
asks '[["erik",["user"]]]' '[.[] | select(.collision.users > 0) | [.name, .collision.names]]' pattern try 2 'x<a>'
fails 3 'needs a placeholder' pattern try 2 all
fails 3 'makes no local parts' pattern try 2 '<a>.'
asks '[]' . pattern drift 2

shown='[.domains[] | [.name, .role, .own_role, [.groups[].name], [.aliases[] | [.alias, .duplicated, .owner, .entry]]]]'
asks '[["bücher.example","normal",false,["books"],[["erik",true,"erik",false]]],["example.com","normal",false,["books"],[["erika",false,"erika",false]]]]' "$shown" user show erika
asks '[["bücher.example","normal",false,["books"],[["team",true,"",true]]],["example.com","normal",false,["books"],[["team",false,"team",false]]]]' "$shown" user show 1006
asks '[["books"],["example.com"],["erik@bücher.example","erik@books.example"],["erik to anna"]]' \
  '[[.groups[].name], [.removed_from[].name], [.addresses[].address], [.copies[] | .name + " to " + .bcc_to]]' user show erik
for user in anna user ben; do asks "$([ $user = ben ] && echo 0 || echo 1)" '.copies | length' user show $user; done
asks '[2002,["erik","erika","team","user"],[[2,"normal"],[1,"normal"]]]' \
  '[.gid, ([.members[].name] | sort), [.domains[] | [.id, .role]]]' group show books
asks '[2,["books.example"],5,1,2,1,2,0]' \
  '[.id, .additional_names, .users, .groups, .collisions, .entries, .copies, .disclaimers]' domain show 2

asks '["erika@example.com"]' . user addresses erika
asks '["user@bücher.example","xerik@bücher.example","user@example.com"]' .user user addresses --all
asks '[["erik","erik",["erika"],false],["team","",["team"],true]]' \
  'sort_by(.alias) | map([.alias, .owner, .holders, .is_entry])' user duplicates 2

# As text: what the eye looks for.
while IFS='|' read -r command want; do
  # shellcheck disable=SC2086
  good $command
  matches "$command" "$out" "$want"
done <<'END'
pattern try 2 <4a>|^5 users: 5 by the pattern, 0 by the account name, 0 without an address; 3 colliding$
pattern try 2 <4a>|^1006 +team +team +an address with several members$
user show erika|^ALIASES +erik \(collides, goes to erik\)$
user show erika|^  erik@bücher.example \(goes to erik\)$
user show team|^  none$
user addresses erika|^erik@bücher.example \(goes to erik\)$
user addresses --all|^erika +erik@bücher.example \(goes to erik\), erika@example.com$
user duplicates 2|^team +an address with several members +team$
group show books|^MEMBERS +4 users: erik
domain show 2|^COLLIDING ALIASES +2$
END

# Keys: known ones, unset or set; nobody's; those that the domains decide.
asks '""' .value config get postmaster
fails 4 'no key "postmastr"' config get postmastr
refused 3 'no key "postmastr"' config set postmastr ben
for key in smtp_main_domain virtual_multiple_domain additional_domain-2; do
  refused 3 "$key follows from the domains" config set $key other.example
done
refused 3 'no key "additional_domain-"' config set additional_domain- x
unchanged "all that was asked"
good config set smtp_main_domain bücher.example
good config set other_program "$(printf 'ä%.0s' {1..300})" --force
good config set other_program "$(printf 'ä%.0s' {1..200})"
good config list
matches "a long value" "$out" '^other_program +ä{60}\.\.\. \(400 bytes\)$'
good config list --full
matches "the whole value" "$out" '^other_program +ä{200}$'
asks 200 '.other_program | length' config list

# A pattern that is saved changes no alias; who differs from it is told.
good domain set 2 --pattern '<a>'
asks '[["erika",["erik"],"erika"]]' '[.[] | [.name, .aliases, .alias]]' pattern drift 2
good pattern drift 2
matches "the drift" "$out" '^1 of 5 users without what <a> gives now: 1 by the pattern,'
