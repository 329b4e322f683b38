"""Examples of tools/mdomain/manual.txt for manual_examples.sh, which runs them.

split MANUAL DIR    a folder per noun, "" for all: files NNN.prepare and NNN.run, each with a command
compare MANUAL DIR  what they printed (NNN.out) is what the manual shows, but for blanks, times and "..."
fields MANUAL DIR   what they printed with --json (NNN.json) has only members that the manual names
update MANUAL DIR   writes what they printed into the manual, where that shows something else
"""
import json
import os
import re
import sys


def steps(lines):
    """(noun, number, kind, command, line number, words of the command) in the manual's order."""
    noun, words, number = "", "", 0
    for at, line in enumerate(lines):
        if line.startswith("= "):
            noun = line[2:]
        elif line.startswith("=="):
            words = line[3:]
        elif line.startswith("~ "):
            number += 1
            yield noun, number, "prepare", line[2:], at, words
        elif line.startswith("    $ "):
            number += 1
            yield noun, number, "run", line[6:], at, words


def shown(lines, at):
    """What the manual shows below the command on line `at`."""
    end = at + 1
    while end < len(lines) and lines[end].startswith("    ") and not lines[end].startswith("    $ "):
        end += 1
    return [line[4:] for line in lines[at + 1:end]]


def fits(want, got):
    def squeezed(text):
        text = "\n".join(" ".join(line.split()) for line in text if line.strip())
        text = re.sub(r"\d{4}-?\d\d-?\d\d[T-]\d\d:?\d\d:?\d\d(Z|\+0000)?", "TIME", text)
        return re.sub(r"\b\d+ s\b", "AGE", text)
    pattern = ".*".join(re.escape(part) for part in squeezed(want).split("..."))
    return re.fullmatch(pattern, squeezed(got), re.DOTALL)


def printed(folder, noun, number, ending="out"):
    with open(f"{folder}/{noun}/{number:03}.{ending}", encoding="utf-8") as file:
        return file.read()


def split(lines, folder):
    for noun, number, kind, command, _, _ in steps(lines):
        os.makedirs(f"{folder}/{noun}", exist_ok=True)
        with open(f"{folder}/{noun}/{number:03}.{kind}", "w", encoding="utf-8") as file:
            file.write(command + "\n")


def runs(lines):
    return [step for step in steps(lines) if step[2] == "run"]


def compare(lines, folder):
    for noun, number, _, command, at, _ in runs(lines):
        got = printed(folder, noun, number).splitlines()
        if not fits(shown(lines, at), got):
            print(f"{command}\n  shown: {shown(lines, at)}\n  says:  {got}")


def update(lines, folder, path):
    for noun, number, _, _, at, _ in reversed(runs(lines)):
        got, want = printed(folder, noun, number).splitlines(), shown(lines, at)
        if not fits(want, got):
            lines[at + 1:at + 1 + len(want)] = ["    " + line for line in got if line.strip()]
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(lines) + "\n")


def members(text):
    try:
        value = json.loads(text)
    except ValueError:
        return set()
    records = value if isinstance(value, list) else [value]
    return {name for record in records if isinstance(record, dict) for name in record}


def explained(lines):
    """The json text of each command."""
    noun, words, texts, current = "", "", {}, None
    for line in lines:
        if line.startswith("= "):
            noun = line[2:]
        elif line.startswith("=="):
            words = line[3:]
        if line.startswith("json "):
            current = (noun, words)
            texts[current] = line[5:]
        elif line.startswith("  ") and current and not line.startswith("    "):
            texts[current] += " " + line.strip()
        else:
            current = None
    return texts


def fields(lines, folder):
    texts = explained(lines)
    seen = {}
    for noun, number, _, command, _, words in runs(lines):
        if "|" not in command and "--dry-run" not in command:
            seen.setdefault((noun, words), set()).update(members(printed(folder, noun, number, "json")))
    for command, names in seen.items():
        text = texts[command]
        for other in re.findall(r"as ([a-z]+ [a-z]+) |as ([a-z]+ [a-z]+)[.,;]", text):
            text += texts.get(tuple("".join(other).split()), "")
        missing = sorted(name for name in names if not re.search(rf"\b{re.escape(name)}\b", text))
        if missing and "by name" not in text and not text.startswith("the same"):
            print(f"{' '.join(command)}: the json text has not: {', '.join(missing)}")


def main():
    job, path, folder = sys.argv[1:]
    with open(path, encoding="utf-8") as file:
        lines = file.read().splitlines()
    if job == "update":
        update(lines, folder, path)
    else:
        {"split": split, "compare": compare, "fields": fields}[job](lines, folder)


main()
