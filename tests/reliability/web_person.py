"""Somebody in front of a browser: the pages of https://mail.example.com, on this host, by forms and links alone.
CERTIFICATES names the file of the certificate that is trusted; when it is missing, the program's socket is asked."""

import html.parser
import http.client
import os
import socket
import ssl
import urllib.parse

CERTIFICATES = os.environ.get("CERTIFICATES", "/etc/ssl/certs/mail.example.com.pem")


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


class OfUnixSocket(http.client.HTTPConnection):
    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.connect("/run/mdomain-web.sock")


def connect():
    """To the web server in front, where there is one."""
    if not os.path.exists(CERTIFICATES):
        return OfUnixSocket("mail.example.com", timeout=30)
    return http.client.HTTPSConnection("mail.example.com", context=ssl.create_default_context(cafile=CERTIFICATES), timeout=30)


class Person:
    """Who signs in; without a name a guest of whom `headers` may tell more."""

    def __init__(self, name="", password="secret", **headers):
        self.cookies, self.headers = {}, {key.replace("_", "-"): value for key, value in headers.items()}
        self.go("/")
        if name:
            self.press("Sign in", name=name, password=password)

    def ask(self, method, path, fields=None):
        connection = connect()
        headers = {**self.headers, "Cookie": "; ".join(f"{name}={value}" for name, value in self.cookies.items())}
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
        self.status, self.page, self.answer = answer.status, Page(text), answer.headers
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
