#!/usr/bin/env python3
"""kills.py BUILD [--count N] [--only WORDS] [--log FILE [--minutes N]] : kills changing commands at N
system calls, evenly spread (0: at every one). Prints what no refresh or no repetition repairs
(interruptions.py), and what the history does not have or an undo does not take back, by cause; ends with
1 when there is something.
"""
import json

from host import differences
from interruptions import measure
from runs import MAKES_MAPS, arguments


def latest(host):
    entries = json.loads(host.run("--json", "history", "list", "--limit", "1").out or "[]")
    return entries[0]["id"] if entries else 0


def stored(host):
    return {line for line in host.state() if line.startswith("row ") and "keystore.db" not in line}


def taken_back(ready, host):
    """What a killed command changed stands in the history, and an undo takes it back or refuses."""
    own = ready.host.copy(host.root + ".before")
    before, entries = stored(own), latest(own)
    own.remove()
    undone = host.copy(host.root + ".undone")
    has_entry = latest(undone) > entries
    if not has_entry and stored(undone) != before and not ready.name.startswith("apply "):
        yield "changed without an entry", [ready.name]
    elif has_entry and undone.run("undo", "--yes").status == 0:
        undone.run("refresh")
        # Which model is published stands there from the first change on.
        yield "an undo of it is none", [line for line in differences(undone.state(), ready.untouched)
                                        if "key_table ('mdomain_model'" not in line]
    undone.remove()


def judge(ready, host, result):
    yield "not killed", [] if result.status in (-9, 137) else [f"status {result.status}"]
    if not ready.name.startswith(("undo ", "refresh", "publish", "owner ", *MAKES_MAPS)):
        yield from taken_back(ready, host)


if __name__ == "__main__":
    measure(arguments(__doc__, count=1000, minutes=0), lambda point: ["signal=KILL"], judge, "kills")
