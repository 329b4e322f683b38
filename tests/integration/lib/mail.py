"""Messages to and from the Postfix on port 25 of the loopback.

mail.py send SUBJECT FROM TO,.. [plain|utf8|latin|bare|both]
mail.py ask COUNT ADDRESS.. : to how many of so many RCPT TO, taking turns, each code was the answer
mail.py answers CODE ADDRESS.. : tells which are not answered so, asked again for half a minute
mail.py deliver FOLDER : sends one message to each "ADDRESS ACCOUNT.." of standard input, and tells
    which do not come to FOLDER/ACCOUNT/new, or come to others
mail.py logins : for each "PASSWORD NAME.." of standard input and each name, the subjects in the
    INBOX that one sees so by IMAP, or "refused"
mail.py recipients FOLDER SUBJECT : to whom copies in FOLDER were delivered, sorted, in one line
mail.py parts FOLDER SUBJECT : the parts of a copy as JSON by type, without empty lines, which the
    way of a message may put in
"""
import collections
import email
import email.policy
import glob
import imaplib
import json
import re
import smtplib
import sys
import time
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


def connect():
    smtp = smtplib.SMTP('127.0.0.1', 25)
    smtp.command_encoding = 'utf-8'
    smtp.ehlo()
    smtp.mail('', ['SMTPUTF8'])
    return smtp


def ask(count, *addresses):
    codes = collections.Counter()
    for start in range(0, int(count), 50):
        with connect() as smtp:
            for number in range(start, min(start + 50, int(count))):
                codes[smtp.rcpt(addresses[number % len(addresses)])[0]] += 1
    print(*(f'{code}:{times}' for code, times in sorted(codes.items())))


def recipient(address):
    try:
        with connect() as smtp:
            return str(smtp.rcpt(address)[0])
    except OSError as error:  # of smtplib, too: the server has just been told to begin anew
        return repr(error)


def answers(code, *addresses):
    # Seldom enough that a process of Postfix that still knows what was is not replaced meanwhile,
    # as it is after a hundred connections.
    end = time.monotonic() + 30
    for address in addresses:
        while (answer := recipient(address)) != code and time.monotonic() < end:
            time.sleep(.5)
        if answer != code:
            print(f'{address}: {answer}, not {code}')


def deliver(folder):
    wanted = {line.split()[0]: line.split()[1:] for line in sys.stdin}
    for address in wanted:
        send(f'to {address}', 'x@away.example', address)
    end, wrong = time.monotonic() + 60, wanted
    while wrong and time.monotonic() < end:
        found = collections.defaultdict(list)
        for path in sorted(glob.glob(f'{folder}/*/new')):
            for message in glob.glob(f'{path}/*'):
                with open(message, 'rb') as file:
                    subject = email.message_from_binary_file(
                        file, policy=email.policy.default)['Subject']
                found[subject].append(path.split('/')[-2])
        wrong = {a: found[f'to {a}'] for a in wanted if found[f'to {a}'] != wanted[a]}
        time.sleep(.1)
    for address, accounts in wrong.items():
        print(f'{address} came to: {" ".join(accounts)}')


def logins():
    for password, *names in (line.split() for line in sys.stdin):
        for name in names:
            with imaplib.IMAP4('127.0.0.1') as imap:
                try:
                    imap.authenticate('PLAIN', lambda _: f'\0{name}\0{password}'.encode())
                    imap.select('INBOX', readonly=True)
                    headers = (imap.fetch(number, '(BODY.PEEK[HEADER])')[1][0][1]
                               for number in imap.search(None, 'ALL')[1][0].split())
                    subjects = sorted(email.message_from_bytes(
                        header, policy=email.policy.default)['Subject'] for header in headers)
                    print(name, password, 'in:', *subjects)
                except imaplib.IMAP4.error:
                    print(name, password, 'refused')


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
