"""Does in the pages of https://mail.example.com, on this host, what docs/manual/web.md tells, by forms and links alone, and
prints what mailboxes have meanwhile. Everybody's password is "secret"."""

import email
import html.parser
import http.client
import imaplib
import smtplib
import ssl
import time
import urllib.parse

BOOKS = "@xn--bcher-kva.example"


class Page(html.parser.HTMLParser):
    """The forms of a page, by the words of their button, and its links."""

    def __init__(self, text):
        super().__init__()
        self.forms, self.links, self.words = {}, {}, ""
        self.form = self.field = self.button = self.link = None
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        at = dict(attrs)
        if tag == "form":
            self.form = (at.get("method", "get"), at["action"], {})
        elif tag == "input" and self.form and at.get("name"):
            if at.get("type") != "checkbox" or "checked" in at:
                self.form[2][at["name"]] = at.get("value", "on")
        elif tag in ("textarea", "select") and self.form:
            self.field = at["name"]
            self.form[2][self.field] = ""
        elif tag == "button":
            self.button = ""
        elif tag == "a":
            self.link = (at["href"], "")

    def handle_data(self, data):
        self.words += data
        if self.field and self.lasttag == "textarea":
            self.form[2][self.field] += data.lstrip("\n")
        if self.button is not None:
            self.button += data
        if self.link:
            self.link = (self.link[0], self.link[1] + data)

    def handle_endtag(self, tag):
        if tag == "button" and self.form:
            self.forms.setdefault(self.button.strip(), self.form)
            self.button = None
        elif tag == "form":
            self.form = None
        elif tag in ("textarea", "select"):
            self.field = None
        elif tag == "a" and self.link:
            self.links[self.link[1].strip()] = self.link[0]
            self.link = None


class Person:
    def __init__(self, name, password="secret"):
        self.cookies = {}
        self.go("/")
        self.press("Sign in", name=name, password=password)

    def ask(self, method, path, fields=None):
        context = ssl.create_default_context(cafile="/etc/ssl/certs/mail.example.com.pem")
        connection = http.client.HTTPSConnection("mail.example.com", context=context, timeout=30)
        headers = {"Cookie": "; ".join(f"{name}={value}" for name, value in self.cookies.items())}
        if fields is not None:
            headers |= {"Content-Type": "application/x-www-form-urlencoded", "Origin": "https://mail.example.com"}
        connection.request(method, path, fields and urllib.parse.urlencode(fields), headers)
        answer = connection.getresponse()
        text = answer.read().decode()
        for cookie in answer.msg.get_all("Set-Cookie") or []:
            name, value = cookie.split(";")[0].split("=", 1)
            self.cookies[name] = value
        if answer.status == 303:
            return self.ask("GET", urllib.parse.urljoin(path, answer.getheader("Location")))
        self.status, self.page = answer.status, Page(text)
        return self

    def go(self, path):
        return self.ask("GET", path)

    def choose(self, link):
        if link not in self.page.links:
            raise SystemExit(f"FAILED: no way to {link}: {self.page.words}")
        return self.go(self.page.links[link])

    def press(self, button, **fields):
        if button not in self.page.forms:
            raise SystemExit(f"FAILED: no button {button}: {self.page.words}")
        _, path, hidden = self.page.forms[button]
        return self.ask("POST", path, {**hidden, **fields})


def send(to, subject):
    with smtplib.SMTP("127.0.0.1") as server:
        try:
            server.sendmail("grace" + BOOKS, [to + BOOKS], f"From: grace{BOOKS}\nTo: {to}{BOOKS}\nSubject: {subject}\n\nhello\n")
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
