"""Signs in to the pages as each of the accounts of web_accounts.bash, whose names begin with the argument, and says in
a line each what they get."""

import sys

from web_person import Person

BEFORE = sys.argv[1]


def sign_in(name, password=None):
    person = Person(BEFORE + name, password or "of " + name)
    return person, " ".join(person.page.words.split())


def says(what, person, text):
    print("SAYS", f"{what}:", person.status, text)


def refusal(words):
    texts = ("Name or password are wrong.", "This account has ended or is locked.",
             "This password has to be changed before you can sign in", "The mail domains do not know this account.")
    return next((text for text in texts if text in words), words)


anna, words = sign_in("anna")
says("anna", anna, "her addresses" if "anna@example.com" in words else words)
ben, words = sign_in("ben")
links = ben.page.links
says("ben, by a group", ben, "administers bücher.example alone" if "bücher.example" in links and "example.com" not in links else words)
olivia, words = sign_in("olivia")
says("olivia", olivia, "all domains" if {"bücher.example", "example.com"} <= set(olivia.page.links) else words)
for what, name, password in (("wrong", "anna", "x"), ("nobody", "nobody", "x"), ("ended", "ended", None), ("must change", "must", None),
                             ("not of the domains", "late", None)):
    person, words = sign_in(name, password)
    says(what, person, refusal(words))
