#!/usr/bin/env python3
"""disk_faults.py BUILD [--count N] [--only WORDS] : lets one system call of a changing command fail
(full disk, input/output error, permission), N of them, evenly spread (0: each with each error).

A command that ends with 0 must have done its work, to the last file. One that fails must say on its
last line what it was doing, with which file and why; a refresh after it must lead to one of the two
legal states; and the same command again must finish the work. Prints what is not so, by cause.
"""
import re

from host import differences
from runs import Causes, arguments, each, ready_cases
from system_calls import even_sample, inject

REASON = re.compile(r"No space left|Input/output error|Permission denied|disk I/O error|is full|"
                    r"readonly|read-only|unable to open|cannot be written")


def judge_message(result):
    last = (result.err.strip().splitlines() or [""])[-1]
    if not REASON.search(last):
        yield "its last line gives no reason", [f"message {last}"]
    elif "/" not in last:
        yield "its last line names no file", [f"message {last}"]


def try_fault(task):
    ready, point, error, scratch = task
    host = ready.host.copy(scratch)
    result = ready.case.run(host, inject(point, f"error={error}"))
    found, state = [], host.state()
    if result.status == 0:
        found.append(("said done, and was not", ready.lacks_done(state)))
    elif result.status < 0 or result.status > 9:
        found.append(("ended badly", [f"status {result.status}", *result.err.splitlines()[-3:]]))
    else:
        found.extend(judge_message(result))
    again = host.copy(scratch + ".again")
    host.run("refresh")
    found.append(("not repaired by refresh", ready.lacks_refreshed(host.state())))
    repeated = ready.case.run(again)
    again.run("refresh")
    found.append(("not finished by the same command", differences(again.state(), ready.finished)))
    if repeated.status not in (0, 3, 4):
        found.append(("the same command failed again", repeated.err.splitlines()[-2:]))
    host.remove()
    again.remove()
    return [finding for finding in found if finding[1]]


def main():
    options = arguments(__doc__, count=1000)
    cases = ready_cases(options)
    every = [(ready, point, error) for ready in cases for point in ready.points
             for error in point.errors()]
    chosen = even_sample(every, options.count or len(every))
    causes = Causes()
    for (ready, point, error), found in each(try_fault, chosen, options):
        for title, lines in found:
            causes.add(ready.name, title, f"{point} {error}", lines)
    causes.end(f"{len(chosen)} of {len(every)} faults in {len(cases)} commands")


if __name__ == "__main__":
    main()
