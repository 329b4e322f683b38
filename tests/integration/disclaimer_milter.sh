#!/bin/bash
# Mail that goes through a Postfix that mdomain postfix configure gave the sample filter as its milter has the texts appended, each
# part its own, or arrives as it was sent.
# ctest-label: postfix mimedefang
# ctest-timeout: 300
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/postfix.bash"

new_root company
good domain create example.com
good domain create bücher.example --no-auto-add
good refresh
good user set 1 erik --alias erik --alias erik.larsen
good user add 2 erika --alias x
cat >"$scratch/one.json" <<'J'
[{"id": 1, "name": "sales outside", "enabled": true, "op": "and",
  "disabled_for_local_recipient": true,
  "match_rule_list": [{"target": "sender", "pattern_type": "gid", "pattern": 2001},
                      {"target": "recipient", "pattern_type": "email", "pattern": "*@*"}],
  "exception_rule_list": [{"target": "recipient", "pattern_type": "email", "pattern": "press@*"}],
  "content_txt": "\nSales: no offer is final.\n$Sender @Recipients `id` \\1 100%\n",
  "content_html": "<p>Sales: <b>no offer</b> &amp; no price is final.</p>"},
 {"id": 2, "name": "erik", "enabled": true, "op": "or", "exception_rule_list": [],
  "match_rule_list": [{"target": "sender", "pattern_type": "uid", "pattern": "1003"}],
  "content_txt": "\nGrüße von Erik\n", "content_html": ""},
 {"id": 3, "name": "off", "enabled": false, "op": "or", "exception_rule_list": [],
  "match_rule_list": [{"target": "sender", "pattern_type": "email", "pattern": "*"}],
  "content_txt": "never", "content_html": "never"}]
J
cat >"$scratch/two.json" <<'J'
[{"id": 1, "name": "books", "enabled": true, "op": "or", "exception_rule_list": [],
  "match_rule_list": [{"target": "recipient", "pattern_type": "email", "pattern": "*@bücher.example"}],
  "content_txt": "\nTo the book shop.\n", "content_html": ""}]
J
good disclaimer set 1 "$scratch/one.json"
good disclaimer set 2 "$scratch/two.json"
same "the filter must run" "$(mdomain config get mimedefang_enable)" yes

mkdir "$scratch/filter"
cp "$source_dir/docs/examples/disclaimer-filter.pl" "$scratch/filter/"
good disclaimer generate
printf '%s' "$out" >"$scratch/filter/disclaimers.json"
mimedefang_start 10025 "$scratch/filter/disclaimer-filter.pl"
postfix_configure away.example
postconf -c "$postfix/etc" -e 'mydestination = localhost' 'local_transport = virtual'
# With the command of the manual.
line=$(grep -o 'mdomain postfix configure .*--milter inet:.*' "$source_dir/docs/manual/disclaimers.md")
read -ra words <<<"${line#mdomain }"
good "${words[@]}" --config "$postfix/etc"
postfix_start

# mail SUBJECT FROM TO FORM FILTER WANT : a jq filter over the parts of the message that arrives.
mail() {
  mail_py send "${@:1:4}" || fail "$1 was not taken"
  wait_for "$1 to arrive" mail_py parts "$postfix/mail/all/new" "$1"
  out=$(mail_py parts "$postfix/mail/all/new" "$1")
  field "${@:5}"
}
# shellcheck disable=SC2016
sales='"hello\nSales: no offer is final.\n$Sender @Recipients `id` \\1 100%\n"'
erik='endswith("\nGrüße von Erik\n")'
mail sales anna@example.com x@away.example plain .plain "$sales"
mail upper-case BEN@Example.COM x@away.example plain .plain "$sales"
mail both anna@example.com x@away.example both .plain "$sales"
field '.html | contains("<p>hello</p>") and contains("<b>no offer</b> &amp; no price")' true
mail local anna@example.com ben@example.com plain .plain '"hello\n"'
mail local-and-outside anna@example.com ben@example.com,x@away.example plain .plain "$sales"
mail excepted anna@example.com press@away.example both \
  '[.plain, (.html | contains("Sales"))]' '["hello\n",false]'
mail other-domain anna@away.example x@away.example plain .plain '"hello\n"'
mail alias erik.larsen@example.com ben@example.com utf8 .plain '"größer\nGrüße von Erik\n"'
for form in plain bare latin; do
  mail "alias-$form" erik@example.com ben@example.com "$form" ".plain | $erik" true
done
mail books ben@away.example x@xn--bcher-kva.example plain .plain '"hello\nTo the book shop.\n"'
mail bounce '' ben@example.com plain .plain '"hello\n"'
postfix_stop
