#!/usr/bin/env python3
"""damaged_files.py BUILD [--flips N] [--seed N] : databases that are damaged, and account files that
are cut.

Each database is truncated, emptied, replaced by a folder, a text, another application's database or
random bytes, and N times has random bytes flipped: every command must end by itself with a status,
one that fails must name the file, and no domain that was stored may be missing afterwards from a file
that SQLite could read before. Account files are cut at every byte, and get a NUL or a control
character at every byte: a refresh must delete nobody and take nobody out of a group.
"""
import os
import random
import shutil
import sqlite3

from cases import CASES, company
from host import DATABASE, ETC, GROUP, PACKAGE, PASSWD, rows
from runs import Causes, arguments, each

DATABASES = (DATABASE, ETC + "mailserver.db", ETC + "keystore.db", ETC + "alias.db",
             PACKAGE + "target/etc/email_owner.db")
COMMANDS = ("domain list", "user list 1", "refresh", "refresh --dry-run", "publish",
            "user remove 2 ben --yes", "domain create new.example", "bcc list 1",
            "owner lookup anna@example.com", "owner build", "config list", "disclaimer generate")
REFUSED = ("zero length", "text", "random bytes", "another application's")
QUERIES = {"accounts deleted": "SELECT * FROM user_table",
           "memberships lost": "SELECT * FROM group_to_user_table",
           "users of domains lost": "SELECT domain_idx, uid FROM domain_user_view"}


def foreign_database():
    database = sqlite3.connect(":memory:")
    database.executescript("PRAGMA application_id = 1234; PRAGMA user_version = 77;"
                           "create table songs(name); insert into songs values('one')")
    return database.serialize()


def damages(content, flips, source):
    yield "zero length", b""
    yield "text", b"this is no database\n"
    yield "random bytes", source.randbytes(len(content))
    yield "another application's", foreign_database()
    yield "a newer version", content[:60] + b"\0\0\x7f\xff" + content[64:]
    for size in (1, 15, 16, 99, 100, 1024, 4095, 4096, 5000, len(content) // 2, len(content) - 1):
        yield f"cut at {size}", content[:size]
    for number in range(flips):
        damaged = bytearray(content)
        for _ in range(source.choice((1, 4, 64))):
            damaged[source.randrange(len(content))] ^= 1 << source.randrange(8)
        yield f"flipped {number}", bytes(damaged)


def try_database(task):
    """All commands on copies of the host with that file damaged; content None makes it a folder."""
    start, name, damage, content, scratch = task
    found = []
    places = [os.path.basename(name), *(["mimedefang_disclaimers-"] if "keystore" in name else [])]
    for words in COMMANDS:
        host = start.copy(scratch)
        os.unlink(host.path(name))
        if content is None:
            os.makedirs(host.path(name))
        else:
            host.write(name, content)
        before = rows(host.path(name))
        result = host.run(*words.split(), timeout=60)
        lost = before - rows(host.path(name))
        made_anew = content == b"" and name == DATABASE  # and says so, in every run
        if result.status < 0 or result.status > 9:
            found.append((words, "ended badly", [f"status {result.status}", result.err[-300:]]))
        elif lost:
            found.append((words, "domains lost", [f"- {row}" for row in lost]))
        elif damage in REFUSED and result.status != 0 and not made_anew and host.read(name) != content:
            found.append((words, "refused, and written to", [f"message {result.err[-200:]}"]))
        elif result.status == 1 and not any(place in result.err for place in places):
            found.append((words, "names no file", [f"message {result.err.strip()[-200:]}"]))
        elif result.status == 0 and not before and name == DATABASE and "domain" in words and (
                "create" in words or os.path.basename(name) not in result.err):
            found.append((words, "goes on without the model", [f"message {result.err[-200:]}"]))
    shutil.rmtree(scratch, ignore_errors=True)
    return found


def try_accounts(task):
    start, name, _, content, scratch = task
    host = start.copy(scratch)
    host.write(name, content)
    result = host.run("refresh")
    found = []
    for wrong, query in QUERIES.items():
        lost = rows(start.path(DATABASE), query) - rows(host.path(DATABASE), query)
        if lost:
            found.append(("refresh", wrong, [f"- {name} {row}" for row in sorted(lost)]))
    if result.status < 0 or result.status > 9:
        found.append(("refresh", "ended badly", [f"status {result.status}", result.err[-300:]]))
    host.remove()
    return found


def account_damages(start):
    for name, whole in (("etc/passwd", PASSWD.encode()), ("etc/group", GROUP.encode())):
        for place in range(len(whole)):
            if place and whole[place - 1] != ord("\n"):  # else it is a whole, shorter file
                yield start, name, f"cut at {place}", whole[:place]
            for byte in (b"\0", b"\x01"):
                changed = whole[:place] + byte + whole[place + 1:]
                yield start, name, f"byte {byte[0]} at {place}", changed


def main():
    options = arguments(__doc__, flips=40, seed=1)
    start = company(options.build, options.scratch + "/company")
    source = random.Random(options.seed)
    databases = [(start, name, *damage) for name in DATABASES for damage in
                 [("a folder", None), *damages(start.read(name), options.flips, source)]]
    accounts = list(account_damages(start))
    causes = Causes()
    for work, chosen in ((try_database, databases), (try_accounts, accounts)):
        for (_, name, damage, _), found in each(work, chosen, options):
            for words, wrong, lines in found:
                causes.add(f"{words} ({os.path.basename(name)})", wrong, damage, lines)
    causes.end(f"{len(databases)} damaged databases, {len(COMMANDS)} commands each; "
               f"{len(accounts)} damaged account files")


if __name__ == "__main__":
    main()
