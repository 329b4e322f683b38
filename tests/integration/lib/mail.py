"""Messages to and from the Postfix on port 25 of the loopback.

mail.py send SUBJECT FROM TO,.. [plain|utf8|latin|bare|both]
mail.py ask COUNT ADDRESS.. : to how many of so many RCPT TO, taking turns, each code was the answer
mail.py accounts FOLDER SUBJECT : whose FOLDER/ACCOUNT/new has a copy, sorted, in one line
mail.py recipients FOLDER SUBJECT : to whom copies in FOLDER were delivered, sorted, in one line
mail.py parts FOLDER SUBJECT : the parts of a copy as JSON by type, without empty lines, which the
    way of a message may put in
"""
import collections
import email
import email.policy
import glob
import json
import re
import smtplib
import sys
from email.message import EmailMessage


def send(subject, sender, recipients, form='plain'):
    message = EmailMessage()
    message['Subject'] = subject
    if form in ('utf8', 'latin'):
        message.set_content('größer\n', charset={'utf8': 'utf-8', 'latin': 'iso-8859-1'}[form],
                            cte={'utf8': '8bit', 'latin': 'quoted-printable'}[form])
    elif form == 'bare':
        message.set_payload('hello\n')
    else:
        message.set_content('hello\n', charset='us-ascii')
    if form == 'both':
        message.add_alternative('<html><body><p>hello</p></body></html>', subtype='html')
    options = ['BODY=8BITMIME'] + ['SMTPUTF8'] * (not (sender + recipients).isascii())
    with smtplib.SMTP('127.0.0.1', 25) as smtp:
        smtp.sendmail(sender, recipients.split(','), message.as_bytes(), options)


def ask(count, *addresses):
    codes = collections.Counter()
    for start in range(0, int(count), 50):
        with smtplib.SMTP('127.0.0.1', 25) as smtp:
            smtp.ehlo()
            smtp.command_encoding = "utf-8"
            smtp.mail("", ["SMTPUTF8"])
            for number in range(start, min(start + 50, int(count))):
                codes[smtp.rcpt(addresses[number % len(addresses)])[0]] += 1
    print(*(f'{code}:{times}' for code, times in sorted(codes.items())))


def accounts(folder, subject):
    print(*sorted(path.split('/')[-2] for path in glob.glob(f'{folder}/*/new')
                  for _ in copies(path, subject)))


def copies(folder, subject):
    for path in glob.glob(f'{folder}/*'):
        with open(path, 'rb') as file:
            message = email.message_from_binary_file(file, policy=email.policy.default)
        if message['Subject'] == subject:
            yield message


def recipients(folder, subject):
    print(*sorted(message['Delivered-To'] for message in copies(folder, subject)))


def parts(folder, subject):
    message = next(copies(folder, subject))
    print(json.dumps({
        part.get_content_subtype(): re.sub(r'[\r\n]+', '\n', part.get_payload(decode=True).decode(
            part.get_content_charset('ascii')))
        for part in message.walk() if not part.is_multipart()}))


globals()[sys.argv[1]](*sys.argv[2:])
