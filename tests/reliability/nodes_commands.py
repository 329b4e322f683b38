"""What a machine has, as a set of facts read from its files, and the commands that change it."""
import hashlib
import json
import os
from typing import Callable, NamedTuple

from cases import DISCLAIMERS
from host import DATABASE, rows

QUERIES = {
    "domain": "SELECT domain_idx, domain_name, domain_desc FROM domain_table",
    "name": "SELECT domain_idx, additional_domain FROM domain_to_additional_domain_table",
    "user": "SELECT uid, user_name FROM user_table",
    "alias": "SELECT domain_idx, uid, account_alias FROM domain_user_alias_table"}
LIST = "mimedefang_disclaimers-"
USERS = {1001: "anna", 1002: "ben", 1003: "erik", 1004: "erika", 1005: "user"}


def facts_in(folder):
    """Of a machine's folder, or of one that was kept aside. Keys that follow from the model count as
    the model does; texts count with their list."""
    facts = {(kind, *row) for kind, query in QUERIES.items()
             for row in rows(f"{folder}/{os.path.basename(DATABASE)}", query)}
    facts.update(("rule", *row) for row in rows(
        folder + "/mailserver.db", "SELECT CAST(domain_id AS INT), name, type, bcc_to FROM bcc_table"))
    for name, value in rows(folder + "/keystore.db", "SELECT name, value FROM key_table"):
        if name.startswith("test-"):
            facts.add(("key", name, value))
        elif name.startswith(LIST) and json.loads(value):
            index = int(name[len(LIST):])
            facts.add(("disclaimers", index, json.loads(value)[0]["name"], _text(folder, index)))
    return frozenset(facts)


def _text(folder, index):
    try:
        with open(f"{folder}/disclaimer_content/domain-{index}", "rb") as file:
            return hashlib.sha256(file.read()).hexdigest()[:8]
    except FileNotFoundError:
        return "missing"


class Change(NamedTuple):
    words: str
    touches: Callable[[tuple], bool]          # facts that it may add and take away
    is_done: Callable[[frozenset], bool] = lambda facts: True
    text: bytes = b""


def _about(*start):
    return lambda fact: fact[:len(start)] == start


def _index(index):
    return lambda fact: fact[0] not in ("key", "user") and fact[1] == index


def _create(random, facts, tag):
    name = f"d{tag}.example"
    return Change(f"domain create {name} --no-auto-add", lambda fact: fact[0] == "domain" and fact[2] == name,
                  lambda after: any(fact[2] == name for fact in after if fact[0] == "domain"))


def _delete(random, facts, tag):
    index = random.choice(sorted(fact[1] for fact in facts if fact[0] == "domain")[1:])
    return Change(f"domain delete {index} --yes", _index(index), lambda after: not any(map(_index(index), after)))


def _name(random, facts, index, tag):
    fact = ("name", index, f"n{tag}.example")
    return Change(f"domain names add {index} {fact[2]}", _about(*fact), lambda after: fact in after)


def _describe(random, facts, index, tag):
    return Change(f"domain set {index} --description t{tag}", _about("domain", index),
                  lambda after: any(fact[3] == f"t{tag}" for fact in after if fact[:2] == ("domain", index)))


def _disclaimers(random, facts, index, tag):
    text = json.dumps([{**DISCLAIMERS[0], "name": f"t{tag}", "content_txt": f"t{tag}" * random.choice((1, 9000))}])
    return Change(f"disclaimer set {index} -", _about("disclaimers", index),
                  lambda after: any(fact[:3] == ("disclaimers", index, f"t{tag}") for fact in after), text.encode())


def _rule(random, facts, index, tag):
    return Change(f"bcc add {index} r{tag}@elsewhere.example archive@elsewhere.example",
                  _about("rule", index, f"r{tag}@elsewhere.example"),
                  lambda after: any(fact[:3] == ("rule", index, f"r{tag}@elsewhere.example") for fact in after))


def _user(random, facts, index, tag):
    uid = random.choice(sorted(USERS))
    alias = f"a{tag}"
    known = any(fact[:3] == ("alias", index, uid) for fact in facts)
    words = f"user set {index} {USERS[uid]} --add-alias" if known else f"user add {index} {USERS[uid]} --alias"
    return Change(f"{words} {alias}", _about("alias", index, uid),
                  lambda after: ("alias", index, uid, alias) in after)


def random_change(random, facts, tag):
    """One that is valid for a machine with these facts; `tag` has not been used before."""
    domains = [fact[1] for fact in facts if fact[0] == "domain"]
    key = f"test-{random.randrange(4)}"
    choices = [
        _create(random, facts, tag),
        Change(f"config set {key} {tag} --force", _about("key", key), lambda after: ("key", key, str(tag)) in after),
        Change("refresh", lambda fact: fact[0] == "user"), Change("publish", lambda fact: False)]
    if domains:
        in_domain = [_name, _describe, _disclaimers, _rule]
        in_domain += [_user] * any(fact[0] == "user" for fact in facts)
        choices += [make(random, facts, random.choice(sorted(domains)), tag) for make in in_domain]
    if len(domains) > 1:
        choices += [_delete(random, facts, tag)] * (len(domains) > 5 or random.random() < .3)
    return random.choice(choices)


NODE_COMMANDS = ("manage --yes", "join", "join --discard", "pull", "pull --accept-older", "take-over --yes",
                 "take-over --yes --discard", "take-over --yes --keep", "take-over --yes --keep --discard",
                 "check", "status")
WEIGHTS = (2, 3, 5, 10, 2, 2, 2, 2, 2, 8, 6)
