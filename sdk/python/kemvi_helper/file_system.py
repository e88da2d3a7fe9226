"""What the author of a file system writes."""
from __future__ import annotations

import inspect
from collections.abc import Awaitable, Iterable
from dataclasses import dataclass
from datetime import datetime
from typing import Any, Protocol, TypeVar, Union

T = TypeVar("T")
MaybeAsync = Union[T, Awaitable[T]]
"""What a plain function returns, or one that is declared `async`."""

Bytes = Union[bytes, bytearray, memoryview]


@dataclass(slots=True, kw_only=True)
class Stat:
    """What is known of one file or folder."""

    is_directory: bool = False
    size: int | None = None
    """Whole bytes; may be left out for a folder."""
    size_unknown: bool = False
    """True for a file whose size is not known before it is read: it shows as empty and is read to its end."""
    modified_at: datetime | float | None = None
    """A datetime, or seconds since 1970 as `os.stat` has them; the start of the helper when left out. A datetime without a
    zone is local time, as everywhere in Python."""


@dataclass(slots=True)
class Entry(Stat):
    """One member of a folder."""

    name: str


@dataclass(slots=True, frozen=True)
class OpenFlags:
    """How a file is to be opened. At least one of `read` and `write` is true."""

    read: bool = False
    write: bool = False
    create: bool = False
    """Make the file when it does not exist; keep its contents when it does."""
    truncate: bool = False
    """Empty it."""


class FileSystem(Protocol):
    """A file system: any object with these functions, plain or `async`.

    Paths are absolute within the served tree: "/" is the root, the others are "/name/name". A function throws to refuse:
    an `OSError` with a number, or a `PosixError`, reaches the program as that error; anything else that is thrown is taken
    for a fault and arrives as EIO.

    More functions, each of which may be left out:

    - `open(path, flags)` opens a file; what it returns is handed to `read`, `write`, `flush` and `release`. When left out,
      that is the path.
    - `write(file, offset, data)` writes all of `data`. Without it the file system is read-only, and everything that changes
      something answers EROFS; with it, a function of those below that is missing answers EPERM.
    - `flush(file)` makes what was written durable, `release(file)` is called once for each `open`.
    - `mkdir(path)`, `unlink(path)` (a file or an empty folder), `rename(old_path, new_path)` (replaces what is there),
      `chmod(path, mode)`, `utimes(path, mtime)`.
    - `statfs()` gives a dict with the numbers `files`, `directories` and `bytes`.
    - `end()`: the helper is about to end; everything open has been released.

    `WritableFileSystem` has them all, for type checkers.
    """

    def getattr(self, path: str) -> MaybeAsync[Stat]:
        """What is known of a path; ENOENT when there is nothing."""

    def readdir(self, path: str) -> MaybeAsync[Iterable[Entry]]:
        """The members of a folder, without "." and ".."; may be a generator."""

    def read(self, file: Any, offset: int, length: int) -> MaybeAsync[Bytes]:
        """Up to `length` bytes from `offset`, fewer only at the end of the file."""


class WritableFileSystem(FileSystem, Protocol):
    """A file system with all functions."""

    def open(self, path: str, flags: OpenFlags) -> Any:
        """What stands for the open file."""

    def write(self, file: Any, offset: int, data: bytes) -> MaybeAsync[None]:
        """Writes all of `data`; what lies before `offset` and was never written is zeros."""

    def flush(self, file: Any) -> MaybeAsync[None]:
        """Makes what was written durable."""

    def release(self, file: Any) -> MaybeAsync[None]:
        """The file is no longer used."""

    def mkdir(self, path: str) -> MaybeAsync[None]:
        """EEXIST when there is something."""

    def unlink(self, path: str) -> MaybeAsync[None]:
        """Removes a file or an empty folder; ENOTEMPTY for a full one."""

    def rename(self, old_path: str, new_path: str) -> MaybeAsync[None]:
        """Replaces what is at `new_path`, as rename(2) does."""

    def chmod(self, path: str, mode: int) -> MaybeAsync[None]:
        """Permission bits, 0 to 0o7777."""

    def utimes(self, path: str, mtime: datetime) -> MaybeAsync[None]:
        """Sets the time of the last change, which is told in UTC."""


REQUIRED = ("getattr", "readdir", "read")
OPTIONAL = ("open", "write", "flush", "release", "mkdir", "unlink", "rename", "chmod", "utimes", "statfs", "end")

# What authors write for one of these functions: they are never called.
_mistaken = {
    "rmdir": "unlink is called for folders too",
    "remove": "it is called unlink",
    "truncate": "open is called with flags.truncate",
    "create": "open is called with flags.create",
    "close": "it is called release",
    "fsync": "it is called flush",
    "stat": "it is called getattr",
    "listdir": "it is called readdir",
    "utime": "it is called utimes",
}
_of_what_is_missing = {"rmdir": "unlink", "remove": "unlink", "truncate": "open", "create": "open", "close": "release",
                       "fsync": "flush", "stat": "getattr", "listdir": "readdir", "utime": "utimes"}


def check_file_system(file_system: object) -> list[str]:
    """Raises TypeError naming the function that is missing or no function. Returns what looks like a mistake."""
    hints = _hints(file_system)
    hint = f" ({'; '.join(hints)})" if hints else ""
    for name in REQUIRED:
        if not callable(getattr(file_system, name, None)):
            raise TypeError(f"serve: the file system has no function {name}{hint}")
    for name in OPTIONAL:
        function = getattr(file_system, name, None)
        if function is not None and not callable(function):
            raise TypeError(f"serve: {name} of the file system must be a function, not {function!r}")
    return hints


def _hints(file_system: object) -> list[str]:
    known = {name.replace("_", ""): name for name in REQUIRED + OPTIONAL}
    found = []
    for name in dir(file_system):
        if name.startswith("_") or name in known.values():
            continue
        right = known.get(name.replace("_", "").lower())
        if right is not None and not hasattr(file_system, right):
            found.append(f"{name} is never called: it is called {right}")
        elif name in _mistaken and not hasattr(file_system, _of_what_is_missing[name]):
            found.append(f"{name} is never called: {_mistaken[name]}")
    return found


def async_functions(file_system: object) -> list[str]:
    """The functions of a file system that are declared async."""
    return [name for name in REQUIRED + OPTIONAL if inspect.iscoroutinefunction(getattr(file_system, name, None))]
