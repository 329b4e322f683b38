"""commands.py SOURCE_DIR PAGE SCRATCH: the commands that a page shows, for docs_commands.sh.

Code blocks without a language, or with "sh", are commands. Writes each to blocks/NNN in the current
folder, and a block of JSON to disclaimers.json. Ends with 1, and says why, for a line that is none of
the known commands, and for one that another test should run and does not.
"""
import os
import re
import sys

# What is run elsewhere: page, the line, the test, what stands there.
ELSEWHERE = [
    (r"README", r"\./test .*", ".ci/run", "./test"),
    (r"README", r"\./quickstart .*", "tests/integration/docs_commands.sh", "/quickstart"),
    (r"README|reliability", r"scripts/install-packages test.*", "test", "install-packages test"),
    (r"README", r"dpkg-buildpackage .*", "tests/reliability/debian.bash", "dpkg-buildpackage"),
    (r"README", r"mdomain domain create example\.com", "tests/reliability/packages.sh", "domain create"),
    (r"README", r"g\+\+ .*", "tests/integration/readme_example.sh", "pkg-config"),
    (r"README|reliability", r"cmake --preset .*", "test", "cmake --preset"),
    (r"README", r"cd build/sanitize && ctest.*", "test", "ctest"),
    (r"README|operations", r"apt-get install \.\.?/.*", "tests/reliability/packages.sh", "mailserver-domain-tools"),
    (r"getting-started", r"cmake .* && ldconfig", "tests/integration/readme_example.sh", "cmake --install"),
    (r"directories", r"mdomain config set (account_type|win_domain_short_name) .*",
     "tests/integration/samba_accounts.sh", "config set"),
    (r"directories", r"mdomain config set acc_domain_name .*", "tests/integration/dovecot_ldap.sh",
     "config set acc_domain_name"),
    (r"directories", r"mdomain (domain create example\.com|refresh|account check)",
     "tests/integration/ldap_mdomain.sh", "refresh"),
    (r"disclaimers", r"apt-get install mimedefang .*", "scripts/install-packages", "mimedefang"),
    (r"disclaimers", r"mdomain postfix configure .*", "tests/integration/disclaimer_milter.sh", "configure"),
    (r"manual/import", r"mdomain (import (postfixadmin|passwd-aliases)|refresh|apply).*",
     "tests/integration/cli_import.sh", "apply"),
    (r"manual/postfix", r".*", "tests/reliability/manual_postfix.sh", "docs/manual/postfix.md"),
    (r"manual/web", r"curl .*", "tests/integration/lib/web_interface.py", "?dry_run=true"),
    (r"manual/web", r".*", "tests/reliability/manual_web.sh", "docs/manual/web.md"),
    (r"more-than-one-machine", r".*", "tests/integration/nodes_manual.sh", "more-than-one-machine.md"),
]
KNOWN = r"mdomain|mkdir|cd|cp|rm|mv|chmod|chown|install|echo|for|find|userdel|useradd|systemctl|journalctl|\["


def elsewhere(source, page, line):
    for pages, regex, test, words in ELSEWHERE:
        if re.search(pages, page) and re.fullmatch(regex, line):
            with open(f"{source}/{test}", encoding="utf-8") as file:
                if words not in file.read():
                    sys.exit(f"{test} does not run what {page} shows: {line}")
            return True
    return False


def as_run(line, source, scratch):
    """The line without its explanation, and with paths and names of this test."""
    line = re.sub(r"^(\*/10 \* \* \* \* root )", "", line)
    line = re.sub(r"^((?:mdomain|\./|scripts/).*?\S)  +.*", r"\1", line)
    for text, other in (("/tmp/try", f"{scratch}/try"), ("build/release/bin", "$build/bin"),
                        ("/usr/share/doc/mailserver-domain-tools", f"{source}/docs"),
                        ("ADDRESS", "anna@example.com"), ("USER", "anna")):
        line = re.sub(rf"{re.escape(text)}\b", other, line)
    return line


def blocks(text):
    """(language, lines) of each block; lines that are continued are one."""
    for language, block in re.findall(r"^```(\w*)\n(.*?)^```", text, re.DOTALL | re.MULTILINE):
        yield language, re.sub(r"\\\n *|(?<=&&)\n *", " ", block).splitlines()


def main():
    source, page, scratch = sys.argv[1:]
    os.mkdir("blocks")
    with open(f"{source}/{page}", encoding="utf-8") as file:
        for number, (language, lines) in enumerate(blocks(file.read())):
            if language == "json":
                with open("disclaimers.json", "w", encoding="utf-8") as out:
                    out.write("\n".join(lines))
            if language not in ("", "sh") or page == "docs/reference.md":
                continue
            lines = [as_run(line, source, scratch) for line in lines if line and not elsewhere(source, page, line)]
            for line in lines:
                if not re.match(rf"({KNOWN})( |$)", line):
                    sys.exit(f"{page}: is this a command? {line}")
            if lines:
                with open(f"blocks/{number:03}", "w", encoding="utf-8") as out:
                    out.write("\n".join(lines) + "\n")


main()
