#!/usr/bin/env python3
"""random_models.py BUILD [--count N] [--steps N] [--seed N] : models that random commands make, as
documents.

Each export must be what its schema says, make an empty host with other uids the same to the byte, and
make so the host that had the model before it. Prints by cause what is not so; ends with 1 when there
is something.
"""
import json
import os
import random
import re

from cases import DISCLAIMERS
from host import GROUP, PASSWD, Host
from runs import Causes, arguments, each

try:
    import jsonschema
except ImportError:
    jsonschema = None  # python3-jsonschema

SCHEMA = os.path.join(os.path.dirname(__file__), "..", "..", "docs", "export.schema.json")
# A capital is one of WORDS; what stands in brackets comes up to twice. Usual ones come thrice as often.
USUAL = """user add D U [--alias A]|user set D U --role R [--alias A]|user set D U [--add-alias A]
user set D U [--alias A]|user set D U --remove-alias A|user remove D U|group add D G|group remove D G
group restore D G|group set D G --role R|alias create D A [--user U] [--group G] [--address A@D]
alias set D A [--user U] [--address x@elsewhere.example]"""
SELDOM = """domain create D --pattern P [--no-auto-add]|domain set D --pattern P|domain set D --auto-add
domain set D --no-auto-add --description it's|domain names add D N|domain names remove D N|domain primary D
domain delete D|user add D --all|alias delete D A|bcc add D U U --type sender|bcc remove D U
bcc add D A@D x@elsewhere.example|bcc add D D A@D --type domain|config set postmaster U
config set postmaster A@D|disclaimer set D list.json|undo|refresh"""
COMMANDS = re.split(r"[|\n]", "\n".join((USUAL, USUAL, USUAL, SELDOM)))
WORDS = {"D": ("one.example", "bücher.example", "three.example"), "N": ("a.example", "xn--fsq.example"),
         "U": ("anna", "ben", "erik", "erika", "user"), "G": ("sales", "books", "interns"),
         "A": ("a", "A", "boss", "anna", "ben", "Zoë", "e", "o'hara"), "R": ("normal", "domain_admin"),
         "P": ("<a>", "<1a>", "<1g>.<s>", "a", "<4a>")}
# What becomes of the accounts on the way.
ACCOUNTS = (("anna:x:1001:2001", "anna:x:1001:2002"), ("erik:", "erich:"), ("user:", "usher:"),
            ("ben:x:1002:2001", "ben:x:1002:2003"), ("books:x:2002:user", "books:x:2002:anna,erika"))


def words(draw):
    text = re.sub(r"\[(.*?)\]", lambda part: draw.choice(("", part[1], part[1], f"{part[1]} {part[1]}")),
                  draw.choice(COMMANDS))
    return re.sub(r"\b[DNUGARP]\b", lambda word: draw.choice(WORDS[word[0]]), text).split()


def empty_host(options, root, texts=(PASSWD, GROUP)):
    host = Host(options.build, root).create(*texts)
    host.write("list.json", json.dumps(DISCLAIMERS))
    return host


def work(task):
    """What is wrong with a chain of models, as (what, where, lines)."""
    number, options, scratch = task
    draw = random.Random(options.seed * 100000 + number)
    made = empty_host(options, scratch + ".made")
    kept = empty_host(options, scratch + ".kept")
    made.good("domain", "create", WORDS["D"][0], "--no-auto-add")
    made.good("refresh")
    found, log, texts = [], [], [PASSWD, GROUP]
    for model in range(3):
        for _ in range(options.steps):
            if draw.random() < .03:
                texts = [text.replace(*draw.choice(ACCOUNTS)) for text in texts]
                made.write("etc/passwd", texts[0]), made.write("etc/group", texts[1])
                log.append("accounts change")
                made.run("refresh")
            argv = words(draw)
            result = made.run("--yes", *argv)
            log.append(f"{result.status} {' '.join(argv)}")
            if not 0 <= result.status <= 4:
                found.append(("a command ended badly", number, [log[-1], *result.err.splitlines()[-3:]]))
        made.run("domain", "create", WORDS["D"][0], "--no-auto-add")  # an undo may have taken all
        made.good("refresh")
        found += [(what, f"{number} model {model}", [*lines, *(log if options.verbose else ())])
                  for what, lines in judge(options, made, kept, texts, scratch)]
    made.remove(), kept.remove()
    return found


def judge(options, made, kept, texts, scratch):
    document = made.good("export").out
    if jsonschema:
        with open(SCHEMA, encoding="utf-8") as file:
            schema = json.load(file)
        yield from (("not what the schema says", [error.json_path + ": " + error.message])
                    for error in jsonschema.Draft7Validator(schema).iter_errors(json.loads(document)))
    other = empty_host(options, scratch + ".other",
                       [re.sub(r":x:(\d+)", lambda uid: f":x:{4500 - int(uid[1])}", text, flags=re.M)
                        if ":x:1" in text else text for text in texts])
    kept.write("etc/passwd", texts[0]), kept.write("etc/group", texts[1])
    for host, kind in ((other, "an empty host"), (kept, "the host of the model before")):
        host.good("refresh")
        result = host.run("--yes", "apply", "-", text=document.encode())
        if result.status:
            yield f"refused by {kind}", result.err.splitlines()[-3:]
            continue
        again = host.good("export").out
        if again != document:
            lines = set(again.splitlines()) ^ set(document.splitlines())
            yield f"another export from {kind}", sorted(lines)[:9]
    other.remove()


if __name__ == "__main__":
    chosen = arguments(__doc__, count=30, steps=40, seed=1, verbose=0)
    causes = Causes()
    for (_, _), wrong in each(work, [(number, chosen) for number in range(chosen.count)], chosen):
        for what, where, lines in wrong:
            if lines:
                causes.add("export", what, where, lines)
    causes.end(f"{3 * chosen.count} models")
