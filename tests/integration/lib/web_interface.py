"""Asks mdomain-web on port 8025: web_interface.py SCRATCH SOURCE. anna administers example.com (1), ben is in
the host's group of administrators, erik has no rights, erika's account has ended."""

import concurrent.futures
import contextlib
import copy
import fcntl
import html
import json
import os
import re
import socket
import sqlite3
import subprocess
import sys
import time
import urllib.parse

import jsonschema

import web_client
from web_client import VALUES, Browser, arguments, request, same, send

SCRATCH, SOURCE = sys.argv[1:3]


def check_sign_in():
    nobody = Browser()
    same("without a cookie", (nobody.get("/").status, nobody.get("/domains/1").getheader("Location")), (303, "/sign-in"))
    for name, password in (("anna", "of ben"), ("anna", ""), ("nobody", "x"), ("", "x"), ("erika", "of erika"),
                           ("anna\0", "of anna"), ("a" * 300, "x"), ("ben", "b" * 2000)):
        answer = nobody.sign_in(name, password)
        same(f"sign-in of {name[:9]!r}", (answer.status in (403, 429), nobody.cookies), (True, {}))
    # By now the address waits as well as a name that was tried often.
    same("after many tries", nobody.sign_in("ghost", "x").status, 429)
    time.sleep(9)
    anna = Browser("anna")
    cookie = anna.ask("POST", "/sign-in", {"name": "anna", "password": "of anna"}).getheader("Set-Cookie")
    same("cookie", re.sub("[0-9a-f]{64}", "KEY", cookie), "mdomain=KEY; Path=/; HttpOnly; SameSite=Strict")
    anna.get("/")
    old = dict(anna.cookies)
    same("signing out", anna.post("/sign-out").getheader("Location"), "/sign-in")
    anna.cookies = old
    same("after signing out", anna.get("/").status, 303)


def check_forms(anna):
    """A form counts from the page alone, shows what it would change, and changes it once confirmed."""
    path = "/domains/1/people/1003"
    for name, answer in {
        "without the key": anna.ask("POST", path, {"aliases": "erik\nboss"}),
        "with another key": anna.ask("POST", path, {"aliases": "x", "form_key": "0" * 64}),
        "from another site": anna.ask("POST", path, {"form_key": anna.key}, {"Sec-Fetch-Site": "cross-site"}),
    }.items():
        same(name, answer.status, 403)
    version = re.search(r'name="version" value="([0-9a-f]*)"', anna.get(path).text).group(1)
    fields = {"aliases": "erik\nboss", "version": version, "role": ""}
    plan = anna.post(path, **fields)
    same("the plan", (plan.status, "boss@example.com" in plan.text), (200, True))
    same("nothing yet", "boss" in anna.get(path).text, False)
    hidden = {name: html.unescape(value) for name, value in re.findall(r'name="([a-z_]+)" value="([^"]*)"', plan.text)}
    done = anna.post(path, **hidden)
    same("confirmed", (done.status, done.getheader("Location")), (303, path))
    same("the change", "boss" in anna.get(path).text, True)
    same("the old version", anna.post(path, **fields).status, 412)
    # The tool, and another browser, between the plan and its confirmation.
    ben = Browser("ben")
    for name, change in {"the tool": lambda: subprocess.run(["mdomain", "user", "set", "1", "erik", "--add-alias", "meanwhile"], check=True, stdout=subprocess.DEVNULL),
                         "another": lambda: ben.post(path, add_aliases="again", confirmed="1")}.items():
        fields["version"] = re.search(r'name="version" value="([0-9a-f]*)"', anna.get(path).text).group(1)
        same(f"a plan before {name}", anna.post(path, **fields).status, 200)
        change()
        late = anna.post(path, **fields, confirmed="1")
        same(f"{name} meanwhile", (late.status, "was changed meanwhile" in late.text), (412, True))
    same("nothing lost", ["meanwhile" in anna.get(path).text, "again" in anna.get(path).text], [True, True])
    for person, path, verb, change in (
            (anna, "/domains/1/entries/sales%2Fx", "delete", "alias set 1 sales/x --user erik"),
            (anna, "/domains/1/people/1004", "remove", "user set 1 erika --add-alias late"),
            (ben, "/domains/2", "delete", "user set 2 erik --add-alias late")):
        form = re.search(f'action="{path}/{verb}">(.*?)</form>', person.get(path).text, re.DOTALL).group(1)
        old = {name: html.unescape(value) for name, value in re.findall(r'name="([a-z_]+)" value="([^"]*)"', form)}
        plan = person.post(f"{path}/{verb}", **old).status
        subprocess.run(["mdomain", *change.split()], check=True, stdout=subprocess.DEVNULL)
        late = person.post(f"{path}/{verb}", **old, confirmed="1")
        same(f"{verb} {path}, changed meanwhile", (plan, late.status, "Do it all the same" in late.text, person.get(path).status),
             (200, 412, True, 200))
        subprocess.run(["mdomain", "undo", "--yes"], check=True, stdout=subprocess.DEVNULL)
    for description, status in (("<script>alert(1)</script>\u202egnp", 400), ("<script>alert(1)</script>", 303)):
        answer = anna.post("/domains/1", description=description, pattern="<a>", adds_accounts="1", confirmed="1")
        same("a description", answer.status, status)
    again = anna.post("/domains/1", description="text", pattern="none", confirmed="1").text
    same("what was typed", 'name="description" value="text"' in again, True)
    page = anna.get("/domains/1").text
    same("markup", ("<script>alert" in page, "&lt;script&gt;" in page), (False, True))


ALLOWED = {200, 303}


def check_rights(people):
    """Every route, by everybody, with what is theirs and what is another's."""
    routes = [line.split() for line in open(SCRATCH + "/routes").read().splitlines()]
    own = {"domain": "1", "uid": "1003", "gid": "2001", "name": "sales%2Fx", "id": "999"}
    others = {**own, "domain": "2", "uid": "1004", "gid": "2002"}
    for name, browser in people.items():
        for method, route in routes:
            for parts in (own, others):
                path = re.sub(r"\{(\w+)\}", lambda part, parts=parts: parts[part.group(1)], route)
                if method == "POST":
                    answer = browser.post(path) if path != "/tokens" else browser.get(path)
                else:
                    answer = browser.get(path)
                case = f"{name}: {method} {path}"
                same(case + ", failed", answer.status >= 500, False)
                secret = "bücher" in answer.text or "xn--" in answer.text
                if name == "nobody":
                    same(case, answer.getheader("Location"), "/sign-in")
                elif name == "erik" and "{domain}" in route:
                    same(case, answer.status in ALLOWED or secret, False)
                elif name == "anna" and parts is others and "{domain}" in route:
                    same(case, answer.status in ALLOWED or secret, False)
                elif name == "ben" and method == "GET" and parts is own and "{id}" not in route:
                    same(case, answer.status in ALLOWED, True)
    same("of host alone", [people["anna"].post("/domains/new", name="x.example").status,
                           people["anna"].post("/refresh").status,
                           people["erik"].post("/refresh", confirmed="1").status], [403, 403, 403])


class Program(web_client.Program):
    """Whose every answer is what the document says of it."""

    document = None

    def ask(self, method, path, *body, **headers):
        status, answer, sent = super().ask(method, path, *body, **headers)
        self.validate(method, path.split("?")[0], status, answer)
        return status, answer, sent

    def validate(self, method, path, status, answer):
        if path == "/openapi.json":
            Program.document = answer
            return
        for known, methods in self.document["paths"].items():
            operation = methods.get(method.lower())
            if status == 200 and operation and re.fullmatch(re.sub(r"\{\w+\}", "[^/]+", known), path):
                schema = operation["responses"]["200"]["content"]["application/json"]["schema"]
                break
        else:
            schema = {"$ref": "#/components/schemas/Problem"}
        try:
            jsonschema.Draft202012Validator({**schema, "components": self.document["components"]}).validate(answer)
        except jsonschema.ValidationError as error:
            same(f"{method} {path}: {status}", error.message, "")


DISCLAIMER = json.dumps({"id": 1, "name": "d", "enabled": True, "op": "or", "match_rule_list": [
    {"target": "sender", "pattern_type": "email", "pattern": "*@example.com"}]})


def check_wholes(anna, host, document):
    """Several operations as one, and the whole model: all or nothing, and never over what nobody has read."""
    def together(program, *calls, dry_run=False):
        body = {"command": "two at once", "calls": [{"call": call, "arguments": arguments} for call, arguments in calls]}
        return program.ask("POST", "/together" + ("?dry_run=true" if dry_run else ""), body)
    def etags():
        return host.ask("GET", "/domains/1")[2]["ETag"], host.ask("GET", "/domains/1/users/1003")[2]["ETag"]
    renamed = "set_domain", {"domain": 1, "description": "both"}
    called = "set_user", {"domain": 1, "uid": 1003, "add_aliases": ["both"]}
    model, before = host.ask("GET", "/model")[1]["value"], etags()
    for name, (status, answer, _), want in (
        ("another's domain", together(anna, renamed, ("set_domain", {"domain": 2, "description": "x"})), 404),
        ("not hers", together(anna, renamed, ("publish", {})), 403),
        ("an alias that is none", together(anna, renamed, ("set_user", {**called[1], "add_aliases": ["a b"]})), 400),
        ("changed meanwhile", together(anna, renamed, ("set_user", {**called[1], "version": "0"})), 412),
        ("a whole without a version", together(anna, renamed, ("set_names", {"domain": 1, "names": []})), 428),
        ("no version", together(host, renamed, ("set_names", {"domain": 1, "names": [], "version": ""})), 412),
        ("what only reads", together(host, renamed, ("export", {})), 400),
        ("no operation", together(anna, ("Session", {})), 400),
        ("a name alone", anna.ask("POST", "/together", {"command": "x", "calls": ["domains"]}), 400),
        ("one within another", together(anna, ("together", {"command": "x", "calls": []})), 400),
        ("a dry run within", together(anna, (called[0], {**called[1], "dry_run": True})), 400),
        ("a long name", anna.ask("POST", "/together", {"command": "x" * 1001, "calls": []}), 400),
        ("calls that are none", anna.ask("POST", "/together", {"command": "x", "calls": "publish"}), 400),
        ("calls of numbers", anna.ask("POST", "/together", {"command": "x", "calls": [1]}), 400),
        ("a model without a version", host.ask("PUT", "/model", {"json": "{}"}), 428),
        ("another version", host.ask("PUT", "/model", {"json": model["json"]}, If_Match='"0"'), 412),
        ("no model", host.ask("PUT", "/model", {"json": "{}"}, If_Match="*"), 400),
        ("nobody of the mirror", host.ask("PUT", "/model", {"json": model["json"].replace('"removed": []', '"removed": ["nobody"]')}, If_Match="*"), 404),
        ("hers to read", anna.ask("GET", "/model"), 403),
        ("hers to write", anna.ask("PUT", "/model", {"json": model["json"]}, If_Match="*"), 403),
    ):
        same(name, (status, answer.get("status"), etags()), (want, want, before))
    plan = together(anna, renamed, called, dry_run=True)[1]["value"]
    same("a plan of several", (len(plan["changes"]), etags()), (2, before))
    status, answer, _ = together(anna, renamed, called)
    same("several", (status, [value.get("description") for value in answer["value"]]), (200, ["both", None]))
    same("as one", host.ask("GET", "/history?page_size=1")[1]["value"]["items"][0]["command"], "two at once")
    etag = host.ask("GET", "/model")[2]["ETag"]
    plan = host.ask("PUT", "/model?dry_run=true", {"json": model["json"]}, If_Match=etag)[1]["value"]
    same("a plan of the model", len(plan["changes"]), 2)
    same("the model again", host.ask("PUT", "/model", {"json": model["json"]}, If_Match=etag)[0], 200)
    same("as before", (host.ask("GET", "/model")[1]["value"]["version"], etags()), (model["version"], before))
    for program, path, names in ((anna, "/accounts?text=ER&page_size=1", ["erik"]), (anna, "/accounts?gid=2002&text=eri", ["erik", "erika"]),
                                 (anna, "/groups?text=sal", ["sales"])):
        page = program.ask("GET", path)[1]["value"]
        same(path, [account["name"] for account in page["items"]], names)
    known = {method["operationId"] for methods in document["paths"].values() for method in methods.values()}
    same("what sessions do", sorted(set(session_calls()) - known), ["find_domain", "history"])


def session_calls():
    """The names of all calls of the library, and of "together", from their table."""
    text = open(SOURCE + "/lib-domain/session/json_calls.cpp").read()
    return re.findall(r'^ {6}\{"(\w+)",', text, re.MULTILINE) + ["together"]


def check_api(people):
    anna, reader, host = Program(people["anna"], True), Program(people["anna"], False), Program(people["ben"], True)
    document = anna.ask("GET", "/openapi.json", Authorization="")[1]
    values = {"domain": "1", "uid": "1003", "gid": "2001", "name": "sales%2fx", "text": "anna", "address": "anna@example.com",
              "id": "1", "pattern": "<1a>", "from": "", "to": "x@away.example", "key": "postmaster", "json": urllib.parse.quote(DISCLAIMER)}
    for path, methods in document["paths"].items():
        operation = methods.get("get")
        if operation is None:
            continue
        wanted = [one["name"] for one in operation.get("parameters", []) if one["required"] and one["in"] == "query"]
        asked = re.sub(r"\{(\w+)\}", lambda part: values[part.group(1)], path)
        asked += "?" + "&".join(f"{name}={values[name]}" for name in wanted) if wanted else ""
        status = host.ask("GET", asked)[0]
        same("status of " + asked, status, 200)
    user, patch = "/domains/1/users/1003", {"add_aliases": ["chief"]}
    etag = anna.ask("GET", user)[2]["ETag"]
    for name, (status, answer, _), want in (
        ("no token", anna.ask("GET", "/domains", Authorization=""), 401),
        ("a wrong token", anna.ask("GET", "/domains", Authorization="Bearer mdomain_" + "0" * 64), 401),
        ("who may read only", reader.ask("PATCH", user, patch), 403),
        ("another domain", anna.ask("GET", "/domains/2"), 404),
        ("another domain's user", anna.ask("GET", "/domains/2/users/1004"), 404),
        ("a user who is not there", anna.ask("GET", "/domains/1/users/9999"), 404),
        ("no path", anna.ask("GET", "/nothing"), 404),
        ("no method", anna.ask("PUT", "/domains"), 405),
        ("a number that is none", anna.ask("GET", "/domains/one"), 400),
        ("a parameter that is none", anna.ask("GET", "/domains?x=1"), 400),
        ("a member that is none", anna.ask("PATCH", user, {"x": 1}), 400),
        ("no JSON", anna.ask("PATCH", user, "{"), 400),
        ("deep JSON", anna.ask("PATCH", user, "[" * 100000), 400),
        ("no object", anna.ask("PATCH", user, "[]"), 400),
        ("not hers", anna.ask("DELETE", "/domains/1", If_Match="*"), 403),
        ("a deletion without a version", anna.ask("DELETE", user), 428),
        ("of what was changed meanwhile", anna.ask("DELETE", user, If_Match='"0"'), 412),
        ("of a domain that was", host.ask("DELETE", "/domains/2", If_Match='"0"'), 412),
        ("of several by one version", anna.ask("DELETE", "/domains/1/users/1003,1004", If_Match=etag), 400),
        ("a name that is none", host.ask("POST", "/domains", {"name": "no domain"}), 400),
        ("a taken name", host.ask("POST", "/domains", {"name": "example.com"}), 409),
        ("a whole without a version", anna.ask("PUT", "/domains/1/disclaimers", {"json": "[]"}), 428),
        ("all aliases without one", anna.ask("PATCH", user, {"aliases": ["erik"]}), 428),
        ("changed meanwhile", anna.ask("PATCH", user, patch, If_Match='"0"'), 412),
    ):
        same(name, (status, answer.get("status")), (want, want))
    check_wholes(anna, host, document)
    status, plan, _ = anna.ask("PATCH", user + "?dry_run=true", patch)
    same("a plan", (status, [one.get("alias") for one in plan["value"]["changes"]]), (200, ["chief"]))
    same("which changed nothing", anna.ask("GET", user)[2]["ETag"], etag)
    status, _, headers = anna.ask("PATCH", user, patch, If_Match=etag)
    same("a change", (status, headers["ETag"] != etag), (200, True))
    status, page, _ = host.ask("GET", "/domains?page_size=1")
    last = host.ask("GET", "/domains?page_size=1&cursor=" + page["next"])[1]
    same("pages of a list", [page["total"], page["value"][0]["idx"], last["value"][0]["idx"], last["next"]], [2, 1, 2, ""])
    status, changed, _ = host.ask("PUT", "/settings/postmaster", {"value": "anna"})
    same("a setting", (status, changed["value"]["setting"]["value"]), (200, "anna"))
    same("a refresh", host.ask("POST", "/refresh")[1]["value"]["is_complete"], True)
    page = people["anna"].get("/tokens").text
    for path in re.findall(r'/tokens/\d+/revoke', page):
        people["anna"].post(path)
    same("revoked", anna.ask("GET", "/domains")[0], 401)


def check_languages(anna):
    """Who asks for German reads German, whoever asks for what there is not reads English."""
    for accepted, wanted in (("de-AT,en;q=0.5", "de"), ("fr, de;q=0.7, en;q=0.3", "de"), ("en-GB,de;q=0.9", "en"), ("fr", "en"),
                             ("", "en"), ("de;q=x", "en"), ("," * 5000, "en")):
        page = anna.ask("GET", "/domains/1/people", headers={"Accept-Language": accepted}).text
        same(f"read by {accepted[:9]!r}", (re.search('lang="(..)"', page).group(1), "Personen" in page), (wanted, wanted == "de"))


def check_pages(anna, ben):
    """What pages show beside lists: filters, a preview, what is published, how a refresh went."""
    anna.get("/")
    rules = "sender address *@example.com"
    preview = anna.post("/domains/1/disclaimers/preview", name="<b>", match_rule_list=rules,
                        content_txt="No offer.", content_html="<i>No</i>\"offer").text
    same("a preview", [text in preview for text in ("mail from 5 people", "<bdi>anna</bdi>", "&lt;i&gt;No&lt;/i&gt;&quot;offer", "<i>")],
         [True, True, True, False])
    same("of nonsense", "This line is none" in anna.post("/domains/1/disclaimers/preview", match_rule_list="x").text, True)
    for query, wanted in (("", 5), ("collides=1", 0), ("drifts=1", 0), ("by_group=1", 4), ("gid=2001", 2), ("own_role=1&gid=2001", 1)):
        page = anna.get("/domains/1/people?" + query).text
        same(f"people with {query!r}", page.count('<th scope="row">'), wanted)
    for path in ("/doctor?domain=", "/history?domain="):
        same(path, [anna.get(path + domain).status for domain in ("1", "2", "x", "")], [200, 404, 404, 404])
    changes = ben.get("/history?domain=2").text
    same("changes of a domain", [text in changes for text in ("group add", "alias create example.com")], [True, False])
    picture = anna.get("/domains/1/picture").text
    same("the picture", [text in picture for text in (">sales<", "anna@example.com")], [True, True])
    same("for the host alone", [anna.get("/published").status, anna.get("/refresh").status], [403, 403])
    page = ben.get("/published").text
    same("what is published", "smtp_main_domain" in page and "All of it is as the domains are now" in page, True)
    ben.get("/refresh")
    same("a refresh begins", ben.post("/refresh", confirmed="1").getheader("Location"), "/refresh")
    while "under way" in (page := ben.get("/refresh").text):
        time.sleep(0.2)
    same("and ends", "The last one ended" in page, True)


def check_operations(people):
    """Every operation, by everybody, with what is theirs and another's; changes as dry runs."""
    programs = {name: Program(people[name], True) for name in ("anna", "ben", "erik")}
    programs["reader"], programs["expired"] = Program(people["ben"], False), Program(people["ben"], True)
    with contextlib.closing(sqlite3.connect(SCRATCH + "/tokens.db")) as tokens, tokens:
        tokens.execute("UPDATE token SET ends = 1 WHERE id = (SELECT max(id) FROM token)")
    programs["nobody"], programs["wrong"] = copy.copy(programs["ben"]), copy.copy(programs["ben"])
    programs["nobody"].token, programs["wrong"].token = "", "mdomain_" + "0" * 64
    document = programs["ben"].ask("GET", "/openapi.json")[1]
    for path, methods in document["paths"].items():
        for method, operation in methods.items():
            given = {(where, name): VALUES[name] for where, name, is_needed in arguments(operation) if is_needed}
            others = {key: 2 if key[1] in ("domain", "domains") else value for key, value in given.items()}
            for name, program in programs.items():
                asked, body, headers = request(path, {**(others if name == "anna" else given),
                                                      **({("query", "dry_run"): "true"} if method != "get" else {})})
                answer = program.answer(method.upper(), asked, body, **headers)
                case = f"{name}: {method} {path}"
                same(case + ", failed", answer.status >= 500, False)
                if name in ("nobody", "wrong", "expired"):
                    same(case, answer.status, 401)
                elif name == "reader" and method != "get":
                    same(case, answer.status, 403)
                elif name in ("anna", "erik"):
                    is_own = name == "erik" and path.endswith("/own")
                    same(case, ("bücher" in answer.text and not is_own, answer.status == 200 and (
                        "{domain" in path or method != "get")), (False, False))


def check_tokens(people):
    """A store that cannot be written, and more tokens than one may have."""
    erik, store = people["erik"], SCRATCH + "/tokens.db"
    count = lambda: len(re.findall(r"/tokens/\d+/revoke", erik.get("/tokens").text))
    before = count()
    with contextlib.closing(sqlite3.connect(store, isolation_level=None)) as tokens:
        tokens.execute("BEGIN EXCLUSIVE")
        answer = erik.post("/tokens", label="x", days="1")
        same("a store that is locked", (answer.status, "went wrong here" in answer.text, "mdomain_" in answer.text), (500, True, False))
        tokens.execute("ROLLBACK")
    same("nothing half", count(), before)
    statuses = [erik.post("/tokens", label="x", days="1").status for _ in range(51 - before)]
    same("the 51st token", (statuses[-2:], count()), ([200, 400], 50))


def check_turns(people):
    """While a program of one person waits with much at once, others are answered; the rest is refused."""
    ben = Program(people["ben"], True)
    with concurrent.futures.ThreadPoolExecutor(40) as many:
        with open(os.environ["MDOMAIN_ROOT"] + "/var/run/postara_server/mdomain.lock", "a", encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            asked = [many.submit(ben.answer, "PATCH", "/domains/1", {"description": f"x{at}"}) for at in range(40)]
            done = next((done for done in (concurrent.futures.wait(asked, 0.1).done for _ in range(100)) if len(done) >= 8), ())
            same("too many", [(one.result().status, one.result().getheader("Retry-After")) for one in done], [(503, "1")] * 8)
            same("anna meanwhile", people["anna"].get("/domains/1").status, 200)
        same("the others", sorted(one.result().status for one in asked), [200] * 32 + [503] * 8)


def check_requests(people):
    """What is unusual, and right."""
    ben, anna = Program(people["ben"], True), people["anna"]
    begin = time.monotonic()
    with socket.create_connection(("127.0.0.1", 8025), timeout=60) as connection:
        connection.sendall(f"POST /api/v1/publish HTTP/1.1\r\nAuthorization: Bearer {ben.token}\r\n\r\n".encode())
        same("no body and no length", (connection.recv(12), time.monotonic() - begin < 10), (b"HTTP/1.1 200", True))
    big = {"name": "big", "match_rule_list": "sender address *@example.com", "content_txt": "ä" * 20000}
    chunks = {"Content-Type": "application/json", "Authorization": "Bearer " + ben.token}
    for name, answer, want in (
        ("a long text", anna.post("/domains/1/disclaimers/new", **big), 200),
        ("a number that is none", anna.post("/domains/1/disclaimers/new", name="x", match_rule_list="sender user " + "9" * 30), 404),
        ("too much", anna.post("/domains/1", description="x" * 1100000), 413),
        ("too much in chunks", send("POST", "/api/v1/publish", iter([b"x" * 65536] * 20), chunks), 413),
        ("several parts", send("POST", "/sign-in", "--x--", {"Content-Type": "multipart/form-data; boundary=x"}), 415),
        ("the head alone", send("HEAD", "/static/style.css", None, {}), 200),
        ("a path that is too long", send("GET", "/api/v1/" + "a" * 3000, None, {}), 414),
        ("a method that is none", ben.answer("PUT", "/domains"), 405),
        ("no version to match", ben.answer("POST", "/publish", None, If_Match='"x"'), 400),
        ("an empty version", ben.answer("PATCH", "/domains/1", {"description": "x"}, If_Match='""'), 412),
    ):
        same(name, answer.status, want)
        if "/api/" in name or want in (400, 405, 412, 414):
            same(name + ": type", (answer.headers["Content-Type"], json.loads(answer.text)["status"]), ("application/problem+json", want))
    same("methods that are some", ben.answer("PUT", "/domains").headers["Allow"], "GET, POST")
    with concurrent.futures.ThreadPoolExecutor(30) as pool:
        tried = list(pool.map(lambda at: send("POST", "/sign-in", f"name=ghost2&password={at}", {
            "Content-Type": "application/x-www-form-urlencoded", "X-Forwarded-For": f"192.0.2.{at}"}).status, range(30)))
        both = list(pool.map(lambda _: Browser("anna").get("/own").status, range(2)))
    same("tries of one name at once", 5 <= tried.count(403) <= 6, True)
    same("one person twice at once", both, [200, 200])


def check_limits():
    def raw(*parts, pause=0.0):
        with socket.create_connection(("127.0.0.1", 8025), timeout=60) as connection:
            try:
                for part in parts:
                    connection.sendall(part)
                    time.sleep(pause)
                got = b""
                while more := connection.recv(65536):
                    got += more
            except OSError:
                return b""
            return got.split(b"\r\n")[0]
    begin = b"GET /sign-in HTTP/1.1\r\nHost: x\r\n"
    for name, got, want in (
        ("a long path", raw(b"GET /" + b"a" * 4000 + b" HTTP/1.1\r\n\r\n"), b"414"),
        ("a longer path", raw(b"GET /" + b"a" * 100000 + b" HTTP/1.1\r\n\r\n"), b"414|^$"),
        ("a long header", raw(begin + b"X: " + b"a" * 100000 + b"\r\n\r\n"), b"400|431|^$"),
        ("a long body", raw(b"POST /sign-in HTTP/1.1\r\nHost: x\r\nContent-Length: 2000000\r\n\r\n" + b"a" * 2000000), b"413|^$"),
        ("nonsense", raw(b"\x00\xff\r\n\r\n"), b"400|^$"),
        ("one after the other", raw(begin + b"\r\n" + begin + b"\r\n"), b"200"),
        ("a body of a byte a second", raw(b"POST /sign-in HTTP/1.1\r\nHost: x\r\nContent-Length: 99\r\n\r\n", *[b"a"] * 17, pause=1.0), b"400|408|^$"),
        ("byte by byte", raw(*[b"%c" % byte for byte in begin] * 3, pause=0.2), b"400|408|^$"),
    ):
        same(name, bool(re.search(want, got)), True)
    same("afterwards", Browser().get("/sign-in").status, 200)


check_sign_in()
people = {"nobody": Browser(), "erik": Browser("erik"), "anna": Browser("anna"), "ben": Browser("ben")}
check_rights(people)
check_forms(people["anna"])
check_pages(people["anna"], people["ben"])
check_languages(people["anna"])
check_api(people)
check_requests(people)
check_operations(people)
check_tokens(people)
check_turns(people)
check_limits()
sys.exit(1 if web_client.failures else 0)
