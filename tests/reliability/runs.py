"""What the drivers share: arguments, cases made ready, work on both processors, causes."""
import argparse
import atexit
import concurrent.futures
import os
import shutil
import sys
import tempfile
from collections import defaultdict

from cases import CASES, company
from host import differences, kinds
from system_calls import points

MAKES_MAPS = ("bcc maps", "korv_bcc_map")


def arguments(text, **numbers):
    parser = argparse.ArgumentParser(description=text,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", help="a build folder")
    parser.add_argument("--only", default="", help="only commands with this text")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    for name, number in numbers.items():
        parser.add_argument(f"--{name}", type=int, default=number)
    options = parser.parse_args()
    sys.stdout.reconfigure(errors="backslashreplace", line_buffering=True)
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None  # nothing is to survive
    options.scratch = tempfile.mkdtemp(prefix="mdomain-reliability.", dir=memory)
    atexit.register(shutil.rmtree, options.scratch, ignore_errors=True)
    return options


class Ready:
    """A case with the host that it starts from, and the states that are legal afterwards."""

    def __init__(self, case, start, scratch):
        self.case, self.name = case, case.words or case.program
        self.host = case.ready(start, scratch)
        done = self.host.copy(scratch + ".done")
        self.points = points(done, case.run)
        self.done = done.state()
        done.good("refresh")
        self.finished = done.state()
        untouched = self.host.copy(scratch + ".untouched")
        untouched.good("refresh")
        self.untouched = untouched.state()

    def lacks_refreshed(self, state):
        """What a state after a refresh differs in from both legal ones. A refresh makes no maps: each
        file of them may be the old or the new one."""
        if self.name in MAKES_MAPS:
            return differences(state - (self.untouched | self.finished) |
                               state & self.untouched & self.finished, self.untouched & self.finished)
        return min((differences(state, legal) for legal in (self.untouched, self.finished)), key=len)

    def lacks_done(self, state):
        """The same for what was reported as done; some of it comes with the next refresh at the latest."""
        return min((differences(state, legal) for legal in (self.done, self.finished)), key=len)


def ready_cases(options):
    start = company(options.build, options.scratch + "/company")
    chosen = [(case, start) for case in CASES if options.only in (case.words or case.program)]
    return [ready for _, ready in each(lambda task: Ready(*task), chosen, options, "case")]


def each(work, chosen, options, name="run"):
    """Runs work((*item, scratch folder)) for each item; yields item and result in order."""
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        tasks = [(*item, f"{options.scratch}/{name}{number}") for number, item in enumerate(chosen)]
        yield from zip(chosen, pool.map(work, tasks))


class Causes:
    """Findings, gathered by what was done, what went wrong and what differs."""

    def __init__(self):
        self.found = defaultdict(list)

    def add(self, subject, wrong, where, lines):
        self.found[wrong, subject, kinds(lines)].append((where, lines))

    def end(self, measured):
        totals = defaultdict(int)
        for (wrong, subject, _), places in sorted(self.found.items(), key=lambda item: item[0][:2]):
            where, lines = places[0]
            totals[wrong] += len(places)
            print(f"\n{subject}: {wrong}: {len(places)} times, at {where} ... {places[-1][0]}")
            for line in lines[:12]:
                print(f"    {line[:180]}")
        print(f"\n{measured}")
        for wrong, number in totals.items():
            print(f"{number:6} {wrong}")
        print("nothing went wrong" if not totals else f"{sum(totals.values()):6} findings")
        sys.exit(1 if totals else 0)
