#!/usr/bin/env python3
"""web_load.py BUILD [--users N] [--people N] [--rounds N] : many people at mdomain-web at once, by its
unix socket: pages of 100 with search and order, single people, reasons, and one change in 50. Prints how
long each kind takes alone and in the crowd; ends with 1 when an answer fails, a change is missing, or a
page of 100 takes more than 200 ms alone."""

import os
import random
import re
import statistics
import subprocess
import sys
import threading
import time

from host import Host
from runs import arguments

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "../integration/lib"))
from web_client import Browser  # pylint: disable=wrong-import-position

LIMIT = 0.2
PAGES = {  # of a random person: uid and name
    "page of 100": lambda uid, name: "/domains/1/people",
    "a later page": lambda uid, name: f"/domains/1/people?cursor={uid - 100000}",
    "search": lambda uid, name: f"/domains/1/people?text={name}",
    "wide search": lambda uid, name: f"/domains/1/people?text={name[:4]}",
    "by alias": lambda uid, name: "/domains/1/people?by=alias&cursor=200",
    "person": lambda uid, name: f"/domains/1/people/{uid}",
    "domain": lambda uid, name: "/domains/1",
    "why": lambda uid, name: f"/explain?address={name}%40example.com",
    "own": lambda uid, name: "/own"}


class Person(Browser):
    """Named by the server in front."""

    def __init__(self, name):
        super().__init__()
        self.name = name

    def ask(self, method, path, fields=None, headers=None):
        return super().ask(method, path, fields, {"X-Remote-User": self.name, **(headers or {})})


def company(build, root, users, administrators):
    host = Host(build, root).create(
        "".join(f"u{i:06}:x:{100000 + i}:2001:User {i}:/:/\n" for i in range(users)),
        f"all:x:2001:\nadmins:x:2002:{','.join(f'u{i:06}' for i in range(administrators))}\n")
    host.write("etc/login.defs", "UID_MIN 1000\nUID_MAX 1000000\n")
    for words in ("domain create example.com", "refresh", "group add 1 admins", "group set 1 admins --role domain_admin"):
        host.good(*words.split(), timeout=900)
    host.write("etc/mailserver-domain/web.ini", "[sign-in]\nheader = X-Remote-User\n")
    return host


class Server:
    """mdomain-web on host.root/socket."""

    def __init__(self, host, before=()):
        os.environ["SOCKET"] = host.path("socket")
        self.process = subprocess.Popen(
            [*before, host.build + "/bin/mdomain-web", "--socket", host.path("socket"), "--state", host.root],
            env={**os.environ, "MDOMAIN_ROOT": host.root}, stderr=open(host.path("web.log"), "ab"))
        self.wait()

    @staticmethod
    def wait():
        for _ in range(600):
            try:
                if Person("nobody").get("/sign-in").status == 403:
                    return
            except OSError:
                time.sleep(0.05)
        raise SystemExit("mdomain-web does not answer")

    def stop(self):
        self.process.terminate()
        return self.process.wait(60)


def timed(times, kind, ask):
    begin = time.monotonic()
    answer = ask()
    times.setdefault(kind, []).append(time.monotonic() - begin)
    return [] if answer.status in (200, 303) else [f"{kind}: status {answer.status}"]


def work(number, options, times, wrong):
    """What one administrator does; his changes are of people whom nobody else changes."""
    chance = random.Random(number)
    person = Person(f"u{number:06}")
    try:
        for at in range(options.rounds):
            uid = 100000 + chance.randrange(options.users)
            if (number + at) % 50 == 0:
                own = f"/domains/1/people/{100000 + number + at * options.people}"
                person.get(own)
                wrong += timed(times, "change", lambda: person.post(own, add_aliases=f"x{number}-{at}", confirmed="1"))
            else:
                kind = chance.choice(list(PAGES))
                wrong += timed(times, kind, lambda: person.get(PAGES[kind](uid, f"u{uid - 100000:06}")))
    except OSError as error:
        wrong.append(f"no answer: {error}")


def show(title, times):
    print(f"{title}: milliseconds, median and 95 %")
    for kind, all_times in sorted(times.items()):
        ordered = sorted(all_times)
        print(f"  {kind:14}{len(ordered):6}{statistics.median(ordered) * 1000:9.0f}{ordered[len(ordered) * 95 // 100] * 1000:9.0f}")


def main():
    options = arguments(__doc__, users=100000, people=200, rounds=20)
    host = company(options.build, options.scratch + "/company", options.users, options.people)
    server = Server(host)
    alone, crowd, wrong = {}, {}, []
    first = Person("u000000")
    for kind, path in PAGES.items():
        for at in range(9):
            wrong += timed(alone, kind, lambda: first.get(path(100000 + at * options.users // 9, f"u{at * options.users // 9:06}")))
    show("alone", alone)
    wrong += [f"{kind} takes {statistics.median(alone[kind]):.3f} s" for kind in list(PAGES)[:5] if statistics.median(alone[kind]) > LIMIT]
    begin = time.monotonic()
    threads = [threading.Thread(target=work, args=(number, options, crowd, wrong)) for number in range(options.people)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    took = time.monotonic() - begin
    show(f"{options.people} people at once", crowd)
    print(f"{sum(map(len, crowd.values())) / took:.0f} answers in a second")
    stored = len(re.findall(r'"x\d+-\d+"', host.good("--json", "user", "list", "1", timeout=300).out))
    if stored != len(crowd.get("change", [])):
        wrong.append(f"{stored} changes are there of {len(crowd.get('change', []))}")
    if server.stop() != 0:
        wrong.append("mdomain-web did not end well: " + host.read("web.log").decode()[-300:])
    print("\n".join(sorted(set(wrong))[:20]) or "nothing went wrong")
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
