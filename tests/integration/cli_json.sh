#!/bin/bash
# The main job through mdomain --json: fields, what each command does, both ways to name things.
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"

new_root company
gives . '{"additional_names":[],"alias_pattern":"<a>","auto_add":true,"description":"Everybody \"here\"","has_duplicates":false,"id":1,"name":"example.com","primary":true,"users":0}' \
  domain create example.com --description 'Everybody "here"'
gives '[.id, .name, .primary, .auto_add, .alias_pattern]' '[2,"bücher.example",false,false,"<4a>"]' \
  domain create BÜCHER.example --no-auto-add --pattern '<4a>'
gives . '["example.org"]' domain names add 1 example.org
gives '[.complete, .users, .groups, .deleted_users, .deleted_groups, .new_users, (.new_groups | sort)]' \
  '[true,5,3,[],[],["anna","ben","erik","erika","user"],["books","interns","sales"]]' refresh
gives '[.[] | [.uid, .name]][0:2]' '[[1001,"anna"],[1002,"ben"]]' account users
gives '[.[] | [.gid, .name, .description]]' '[[2002,"books",""]]' account groups --query ook
gives '[.[].name] | sort' '["erik","erika","user"]' account members books
gives '[.[].ok] | all' true account check
gives '[.[] | .name] | sort' '["anna","ben","erik","erika","user"]' user list example.com
field '[.[] | select(.name == "anna")]' '[{"aliases":[{"alias":"anna","duplicated":false}],"group_controlled":true,"name":"anna","role":"normal","uid":1001}]'
gives length 2 user list EXAMPLE.org --limit 2

# A group in: two of its members want one alias. Names, ids and other spellings mean the same.
gives '[.[] | [.name, .aliases[0].alias]] | sort' '[["erik","erik"],["erika","erik"],["user","user"]]' \
  user preview xn--bcher-kva.example --group 2002
gives '[.[].aliases[] | select(.duplicated)] | length' 1 group add xn--bcher-kva.example 2002
gives . '[{"alias":"erik","holders":["erika"],"is_entry":false,"owner":"erik"}]' user duplicates bücher.example
gives '[.[] | [.id, .users, .has_duplicates, .additional_names]]' \
  '[[1,5,false,["example.org"]],[2,3,true,[]]]' domain list
gives . '[{"description":"","gid":2002,"name":"books","role":"normal"}]' group list 2
gives '[.[].uid] | sort' '[1003,1004,1005]' group members 2 books
gives '[.alias, .name]' '["ERIK","erik"]' user find 2 ERIK

# Aliases and roles. A role that the group gives stays the group's when aliases change.
gives '[([.aliases[].alias] | sort), .role, .group_controlled]' "[[\"o'brien\",\"Ångström\"],\"normal\",true]" \
  user set 2 erika --alias "o'brien" --add-alias Ångström
gives . '[]' user duplicates 2
gives .name '"erika"' user find 2 "O'Brien"
# An alias that looks like somebody else's is taken, with a warning; the one that it looks like is not.
gives .warnings '["alias \"еrik\" looks like \"erik\" of erik"]' user set 2 erika --add-alias еrik
matches "a look-alike" "$err" 'warning: alias "еrik" looks like "erik" of erik'
gives .warnings '[]' user set 2 erika --remove-alias еrik --add-alias ERIKA
gives .warnings '[]' user set 2 erika --remove-alias ERIKA
good group set 2 books --role domain_admin
gives '[.[].role] | unique' '["domain_admin"]' user list 2 --query erik
gives '[.role, .group_controlled]' '["normal",false]' user set 2 1003 --role normal
gives '[.role, .group_controlled]' '["domain_admin",true]' user set 2 1003 --role group
gives . "[\"erika@example.com\",\"erika@example.org\",\"o'brien@bücher.example\",\"Ångström@bücher.example\"]" \
  user addresses erika --additional
gives .anna '["anna@example.com"]' user addresses --all

# A member out, and in again; the group out.
gives '[.removed[].name]' '["user"]' user remove 2 user --yes
gives '[.[] | [.name, .status]][0]' '["user","removed"]' group status 2 books
good refresh
good --json group restore 2 books --user user
gives '[.[].status] | unique' '["normal"]' group status 2 books
gives '[.[].name] | sort' '["erik","erika","user"]' user list 2
gives '.[0].aliases' '[{"alias":"chief","duplicated":false}]' user add 2 ben --alias chief
good group remove 2 books --yes
gives '[.[].name]' '["ben"]' user list 2

# What came into the database otherwise is shown, as text and as JSON.
sqlite3 "$database" "update domain_table set domain_desc = char(8238) || 'moc' where domain_idx = 1"
gives '.description | length' 4 domain show 1
matches "a hidden character in JSON" "$out" '"\\u202emoc"'
good domain show 1
matches "a hidden character" "$out" '<U\+202E>moc'
sqlite3 "$database" "update domain_table set domain_desc = 'a'"

# Domains: primary, rename, what is published, delete.
gives '[.id, .primary]' '[2,true]' domain primary bücher.example
gives '[.name, .description, .auto_add, .additional_names]' '["example.net","",false,["example.org"]]' \
  domain set 1 --name example.net --description '' --no-auto-add
gives . '["one.example","zwei.example"]' domain names set 1 one.example zwei.example
gives . '["zwei.example"]' domain names remove 1 ONE.example
good publish
gives '[.virtual_multiple_domain, .smtp_main_domain, ."additional_domain-1"]' \
  '["1/example.net, 2/bücher.example","bücher.example","zwei.example"]' config list
gives . '{"deleted":[1]}' domain delete zwei.example --yes
gives 'has("additional_domain-1")' false config list
gives '[.[].id]' '[2]' domain list
same "the file that all of this leaves" "$(sqlite3 "$database" \
  'PRAGMA user_version; PRAGMA integrity_check; PRAGMA foreign_key_check' | xargs)" '4 ok'

# The first domain with every group at once, and from the older settings.
new_root primary
gives '[.primary, .users]' '[true,5]' domain create example.com --primary
new_root init
gives . '{"created":false,"domain":null}' init
good config set smtp_main_domain old.example
good config set smtp_canonical_domain 'alt.example, alt.example.net'
gives '[.created, .domain.name, .domain.users, (.domain.additional_names | sort)]' \
  '[true,"old.example",5,["alt.example","alt.example.net"]]' init
new_root migrate
gives '[.name, .users, .additional_names]' '["one.example",5,["two.example"]]' \
  domain migrate one.example --name two.example
