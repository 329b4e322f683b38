"""A Redis server of the drivers: started and stopped, emptied, set back, damaged, full.

The few commands that a driver needs are spoken here, so that no client library is needed.
"""
import os
import signal
import socket
import subprocess
import time

PREFIX = "mail:"


class Store:
    def __init__(self, folder):
        os.makedirs(folder)
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.port = free.getsockname()[1]
        self.folder, self.server, self.stream = folder, None, None
        self.start()

    def start(self):
        """With the content of before; append-only, as a store should be."""
        if self.server is None:
            self.server = subprocess.Popen(
                ["redis-server", "--port", str(self.port), "--bind", "127.0.0.1", "--dir", self.folder,
                 "--appendonly", "yes", "--save", "", "--logfile", self.folder + "/log"],
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
            self._connect()

    def _connect(self):
        for _ in range(500):
            try:
                self.stream = socket.create_connection(("127.0.0.1", self.port)).makefile("rwb")
                while self.call("PING") != b"PONG":  # it loads its content
                    time.sleep(.01)
                return
            except OSError:
                time.sleep(.02)
        raise SystemExit(f"redis-server does not start: see {self.folder}/log")

    def stop(self):
        if self.server is not None:
            self.server.kill()
            self.server.wait()
            self.server = self.stream = None

    @property
    def is_up(self):
        return self.server is not None

    def freeze(self):
        self.server.send_signal(signal.SIGSTOP)

    def thaw(self):
        """Returns when what was sent meanwhile is done."""
        self.server.send_signal(signal.SIGCONT)
        self.call("PING")
        time.sleep(.02)

    def call(self, *words):
        words = [word if isinstance(word, bytes) else str(word).encode() for word in words]
        self.stream.write(b"*%d\r\n" % len(words) +
                          b"".join(b"$%d\r\n%s\r\n" % (len(word), word) for word in words))
        self.stream.flush()
        return self._reply()

    def _reply(self):
        line = self.stream.readline()
        kind, rest = line[:1], line[1:-2]
        if kind in b"+-":
            return rest
        if kind == b":":
            return int(rest)
        if rest == b"-1":
            return None
        if kind == b"$":
            return self.stream.read(int(rest) + 2)[:-2]
        return [self._reply() for _ in range(int(rest))]

    def state(self):
        """What it says of the publication, as a dictionary; empty when nothing is published."""
        flat = self.call("HGETALL", PREFIX + "state")
        return dict(zip((name.decode() for name in flat[::2]), (value.decode() for value in flat[1::2])))

    def is_full(self):
        return self.call("CONFIG", "GET", "maxmemory")[1] != b"0"

    def set_room(self, is_full):
        self.call("CONFIG", "SET", "maxmemory", "1" if is_full else "0")

    def snapshot(self):
        return [(name, self.call("DUMP", name)) for name in sorted(self.call("KEYS", "*"))]

    def restore(self, snapshot):
        self.call("FLUSHALL")
        for name, content in snapshot:
            self.call("RESTORE", name, "0", content)

    def damage(self, random, is_lost):
        """Takes a value, a field or a member away, or puts something else there. What it was."""
        names = sorted(self.call("KEYS", PREFIX + "*"))
        if not names:
            return "nothing"
        name = random.choice(names)
        kind = self.call("TYPE", name).decode()
        part = b""
        if kind == "hash":
            part = random.choice(sorted(self.call("HKEYS", name)))
            self.call(*(("HDEL", name, part) if is_lost else ("HSET", name, part, "damaged")))
        elif is_lost or kind not in ("string", "set"):
            self.call("DEL", name)
        elif kind == "string":
            self.call("SET", name, "damaged")
        else:
            part = random.choice(sorted(self.call("SMEMBERS", name)))
            self.call("SREM", name, part)
        return f"{name.decode()} {part.decode(errors='replace')[:70]}".strip()
