#!/usr/bin/env python3
"""parallel.py BUILD [--processes N] [--changes N] : processes that change one host at the same time,
first through mdomain, then through the shared library, which has no lock of its own around a whole
operation.

What a process reported as done must be there at the end, nothing may fail for another reason than a
full wait for a lock, and the databases must be sound and published.
"""
import os
import re
import subprocess

from cases import company
from host import DATABASE, ETC, rows
from runs import Causes, arguments, each

PROGRAM = "parallel_changes"
QUERIES = {"domain": (DATABASE, "SELECT domain_name FROM domain_table"),
           "name": (DATABASE, "SELECT additional_domain FROM domain_to_additional_domain_table"),
           "alias": (DATABASE, "SELECT account_alias FROM domain_user_alias_table"),
           "rule": (ETC + "mailserver.db", "SELECT name FROM bcc_table")}


def tool_commands(name):
    """A change and the mdomain command that makes it."""
    yield "domain", f"{name}.example", f"domain create {name}.example --no-auto-add"
    yield "name", f"{name}.example.org", f"domain names add 1 {name}.example.org"
    yield "alias", name, f"user set 1 anna --add-alias {name}"
    yield "rule", f"{name}@example.com", f"bcc add 1 {name}@example.com ben"
    yield from (("alias", f"{name}.{more}", f"user set 1 ben --add-alias {name}.{more}")
                for more in range(6))


def work_with_tool(task):
    host, worker, changes, _ = task
    lines = []
    for number in range((changes + 9) // 10):
        for kind, what, words in tool_commands(f"{worker}-{number}"):
            result = host.run(*words.split(), "--lock-timeout", "600", timeout=900)
            lines.append(f"done {kind} {what}" if result.status == 0 else
                         f"failed {kind} {what} {result.status} {result.err[-200:]}")
    return lines


def work_with_library(task):
    host, worker, changes, _ = task
    result = host.run(worker, str(changes), program=f"{os.path.dirname(host.root)}/{PROGRAM}", timeout=3600)
    lines = result.out.splitlines()
    reasons = "\n".join(sorted(set(re.sub(r"\d+", "N", line) for line in result.err.splitlines())))
    if result.status != 0 or len(lines) != changes:
        lines.append(f"failed program {worker} status {result.status}, {reasons[-300:]}")
    return lines


def build_program(build, folder):
    source = __file__.rsplit("/", 3)[0]
    flags = subprocess.check_output(["pkg-config", "--cflags", "jsoncpp"], text=True).split()
    library = build + "/lib/libmailserver-domain.so"
    checked = b"__asan_init" in open(library, "rb").read()
    subprocess.check_call(
        ["g++", "-std=c++17", "-Wall", "-Wextra", "-Werror", f"-I{source}", *flags,
         *(["-fsanitize=address,undefined"] if checked else []),
         source + "/tests/reliability/parallel_changes.cpp", "-o", f"{folder}/{PROGRAM}",
         f"-L{build}/lib", "-lmailserver-domain", "-lmailserver-platform", f"-Wl,-rpath,{build}/lib"])


def judge(host, causes, title, lines):
    there = {kind: {row[0] for row in rows(host.path(name), query)}
             for kind, (name, query) in QUERIES.items()}
    for line in lines:
        outcome, kind, what = line.split()[:3]
        if outcome == "failed":
            causes.add(title, f"{kind} failed", what, ["message " + line])
        elif what not in there[kind]:
            causes.add(title, f"{kind} reported as done and missing", what, [])
    state = host.state()
    published = host.run("config", "get", "virtual_multiple_domain").out
    for line in (line for line in state if "_check " in line):
        causes.add(title, "database not sound", line, [line])
    for name in there["domain"]:
        if f"/{name}" not in published:
            causes.add(title, "domain not published", name, [])


def main():
    options = arguments(__doc__, processes=8, changes=500)
    options.build = company(options.build, options.scratch + "/company").build
    build_program(options.build, options.scratch)
    options.jobs, causes = options.processes, Causes()
    ways = (("mdomain", work_with_tool), ("library", work_with_library))
    chosen = [way for way in ways if options.only in way[0]]
    for title, work in chosen:
        host = company(options.build, f"{options.scratch}/{title}")
        workers = [(host, f"w{number}", options.changes) for number in range(options.processes)]
        lines = [line for _, reported in each(work, workers, options) for line in reported]
        judge(host, causes, title, lines)
    causes.end(f"{options.processes} processes, {options.changes} changes each, "
               f"{' and '.join(title for title, _ in chosen)}")


if __name__ == "__main__":
    main()
