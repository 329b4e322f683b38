"""A host below a scratch folder: its commands, its state as a set of lines, copies of it.

A state holds what a change can leave behind: the rows of every database, every file with mode and
content. The folder's own path stands as ROOT in it, so states of copies compare. Tables that are not
in DESCRIBED are bookkeeping of the library and do not count; nor do SQLite's journals, which the
next opening consumes, nor the key of the latest notice, which the notice files repeat in full. Of the
registry of owners counts whether it follows the model, not the change that it was built from. A list
or text of no disclaimers and a reset DKIM setting, which a deleted domain leaves, are as good as none,
and so is a database without a row.
"""
import hashlib
import os
import re
import shutil
import sqlite3
import subprocess
from typing import NamedTuple

PACKAGE = "var/packages/Postara-Server/"
ETC = PACKAGE + "etc/"
DATABASE = ETC + "local_DOMAIN.db"
NOTICES = "var/run/postara_server/update_smtp_user_list/"
DESCRIBED = set("""user_table group_table group_to_user_table domain_user_role_table
    domain_user_alias_table domain_group_role_table domain_group_removed_user_table domain_table
    domain_to_additional_domain_table primary_domain_table key_table bcc_table access_table
    blackwhite_table sender_quota_table multi_domain_enable_table multi_domain_rate_table
    alias_table alias_member_table domain_part local_part""".split())
REGISTRY = PACKAGE + "target/etc/email_owner.db"
UNSTEADY = ("smtp_changed_uids",)
EMPTY = {"mimedefang_disclaimers-": "[]\n", "enable_dkim_sign-": "no", "dkim_selector-": ""}
NO_TEXTS = b"[]\n"
PASSWD = """root:x:0:0:root:/root:/bin/bash
anna:x:1001:2001:Anna Schmidt:/home/anna:/bin/bash
ben:x:1002:2001:Ben Carter:/home/ben:/bin/bash
erik:x:1003:2002:Erik Larsen:/home/erik:/bin/bash
erika:x:1004:2002:Erika Larsson:/home/erika:/bin/bash
user:x:1005:1005:Zoë Müller:/home/user:/bin/bash
"""
GROUP = "root:x:0:\nsales:x:2001:\nbooks:x:2002:user\ninterns:x:2003:\n"


class Result(NamedTuple):
    status: int  # of the shell's kind: negative for a signal
    out: str
    err: str


class Host:
    def __init__(self, build, root):
        self.build, self.root = os.path.realpath(build), root

    def path(self, name):
        return os.path.join(self.root, name)

    def write(self, name, content):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def create(self, passwd=PASSWD, group=GROUP):
        self.write("etc/passwd", passwd)
        self.write("etc/group", group)
        os.makedirs(self.path(PACKAGE + "target/bin"))
        os.symlink(self.build + "/bin/korv_bcc_map", self.path(PACKAGE + "target/bin/korv_bcc_map"))
        return self

    def copy(self, root):
        shutil.rmtree(root, ignore_errors=True)
        shutil.copytree(self.root, root, symlinks=True)
        return Host(self.build, root)

    def remove(self):
        shutil.rmtree(self.root, ignore_errors=True)

    def run(self, *argv, before=(), text=None, timeout=120, program="mdomain", during=None):
        """A command of mdomain, or another program of the build; `before` stands in front of it, and
        `during` is called with the running process."""
        environment = {**os.environ, "MDOMAIN_ROOT": self.root, "UBSAN_OPTIONS": "halt_on_error=1",
                       "ASAN_OPTIONS": "exitcode=99:detect_leaks=0"}
        words = [*before, os.path.join(self.build, "bin", program), *argv]
        with subprocess.Popen(words, env=environment, cwd=self.root, stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
            try:
                if during:
                    during(process)
                out, err = process.communicate(text or b"", timeout)
            except subprocess.TimeoutExpired:
                process.kill()
                return Result(-1, "", f"not done after {timeout} seconds")
        return Result(process.returncode, *(part.decode(errors="surrogateescape") for part in (out, err)))

    def good(self, *argv, **options):
        result = self.run(*argv, **options)
        if result.status != 0:
            raise SystemExit(f"mdomain {' '.join(argv)}: status {result.status}, {result.err}")
        return result

    def sql(self, name, script):
        with sqlite3.connect(self.path(name)) as database:
            database.executescript(script)
        database.close()

    def state(self):
        lines = set()
        for folder, _, names in os.walk(self.root):
            if names or not folder.endswith("/history.db.files"):  # which the next change removes
                lines.add(f"folder {self._short(folder)}")
            for name in names:
                path = os.path.join(folder, name)
                lines.update(self._file_lines(path, self._short(path)))
        return lines

    def _rooted(self, text):
        """A copy names the root that it came from until it is published again."""
        return re.sub(re.escape(os.path.dirname(self.root)) + r"/\w+(\.\w+)*", "ROOT", text)

    def _short(self, path):
        return os.path.relpath(path, self.root)

    def _file_lines(self, path, short):
        if short.endswith(("-journal", "mdomain.lock", "postara_server/refreshed", "/history.db")) or not os.path.exists(path):
            return []
        if short.startswith(NOTICES):
            return [f"notice {short[len(NOTICES):]}"]
        with open(path, "rb") as file:
            content = file.read()
        if content == NO_TEXTS and "/domain-" in short:
            return []
        if content.startswith(b"SQLite format 3\0"):
            rows = list(self._rows(path, short))
            return [f"mode {short} {os.stat(path).st_mode:o}", *rows] if rows != [f"version {short} 0"] else []
        if short.endswith("_bcc.db"):  # a hash map notes its own file's identity
            content = content.replace(content[52:72], b"")
        content = self._rooted(content.decode("latin-1")).encode()
        digest = hashlib.sha256(content).hexdigest()[:16]
        return [f"file {short} {os.lstat(path).st_mode:o} {len(content)} bytes {digest}"]

    def _rows(self, path, short):
        database = sqlite3.connect(path, isolation_level=None)
        try:
            for check in ("integrity_check", "foreign_key_check"):
                for row in database.execute(f"PRAGMA {check}"):
                    if row != ("ok",):
                        yield f"{check} {short} {row}"
            version = database.execute("PRAGMA user_version").fetchone()[0]
            if short == REGISTRY:
                version = "follows" if version == self._changes_of_model() else "older"
            yield f"version {short} {version}"
            for view in database.execute("SELECT name, sql FROM sqlite_master WHERE type = 'view'"):
                yield f"view {short} {view}"
            tables = database.execute("SELECT name FROM sqlite_master WHERE type = 'table'")
            for (table,) in tables.fetchall():
                if table in DESCRIBED:
                    for row in database.execute(f"SELECT * FROM {table}"):
                        if table != "key_table" or not self._is_nothing(*row):
                            yield self._rooted(f"row {short} {table} {row}")
        finally:
            database.close()

    def _changes_of_model(self):
        return int.from_bytes(self.read(DATABASE)[24:28], "big")

    def _is_nothing(self, key, _, value):
        if key.startswith("sync_disclaimer_content_file-"):
            content = ETC + "disclaimer_content/domain-" + key.rpartition("-")[2]
            return not os.path.exists(self.path(content)) or self.read(content) == NO_TEXTS
        return key in UNSTEADY or EMPTY.get(key.rstrip("0123456789")) == value


def rows(path, query="SELECT domain_idx, domain_name FROM domain_table"):
    try:
        with sqlite3.connect(f"file:{path}?mode=ro", uri=True) as database:
            return set(database.execute(query).fetchall())
    except sqlite3.Error:
        return set()


def differences(got, want):
    """Sorted lines, "+" for what is too much and "-" for what is missing. A notice too many is none:
    whoever reads it looks up addresses that have not changed."""
    extra = [f"+ {line}" for line in got - want if not line.startswith("notice ")]
    return sorted(extra + [f"- {line}" for line in want - got])


def kinds(lines):
    """What the differences are about: each table and file once, without random parts of names."""
    words = [line.split() for line in lines]
    return tuple(sorted({re.sub(r"\.\w{6,16}\b", "", " ".join(
        word[:4 if word[1:2] == ["row"] else 3])) for word in words}))
