"""The test's end of helpers/controlled.mjs: what the helper was asked, and how it is to misbehave."""

import json
import os
import threading
from pathlib import Path

from .deadline import eventually


class HelperControl:
    """Rules that the helper looks up before every request, and the list of the requests that it received."""

    def __init__(self, folder):
        self.folder = Path(folder)
        self.folder.mkdir()
        self._log = self.folder / "requests.jsonl"
        self._log.touch()
        self._offset = 0
        self._rules = {}
        self._next = 1
        self._lock = threading.Lock()
        self.said = set()  # the texts of the errors that it was made to answer with, which the log repeats
        self._write()

    def _write(self):
        fresh = self.folder / "rules.new"
        fresh.write_text(json.dumps(list(self._rules.values())))
        os.replace(fresh, self.folder / "rules.json")

    def rule(self, action, op=None, path=None, **more):
        """Adds a rule for requests of one op and one path (None: any). Returns its number, for `drop`."""
        with self._lock:
            number = self._next
            self._next += 1
            if "message" in more:
                self.said.add(more["message"])
            self._rules[number] = {"number": number, "action": action, "op": op, "path": path, **more}
            self._write()
            return number

    def drop(self, number):
        with self._lock:
            del self._rules[number]
            self._write()

    def block(self, op=None, path=None):
        """The helper falls asleep in the next such request until the rule is dropped."""
        return self.rule("block", op, path)

    def fail(self, op, code="EIO", path=None, message="refused by the test"):
        return self.rule("fail", op, path, code=code, message=message)

    def blocked_request(self, seconds=10):
        """Waits until the helper sleeps in a request and returns that request."""
        def look():
            try:
                return json.loads((self.folder / "blocked.json").read_text())
            except (OSError, ValueError):
                return None
        return eventually(look, seconds, "a blocked request")

    def is_blocked(self):
        return (self.folder / "blocked.json").exists()

    def forget(self):
        """Requests so far are no longer told."""
        self._offset = self._log.stat().st_size

    def requests(self, *ops):
        """Requests since the last `forget`, oldest first; only those of `ops` if any are named. The bytes of a write
        are told as their number, "size"."""
        with open(self._log, "rb") as log:
            log.seek(self._offset)
            text = log.read()
        found = [json.loads(line) for line in text.split(b"\n")[:-1]]
        return [request for request in found if not ops or request["op"] in ops]

    def ops(self):
        return [request["op"] for request in self.requests()]

    def count(self, *ops):
        return len(self.requests(*ops))


    def short(self, *ops):
        """Each request in one word or two: "getattr /a", "rename /a /b", "write 10"."""
        told = []
        for request in self.requests(*ops):
            words = [request["op"]]
            words += [request[key] for key in ("path", "oldPath", "newPath") if key in request]
            if "flags" in request:
                words.append("+".join(request["flags"]))
            told.append(" ".join(words))
        return told
