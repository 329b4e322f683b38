"""What a web server in front of mdomain-web lets through, one line for each question: web_front.py 80 asks as guests and
as grace, web_front.py header where the server in front signs people in. It waits for the server at first."""

import base64
import http.client
import ssl
import subprocess
import sys
import threading
import time

from web_person import CERTIFICATES, Person, connect


def wait():
    """Until the server answers: Caddy gets its certificate after it has begun to listen."""
    deadline = time.time() + 60
    while True:
        try:
            return Person()
        except (OSError, ssl.SSLError, http.client.HTTPException) as error:
            if time.time() > deadline:
                raise SystemExit(f"FAILED: no answer: {error}") from error
            time.sleep(0.3)


def raw(method, path, body=None, headers=()):
    """One request with headers as they are given, also several of one name."""
    connection = connect()
    connection.putrequest(method, path)
    for name, value in headers:
        connection.putheader(name, value)
    if body is not None:
        connection.putheader("Content-Length", str(len(body)))
    connection.endheaders()
    try:
        if body is not None:
            connection.send(body)
    except OSError:  # the server answered before it had read all
        pass
    answer = connection.getresponse()
    answer.text = answer.read().decode()
    return answer


FORM = ("Content-Type", "application/x-www-form-urlencoded")


def from_port_80():
    connection = http.client.HTTPConnection("mail.example.com", 80, timeout=10)
    connection.request("GET", "/domains?x=1")
    answer = connection.getresponse()
    return answer.status, answer.getheader("Location")


def guessed(count):
    """The answers to wrong passwords for many names, each said to come from another address."""
    statuses = []
    for i in range(count):
        headers = [FORM, ("X-Forwarded-For", f"192.0.2.{i}"), ("Forwarded", f"for=192.0.2.{i}"), ("X-Real-IP", f"192.0.2.{i}")]
        statuses.append(raw("POST", "/sign-in", f"name=nobody{i}&password=wrong".encode(), headers).status)
    return statuses


def while_it_restarts():
    """What people get while the program is started anew three times."""
    statuses, is_over = [], threading.Event()

    def ask():
        while not is_over.is_set():
            try:
                statuses.append(raw("GET", "/sign-in").status)
            except (OSError, http.client.HTTPException) as error:
                statuses.append(repr(error))

    threads = [threading.Thread(target=ask, daemon=True) for _ in range(4)]
    for thread in threads:
        thread.start()
    for _ in range(3):
        time.sleep(0.5)
        subprocess.run(["systemctl", "restart", "mdomain-web"], check=True)
    time.sleep(0.5)
    is_over.set()
    for thread in threads:
        thread.join()
    return len(statuses) > 20, set(statuses)


guest = wait()
if sys.argv[1] == "80":
    print("without encryption:", *from_port_80())
    print("HSTS:", guest.answer["Strict-Transport-Security"])
    print("a guest who names olivia:", raw("GET", "/", headers=[("X-Remote-User", "olivia")]).getheader("Location"))
    grace = Person("grace")
    print("grace:", grace.status, "bücher.example" in grace.page.links)
    print("her cookie:", next(iter(grace.cookies)))
    for size in (900_000, 1_500_000, 3_000_000):
        print(f"a form of {size} bytes:", raw("POST", "/sign-in", b"name=x&password=" + b"y" * (size - 16), [FORM]).status)
    print("restarted under use:", *while_it_restarts())
    print("then:", Person("grace").status)
    print("wrong passwords:", guessed(9))
else:
    basic = ("Authorization", "Basic " + base64.b64encode(b"grace:secret").decode())
    print("nobody:", raw("GET", "/", headers=[("X-Remote-User", "olivia")]).status)
    for forged in ([], [("X-Remote-User", "olivia")], [("x-remote-user", "olivia"), ("X-Remote-User", "olivia")], [("X_Remote_User", "olivia")]):
        text = raw("GET", "/", headers=[basic, *forged]).text
        print("grace, with", len(forged), "forged:", "bücher.example" in text, "example.com<" in text, "olivia" in text.lower())
    # Its program sees the page, the server in front what is below /api/.
    hidden = "/domains/2/entries/..%2f..%2f..%2fapi%2f"
    print("not grace:", raw("GET", hidden, headers=[("Authorization", "Basic " + base64.b64encode(b"grace:no").decode())]).getheader("Location"))
    print("a program:", "a token that counts" in raw("GET", "/api/v1/domains", headers=[("Authorization", "Bearer x")]).text)
