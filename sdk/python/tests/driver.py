"""Drives a helper the way Kemvi does: one request line, one answer line."""
from __future__ import annotations

import base64
import json
import os
import re
import selectors
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path
from typing import Any

KIT = Path(__file__).resolve().parent.parent
TOP = KIT.parent.parent
sys.path.insert(0, str(KIT))
PATIENCE = 30.0  # seconds; only a broken helper needs it


class Driver:
    """A running helper, which is ended with the test."""

    def __init__(self, test: unittest.TestCase, command: list[Any], environment: dict[str, str] | None = None) -> None:
        path = os.pathsep.join([str(KIT), *filter(None, [os.environ.get("PYTHONPATH")])])
        self.child = subprocess.Popen(
            list(map(str, command)), stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, bufsize=0,
            env={**os.environ, "PYTHONPATH": path, "PYTHONDONTWRITEBYTECODE": "1", **(environment or {})})
        self.stderr = ""
        self._heard = threading.Condition()
        self._listener = threading.Thread(target=self._listen, daemon=True)
        self._listener.start()
        self._received = b""
        self._last_id = 0
        test.addCleanup(self._close)

    def _listen(self) -> None:
        assert self.child.stderr
        while text := os.read(self.child.stderr.fileno(), 1 << 16):
            with self._heard:
                self.stderr += text.decode(errors="replace")
                self._heard.notify_all()

    def _close(self) -> None:
        self.child.kill()
        self.child.wait()
        self._listener.join(PATIENCE)
        for stream in (self.child.stdin, self.child.stdout, self.child.stderr):
            assert stream
            stream.close()

    def send(self, data: bytes | str) -> None:
        """While the answers that are there already are taken, so that none is in the way."""
        assert self.child.stdin and self.child.stdout
        rest = memoryview(data.encode() if isinstance(data, str) else data)
        os.set_blocking(self.child.stdin.fileno(), False)
        with selectors.DefaultSelector() as selector:
            selector.register(self.child.stdin, selectors.EVENT_WRITE)
            selector.register(self.child.stdout, selectors.EVENT_READ)
            while rest:
                ready = selector.select(PATIENCE)
                assert ready, f"the helper takes nothing; it said: {self.stderr}"
                for key, _ in ready:
                    if key.fileobj is self.child.stdin:
                        rest = rest[os.write(key.fd, rest[:65536]):]
                    elif not self._take():
                        selector.unregister(self.child.stdout)

    def _take(self) -> bool:
        assert self.child.stdout
        data = os.read(self.child.stdout.fileno(), 1 << 20)
        self._received += data
        return bool(data)

    def line(self) -> str:
        """The next line that the helper wrote, without its line feed."""
        assert self.child.stdout
        with selectors.DefaultSelector() as selector:
            selector.register(self.child.stdout, selectors.EVENT_READ)
            while (end := self._received.find(b"\n")) < 0:
                assert selector.select(PATIENCE), f"no answer in time; the helper said: {self.stderr}"
                assert self._take(), f"the helper closed its output; it said: {self.stderr}"
        line, self._received = self._received[:end], self._received[end + 1:]
        return line.decode()

    @property
    def has_more(self) -> bool:
        """Whether more was written than was asked for."""
        return bool(self._received)

    def request(self, op: str, **fields: Any) -> dict[str, Any]:
        """The whole answer."""
        self._last_id += 1
        self.send(request_line(str(self._last_id), op, **fields))
        answer: dict[str, Any] = json.loads(self.line())
        assert answer["id"] == str(self._last_id), answer
        return answer

    def ok(self, op: str, **fields: Any) -> Any:
        """The result, or the bytes, of a request that must succeed."""
        answer = self.request(op, **fields)
        assert answer["ok"] is True, f"{op} {fields} failed: {answer}"
        return base64.b64decode(answer["dataBase64"], validate=True) if "dataBase64" in answer else answer.get("result")

    def code(self, op: str, **fields: Any) -> str | None:
        """The code of a request that must fail."""
        error = self.error(op, **fields)
        return error.get("code")

    def error(self, op: str, **fields: Any) -> dict[str, Any]:
        """What is said of a request that must fail."""
        answer = self.request(op, **fields)
        assert answer["ok"] is False and answer["error"]["message"], f"{op} {fields} should fail: {answer}"
        return dict(answer["error"])

    def said(self, pattern: str) -> None:
        """Waits until the helper has said something on standard error."""
        with self._heard:
            found = self._heard.wait_for(lambda: re.search(pattern, self.stderr), PATIENCE)
        assert found, f"the helper never said {pattern}; it said: {self.stderr}"

    def end(self) -> int:
        """Ends the input. Returns the exit status, with all that was said heard."""
        assert self.child.stdin
        self.child.stdin.close()
        return self.exit()

    def exit(self) -> int:
        """Waits for the end of the helper."""
        status = self.child.wait(PATIENCE)
        self._listener.join(PATIENCE)
        return status


def request_line(request_id: str, op: str, **fields: Any) -> str:
    """With every slash escaped."""
    text = json.dumps({"id": request_id, "op": op, **fields}, ensure_ascii=False, separators=(",", ":"))
    return text.replace("/", "\\/") + "\n"


def temporary_folder(test: unittest.TestCase) -> Path:
    """A folder that is removed when the test is over."""
    folder = tempfile.TemporaryDirectory(prefix="kemvi-helper-")
    test.addCleanup(folder.cleanup)
    return Path(folder.name).resolve()


def python(name: str, *values: str) -> list[Any]:
    """The command of a helper in this folder."""
    return [sys.executable, KIT / "tests" / name, *values]


def eventually(condition: Any, what: str) -> None:
    """Waits for what needs no signal of its own."""
    deadline = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < deadline, what
        time.sleep(0.01)
