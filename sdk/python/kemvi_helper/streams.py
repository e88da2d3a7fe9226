"""Keeps the protocol's two streams to itself, and moves whole lines over them."""
from __future__ import annotations

import io
import os
import select
import sys
from collections.abc import Iterator
from typing import NamedTuple


class Streams(NamedTuple):
    """Descriptors for requests and answers."""

    requests: int
    answers: int


_taken: Streams | None = None


def take_streams() -> Streams:
    """The descriptors of the requests and the answers. The first call puts harmless ones in the place of standard input
    and output, so that `print`, a library's chatter or a child process cannot write into an answer or eat a request:
    what is printed goes to standard error."""
    global _taken
    if _taken is None:
        _taken = Streams(_exchange(0, os.devnull, os.O_RDONLY), _exchange(1, os.devnull, os.O_WRONLY))
        try:
            os.dup2(2, 1)
        except OSError:
            pass  # standard error is closed, and there is nobody to print for
        _line_by_line()
        _end_with_launcher()
    return _taken


def _exchange(descriptor: int, replacement: str, flags: int) -> int:
    kept = os.dup(descriptor)  # closed in whatever program is run from here
    harmless = os.open(replacement, flags)
    os.dup2(harmless, descriptor)
    if harmless != descriptor:
        os.close(harmless)
    return kept


def _line_by_line() -> None:
    """What was printed and is still in Python's buffer goes where the rest will go, and the rest at once."""
    try:
        sys.stdout.flush()
        if isinstance(sys.stdout, io.TextIOWrapper):  # not where the program has put something of its own there
            sys.stdout.reconfigure(line_buffering=True)
    except (AttributeError, OSError, ValueError):
        pass  # it is closed


def _end_with_launcher() -> None:
    """Where node has stayed as the parent, this process is to end when that does, whatever ends it."""
    launcher = os.environ.get("KEMVI_LAUNCHER")
    if not launcher:
        return
    import ctypes  # of little use to anybody else, and slow to load
    import signal
    set_parent_death_signal = 1
    ctypes.CDLL(None).prctl(set_parent_death_signal, int(signal.SIGKILL), 0, 0, 0)
    if str(os.getppid()) != launcher:
        os._exit(1)  # it was gone before


_most_at_once = 1 << 18


class LineReader:
    """Cuts the bytes that arrive into lines, however they arrive."""

    def __init__(self) -> None:
        self._pieces: list[bytes] = []  # of a line that has not arrived as a whole

    def lines(self, chunk: bytes) -> Iterator[bytes]:
        """The lines that are whole with these bytes, without their line feeds."""
        end = chunk.find(b"\n")
        if end == len(chunk) - 1 and not self._pieces:  # as most are
            return iter((chunk[:-1],))
        if end < 0:
            self._pieces.append(chunk)
            return iter(())
        self._pieces.append(chunk)
        *whole, rest = b"".join(self._pieces).split(b"\n")
        self._pieces = [rest] if rest else []
        return iter(whole)

    @property
    def has_rest(self) -> bool:
        """Whether bytes are there that are no whole line yet."""
        return bool(self._pieces)


def read_some(descriptor: int) -> bytes:
    """Waits for bytes; none at the end of the input."""
    while True:
        try:
            return os.read(descriptor, _most_at_once)
        except BlockingIOError:  # the other side may have made it so
            select.select([descriptor], [], [])


def write_all(descriptor: int, data: bytes) -> None:
    """Writes all of it. Raises BrokenPipeError when nobody reads any more."""
    view: bytes | memoryview = data
    while True:
        try:
            count = os.write(descriptor, view)
        except BlockingIOError:
            select.select([], [descriptor], [])
            continue
        if count == len(view):
            return
        view = memoryview(view)[count:]


def report(text: str) -> None:
    """Says something on standard error, where the mount passes it to its log."""
    try:
        write_all(2, f"kemvi-helper: {text}\n".encode(errors="backslashreplace"))
    except OSError:
        pass  # standard error is gone; there is nobody to tell
