"""Sends what attackers send through every form field of the pages and every argument of the HTTP
interface of mdomain-web: web_injection.py [EVERY]. Forms come from the pages themselves, arguments from the
OpenAPI document, so a new one is covered by itself; with EVERY each gets that part of the texts, every
time another one. First all as dry runs, then what those accepted.
anna administers domain 1 and no other, ben all."""

import html.parser
import json
import re
import subprocess
import sys
import urllib.parse

import web_client
from web_client import VALUES, Browser, Program, arguments, request, same

TEXTS = [  # SQL
    "' OR '1'='1", "'; DROP TABLE domain_table; --", '" OR 1=1 --', "1 UNION SELECT * FROM user_table", "%' --", "a_%",
    # HTML and scripts
    "<script>xinj()</script>", '"><img src=x onerror=xinj()>', "' autofocus onfocus=xinj() x='", "</textarea><svg onload=xinj()>",
    "javascript:xinj()", "<!--", "&lt;b&gt;&#x3c;b", "</title><base href=//evil.example>",
    # templates
    "xinj{{form_key}}xinj", "{{{form_key}}}", "{{#t}}", "{{>layout}}", "${7*7}", "<%= 7*7 %>", "{{=<% %>=}}",
    # lines and headers
    "a\r\nX-Injected: 1", "a\nb", "a\r\n\r\n<html>", "%0d%0aX-Injected:1",
    # paths, commands, directories
    "../../../../etc/passwd", "..\\..", "/etc/shadow", "a/../b", "%2e%2e%2f", "$(touch /tmp/xinj)", "`id`", "| id", "*)(uid=*))(|(uid=*",
    # characters
    "\0", "a\0b", "\x1b[2J", "\x7f", "\u202egnp.exe", "\u2066a", "\u200b", "\ufeff", "\u0430nna", "\U0001f600", "é", "\ud800", "ﬃ\u0301",
    # formats and numbers
    "%s%n%s%n", "%q", "-1", "0", "2", "4294967296", "99999999999999999999", "1e9", "0x10", "NaN",
    # addresses, lengths, nothing
    "a@b@example.com", "anna@example.com\nbcc: x@evil.example", "x" * 1000, "y" * 70000, "ä" * 300, "", " ", "true", "null"]
ODD = [None, True, -1, 1.5, 2**63, [], {}, [[]], [None], [{}], {"": ""}, [-1], [2**32], ["a"] * 2000, [[[[[[["x"]]]]]]]]
SHOWN_AS_THEY_ARE = re.compile("[\0-\x08\x0b-\x1f\x7f-\x9f\u061c\u200b-\u200f\u202a-\u202e\u2066-\u2069\ufeff]")
OWN = {'<script src="/static/pages.js" defer>'}
HEADERS = {"Content-Security-Policy": "default-src 'none'; .*frame-ancestors 'none'.*", "X-Content-Type-Options": "nosniff",
           "Referrer-Policy": "same-origin", "X-Injected": "None", "Cache-Control": "no-store|max-age=300"}


every = int(sys.argv[1]) if len(sys.argv) > 1 else 1
turn = 0


def some(texts):
    global turn  # pylint: disable=global-statement
    turn += 1
    return texts[turn % every::every]


class Page(html.parser.HTMLParser):
    """Elements of a page, its links and its forms."""

    def __init__(self, text):
        super().__init__()
        self.links, self.forms, self.foreign = [], [], []  # in order: which texts a field gets is the same each time
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        given = dict(attrs)
        if tag in ("script", "img", "svg", "iframe", "base", "object") or any(name.startswith("on") for name in given):
            self.foreign.extend({self.get_starttag_text()[:80]} - OWN)
        if tag == "a":
            self.links.append(given.get("href", ""))
        if tag == "form":
            self.forms.append((given.get("method", "get"), given["action"], {}))
        elif given.get("name") and self.forms:
            self.forms[-1][2].setdefault(given["name"], given.get("value", ""))


def judge(case, answer):
    """Nothing failed, nothing of a text became a part of the page or of the headers."""
    same(case + ": failed", answer.status < 500, True)
    for name, want in HEADERS.items():
        same(f"{case}: {name}", bool(re.fullmatch(want, str(answer.headers[name]))), True)
    if (answer.headers["Content-Type"] or "").startswith("text/html"):
        same(case + ": elements", Page(answer.text).foreign, [])
        same(case + ": characters", SHOWN_AS_THEY_ARE.findall(answer.text), [])
        same(case + ": template", re.findall("xinj[0-9a-f]{64}|xinjxinj", answer.text), [])
    elif answer.text:
        json.loads(answer.text)


def crawl(browser):
    """The forms of all pages that links lead to, by where they go and what they have."""
    forms, seen, todo = {}, set(), ["/"]
    while todo:
        path = todo.pop()
        kind = re.sub(r"\d+|(?<=entries/)[^/]+", "N", path.split("?")[0])
        if (kind in seen and "/N" in kind) or path in seen or not path.startswith("/"):
            continue
        seen.update((path, kind))
        answer = browser.get(path)
        judge("GET " + path, answer)
        page = Page(answer.text)
        todo.extend(page.links)
        for method, action, fields in page.forms:
            forms.setdefault((action if "/N" not in kind else re.sub(r"(?<=[a-z]/)\d+$", "N", action), tuple(fields)),
                             (method, action, fields))
    return [form for (action, _), form in forms.items() if action != "/sign-out"]


def through_forms(browser, forms):
    """Which (form, field, text) lead to a plan."""
    accepted = []
    for method, action, fields in forms:
        for field in [name for name in fields if name != "form_key"]:
            for text in some(TEXTS):
                asked = {**fields, "form_key": browser.key, field: text.encode(errors="surrogatepass")}
                case = f"{method} {action} {field}={text[:30]!r}"
                if method == "get":
                    answer = browser.get(action + "?" + urllib.parse.urlencode({field: asked[field]}))
                else:
                    answer = browser.ask("POST", action, asked)
                judge(case, answer)
                if method == "post" and "What will change" in answer.text and field != "version":
                    accepted.append((case, action, asked))
    return accepted


def through_operations(program, document):
    accepted = []
    for path, methods in document["paths"].items():
        for method, operation in methods.items():
            known = list(arguments(operation))
            usual = {(where, name): VALUES[name] for where, name, needed in known if needed}
            dry = {("query", "dry_run"): "true"} if method != "get" else {}
            for where, name, _ in known:
                for text in some(TEXTS + (ODD + [[one] for one in TEXTS[::9]] if where == "body" else [])):
                    given = {**usual, **dry, (where, name): text}
                    case = f"{method} {path} {name}={str(text)[:30]!r}"
                    if name == "dry_run" and text == "":
                        continue
                    asked, body, headers = request(path, given)
                    answer = program.answer(method.upper(), asked, body, **headers)
                    judge(case, answer)
                    if answer.status == 200 and where == "body" and method != "get":
                        accepted.append((case, method, request(path, {**usual, (where, name): text})))
    return accepted


def model(*domains):
    done = subprocess.run(["mdomain", "export"], check=True, capture_output=True)
    return [domain for domain in json.loads(done.stdout)["domains"] if not domains or domain["name"] in domains]


people = {name: Browser(name) for name in ("anna", "ben")}
programs = {name: Program(browser, True) for name, browser in people.items()}
document = programs["ben"].ask("GET", "/openapi.json")[1]
forms = {name: crawl(browser) for name, browser in people.items()}
same("forms and operations", [len(forms["anna"]) > 20, len(forms["ben"]) > 25, len(document["paths"]) > 30], [True] * 3)
before, settings = model(), subprocess.check_output(["mdomain", "--json", "config", "list"])
accepted = through_forms(people["anna"], forms["anna"])
new = [form for form in forms["ben"] if form[1] not in {one[1] for one in forms["anna"]}]
through_forms(people["ben"], new)
through_operations(programs["ben"], document)
operations = through_operations(programs["anna"], document)
same("after dry runs", [model(), subprocess.check_output(["mdomain", "--json", "config", "list"])], [before, settings])
for case, action, asked in accepted:
    judge("confirmed " + case, people["anna"].ask("POST", action, {**asked, "confirmed": "1", "form_key": people["anna"].key}))
for case, method, (asked, body, headers) in operations:
    judge("done " + case, programs["anna"].answer(method.upper(), asked, body, **headers))
same("something was stored", [bool(accepted), bool(operations), model() != before], [True] * 3)
same("of another domain", model("bücher.example"), [one for one in before if one["name"] == "bücher.example"])
for browser in people.values():
    crawl(browser)
print(f"{len(accepted)} forms and {len(operations)} operations accepted; answers by status: {sorted(web_client.answers.items())}")
sys.exit(1 if web_client.failures else 0)
