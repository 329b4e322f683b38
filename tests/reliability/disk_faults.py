#!/usr/bin/env python3
"""disk_faults.py BUILD [--count N] [--only WORDS] [--log FILE [--minutes N]] : lets one system call of a
changing command fail (full disk, input/output error, permission), N of them, evenly spread (0: each with
each error).

A command that ends with 0 must have done its work, to the last file. One that fails must say on its
last line what it was doing, with which file and why. Either way the host must be repairable
(interruptions.py). Prints what is not so, by cause; ends with 1 when there is something.
"""
import os
import re

from interruptions import measure
from runs import arguments

REASON = re.compile(r"No space left|Input/output error|Permission denied|disk I/O error|is full|"
                    r"readonly|read-only|unable to open|cannot be written")


# An empty note of a change on its way tells nothing, nor do the files kept for one without its note: the
# next change removes them.
TOLD = r"^(file|folder) \S*/history\.db\.(files\b|(open|whole) \d+ 0 bytes)"


def judge(ready, host, result):
    if result.status == 0:
        yield "said done, and was not", ready.lacks_done(
            {line for line in host.state() if not re.search(TOLD, line)})
        return
    lines = result.err.strip().splitlines() or [""]
    if not 0 < result.status <= 9:
        yield "ended badly", [f"status {result.status}", *lines[-3:]]
        return
    typed_files = [word for word in ready.case.words.split() if os.path.isfile(host.path(word))]
    if not REASON.search(lines[-1]):
        yield "its last line gives no reason", [f"message {lines[-1]}"]
    elif not any(name in lines[-1] for name in ("/", *typed_files)):
        yield "its last line names no file", [f"message {lines[-1]}"]


if __name__ == "__main__":
    measure(arguments(__doc__, count=1000, minutes=0),
            lambda point: [f"error={error}" for error in point.errors()], judge, "faults")
