#!/usr/bin/env python3
"""memcheck.py BUILD : runs every changing command and the main reading ones under valgrind's memcheck,
in a build without sanitizers. A read or write of memory that is not the program's, a value that was
never set, and memory that is lost for good are findings."""
import re

from cases import CASES, company
from host import differences
from runs import Causes, arguments, each

VALGRIND = ["valgrind", "-q", "--error-exitcode=88", "--leak-check=full", "--errors-for-leak-kinds="
            "definite", "--show-leak-kinds=definite", "--num-callers=30"]
READING = ["domain list", "domain show 1", "user list 1", "user duplicates 2", "user preview 1 anna",
           "user addresses --all", "group list 1", "group status 1 sales", "account users",
           "account check", "bcc list 1", "bcc export 1 out", "config list", "disclaimer get 1",
           "disclaimer generate", "owner lookup anna@example.com x@y", "owner check",
           "refresh --dry-run", "node status", "domain create Bad_Name", "user set 1 nobody"]


def try_case(task):
    case, start, scratch = task
    host = case.ready(start, scratch)
    plain = host.copy(scratch + ".plain")
    result, wanted = case.run(host, VALGRIND), case.run(plain)
    found = []
    if result.status == 88 or result.status < 0:
        found.append(("memory", re.sub(r"==\d+==", "", result.err).splitlines()[:14]))
    elif result.status != wanted.status or differences(host.state(), plain.state()):
        found.append(("does something else under valgrind", [f"status {result.status}"]))
    host.remove()
    plain.remove()
    return found


def main():
    options = arguments(__doc__)
    start = company(options.build, options.scratch + "/company")
    cases = [*CASES, *(CASES[0]._replace(words="--json " + words) for words in READING)]
    chosen = [(case, start) for case in cases if options.only in case.words]
    causes = Causes()
    for (case, _), found in each(try_case, chosen, options):
        for wrong, lines in found:
            causes.add(case.words or case.program, wrong, case.words, lines)
    causes.end(f"{len(chosen)} commands under memcheck")


if __name__ == "__main__":
    main()
