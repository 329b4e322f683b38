"""Does in the pages what docs/manual/web.md tells, and prints what mailboxes have meanwhile. Everybody's password is
"secret"."""

import email
import imaplib
import smtplib
import time

from web_person import Person

BOOKS = "@xn--bcher-kva.example"


def send(to, subject):
    with smtplib.SMTP("127.0.0.1") as server:
        try:
            server.sendmail("grac" + BOOKS, [to + BOOKS], f"From: grac{BOOKS}\nTo: {to}{BOOKS}\nSubject: {subject}\n\nhello\n")
        except smtplib.SMTPRecipientsRefused as refused:
            return f"refused {refused.recipients[to + BOOKS][0]}"
    return "taken"


def inbox(login, subject):
    """The text of a mail, or None."""
    client = imaplib.IMAP4("127.0.0.1")
    client.authenticate("PLAIN", lambda _: f"\0{login}\0secret".encode())
    client.select("INBOX", readonly=True)
    numbers = client.search(None, "SUBJECT", subject)[1][0].split()
    return email.message_from_bytes(client.fetch(numbers[0], "(RFC822)")[1][0][1]).get_payload() if numbers else None


def arrives(to, login, subject):
    said = send(to, subject)
    deadline = time.time() + 20
    while said == "taken" and time.time() < deadline:
        text = inbox(login, subject)
        if text is not None:
            return f"{login} reads {' '.join(text.split())!r}"
        time.sleep(0.3)
    return said


def within_seconds(to, login, wanted):
    """Sends until the text has come into force, or after 20 s what came last."""
    begin = time.time()
    while True:
        got = arrives(to, login, f"try{time.time()}")
        if got.endswith(wanted) or time.time() > begin + 20:
            return got
        time.sleep(0.5)


print("before:", arrives("erik", "erik", "one"), "-", arrives("erika", "erika", "two"))
wrong = Person("grace", "wrong")
print("wrong password:", wrong.status, "password are wrong" in wrong.page.words)
grace = Person("grace")
print("her domains:", "bücher.example" in grace.page.links, "example.com" in grace.page.links, grace.go("/domains/1").status)
grace.go("/").choose("bücher.example").choose("People")
print("the collision:", "goes to erik" in " ".join(grace.page.words.split()))
grace.choose("erika").press("Solve the collision")
print("the plan:", "erika@bücher.example" in grace.page.words)
grace.press("Do it")
print("after:", arrives("erik", "erik", "three"), "-", arrives("erika", "erika@bücher.example", "four"))
grace.go("/").choose("bücher.example").choose("Disclaimers").choose("New disclaimer")
grace.press("Save", name="signature", match_rule_list="sender address *@bücher.example", content_txt="No offer is final.")
grace.press("Do it")
print("with the disclaimer:", within_seconds("erika", "erika", "final.'"))
grace.choose("History").press("Take back")
grace.press("Do it")
print("taken back:", within_seconds("erika", "erika", "'hello'"))
olivia = Person("olivia")
print("the administrator's domains:", "bücher.example" in olivia.page.links, "example.com" in olivia.page.links)
