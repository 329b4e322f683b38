#!/usr/bin/env python3
"""hostile_strings.py BUILD : hands texts that nobody expects to every entry: arguments, options, files
and account files, host.ini, settings of the key store.

A command must end by itself with a status and no sanitizer's report, show no control or bidirectional
character as it is, give valid JSON, write nothing beside the root, and leave its databases sound.
What was accepted must stay one value: the generated maps have whole lines of two words, exported
rules can be imported, the filter's configuration is evaluated by Perl, and no command in a text runs.
"""
import json
import os
import re

from cases import DISCLAIMERS, company
from host import DATABASE, GROUP, PACKAGE, PASSWD
from runs import Causes, arguments, each

TEXTS = ["", " ", "'", '"', "a'b\"c", "x'; DROP TABLE domain_table; --", "%s%n%n%s%d", "%q", "../../../up",
         "/abs/olute", "..", "-", "--yes", "a\nb", "a\r\nbob@example.com mallory@evil.example", "a\tb",
         "\x1b]0;title\x07\x1b[2J", "\u202egpj.exe", "a\u2066b\u2069", "\x7f\x80", "\udcff\udcfe",
         "ä" * 300, "ﬃ\u0301\u0301", "\u0000".replace("\0", "\\0"), "$(touch $OUT)", "`touch $OUT`",
         "; touch $OUT ;", "| touch $OUT", "@{[system('touch $OUT')]}", "$x @y %z \\", "/x/e; die; /",
         "a@b@example.com", "@example.com", "a@", "*" * 64, "(a+)+$", "99999999999999999999", "-1",
         "0x10", "1e9", "<99999999999g>", "<" * 2000, "[section]", "a=b", "#", "x" * 100_000]
LONG = "y" * 1_000_000
ARGUMENTS = """domain create {}|domain create h{}.example|domain create one.example --description {}
domain create two.example --pattern {}|domain set 1 --name {}|domain set 2 --pattern {}
domain set 2 --description {}|domain show {}|domain delete {} --yes|domain names add 2 {}
domain names set 2 a.example {}|domain names remove 2 {}|domain list --query {}|domain list --limit {}
user add 1 {}|user add 3 anna --alias {}|user set 1 ben --add-alias {}|user set 1 ben --role {}
user remove 1 {} --yes|user find 1 {}|user list 1 --query {}|user addresses {}|user preview 1 --group {}
group add 1 {}|group set 1 sales --role {}|group status 1 {}|account users --query {}
account members {}|bcc add 1 {} ben|bcc add 1 erika {} --replace|bcc add 1 {} ben --type domain
bcc add 1 {}@example.com ben --type sender|bcc add 1 a@example.com {}@example.net --replace
bcc remove 1 {} --yes|bcc list 1 --sort {}|bcc import 1 {}|bcc export {} out
disclaimer explain 1 --from {} --to {}@example.com|disclaimer get {}|disclaimer remove 1 {} --yes
disclaimer set 1 {}|disclaimer restore {}|owner lookup {} {}@example.com|owner add {}@example.com anna
config set {} x --force|config get {}|config set postmaster {}|config set smtp_main_domain {} --force
config set account_type {}|config set win_domain_short_name {}|config set acc_domain_name {}
config set mimedefang_disclaimers-9 {}|{} list|--lock-timeout {} publish""".replace("\n", "|").split("|")
CHECKS = ["domain list", "user list 1", "config list", "bcc list 1", "bcc maps", "bcc export 1 out",
          "bcc import 1 out", "disclaimer generate", "owner build", "refresh", "publish",
          "disclaimer explain 1 --from x@example.org --to anna@example.com"]
VISIBLE = re.compile("[\0-\x08\x0b-\x1f\x7f-\x9f\u061c\u200e\u200f\u202a-\u202e\u2066-\u2069]")


def write_rules(host, text):
    host.write("text", f"{text} ben\nanna {text}\n{text}\n".encode(errors="surrogateescape"))


def write_list(host, text):
    rule = {"target": "sender", "pattern_type": "email", "pattern": text}
    changed = {**DISCLAIMERS[0], "name": text, "content_html": text, "content_txt": text,
               "match_rule_list": [rule]}
    host.write("text", json.dumps([changed], ensure_ascii=False).encode(errors="surrogateescape"))


def write_raw(host, text):
    host.write("text", text.encode(errors="surrogateescape"))


def append(name, *templates):
    def write(host, text):
        added = "".join(template.replace("{}", text) for template in templates)
        old = {"etc/passwd": PASSWD, "etc/group": GROUP}.get(name, "")
        host.write(name, (old + added).encode(errors="surrogateescape"))
    return write


FILES = [("bcc import 1 text", write_rules), ("bcc import 1 text --type sender", write_rules),
         ("disclaimer set 1 text", write_list), ("disclaimer set 1 text", write_raw),
         ("disclaimer restore text", write_raw), ("owner lookup -", write_raw), ("refresh", append("etc/passwd", "{}:x:1010:2001:n:/:/\n")),
         ("refresh", append("etc/passwd", "carl:x:1010:2001:{}:/:/\n")),
         ("refresh", append("etc/passwd", "carl:x:{}:{}:n:/:/\n")),
         ("refresh", append("etc/group", "{}:x:2010:anna,{}\n")), ("refresh", append("etc/login.defs", "UID_MIN {}\n")),
         *(("domain list", append("etc/mailserver-domain/host.ini", text)) for text in
           ("{}", "[{}]\n", "[local]\ninternal = {}\n", "[keystore]\nbackend = {}\n", "[ldap]\nuri = {}\n",
            "[local]\n{} = 1\n"))]


def judge(host, words, result, before):
    if result.status < 0 or result.status > 9 or "runtime error" in result.err or "Sanitizer" in result.err:
        yield "ended badly", [f"status {result.status}", result.err[-400:]]
    shown = result.err if words.startswith(("disclaimer get", "disclaimer gen")) else result.out + result.err
    if VISIBLE.search(shown):
        yield "shows control characters", [f"output {VISIBLE.search(shown).group()!a}"]
    if "--json" in words and result.out:
        try:
            json.loads(result.out.encode(errors="surrogateescape"))
        except ValueError as error:
            yield "invalid JSON", [f"output {error}"]
    beside = set(os.listdir(os.path.dirname(host.root))) - before
    if beside:
        yield "wrote beside the root", [f"+ {name}" for name in beside]


def judge_maps(host):
    for kind in ("recipient_bcc", "sender_bcc"):
        for line in host.read(PACKAGE + f"target/etc/{kind}").decode().splitlines():
            if not line.startswith("#") and not re.fullmatch(r"[^\s:|]+[ \t]+[^\s:|]+", line):
                yield "a map's line is no pair", [f"line {line[:200]}"]


def try_entry(task):
    """Every text in turn on one host, then what follows from all that was accepted."""
    start, words, write, scratch = task
    os.makedirs(scratch)
    host = start.copy(scratch + "/root")
    os.environ["OUT"] = scratch + "/executed"
    before, found = {"root"}, []
    for text in TEXTS + ([LONG, "nul\0byte", "\0"] if write else []):
        text = text.replace("$OUT", scratch + "/executed")
        if write:
            write(host, text)
        argv = [part.replace("{}", text) for part in ("--json " + words).split()]
        result = host.run(*argv, text=host.read("text") if words.endswith(" -") else None, timeout=60)
        for wrong, lines in judge(host, "--json " + words, result, before):
            found.append((repr(text[:40]), wrong, lines))
    host.write("etc/mailserver-domain/host.ini", "")
    for config in ("account_type", "win_domain_short_name", "acc_domain_name"):
        host.run("config", "set", config, "local" if config == "account_type" else "")
    for check in CHECKS:
        result = host.run(*check.split())
        found.extend((f"then {check}", wrong, lines) for wrong, lines in judge(host, check, result, before))
        if check == "disclaimer explain 1 --from x@example.org --to anna@example.com" and result.status:
            found.append(("then explain", "fails", [f"message {result.err[-300:]}"]))
        if check == "bcc import 1 out" and result.status:
            found.append(("then import", "fails on an exported file", [f"message {result.err[-300:]}"]))
    found.extend(("then", wrong, lines) for wrong, lines in judge_maps(host))
    unsound = [line for line in host.state() if "_check " in line]
    if unsound or not os.path.exists(host.path(DATABASE)):
        found.append(("then", "database not sound", unsound or ["gone"]))
    host.remove()
    return found


def main():
    options = arguments(__doc__)
    start = company(options.build, options.scratch + "/company")
    chosen = [(start, words, None) for words in ARGUMENTS] + [(start, *entry) for entry in FILES]
    chosen = [entry for entry in chosen if options.only in entry[1]]
    causes = Causes()
    for (_, words, _), found in each(try_entry, chosen, options):
        for where, wrong, lines in found:
            causes.add(words, wrong, where, lines)
    causes.end(f"{len(TEXTS)} texts through {len(chosen)} entries, {len(CHECKS)} commands after each")


if __name__ == "__main__":
    main()
