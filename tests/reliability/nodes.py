#!/usr/bin/env python3
"""nodes.py BUILD [--steps N] [--seed N] : three machines that share a key store, and N random steps:
any command on any machine, sometimes killed, or met by a store that stops in the middle of it; the
store emptied, set back, damaged, full, away, another one; a file of a machine that pulls lost.

After each step nothing has changed but what the command said, on its machine. What was done (status
0, or 6: not published) is all there; what was refused or failed left nothing. A machine that manages
changes its domains whatever the store does. What is published takes the place of changes that it lacks only
when the command was told so, and then they lie in a folder that was kept. At the end a check and
pulls make all three equal. Prints what went wrong, by cause, with the step's number; ends with 1 then.
"""
import json
import os
import random
import time

from host import ETC, Host, rows
from nodes_commands import NODE_COMMANDS, WEIGHTS, Change, facts_in, random_change
from runs import Causes, arguments
from shared_store import Store

DONE, FAILED, REFUSED, UNPUBLISHED = 0, 1, 3, 6
STATUSES = {DONE, FAILED, 2, REFUSED, 4, UNPUBLISHED}
PULLED_FILES = ("local_DOMAIN.db", "mailserver.db", "disclaimer_content/domain-1")


class State:
    """What a machine had at a time, and the states that it follows from or was told to replace."""

    def __init__(self, facts, *parents):
        self.facts, self.parents = facts, [parent for parent in parents if parent]

    def follows(self, other):
        seen, left = set(), [self]
        while left:
            state = left.pop()
            if state is other:
                return True
            if id(state) not in seen:
                seen.add(id(state))
                left += state.parents
        return False


class Machine:
    def __init__(self, build, folder, name):
        self.name, self.host = name, Host(build, folder).create()
        self.etc = self.host.path(ETC)
        self.state = State(frozenset())
        self.has_own = False        # it has changed something since its content was last replaced
        self.is_unsettled = None    # facts that a killed command may still lead to

    def use(self, store):
        self.host.write("etc/mailserver-domain/host.ini", f"[keystore]\nbackend = redis\nport = {store.port}\n"
                        f"node = {self.name}\nconnect_timeout = 1\ncommand_timeout = 1\n")

    def facts(self):
        return facts_in(self.etc)

    def remembers(self, what):
        return dict(rows(self.etc + "keystore.db", "SELECT name, value FROM node_table")).get(what, "")

    def version(self):
        return int(self.remembers("term") or 0), int(self.remembers("version") or 0)

    def kept(self):
        names = os.listdir(self.etc) if os.path.isdir(self.etc) else []
        return {name for name in names if name.startswith("kept-")}


class Shared(Store):
    """A store with what it should hold."""

    def __init__(self, folder):
        super().__init__(folder)
        self.content, self.seen, self.faults, self.saved = None, {}, set(), None

    def empty(self):
        self.start()
        self.call("FLUSHALL")
        self.content, self.faults = None, set()

    def save(self):
        self.saved = self.snapshot(), self.content, set(self.faults)

    def set_back(self):
        snapshot, self.content, faults = self.saved
        self.faults = set(faults)
        self.restore(snapshot)

    def harm(self, is_lost):
        what = self.damage(random, is_lost)
        if what != "nothing":
            self.faults.add("state" if what.startswith("mail:state") else "content")
        return what

    def look(self):
        """True when there is another publication than at the last look."""
        if not self.is_up:
            return False
        before, self.seen = self.seen, self.state()
        return self.seen != before

    def term(self):
        term = self.seen.get("term", "")
        return int(term) if term.isdigit() else 0  # it may have been damaged

    def is_managed_by(self, machine):
        return self.seen.get("manager") == machine.name


class Company:
    def __init__(self, options):
        self.causes = Causes()
        self.stores = [Shared(f"{options.scratch}/store{number}") for number in (1, 2)]
        self.store = self.stores[0]
        self.machines = [Machine(options.build, f"{options.scratch}/{name}", name) for name in "abc"]
        self.number, self.title = 0, "start"
        for machine in self.machines:
            machine.use(self.store)

    def wrong(self, what, *lines):
        self.causes.add(self.title, what, f"step {self.number}", [str(line) for line in lines])

    # ---- Steps ----

    def step(self, number):
        self.number = number
        kind = random.random()
        if kind < .76:
            self.run_command(random.choice(self.machines), random.choices(
                (None, self.kill, self.freeze), (86, 9, 5 if self.store.is_up else 0))[0])
        elif kind < .97:
            self.change_store()
        else:
            self.lose_file(random.choice(self.machines))
        self.check_listings(random.choice(self.machines))

    def kill(self, process):
        time.sleep(random.random() * .12)
        process.kill()

    def freeze(self, _):
        time.sleep(random.random() * .08)
        self.store.freeze()

    def run_command(self, machine, during=None, command=None):
        if command is None and random.random() < .6:
            command = random_change(random, machine.state.facts, self.number)
        elif command is None:
            command = "node " + random.choices(NODE_COMMANDS, WEIGHTS)[0]
        is_change = isinstance(command, Change)
        words = command.words if is_change else command
        mode = {None: "", self.kill: "killed", self.freeze: "store stops"}[during]
        self.title = f"{' '.join(words.split()[:2]) if is_change else words} {mode}".strip()
        before, kept = machine.version(), machine.kept()
        role, expected = machine.remembers("role"), self.expected(machine, command, mode)
        result = machine.host.run(*words.split(), text=command.text if is_change else None, during=during)
        if mode == "store stops":
            self.store.thaw()
        print(f"{self.number} {machine.name} {role}: {words} {mode} -> {result.status} {result.err.strip()[-150:]!a}")
        if mode != "killed" or result.status >= 0:
            self.judge_status(result, expected)
        for other in self.machines:
            if other is not machine and other.facts() != other.state.facts:
                self.wrong("changed another machine", *self.differences(other.state.facts, other.facts()))
        if is_change:
            self.judge_change(machine, command, result.status)
        else:
            self.judge_node_command(machine, words, result.status, before, kept, role)
        self.look_at_store(machine, is_change, mode, result.status)
        return result

    def change_store(self):
        store = self.store
        if not store.is_up:
            choice = random.choice(("start", "start", "start empty", "switch"))
        elif store.is_full():
            choice = "room"
        else:
            choice = random.choice(("empty", "stop", "full", "save", "save", "set back", "lose", "lose", "damage",
                                    "damage", "switch"))
        self.title, what = choice, ""
        if choice == "start":
            store.start()
        elif choice in ("empty", "start empty"):
            store.empty()
        elif choice == "stop":
            store.stop()
        elif choice in ("full", "room"):
            store.set_room(choice == "full")
        elif choice == "save":
            store.save()
        elif choice == "set back" and store.saved:
            store.set_back()
        elif choice in ("lose", "damage"):
            what = store.harm(choice == "lose")
        elif choice == "switch":
            self.store = next(other for other in self.stores if other is not store)
            for machine in self.machines:
                machine.use(self.store)
        self.store.look()
        print(f"{self.number} store: {choice} {what}")

    def lose_file(self, machine):
        name = random.choice(PULLED_FILES)
        if machine.remembers("role") != "member" or machine.has_own or not os.path.exists(machine.etc + name):
            return
        print(f"{self.number} {machine.name}: loses {name}")
        os.remove(machine.etc + name)
        machine.state = State(machine.facts(), machine.state)

    # ---- What must hold ----

    def expected(self, machine, command, mode):
        """The statuses that the command may end with."""
        store, seen, role = self.store, self.store.seen, machine.remembers("role")
        is_calm = store.is_up and not store.is_full() and not mode and not store.faults
        others = bool(seen) and not store.is_managed_by(machine)
        # Of a store that was set back to before this machine took over.
        is_older = bool(store.faults) or store.term() < machine.version()[0]
        if isinstance(command, Change):
            if role != "manager":
                return {REFUSED}
            unpublished = {FAILED} if command.words == "publish" else {UNPUBLISHED}
            empty = {REFUSED} if command.words in ("publish", "refresh") and not any(
                fact[0] == "domain" for fact in machine.state.facts) else set()
            if not store.is_up:
                return unpublished | empty
            if others or "state" in store.faults:
                return {REFUSED} | ({DONE} | unpublished if is_older or mode else set())
            return {DONE} | empty | (unpublished if store.is_full() or mode else set())
        if command == "node pull" and role == "manager" or command == "node manage --yes" and is_calm and others:
            return {REFUSED}
        if not is_calm:
            return STATUSES
        has_told = command in ("node join --discard", "node take-over --yes --discard") and seen and (
            others and not is_older or "join" not in command)
        is_manager = role == "manager" and not others
        if is_manager and command in ("node check", "node manage --yes") or has_told or (
                command == "node take-over --yes --keep --discard"):
            return {DONE}
        return STATUSES

    def judge_status(self, result, expected):
        if result.status not in STATUSES:
            self.wrong("crashed", result.status, result.err[-300:])
        elif result.status not in expected:
            self.wrong("unexpected status", f"status {result.status}, expected {sorted(expected)}", result.err[-300:])
        if result.status not in (DONE, -9) and not result.err.strip().splitlines()[-1:][0:1] == [
                line for line in result.err.strip().splitlines()[-1:] if line.startswith("mdomain: ")]:
            self.wrong("no last line", result.err[-300:])

    def judge_change(self, machine, change, status):
        before, after = machine.state.facts, machine.facts()
        left = machine.is_unsettled or (lambda fact: False)
        strange = [fact for fact in before ^ after if not change.touches(fact) and not left(fact)]
        if strange:
            self.wrong("changed something else", *self.differences(before, after))
        if status in (DONE, UNPUBLISHED):
            machine.is_unsettled = None
            if not change.is_done(after):
                self.wrong("reported as done and missing", change.words)
        elif status < 0:
            machine.is_unsettled = lambda fact: change.touches(fact) or left(fact)
        elif any(not left(fact) for fact in before ^ after):
            self.wrong("not done, and changed something", *self.differences(before, after))
        if before != after:
            machine.state = State(after, machine.state)
            if machine.remembers("role") == "manager":
                machine.has_own = True
            elif machine.remembers("role") == "member":
                self.wrong("a member changed its model", *self.differences(before, after))

    def judge_node_command(self, machine, words, status, before, kept, role):
        content, old, after = self.store.content, machine.state.facts, machine.facts()
        published = content.facts if content else frozenset()
        told = "--discard" in words
        if after != old:
            if "--keep" in words or not words.startswith(("node pull", "node join", "node take-over", "node check")):
                self.wrong("changed content that it was to leave alone", *self.differences(old, after))
            elif not content:
                self.wrong("took the place of content with nothing", *self.differences(old, after))
            if (after - old) - published or (old - after) & published:
                self.wrong("brought what is not published", *self.differences(published, after))
        # What a machine has is given up when it becomes one that pulls, which may get the rest later.
        if machine.has_own and (after != old or role != "member" and machine.remembers("role") == "member"):
            if not told and not (content and content.follows(machine.state)):
                self.wrong("threw away changes without being told", *self.differences(old, published))
            elif not self.is_kept(machine, old, kept):
                self.wrong("what is replaced was not kept", *self.differences(old, published))
            machine.has_own = False
        if after != old:
            machine.state = content if after == published else State(after, machine.state, content)
        brings = words.startswith(("node pull", "node join", "node take-over")) and "--keep" not in words
        # A take-over by the one that manages only mends, also in a store that was set back.
        is_own = role == "manager" and (
            self.store.is_managed_by(machine) or self.store.term() < before[0])
        if status == DONE and brings and not is_own and content and after != published:
            self.wrong("done, and not what is published", *self.differences(published, after))
        if words.startswith("node pull") and "older" not in words and machine.version() < before:
            self.wrong("went back", before, machine.version())
        if words == "node status" and status == DONE and content and after != published:
            self.wrong("calls current what is not", *self.differences(published, after))
        if status == DONE and words.startswith(("node manage", "node take-over")):
            machine.has_own = True
            machine.state = State(after, machine.state, content if "--keep" in words else None)

    def is_kept(self, machine, facts, kept):
        return any(facts_in(machine.etc + name) == facts for name in machine.kept() - kept)

    def look_at_store(self, machine, is_change, mode, status):
        store = self.store
        if store.look() and store.seen:
            store.content = machine.state
            store.faults.discard("state")
        elif is_change and status == DONE and not mode and store.content and store.content is not machine.state and (
                store.content.facts != machine.state.facts):
            self.wrong("said published and is not", *self.differences(store.content.facts, machine.state.facts))
        if status == DONE and not mode and self.title in ("publish", "node check") and store.is_managed_by(machine):
            store.faults.discard("content")

    @staticmethod
    def differences(old, new):
        return [f"+ {fact}" for fact in sorted(new - old, key=str)] + [
            f"- {fact}" for fact in sorted(old - new, key=str)]

    def check_listings(self, machine):
        """What a machine answers is what it has, whatever the store does."""
        facts, asked = machine.state.facts, {}
        for words in ("domain list", "config list"):
            result = machine.host.run("--json", *words.split())
            if result.status != DONE:
                self.title = words
                self.wrong("a listing fails", result.err[-300:])
                return
            asked[words] = json.loads(result.out)
        if {(one["id"], one["name"]) for one in asked["domain list"]} != {
                fact[1:3] for fact in facts if fact[0] == "domain"}:
            self.wrong("lists other domains", machine.name)
        if {("key", *item) for item in asked["config list"].items() if item[0].startswith("test-")} != {
                fact for fact in facts if fact[0] == "key"}:
            self.wrong("lists other keys", machine.name)

    # ---- From the beginning to the end ----

    def begin(self):
        first, *others = self.machines
        for words in ("node manage --yes", "domain create first.example --no-auto-add", "refresh"):
            self.run_command(first, command=words if words.startswith("node")
                             else Change(words, lambda fact: True))
        for machine in others:
            self.run_command(machine, command="node join")

    def end(self):
        """The store is whole again; one machine checks, the others pull, and all have the same."""
        self.number += 1
        self.store.start()
        self.store.set_room(False)
        manager = max(self.machines, key=lambda machine: (machine.remembers("role") == "manager", machine.version()))
        if manager.remembers("role") != "manager" or "state" in self.store.faults:
            self.must(manager, "node take-over --yes --keep --discard")
        self.must(manager, "node check")
        for machine in self.machines:
            if machine is not manager:
                if self.run_command(machine, command="node pull --accept-older").status != DONE:
                    self.must(machine, "node join --discard")
                if machine.facts() != manager.facts():
                    self.wrong("not equal at the end", *self.differences(manager.facts(), machine.facts()))
        self.must(manager, "node status")

    def must(self, machine, words):
        result = self.run_command(machine, command=words)
        if result.status != DONE:
            self.wrong("fails at the end", result.err[-300:])

    def stop(self):
        for store in self.stores:
            store.stop()


def main():
    options = arguments(__doc__, steps=1000, seed=1)
    random.seed(options.seed)
    company = Company(options)
    try:
        company.begin()
        for number in range(1, options.steps + 1):
            company.step(number)
        company.end()
    finally:
        company.stop()
    company.causes.end(f"{options.steps} steps, seed {options.seed}")


if __name__ == "__main__":
    main()
