"""Tells a mount of changes over its control channel: one request at a time, whatever gathers meanwhile in the next."""
from __future__ import annotations

import errno
import json
import socket
import threading
from collections.abc import Callable
from typing import Any

_most_waiting = 10_000  # paths; more of them are told as a change of everything
_most_per_request = 64 * 1024  # characters; whatever they are escaped to, the channel takes it
_first_pause = 0.05  # seconds, before another attempt to connect; doubled for each
_longest_pause = 5.0


class ChangeNotices:
    """A thread of its own does the talking, which sleeps while there is nothing to tell. All functions may be called from
    any thread."""

    def __init__(self, address: str, say: Callable[[str], None]) -> None:
        """`address` is the path of the mount's socket; `say` takes lines for people."""
        self._address = address
        self._say = say
        self._said: set[str] = set()
        self._changed = threading.Condition()
        self._waiting: dict[str, None] = {}  # guarded by `_changed`, in the order in which they came
        self._is_ended = False  # guarded by `_changed`
        self._thread: threading.Thread | None = None

    def add(self, path: str) -> None:
        """Returns at once."""
        with self._changed:
            if self._is_ended:
                return
            self._waiting[path] = None
            if len(self._waiting) > _most_waiting:
                self._waiting = {"/": None}
            if self._thread is None:
                self._thread = threading.Thread(target=self._tell, name="changed", daemon=True)
                self._thread.start()
            self._changed.notify()

    def end(self) -> None:
        """Nothing more is told."""
        with self._changed:
            self._is_ended = True
            self._changed.notify()

    def _tell(self) -> None:
        pause = _first_pause
        connection: _Connection | None = None
        while paths := self._next():
            try:
                if connection is None:
                    connection = _Connection(self._address)
                answer = connection.ask(paths)
                pause = _first_pause
                self._hear(answer)
            except (OSError, ValueError) as error:
                if connection is None:
                    code = errno.errorcode.get(getattr(error, "errno", None) or 0, str(error))
                    self._say_once(f"changed: the mount is not to be reached at {self._address} ({code}); goes on trying")
                else:
                    connection.close()
                    connection = None
                self._put_back(paths)
                if not self._pause(pause):
                    return
                pause = min(2 * pause, _longest_pause)
        if connection is not None:
            connection.close()

    def _next(self) -> list[str]:
        """Waits for paths; none at the end."""
        with self._changed:
            self._changed.wait_for(lambda: self._waiting or self._is_ended)
            paths: list[str] = []
            length = 0
            for path in () if self._is_ended else self._waiting:
                if paths and length + len(path) > _most_per_request:
                    break
                paths.append(path)
                length += len(path) + 1
            for path in paths:
                del self._waiting[path]
            return paths

    def _put_back(self, paths: list[str]) -> None:
        with self._changed:
            self._waiting = {**dict.fromkeys(paths), **self._waiting}

    def _pause(self, seconds: float) -> bool:
        """Returns False at the end."""
        with self._changed:
            return not self._changed.wait_for(lambda: self._is_ended, seconds)

    def _hear(self, answer: dict[str, Any]) -> None:
        error = answer.get("error")
        if answer.get("ok") is False and isinstance(error, dict) and error.get("code") != "ending":
            self._say_once(f"changed: {error.get('message')}")

    def _say_once(self, text: str) -> None:
        if text not in self._said:
            self._said.add(text)
            self._say(text)


class _Connection:
    """To the mount, which speaks first."""

    def __init__(self, address: str) -> None:
        self._socket = socket.socket(socket.AF_UNIX)
        try:
            self._socket.connect(address)
            self._answers = self._socket.makefile("rb")
            self._hear()
        except BaseException:
            self._socket.close()
            raise

    def ask(self, paths: list[str]) -> dict[str, Any]:
        """Raises OSError or ValueError when the mount is gone, or is none."""
        self._socket.sendall(json.dumps({"op": "invalidate", "paths": paths}, ensure_ascii=False).encode() + b"\n")
        return self._hear()

    def _hear(self) -> dict[str, Any]:
        line = self._answers.readline()
        if not line.endswith(b"\n"):
            raise ConnectionResetError(errno.ECONNRESET, "the mount has closed the connection")
        said = json.loads(line)
        if not isinstance(said, dict):
            raise ValueError("that is no mount")
        return said

    def close(self) -> None:
        self._answers.close()
        self._socket.close()
