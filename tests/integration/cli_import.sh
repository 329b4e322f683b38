#!/bin/bash
# Other mail administrations as documents: real dumps of PostfixAdmin's database by three programs give
# the same one, apply takes it, and everything that it has not is told.
. "$(dirname "$0")/lib/driver.bash"
dumps=$source_dir/fuzz/corpus/sql_dump_fuzz

new_root host
mkdir -p "$MDOMAIN_ROOT/var/run/postara_server"
good refresh
sqlite3 "$scratch/database" <"$dumps/sqlite.sql"
remember
for source in "$scratch/database" "$dumps"/{sqlite,mysqldump,pg_dump}.sql; do
  good import postfixadmin "$source" --output "$scratch/model.json"
  sort <<<"$err" >"$scratch/left-out"
  [ -e "$scratch/first.json" ] || cp "$scratch/model.json" "$scratch/first.json"
  [ -e "$scratch/first" ] || cp "$scratch/left-out" "$scratch/first"
  alike "document of $source" "$scratch/first.json" "$scratch/model.json"
  alike "what $source has besides" "$scratch/first" "$scratch/left-out"
done
unchanged "import"

# From a dump: a table, a value, a line end in a text, and who gets the mail of each address.
facts() { jq -r '.domains[] | .name as $d | (.users[] | "\(.name) \(.role) \(.aliases) \(.taken)"),
  (.entries[] | "\(.name)@\($d) \(.users) \(.addresses)"), "\($d) \(.description) \(.names)"' "$@"; }
facts "$scratch/model.json" >"$scratch/facts"
diff - "$scratch/facts" <<'END' || fail "what the dump says"
anna domain_admin ["a.schmidt","anna","boss","loop1","pipe"] null
ben normal [] ["ben"]
ben@example.com ["ben"] ["ben@elsewhere.example"]
team@example.com ["anna","user"] ["x@elsewhere.example"]
example.com O'Hara; "Söhne" (1\2) ["example.org"]
user normal ["user"] null
forward@example.net null ["ben@example.com"]
ours@example.net null ["team@example.com"]
example.net  []
END
told() { # told PATTERN...
  for pattern in "$@"; do matches "what is left out" "$err" "left out: $pattern"; done
}
told 'domain old.example: it is not active' 'domain backup.example: .*backup MX' \
  'name lost.example: its domain old.example' 'quota of ben@' 'vacation answer of ben@' \
  'mailbox erik@' 'alias @example.com: there is no' 'administrator root@admin.example' \
  '"loop1@.*leads back' 'alias nobody@.*none' '"\|/usr/bin/tickets" of alias pipe@' \
  'description of example.net'
same "number of lines" "$(wc -l <"$scratch/first")" 17

# Nothing is lost on the way into the model.
good -y apply "$scratch/model.json"
good export "$scratch/again.json"
alike "export after apply of an import" "$scratch/model.json" "$scratch/again.json"
fits_schema "$scratch/model.json"
matches "a mailbox that forwards" "$(mdomain explain a.schmidt@example.org)" 'anna'

# Accounts of mailboxes, and other choices.
good import postfixadmin "$scratch/database" --account-form '%d-%u' --primary example.net --output "$scratch/model.json"
same "accounts by their form" "$(jq -c '[.domains[] | [.primary, (.users[] | .name)]]' "$scratch/model.json")" \
  '[[false,"example.com-anna","example.com-ben"],[true,"example.net-user"]]'
printf '# people\nuser@example.net anna\n' >"$scratch/people"
fails 3 'one account for several mailboxes: anna \(anna@example.com, user@example.net\)' \
  import postfixadmin "$scratch/database" --accounts "$scratch/people"
good import postfixadmin "$scratch/database" --accounts "$scratch/people" --share-accounts
same "one account in two domains" "$(jq -c '[.domains[].users[] | select(.name == "anna") | .aliases[0]]' <<<"$out")" '["a.schmidt","user"]'
sed 's/\(TABLE\|INTO\) `/&pa_/' "$dumps/mysqldump.sql" >"$scratch/prefixed.sql"
good import postfixadmin "$scratch/prefixed.sql" --table-prefix pa_

# What is refused, and in which line: a program that changes the dump.
while IFS='|' read -r regex program; do
  sed "$program" "$dumps/mysqldump.sql" >"$scratch/wrong.sql"
  fails 3 "$regex" import postfixadmin "$scratch/wrong.sql"
done <<'END'
line 2[0-9]*: the dump is cut short|/Dump completed/d
no table "mailbox"|/CREATE TABLE `mailbox`/,/;/d; /INTO `mailbox`/,/;/d
line [0-9]+: a row of 5 values for 6 columns|s/^('anna@example.com','anna@example.com',/('anna@example.com',/
line [0-9]+: a value that is neither|s/^('anna@example.com','anna@example.com',/('anna@example.com',uuid(),/
line [0-9]+: a second table "alias"|s/`alias_domain`/`alias`/
line [0-9]+: a quoted text that does not end|s/',1);$/',1);'/
line [0-9]+: rows of table "domain", whose columns|s/CREATE TABLE `domain`/CREATE TABLE `x`/
END
for line in 'a@example.com' 'a@example.com b c' 'a b'; do
  printf '\n%s\n' "$line" >"$scratch/people"
  fails 3 'people, line 2: must be' import postfixadmin "$scratch/database" --accounts "$scratch/people"
done
fails 2 '% without u or d' import postfixadmin "$scratch/database" --account-form 'x%n'
fails 4 'no domain "x.example"' import postfixadmin "$scratch/database" --primary x.example
fails 4 'No such file' import postfixadmin "$scratch/none"
while IFS='|' read -r regex program; do
  bash -c "$program" <"$dumps/mysqldump.sql" >"$scratch/wrong.sql"
  fails 3 "$regex" import postfixadmin "$scratch/wrong.sql"
done <<'END'
is compressed: gunzip|gzip
is UTF-16: convert|iconv -f utf8 -t utf16
pg_dump's own format|echo PGDMP
END
good import postfixadmin <(iconv -f utf8 -t latin1 "$dumps/mysqldump.sql")
told 'description of example.com: it is not UTF-8'

# Local accounts and aliases.
cat >"$scratch/aliases" <<'END'
# comment
postmaster: root
Root: anna
ben: \ben, ben@elsewhere.example
team:	anna, "erik",
	ben@BÜCHER.example
erik.larsen: erik+lists
list: :include:/etc/mail/list, anna, \erik
tickets: "|/usr/bin/tickets --in \"a, b\""
box: /var/mail/box
a: b
b: a
erik: "erik"
two words: anna
END
printf '\n+::::::\n' | cat "$MDOMAIN_ROOT/etc/passwd" - >"$scratch/nis"
fails 2 '^mdomain: --domain is required' import passwd-aliases "$scratch/nis" "$scratch/aliases"
good import passwd-aliases "$scratch/nis" "$scratch/aliases" --domain bücher.example
facts <<<"$out" >"$scratch/facts"
diff - "$scratch/facts" <<'END' || fail "what the aliases say"
anna normal ["Root","anna","list","postmaster"] null
ben normal [] ["ben"]
erik normal ["erik","erik.larsen"] null
erika normal ["erika"] null
user normal ["user"] null
ben@bücher.example ["ben"] ["ben@elsewhere.example"]
team@bücher.example ["anna","erik"] ["ben@bücher.example"]
bücher.example  []
END
told '2 accounts of the system' '.*nis, line 9: accounts of a directory' '":include:/etc/mail/list"' '"\|/usr/bin/tickets --in' '"/var/mail/box"' \
  '"[ab]@bücher.example" of alias .*leads back' 'alias two words'
while IFS='|' read -r regex passwd aliases; do
  printf '%b\n' "$passwd" >"$scratch/passwd"
  printf '%b\n' "$aliases" >"$scratch/aliases"
  fails 3 "$regex" import passwd-aliases "$scratch/passwd" "$scratch/aliases" --domain example.com
done <<'END'
passwd, line 2: no account|a:x:1000:1000::/:/sh\nb:x:1001|a: b
passwd, line 1: no account|a:x:-1:1000::/:/sh|a: b
aliases, line 2: no alias|a:x:1000:1000::/:/sh|a: b\nc
aliases, line 1: it continues|a:x:1000:1000::/:/sh| a: b
aliases, line 3: a quoted text|a:x:1000:1000::/:/sh|\n\nb: "|x
END
fails 2 'not a valid domain name' import passwd-aliases "$scratch/passwd" "$scratch/aliases" --domain 'a b'
