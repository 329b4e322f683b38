#!/bin/bash
# Mail that goes through a Postfix with the sample filter as its milter has the texts appended, each
# part its own, or arrives as it was sent.
# ctest-label: postfix mimedefang
# ctest-timeout: 300
here=$(dirname "$0")
[ "$(id -u)" -eq 0 ] || { echo "needs root" && exit 1; }
. "$here/lib/private.bash"
. "$here/../support/cli.sh" || exit 1
. "$here/lib/postfix.bash"
. "$here/lib/mimedefang.bash"

new_root company
good domain create example.com
good domain create bücher.example --no-auto-add
good refresh
good user set 1 erik --alias erik --alias erik.larsen
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
cp "$here/../../docs/examples/disclaimer-filter.pl" "$scratch/filter/"
good disclaimer generate
printf '%s' "$out" >"$scratch/filter/disclaimers.json"
mimedefang_start "$scratch/md" 10025 "$scratch/filter/disclaimer-filter.pl" || exit 1
postfix_configure "$scratch/postfix" "example.com, bücher.example, xn--bcher-kva.example, away.example" \
  "smtpd_milters = inet:127.0.0.1:10025
milter_default_action = tempfail"
postfix_start "$scratch/postfix" || exit 1

cat >"$scratch/send.py" <<'P'
"""send.py SUBJECT FROM TO,.. plain|utf8|latin|bare|both"""
import smtplib
import sys
from email.message import EmailMessage

subject, sender, recipients, form = sys.argv[1:]
message = EmailMessage()
message['Subject'] = subject
message['From'] = sender or 'MAILER-DAEMON@away.example'
if form in ('utf8', 'latin'):
    message.set_content('größer\n', charset={'utf8': 'utf-8', 'latin': 'iso-8859-1'}[form],
                        cte={'utf8': '8bit', 'latin': 'quoted-printable'}[form])
elif form == 'bare':
    message.set_payload('hello\n')
else:
    message.set_content('hello\n', charset='us-ascii')
if form == 'both':
    message.add_alternative('<html><body><p>hello</p></body></html>', subtype='html')
with smtplib.SMTP('127.0.0.1', 25) as smtp:
    smtp.sendmail(sender, recipients.split(','), message.as_bytes(), ['BODY=8BITMIME'])
P
cat >"$scratch/texts.py" <<'P'
"""texts.py FOLDER SUBJECT : the parts of the message that was delivered, as JSON by type.

How many empty lines the way of the message puts in is nobody's promise: they are left out.
"""
import email
import email.policy
import glob
import json
import re
import sys

for path in glob.glob(sys.argv[1] + '/*'):
    with open(path, 'rb') as file:
        message = email.message_from_binary_file(file, policy=email.policy.default)
    if message['Subject'] == sys.argv[2]:
        print(json.dumps({part.get_content_subtype():
                          re.sub(r'[\r\n]+', '\n', 
                              part.get_payload(decode=True).decode(part.get_content_charset('ascii')))
                          for part in message.walk() if not part.is_multipart()}))
        break
P
# mail SUBJECT FROM TO FORM : sends it and waits; its parts are in $out.
mail() {
  python3 "$scratch/send.py" "$@" || fail "$1 was not taken"
  for _ in $(seq 100); do
    out=$(python3 "$scratch/texts.py" "$scratch/postfix/mail/all/new" "$1" 2>&1)
    [ -z "$out" ] || return 0
    sleep .1
  done
  fail "$1 did not arrive"
}
# shellcheck disable=SC2016
sales='\nSales: no offer is final.\n$Sender @Recipients `id` \\1 100%\n'

mail sales anna@example.com x@away.example plain
field .plain "\"hello$sales\""
mail upper-case BEN@Example.COM x@away.example plain
field .plain "\"hello$sales\""
mail both anna@example.com x@away.example both
field .plain "\"hello$sales\""
field '.html | contains("<p>hello</p>") and contains("<b>no offer</b> &amp; no price")' true
mail local anna@example.com ben@example.com plain
field .plain '"hello\n"'
mail local-and-outside anna@example.com ben@example.com,x@away.example plain
field .plain "\"hello$sales\""
mail excepted anna@example.com press@away.example both
field '.plain, (.html | contains("Sales"))' $'"hello\\n"\nfalse'
mail other-domain anna@away.example x@away.example plain
field .plain '"hello\n"'
mail alias erik.larsen@example.com ben@example.com utf8
field .plain '"größer\nGrüße von Erik\n"'
for form in plain bare latin; do
  mail "alias-$form" erik@example.com ben@example.com $form
  field '.plain | endswith("\nGrüße von Erik\n")' true
done
mail books ben@away.example x@xn--bcher-kva.example plain
field .plain '"hello\nTo the book shop.\n"'
mail bounce '' ben@example.com plain
field .plain '"hello\n"'

problems=$(grep -E 'warning|error|fatal|panic' "$scratch/postfix/log/maillog")
same "the log of Postfix" "$problems" ""
postfix_stop "$scratch/postfix"
finish
