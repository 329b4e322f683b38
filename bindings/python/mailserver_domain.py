"""Mail domains, their users and their addresses: the calls of mdomain::Session.

    import mailserver_domain

    session = mailserver_domain.Session()
    for user in session.users(1, text="anna"):
        print(user["name"], [alias["local_part"] for alias in user["aliases"]])
    session.set_user(domain=1, uid=1001, add_aliases=["boss"])
    for step in session.explain(address="boss@example.com")["steps"]:
        print(step["text"])

Each call of mailserver-domain/mdomain.h is a method with its arguments by keyword; records are
dictionaries. What goes wrong is an Error; what was done and could not be published is told by
`Unpublished`, which carries the value. Sessions may be used from any thread.

With dry_run=True a changing call changes nothing and gives its plan: a dictionary with "summary" and
"changes", whose records have "what", "change", "text" and what the text names.

    plan = session.remove_users(domain=1, uids=[1001], dry_run=True)
"""

import ctypes
import json

__all__ = ["Error", "Session", "Unpublished"]


class Error(Exception):
    """A call that was not done: reason, number, text, advice, refused and log as attributes."""

    def __init__(self, error):
        super().__init__(error["text"])
        for name in ("reason", "number", "text", "advice", "refused", "log"):
            setattr(self, name, error[name])


class Unpublished(Error):
    """Done here, and the shared key store has not got it yet: `value` is what the call gives."""

    def __init__(self, error, value):
        super().__init__(error)
        self.value = value


def _library():
    library = ctypes.CDLL("libmailserver-domain.so.1")
    for name, result, arguments in (
        ("mdomain_open", ctypes.c_void_p, [ctypes.c_char_p]),
        ("mdomain_as", ctypes.c_void_p, [ctypes.c_void_p, ctypes.c_uint]),
        ("mdomain_close", None, [ctypes.c_void_p]),
        ("mdomain_call", ctypes.c_void_p, [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_char_p]),
        ("mdomain_free", None, [ctypes.c_void_p]),
    ):
        function = getattr(library, name)
        function.restype = result
        function.argtypes = arguments
    return library


_LIBRARY = _library()


class _Handle:
    """A session of the library, closed when nobody uses it any more: calls under way keep it."""

    def __init__(self, pointer):
        if not pointer:
            raise ValueError("no such options of a session")
        self.pointer = pointer

    def __del__(self, close=_LIBRARY.mdomain_close):
        if getattr(self, "pointer", None):
            close(self.pointer)


class Session:
    """Options: lock_timeout (seconds), person (whom the history names)."""

    def __init__(self, **options):
        self._handle = _Handle(_LIBRARY.mdomain_open(json.dumps(options).encode()))

    def _open_handle(self):
        handle = self._handle
        if handle is None:
            raise ValueError("the session is closed")
        return handle

    def acting_as(self, uid):
        """The same with the rights of a domain administrator."""
        if not isinstance(uid, int) or not 0 <= uid < 2**32:
            raise ValueError(f"{uid!r} is no uid")
        handle = self._open_handle()
        other = Session.__new__(Session)
        other._handle = _Handle(_LIBRARY.mdomain_as(handle.pointer, uid))
        return other

    def close(self):
        """Calls of other threads that are under way still end."""
        self._handle = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def call(self, name, /, **arguments):
        """One call by its name."""
        handle = self._open_handle()
        text = _LIBRARY.mdomain_call(handle.pointer, name.encode(), json.dumps(arguments).encode())
        if not text:
            raise MemoryError
        try:
            answer = json.loads(ctypes.string_at(text))
        finally:
            _LIBRARY.mdomain_free(text)
        if "value" not in answer:
            raise Error(answer["error"])
        if "error" in answer:
            raise Unpublished(answer["error"], answer["value"])
        return answer["value"]

    def __getattr__(self, name):
        if name.startswith("_"):
            raise AttributeError(name)
        return lambda **arguments: self.call(name, **arguments)

    def users(self, domain, **query):
        """All users of a domain, page by page while they are walked."""
        return self._walk("list_users", domain=domain, **query)

    def groups(self, domain, **query):
        return self._walk("list_groups", domain=domain, **query)

    def changes(self, domain=0, **query):
        """The history, newest first, page by page; of one domain, or of all."""
        return self._walk("list_history", domain=domain, **query)

    def accounts(self, **query):
        """All accounts that a refresh has found, page by page; with gid the members of a group."""
        return self._walk("list_accounts", **query)

    def _walk(self, name, **query):
        cursor = ""
        while True:
            page = self.call(name, cursor=cursor, **query)
            yield from page["items"]
            cursor = page["next"]
            if not cursor:
                return
