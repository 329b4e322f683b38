"""What the tests of mdomain-web share: browsers and programs that ask it on port 8025, or on the unix
socket that SOCKET names, and checks."""

import collections
import http.client
import json
import os
import re
import socket
import urllib.parse

failures = 0
answers = collections.Counter()  # by their status
# One that fits for each argument of the HTTP interface.
VALUES = {"domain": 1, "domains": 1, "uid": 1003, "uids": 1003, "gid": 2001, "gids": 2001, "name": "sales/x", "text": "anna", "id": 1,
          "address": "anna@example.com", "pattern": "<1a>", "key": "postmaster", "role": "normal", "names": ["x.example"],
          "from": "anna@example.com", "to": "x@away.example", "command": "two",
          "calls": [{"call": "set_domain", "arguments": {"domain": 2, "description": "x"}}], "value": "x", "json": "[]", "If-Match": "*", "copies": [{"of": "recipient", "name": "erik", "to": "anna"}]}


def same(name, got, want):
    global failures  # pylint: disable=global-statement
    if got != want:
        failures += 1
        print(f"FAILED: {name}: got {got!r}, want {want!r}", flush=True)


class OfUnixSocket(http.client.HTTPConnection):
    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(self.timeout)
        self.sock.connect(os.environ["SOCKET"])


def send(method, path, body, headers):
    """One request by a connection of its own."""
    kind = OfUnixSocket if os.environ.get("SOCKET") else http.client.HTTPConnection
    connection = kind("127.0.0.1", 8025, timeout=120)
    try:
        connection.request(method, path, body, headers)
        answer = connection.getresponse()
        answer.text = answer.read().decode()
        answers[answer.status] += 1
        return answer
    finally:
        connection.close()


class Browser:
    """Keeps cookies and the key of forms, as a browser does; follows nothing by itself."""

    def __init__(self, name=None):
        self.cookies = {}
        self.key = ""
        if name:
            answer = self.sign_in(name, "of " + name)
            same(f"sign-in of {name}", (answer.status, answer.getheader("Location")), (303, "/"))
            self.get("/tokens")

    def ask(self, method, path, fields=None, headers=None):
        headers = dict(headers or {})
        if self.cookies:
            headers["Cookie"] = "; ".join(f"{name}={value}" for name, value in self.cookies.items())
        body = None
        if fields is not None:
            body = urllib.parse.urlencode(fields, doseq=True)
            headers["Content-Type"] = "application/x-www-form-urlencoded"
        answer = send(method, path, body, headers)
        for cookie in answer.msg.get_all("Set-Cookie") or []:
            name, value = cookie.split(";")[0].split("=")
            self.cookies[name] = value
        found = re.search(r'name="form_key" value="([0-9a-f]+)"', answer.text)
        self.key = found.group(1) if found else self.key
        return answer

    def get(self, path):
        return self.ask("GET", path)

    def post(self, path, **fields):
        return self.ask("POST", path, {"form_key": self.key, **fields})

    def sign_in(self, name, password):
        return self.ask("POST", "/sign-in", {"name": name, "password": password})


class Program:
    """Asks below /api/v1 with a token that the browser's person makes."""

    def __init__(self, browser, may_change):
        fields = {"label": "test", "days": "1", **({"may_change": "1"} if may_change else {})}
        browser.get("/tokens")
        self.token = re.search(r"mdomain_[0-9a-f]{64}", browser.post("/tokens", **fields).text).group(0)

    def answer(self, method, path, body=None, **headers):
        headers = {name.replace("_", "-"): value for name, value in headers.items()}
        headers.setdefault("Authorization", "Bearer " + self.token)
        if body is not None:
            headers["Content-Type"] = "application/json"
            body = body if isinstance(body, (str, bytes)) else json.dumps(body)
        return send(method, "/api/v1" + path, body, headers)

    def ask(self, *arguments, **headers):
        answer = self.answer(*arguments, **headers)
        return answer.status, json.loads(answer.text), answer.headers


def arguments(operation):
    """(where, name, whether it is needed) of each argument of an operation."""
    for one in operation.get("parameters", []):
        yield one["in"], one["name"], one["required"]
    body = operation.get("requestBody", {}).get("content", {}).get("application/json", {}).get("schema", {})
    for name in body.get("properties", {}):
        yield "body", name, name in body.get("required", [])


def request(path, given):
    """What is asked for with these arguments: path, body, headers."""
    quoted = {name: urllib.parse.quote(str(value).encode(errors="surrogatepass"), safe="")
              for (where, name), value in given.items() if where == "path"}
    path = re.sub(r"\{(\w+)\}", lambda part: quoted[part.group(1)], path)
    query = {name: str(value).encode(errors="surrogatepass") for (where, name), value in given.items() if where == "query"}
    body = {name: value for (where, name), value in given.items() if where == "body"}
    match = [value for (where, _), value in given.items() if where == "header"]
    headers = {"If-Match": re.sub(r"[^ -~]", "?", str(match[0]))} if match else {}
    return path + ("?" + urllib.parse.urlencode(query) if query else ""), body or None, headers
