#!/usr/bin/env python3
"""mail_load.py ROOT POSTFIX [--accounts N] [--lookups N] [--messages N] : asks and sends while the
model changes. ROOT is a root whose domain 1 is example.com, POSTFIX the folder of a Postfix on port 25
that asks its maps and has its mailboxes in POSTFIX/mail. Refreshes bring the accounts load0, load1...
in four parts, "user set" runs in a loop, look-ups by postmap and by RCPT TO and messages go on until
all of it is done. Prints what was put off, lost, doubled, returned or answered wrongly; ends with 1
when there is something. tests/integration/mail_load.sh makes the surroundings.
"""
import argparse
import collections
import glob
import re
import smtplib
import subprocess
import sys
import threading
import time

PARTS = 4
KNOWN = ["anna", "ben", "carla", "hugo", "ines"]
BATCH = 50  # recipients of one connection


class Load:
    def __init__(self, options):
        self.options = options
        self.map = (f"lmdb:{options.root}/var/packages/Postara-Server/target/etc/postfix_addresses")
        self.faults = collections.Counter()
        self.done = collections.Counter()
        self.sent = {}
        self.is_refreshed = threading.Event()
        self.is_broken = False  # a thread ended early: the others end too
        self.threads = []

    def fault(self, what):
        self.faults[what] += 1

    def start(self, work):
        def run():
            try:
                work()
            except Exception as error:  # its thread's end must not look like success
                self.fault(f"{work.__name__}: {error!r}")
                self.is_broken = True
        self.threads.append(threading.Thread(target=run))
        self.threads[-1].start()

    def mdomain(self, *words):
        end = subprocess.run(["mdomain", "--root", self.options.root, *words],
                             capture_output=True, text=True, check=False)
        if end.returncode != 0:
            self.fault(f"mdomain {words[0]}: status {end.returncode}, {end.stderr.strip()[-200:]}")

    def refresh(self):
        for part in range(PARTS):
            first, end = (self.options.accounts * p // PARTS for p in (part, part + 1))
            with open(f"{self.options.root}/etc/passwd", "a", encoding="utf-8") as file:
                file.writelines(f"load{n}:x:{20000 + n}:2001::/:/bin/sh\n" for n in range(first, end))
            self.mdomain("refresh", "--quiet")
            self.done["refreshes"] += 1
        self.is_refreshed.set()

    def change(self):
        while not self.is_done("lookups", "messages"):
            number = self.done["changes"]
            self.mdomain("user", "set", "1", "david", "--alias", "david", "--alias", f"d{number}")
            self.done["changes"] += 1

    def is_done(self, *kinds):
        return self.is_broken or (self.is_refreshed.is_set() and all(
            self.done[kind] >= vars(self.options)[kind] for kind in kinds))

    def names(self):
        """Every sixth is nobody's."""
        return KNOWN + [f"ghost{self.done['lookups']}"]

    def ask_map(self):
        while not self.is_done("lookups"):
            keys = [f"{name}@example.com" for name in self.names()] * (BATCH * 2)
            end = subprocess.run(["postmap", "-q", "-", self.map], input="\n".join(keys) + "\n",
                                 capture_output=True, text=True, check=False)
            if end.stderr:
                self.fault(f"postmap: {end.stderr.strip()[-200:]}")
            wanted = [f"{key}\t{key.replace('example.com', 'localhost')}"
                      for key in keys if not key.startswith("ghost")]
            if end.stdout.splitlines() != wanted:
                self.fault(f"postmap answers {end.stdout[:100]}")
            self.done["lookups"] += len(keys)

    def ask_server(self):
        while not self.is_done("lookups"):
            with smtplib.SMTP("127.0.0.1", 25) as smtp:
                smtp.ehlo()
                smtp.mail("")
                names = (self.names() * BATCH)[:BATCH]
                for name in names:
                    code, text = smtp.rcpt(f"{name}@example.com")
                    if code != (550 if name.startswith("ghost") else 250):
                        self.fault(f"RCPT TO: {code} {text[:60]}")
                self.done["lookups"] += len(names)

    def send(self):
        while not self.is_done("messages"):
            number = self.done["messages"]
            name = KNOWN[number % len(KNOWN)]
            self.send_one(f"message {number}", name)
            # As many as were asked for while the refreshes go on, and not all in its first second.
            time.sleep(.02 if number < self.options.messages else .5)

    def send_one(self, subject, name):
        self.done["messages"] += 1
        try:
            with smtplib.SMTP("127.0.0.1", 25) as smtp:
                smtp.sendmail("x@away.example", [f"{name}@example.com"],
                              f"Subject: {subject}\r\n\r\nhello\r\n")
            self.sent[subject] = [name]
        except smtplib.SMTPException as error:
            self.fault(f"sending: {error!r}")

    def send_to_new(self):
        for number in range(0, self.options.accounts, max(1, self.options.accounts // 20)):
            self.send_one(f"new {number}", f"load{number}")

    def found(self):
        found = collections.defaultdict(list)
        for path in glob.glob(f"{self.options.postfix}/mail/*/new/*"):
            with open(path, encoding="utf-8") as file:
                subject = next(line[9:].strip() for line in file if line.startswith("Subject: "))
            found[subject].append(path.split("/")[-3])
        return found

    def wait_for_mail(self):
        queue = f"{self.options.postfix}/queue"
        end = time.monotonic() + 120
        while time.monotonic() < end and any(
                glob.glob(f"{queue}/{folder}/**/[0-9A-F]*[0-9A-F]?????", recursive=True)
                for folder in ("maildrop", "incoming", "active", "deferred")):
            time.sleep(.2)
        found = self.found()
        for subject in {*found, *self.sent}:
            if found.get(subject, []) != self.sent.get(subject, []):
                self.fault(f"a message came to {len(found.get(subject, []))} mailboxes, not to one")

    def read_log(self):
        with open(f"{self.options.postfix}/log/maillog", encoding="utf-8") as file:
            for line in file:
                if re.search(r"warning|error:|fatal|panic|deferred|bounced|dsn=4|: 4\d\d 4\.", line):
                    self.fault(line.split(" ", 4)[-1].strip()[:200])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("root")
    parser.add_argument("postfix")
    for name, count in (("accounts", 10000), ("lookups", 20000), ("messages", 500)):
        parser.add_argument(f"--{name}", type=int, default=count)
    load = Load(parser.parse_args())
    begin = time.monotonic()
    for work in (load.refresh, load.change, load.ask_map, load.ask_server, load.send):
        load.start(work)
    for thread in load.threads:
        thread.join()
    load.send_to_new()
    load.wait_for_mail()
    load.read_log()
    print(f"{time.monotonic() - begin:.0f} s:", ", ".join(f"{n} {what}" for what, n in load.done.items()))
    for fault, times in load.faults.most_common(20):
        print(f"{times} x {fault}")
    sys.exit(1 if load.faults else 0)


if __name__ == "__main__":
    main()
