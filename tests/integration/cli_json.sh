#!/bin/bash
# The main job through mdomain --json: fields, what each command does, both ways to name things.
# ctest-timeout: 300
. "$(dirname "$0")/../support/cli.sh"

new_root company
good --json domain create example.com --description 'Everybody "here"'
field . '{"additional_names":[],"alias_pattern":"<a>","auto_add":true,"description":"Everybody \"here\"","has_duplicates":false,"id":1,"name":"example.com","primary":true,"users":0}'
good --json domain create BÜCHER.example --no-auto-add --pattern '<4a>'
field '[.id, .name, .primary, .auto_add, .alias_pattern]' '[2,"bücher.example",false,false,"<4a>"]'
good --json domain names add 1 example.org
field . '["example.org"]'

good --json refresh
field '[.complete, .users, .groups, .deleted_users, .deleted_groups]' '[true,5,3,[],[]]'
field '.new_users' '["anna","ben","erik","erika","user"]'
field '.new_groups | sort' '["books","interns","sales"]'
good --json account users
field '[.[] | [.uid, .name]][0:2]' '[[1001,"anna"],[1002,"ben"]]'
good --json account groups --query ook
field '[.[] | [.gid, .name, .description]]' '[[2002,"books",""]]'
good --json account members books
field '[.[].name] | sort' '["erik","erika","user"]'
good --json account check
field '[.[].ok] | all' true

good --json user list example.com
field '[.[] | .name] | sort' '["anna","ben","erik","erika","user"]'
field '[.[] | select(.name == "anna")]' '[{"aliases":[{"alias":"anna","duplicated":false}],"group_controlled":true,"name":"anna","role":"normal","uid":1001}]'
good --json user list EXAMPLE.org --limit 2
field length 2

# A group in: two of its members want one alias. Names, ids and other spellings mean the same.
good --json user preview xn--bcher-kva.example --group 2002
field '[.[] | [.name, .aliases[0].alias]] | sort' '[["erik","erik"],["erika","erik"],["user","user"]]'
good --json group add xn--bcher-kva.example 2002
field '[.[].aliases[] | select(.duplicated)] | length' 1
good --json user duplicates bücher.example
field . '["erik"]'
good --json domain list
field '[.[] | [.id, .users, .has_duplicates, .additional_names]]' '[[1,5,false,["example.org"]],[2,3,true,[]]]'
good --json group list 2
field . '[{"description":"","gid":2002,"name":"books","role":"normal"}]'
good --json group members 2 books
field '[.[].uid] | sort' '[1003,1004,1005]'
good --json user find 2 ERIK
field '[.alias, .name]' '["ERIK","erik"]'

# Aliases and roles. A role that the group gives stays the group's when aliases change.
good --json user set 2 erika --alias "o'brien" --add-alias Ångström
field '[.aliases[].alias] | sort' "[\"o'brien\",\"Ångström\"]"
field '[.role, .group_controlled]' '["normal",true]'
good --json user duplicates 2
field . '[]'
good --json user find 2 "O'Brien"
field .name '"erika"'
good group set 2 books --role domain_admin
good --json user list 2 --query erik
field '[.[].role] | unique' '["domain_admin"]'
good --json user set 2 1003 --role normal
field '[.role, .group_controlled]' '["normal",false]'
good --json user set 2 1003 --role group
field '[.role, .group_controlled]' '["domain_admin",true]'
good --json user addresses erika --additional
field . "[\"erika@example.com\",\"erika@example.org\",\"o'brien@bücher.example\",\"Ångström@bücher.example\"]"
good --json user addresses --all
field '.anna' '["anna@example.com"]'

# A member out, and in again; the group out.
good --json user remove 2 user --yes
field '[.removed[].name]' '["user"]'
good --json group status 2 books
field '[.[] | [.name, .status]][0]' '["user","removed"]'
good refresh
good --json group restore 2 books --user user
good --json group status 2 books
field '[.[].status] | unique' '["normal"]'
good --json user list 2
field '[.[].name] | sort' '["erik","erika","user"]'
good --json user add 2 ben --alias chief
field '.[0].aliases' '[{"alias":"chief","duplicated":false}]'
good group remove 2 books --yes
good --json user list 2
field '[.[].name]' '["ben"]'

# Domains: primary, rename, what is published, delete.
good --json domain primary bücher.example
field '[.id, .primary]' '[2,true]'
good --json domain set 1 --name example.net --description '' --no-auto-add
field '[.name, .description, .auto_add, .additional_names]' '["example.net","",false,["example.org"]]'
good --json domain names set 1 one.example zwei.example
field . '["one.example","zwei.example"]'
good --json domain names remove 1 ONE.example
field . '["zwei.example"]'
good publish
good --json config list
field '[.virtual_multiple_domain, .smtp_main_domain, ."additional_domain-1"]' '["1/example.net, 2/bücher.example","bücher.example","zwei.example"]'
good --json domain delete zwei.example --yes
field . '{"deleted":[1]}'
good --json config list
field 'has("additional_domain-1")' false
good --json domain list
field '[.[].id]' '[2]'

# The file that all of this leaves.
same version "$(sqlite3 "$(database)" 'PRAGMA user_version')" 4
same integrity "$(sqlite3 "$(database)" 'PRAGMA integrity_check; PRAGMA foreign_key_check')" ok

# The first domain with every group at once, and from the older settings.
new_root primary
good --json domain create example.com --primary
field '[.primary, .users]' '[true,5]'
new_root init
good --json init
field . '{"created":false,"domain":null}'
good config set smtp_main_domain old.example
good config set smtp_canonical_domain 'alt.example, alt.example.net'
good --json init
field '[.created, .domain.name, .domain.users, (.domain.additional_names | sort)]' '[true,"old.example",5,["alt.example","alt.example.net"]]'
good --json init
field .created false
new_root migrate
good --json domain migrate one.example --name two.example
field '[.name, .users, .additional_names]' '["one.example",5,["two.example"]]'
good --json domain migrate uno.example --name two.example
field '[.id, .name, .additional_names]' '[1,"uno.example",["two.example"]]'
finish
