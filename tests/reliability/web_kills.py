#!/usr/bin/env python3
"""web_kills.py BUILD [--kills N] [--people N] [--seed N] : mdomain-web is killed at random moments while
administrators change things, and started again. What was answered as done must be there and in the
history with its person, pages that came whole end as pages do, and databases are sound. Ends with 1 when not."""

import http.client
import json
import random
import signal
import sys
import threading
import time

from runs import arguments
from web_load import Person, Server, company


def work(number, until, done, wrong):
    person, at = Person(f"u{number:06}"), 0
    while time.monotonic() < until:
        at += 1
        alias = f"x{number}-{at}-{int(until)}"
        try:
            page = person.get(f"/domains/1/people/{100000 + number}")
            if page.status == 200 and not page.text.rstrip().endswith("</html>"):
                wrong.append("half a page came as a whole one")
            answer = person.post(f"/domains/1/people/{100000 + number}", add_aliases=alias, confirmed="1")
            if answer.status == 303 and answer.getheader("Location").startswith("/domains"):
                done.append((person.name, alias))
            elif answer.status >= 500 and answer.status != 503:
                wrong.append(f"status {answer.status}")
        except (OSError, http.client.HTTPException):
            time.sleep(0.05)


def main():
    options = arguments(__doc__, kills=30, people=8, seed=1)
    chance = random.Random(options.seed)
    host = company(options.build, options.scratch + "/company", 50, options.people)
    done, wrong = [], []
    for _ in range(options.kills):
        server = Server(host)
        moment = chance.uniform(0.2, 2)
        threads = [threading.Thread(target=work, args=(number, time.monotonic() + moment + 0.3, done, wrong))
                   for number in range(options.people)]
        for thread in threads:
            thread.start()
        time.sleep(moment)
        server.process.send_signal(signal.SIGKILL)
        server.process.wait()
        for thread in threads:
            thread.join()
    server = Server(host)  # the socket that was left behind is replaced
    if server.stop() != 0:
        wrong.append("it does not end well afterwards")
    host.good("refresh")
    users = host.good("--json", "user", "list", "1").out
    history = json.loads(host.good("--json", "history", "list", "--limit", "100000").out)
    people = [entry["person"] for entry in history]
    for name, alias in done:
        if f'"{alias}"' not in users:
            wrong.append(f"{alias} was done and is missing")
    for name in sorted({name for name, _ in done}):
        if people.count(name) < min(sum(one == name for one, _ in done), len(history) // options.people // 2):
            wrong.append(f"the history has {people.count(name)} changes of {name}")
    wrong += [line for line in host.state() if "_check " in line]
    print("\n".join(sorted(set(wrong))[:20]) or "nothing went wrong")
    print(f"{options.kills} kills, {len(done)} changes done, {len(history)} in the history")
    sys.exit(1 if wrong or not done else 0)


if __name__ == "__main__":
    main()
