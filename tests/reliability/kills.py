#!/usr/bin/env python3
"""kills.py BUILD [--count N] [--only WORDS] : kills changing commands at N system calls, evenly
spread (0: at every one). Prints what no refresh or no repetition repairs (interruptions.py), by
cause; ends with 1 when there is something.
"""
from interruptions import measure
from runs import arguments


def judge(_ready, _host, result):
    yield "not killed", [] if result.status in (-9, 137) else [f"status {result.status}"]


if __name__ == "__main__":
    measure(arguments(__doc__, count=1000), lambda point: ["signal=KILL"], judge, "kills")
