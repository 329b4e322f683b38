#!/bin/bash
# Each thing broken on purpose is found under its name; what can be repaired is, and then all is well.
. "$(dirname "$0")/lib/driver.bash"

new_root company
good domain create example.com
good refresh
good refresh
good user set example.com anna --role domain_admin
remember
good doctor
same "a company in order" "$out" "everything is in order"
unchanged "doctor"

# broken FINDING KIND COMMAND : a copy of the company, broken so.
broken() {
  rm -rf "$scratch/broken" && cp -a "$scratch/company" "$scratch/broken"
  use_root broken
  (cd "$etc" && eval "$3" >/dev/null 2>&1) || fail "$3"
  ls "$etc" >"$scratch/files"
  run --json doctor
  same "files that doctor makes after: $3" "$(ls "$etc")" "$(cat "$scratch/files")"
  same "status with $1" "$status" "$([ "$2" = error ] && echo 1 || echo 0)"
  same "what is found after: $3" "$(jq -r '[.[] | .id + " " + .kind] | unique | join(", ")' <<<"$out")" "$1 $2"
  use_root company
}
printf '[{"id":7,"name":"Greeting","enabled":true,"op":"or","disabled_for_local_recipient":false,"match_rule_list":[{"target":"sender","pattern_type":"uid","pattern":"1003"}],"exception_rule_list":[],"content_html":"<p>Bye</p>","content_txt":"Bye"}]' >"$scratch/list.json"
sed 's/1003/7777/' "$scratch/list.json" >"$scratch/strange.json"
model='sqlite3 local_DOMAIN.db' keys='sqlite3 keystore.db' settings='sqlite3 mailserver.db'
while IFS='|' read -r finding kind command; do
  broken "$finding" "$kind" "$command"
done <<END
published|error|$keys "DELETE FROM key_table WHERE name = 'virtual_multiple_domain'"
published|error|$keys "DELETE FROM key_table WHERE name IN ('smtp_main_domain', 'mailserver_domain_db')"
published|error|$keys "UPDATE key_table SET value = 'x.example' WHERE name = 'additional_domain-1'"
published|error|$keys "INSERT INTO key_table VALUES('additional_domain-7', 'virtual_domain', 'x.example')"
model|error|$model "INSERT INTO domain_user_role_table VALUES(1, 1005, 'bogus', 0)"
model|error|$model "INSERT INTO domain_to_additional_domain_table VALUES(1, 'EXAMPLE.com')"; mdomain publish
dkim|error|mkdir -p dkim.key; (umask 077; : >dkim.key/dkim.private-1)
dkim|error|mdomain config set enable_dkim_sign-1 yes
disclaimer-list|error|mdomain disclaimer set 1 "$scratch/list.json"; rm disclaimer_content/domain-1
disclaimer-list|warning|mdomain disclaimer set 1 "$scratch/strange.json"
undo|error|sqlite3 history.db "UPDATE entry_table SET state = 'undoing' WHERE id = 1"
lost-model|error|rm local_DOMAIN.db
account-source|error|mdomain config set account_type ldap --force
rights|error|chmod g+r history.db
settings-of-domains|error|$settings "DELETE FROM multi_domain_enable_table"
accounts warning, no-address|warning|$model "INSERT INTO domain_user_role_table VALUES(1, 1005, 'normal', 0); DELETE FROM domain_user_alias_table WHERE uid = 1005"
database error, model|error|$model "PRAGMA foreign_keys = OFF; INSERT INTO primary_domain_table VALUES(9)"
rights|error|chmod o+w mailserver.db
postmaster|warning|$model "UPDATE domain_user_role_table SET role = 'normal'"
copies|warning|mdomain bcc add example.com anna nobody-here@example.com
accounts|warning|sed -i '/^erik:/d' ../../../../etc/passwd
accounts|error|: >../../../../etc/group
accounts|error|truncate -s -3 ../../../../etc/group
accounts warning, flags|error|$model "INSERT INTO domain_user_alias_table VALUES(1, 1002, 'ANNA', 0)"
leftovers|warning|cp mailserver.db mailserver.db.broken
timer|warning|touch -d '3 days ago' ../../../run/postara_server/last-refresh
version|warning|$model 'PRAGMA user_version = 3'
END

# Who has what is told; a collision as it should be is none.
good user set 1 erika --add-alias x
good user set 1 ben --add-alias x
good doctor
sqlite3 "$database" "INSERT INTO domain_user_alias_table VALUES(1, 1002, 'anna', 0); UPDATE domain_user_alias_table SET is_duplicated = 1 WHERE account_alias = 'x'"
run --json doctor
field '[.[] | select(.id == "flags").text]' '["anna@example.com is that of 2 people at once: anna, ben; by the rules it is anna'"'"'s","x@example.com is flagged for everybody who has it; by the rules it is ben'"'"'s"]'
good refresh
good doctor

# A domain whose deletion was cut off behind its row is named as long as it is published.
good domain create gone.example --no-auto-add
good bcc add gone.example anna ben
sqlite3 "$database" "DELETE FROM domain_table WHERE domain_name = 'gone.example'"
run doctor
matches "what the domain left" "$out" 'domain 2 \(gone.example\) is gone and left BCC rules'
run explain anna@gone.example
matches "what is published of it" "$out" 'still take it for domain 2, which is gone'
good doctor --repair

sqlite3 "$etc/mailserver.db" "DELETE FROM multi_domain_enable_table"
sqlite3 "$etc/keystore.db" "DELETE FROM key_table WHERE name = 'virtual_multiple_domain'"
good doctor --repair
matches "what a repair says" "$out" 'everything is in order'
[ -f "$(find "$etc" -path '*/kept-*/local_DOMAIN.db' | head -n 1)" ] || fail "nothing was copied aside"

# The manual has every finding, and no other.
mdomain --json doctor --findings | jq -r '.[].id' | sort >"$scratch/findings"
grep -o '<a id="[A-Za-z-]*"' "$source_dir/docs/manual/when-something-is-wrong.md" | cut -d'"' -f2 | sort >"$scratch/anchors"
alike "findings and the manual" "$scratch/findings" "$scratch/anchors"
