"""What kills and disk faults share: a command is interrupted at a system call, and two copies of the
host are repaired, one by `mdomain refresh`, one by the same command again with a refresh after it.

After a refresh the host must be as if the command had not run, or had been done, each with that
refresh; after the repetition as if it had been done. An undo is finished by the next undo, also behind
a refresh; one that has said what it took back is not repeated, for that takes back the change before.
"""
import random

from host import differences
from runs import Causes, Runs, ready_cases
from system_calls import even_sample, inject


def repair(ready, host, result):
    """Pairs of what went wrong and the lines that say so; no lines where it did not."""
    again = host.copy(host.root + ".again")
    is_undo = ready.name.startswith("undo ")
    told = is_undo and result.out
    host.run("refresh")
    if is_undo and not told:
        ready.case.run(host)
    yield "not repaired by refresh", ready.lacks_refreshed(host.state())
    repeated = again.run("refresh") if told else ready.case.run(again)
    again.run("refresh")
    yield "not finished by the same command", differences(again.state(), ready.finished)
    yield "the same command failed again", (
        repeated.err.splitlines()[-2:] if repeated.status not in (0, 3, 4) else [])
    again.remove()


def measure(options, kinds, judge, what):
    """Interrupts every command at its points by each of kinds(point), options.count of them, evenly
    spread (0: all). judge(ready, host, result) yields what is wrong at once. Prints the causes and ends
    with 1 when there are some. Runs that options.log has are not run again; options.minutes ends with 3
    what is not done by then, and the same call goes on."""
    def interrupt(task):
        ready, point, kind, scratch = task
        host = ready.host.copy(scratch)
        result = ready.case.run(host, inject(point, kind))
        found = [*judge(ready, host, result), *repair(ready, host, result)]
        host.remove()
        return [(wrong, lines) for wrong, lines in found if lines]

    cases = ready_cases(options)
    every = [(ready, point, kind) for ready in cases for point in ready.points for kind in kinds(point)]
    chosen = even_sample(every, options.count or len(every))
    # Whatever a time holds is a sample of everything.
    random.Random(1).shuffle(chosen)
    runs = Runs(options, {f"{ready.number} {ready.name} {point.call} {point.number} {kind}": (ready, point, kind)
                          for ready, point, kind in chosen})
    causes = Causes()
    for (ready, point, kind), found in runs.results(interrupt):
        for wrong, lines in found:
            causes.add(ready.name, wrong, f"{point} {kind}", lines)
    causes.end(f"{runs.done} of {len(every)} {what} in {len(cases)} commands", runs.done < len(chosen))
