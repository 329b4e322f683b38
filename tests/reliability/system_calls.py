"""Where a command changes something on disk, and how to kill it there or make that call fail.

strace counts each system call by its name, so a point is a name and a number. Only the command's own
process is followed; a program that it runs is a command of its own.
"""
import os
import re
from typing import NamedTuple

CHANGES = ("write pwrite64 fsync fdatasync rename renameat renameat2 unlink unlinkat rmdir openat "
           "ftruncate link linkat symlink mkdir mkdirat fchown fchmod chmod chown").split()
ERRORS = {"write": ("ENOSPC", "EIO"), "pwrite64": ("ENOSPC", "EIO"), "ftruncate": ("EIO",),
          "fsync": ("EIO",), "fdatasync": ("EIO",), "openat": ("ENOSPC", "EACCES"),
          "mkdir": ("ENOSPC",), "mkdirat": ("ENOSPC",)}
STRACE = ["strace", "-qq", "-o"]


class Point(NamedTuple):
    call: str
    number: int
    path: str  # below the root

    def __str__(self):
        return f"{self.call} {self.number} ({self.path})"

    def errors(self):
        return ERRORS.get(self.call, ("EACCES",))


def points(host, command):
    """Runs the command; every system call by which it changes something below the root."""
    trace = host.root + ".trace"
    result = command(host, [*STRACE, trace, "-y", "-e", "trace=" + ",".join(CHANGES)])
    if result.status != 0:
        raise SystemExit(f"{result}")
    counts, found = {}, []
    with open(trace, encoding="utf-8", errors="replace") as lines:
        for line in lines:
            called = re.match(r"(\w+)\(", line)
            if not called:
                continue
            call = called.group(1)
            counts[call] = counts.get(call, 0) + 1
            path = changed_path(line)
            if (call != "openat" or "O_CREAT" in line) and path.startswith(host.root):
                found.append(Point(call, counts[call], path[len(host.root) + 1:]))
    return found


def changed_path(line):
    """The first path of a call: a name, maybe in the folder before it, or that of a descriptor."""
    named = re.match(r'(?:\w+at2?\(\w+<([^>]*)>, |\w+\()"([^"]*)"', line)
    if named:
        return os.path.join(named.group(1) or "", named.group(2))
    descriptor = re.match(r"\w+\(\d+<([^>]*)>", line)
    return descriptor.group(1) if descriptor else ""


def inject(point, what):
    """What stands before a command so that `what` happens at the point: signal=KILL, error=EIO."""
    return [*STRACE, "/dev/null", "-e", f"trace={point.call}", "-e",
            f"inject={point.call}:{what}:when={point.number}"]


def even_sample(items, count):
    """At most count of them, evenly spread, the last one included."""
    if count >= len(items):
        return list(items)
    return [items[(i + 1) * len(items) // count - 1] for i in range(count)]
