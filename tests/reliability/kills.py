#!/usr/bin/env python3
"""kills.py BUILD [--count N] [--only WORDS] : kills changing commands at N system calls, evenly
spread (0: at every one), and repairs the host twice: by `mdomain refresh`, and by the same command
again with a refresh after it.

After a refresh the host must be as if the command had not run, or had been done, each with that
refresh; after the repetition as if it had been done. Prints what differs, by cause; ends with 1 when
a kill does not recover.
"""
from host import differences
from runs import Causes, arguments, each, ready_cases
from system_calls import even_sample, inject


def recover(task):
    ready, point, scratch = task
    host = ready.host.copy(scratch)
    killed = ready.case.run(host, inject(point, "signal=KILL"))
    if killed.status not in (-9, 137):
        return [("not killed", point, [f"status {killed.status}"])]
    again = host.copy(scratch + ".again")
    host.run("refresh")
    refreshed = ready.lacks_refreshed(host.state())
    ready.case.run(again)
    again.run("refresh")
    found = [("not repaired by refresh", point, refreshed),
             ("not finished by the same command", point, differences(again.state(), ready.finished))]
    host.remove()
    again.remove()
    return [finding for finding in found if finding[2]]


def main():
    options = arguments(__doc__, count=1000)
    cases = ready_cases(options)
    every = [(ready, point) for ready in cases for point in ready.points]
    chosen = even_sample(every, options.count or len(every))
    causes, neither = Causes(), 0
    for (ready, _), found in each(recover, chosen, options):
        neither += len(found) > 1
        for wrong, point, lines in found:
            causes.add(ready.name, wrong, point, lines)
    causes.end(f"{len(chosen)} kills at {len(every)} system calls of {len(cases)} commands, "
               f"{neither} of which no road repairs")


if __name__ == "__main__":
    main()
