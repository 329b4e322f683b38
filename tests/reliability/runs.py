"""What the drivers share: arguments, cases made ready, work on both processors, causes."""
import argparse
import atexit
import concurrent.futures
import json
import os
import shutil
import sys
import tempfile
import time
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
    if "minutes" in numbers:  # of Runs
        parser.add_argument("--log", default="", help="what is done: the next call goes on behind it")
    options = parser.parse_args()
    sys.stdout.reconfigure(errors="backslashreplace", line_buffering=True)
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None  # nothing is to survive
    options.scratch = tempfile.mkdtemp(prefix="mdomain-reliability.", dir=memory)
    atexit.register(shutil.rmtree, options.scratch, ignore_errors=True)
    return options


class Ready:
    """A case with the host that it starts from, and the states that are legal afterwards."""

    def __init__(self, number, case, start, scratch):
        self.number, self.case, self.name = number, case, case.words or case.program
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
    chosen = [(number, case, start) for number, case in enumerate(CASES) if options.only in (case.words or case.program)]
    return [ready for _, ready in each(lambda task: Ready(*task), chosen, options, "case")]


def each(work, chosen, options, name="run"):
    """Runs work((*item, scratch folder)) for each item; yields item and result in order."""
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        tasks = [(*item, f"{options.scratch}/{name}{number}") for number, item in enumerate(chosen)]
        yield from zip(chosen, pool.map(work, tasks))


class Runs:
    """Work on many items by their names, in parts: options.minutes (0: any) limits one call, and
    options.log keeps what each item gave, so that the next call goes on behind it. Says every minute how
    far it is."""

    def __init__(self, options, items):
        self.options, self.items, self.done = options, items, 0

    def _known(self):
        """Of the last call; a line that was cut short is none."""
        if not os.path.exists(self.options.log):
            return {}
        with open(self.options.log, encoding="utf-8") as log:
            return dict(json.loads(line) for line in log if line.endswith("\n"))

    def results(self, work):
        """(item, what work((*item, scratch folder)) gives) of all that are done, those of before first."""
        known = self._known() if self.options.log else {}
        for name in self.items.keys() & known.keys():
            self.done += 1
            yield self.items[name], known[name]
        open_names = [name for name in self.items if name not in known]
        begin = said = time.monotonic()
        size = 8 * self.options.jobs
        for at in range(0, len(open_names), size):
            now = time.monotonic()
            if self.options.minutes and now > begin + 60 * self.options.minutes:
                break
            if now > said + 60:
                said = now
                print(f"{self.done} of {len(self.items)}, {(now - begin) / at:.2f} seconds each, "
                      f"{(now - begin) / at * (len(open_names) - at) / 60:.0f} minutes left")
            names = open_names[at:at + size]
            for name, (item, found) in zip(names, each(work, [self.items[name] for name in names], self.options)):
                self.done += 1
                self._log(name, found)
                yield item, found

    def _log(self, name, found):
        if self.options.log:
            with open(self.options.log, "a", encoding="utf-8") as log:
                log.write(json.dumps([name, found]) + "\n")


class Causes:
    """Findings, gathered by what was done, what went wrong and what differs."""

    def __init__(self):
        self.found = defaultdict(list)

    def add(self, subject, wrong, where, lines):
        self.found[wrong, subject, kinds(lines)].append((where, lines))

    def end(self, measured, is_part=False):
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
        sys.exit(1 if totals else 3 if is_part else 0)
