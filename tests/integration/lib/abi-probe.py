#!/usr/bin/env python3
"""abi-probe.py HEADER... : C++ that has one function for each class of the headers (paths below the
working folder), so that the debug information of what it compiles to tells how programs lay them out."""
import re
import sys

OPENS = re.compile(r"^namespace ([\w:]+) \{")
NAMES = re.compile(r"^(?:class|struct) (?:MDOMAIN_EXPORT )?(?:MDOMAIN_LAYOUT\(\w+\) )?(\w+)(?: : [^;]*)? \{")


def classes(header):
    scopes = []
    before = ""
    for line in open(header, encoding="utf-8"):
        opened, named = OPENS.match(line), NAMES.match(line)
        if named and all(scopes) and not before.startswith("template"):
            yield "::".join([*scopes, named.group(1)])
        if opened:
            scopes.append(opened.group(1))
        elif re.match(r"^[^\s}/#].*\{\s*$", line):
            scopes.append("")
        elif line.startswith("}"):
            scopes.pop()
        before = line


def main():
    for header in sys.argv[1:]:
        print(f'#include "{header}"')
    for name in sorted({name for header in sys.argv[1:] for name in classes(header)}):
        print(f'extern "C" void of_{name.replace("::", "_")}({name}*) {{}}')


if __name__ == "__main__":
    main()
