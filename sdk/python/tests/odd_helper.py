"""A helper whose paths do what the tests want: answer, refuse, fail, print, lie. Its argument is the kind of its functions:
`plain`, `coroutines` (declared async), `futures` (plain functions that give something to await) or `thread` (plain, and a
thread that does not end)."""
from __future__ import annotations

import asyncio
import errno
import functools
import inspect
import os
import subprocess
import sys
import threading
import time
from datetime import datetime, timedelta, timezone
from typing import Any

from kemvi_helper import Entry, OpenFlags, PosixError, Stat, serve

TIME = datetime(2024, 5, 1, 12, 34, 56, 789_999, tzinfo=timezone.utc)
FILE = Stat(size=3, modified_at=TIME)


def pattern(offset: int, length: int) -> bytes:
    """Bytes whose value tells their place."""
    start = offset % 251
    return (bytes(range(251)) * (length // 251 + 2))[start:start + length]


def throw(error: BaseException) -> Any:
    raise error


def system_error() -> Any:
    os.stat("/there/is/no/such/file")


def prints() -> Stat:
    print("print")
    sys.stdout.write("sys.stdout.write\n")
    return FILE


def prints_below() -> Stat:
    os.write(1, b"os.write\n")
    subprocess.run(["sh", "-c", "echo from a child; cat"], check=True)
    return FILE


class Nameless:
    size = 3


STATS = {
    "/": lambda: Stat(is_directory=True, modified_at=TIME),
    "/file": lambda: FILE,
    "/sub/a b": lambda: FILE,
    "/seconds": lambda: Stat(size=3, modified_at=1714566896.789),
    "/wholeSeconds": lambda: Stat(size=3, modified_at=-1),
    "/zone": lambda: Stat(size=3, modified_at=datetime(2024, 5, 1, 14, 34, tzinfo=timezone(timedelta(hours=2)))),
    "/local": lambda: Stat(size=3, modified_at=datetime(2024, 5, 1, 12)),
    "/firstYear": lambda: Stat(size=3, modified_at=-1e15),
    "/lastYear": lambda: Stat(size=3, modified_at=1e15),
    "/posix": lambda: throw(PosixError("ENOTEMPTY", "so it is")),
    "/number": lambda: throw(OSError(errno.EISDIR, "so it is too")),
    "/kind": lambda: throw(FileNotFoundError("there is no such page")),
    "/system": system_error,
    "/fault": lambda: throw(TypeError("a mistake of the author")),
    "/empty": lambda: throw(KeyError()),
    "/noCode": lambda: throw(PosixError("ENOFILE", "no such name")),
    "/oddNumber": lambda: throw(OSError(123456, "what is that")),
    "/nothing": lambda: None,
    "/dict": lambda: {"size": 5},
    "/textSize": lambda: Stat(size="12"),  # type: ignore[arg-type]
    "/fractionSize": lambda: Stat(size=1.5),  # type: ignore[arg-type]
    "/negativeSize": lambda: Stat(size=-1),
    "/noSize": lambda: Stat(),
    "/unknownSize": lambda: Stat(size_unknown=True),
    "/textFlag": lambda: Stat(size=1, is_directory="yes"),  # type: ignore[arg-type]
    "/textTime": lambda: Stat(size=1, modified_at="2024-05-01"),  # type: ignore[arg-type]
    "/invalidTime": lambda: Stat(size=1, modified_at=float("nan")),
    "/prints": prints,
    "/printsBelow": prints_below,
    "/never": lambda: FILE,
    "/exits": lambda: sys.exit(3),
}


def failing_listing(count: int) -> Any:
    for number in range(count):
        yield Entry(f"entry {number}", size=3, modified_at=TIME)
    raise PosixError("EACCES", "the rest is secret")


def entry(name: str) -> Entry:
    return Entry(name, size=3, modified_at=TIME)


LISTINGS = {
    "/": lambda: [entry("file"), Entry("sub", is_directory=True, modified_at=TIME)],
    "/empty": lambda: (),
    "/names": lambda: map(entry, ['a"b', "back\\slash", "line\nbreak", "gr\u00fc\u00df", "\U0001f600", ".dot", "\x7f"]),
    "/generator": lambda: (entry(name) for name in "x"),
    "/many": lambda: [entry(f"{number}") for number in range(5000)],
    "/late": lambda: failing_listing(5000),
    "/soon": lambda: failing_listing(1),
    "/slash": lambda: [entry("a/b")],
    "/dots": lambda: [entry("..")],
    "/nameless": lambda: [FILE],
    "/noName": lambda: [Entry(5)],  # type: ignore[arg-type]
    "/noList": lambda: 5,
}


def pick(table: dict[str, Any], path: str) -> Any:
    if path not in table:
        raise PosixError("ENOENT", f"there is no {path}")
    return table[path]()


class OddFileSystem:
    def getattr(self, path: str) -> Any:
        return pick(STATS, path)

    def readdir(self, path: str) -> Any:
        return pick(LISTINGS, path)

    def open(self, path: str, flags: OpenFlags) -> Any:
        if path == "/missing":
            raise PosixError("ENOENT", "there is no /missing")
        return path, []

    def read(self, file: Any, offset: int, length: int) -> Any:
        path, written = file
        if path == "/written":
            return b"".join(written)[offset:offset + length]
        if path == "/bytearray":
            return bytearray(pattern(offset, length))
        if path == "/memoryview":
            return memoryview(pattern(offset, length))
        if path == "/everySecond":
            return memoryview(bytes(2 * length))[::2]
        if path == "/short":
            return pattern(offset, max(0, min(length, 100 - offset)))
        if path == "/tooMuch":
            return pattern(offset, length + 5)
        if path == "/breaksAt2M" and offset >= 1 << 20:
            raise PosixError("EPERM", "not this part")
        if path == "/text":
            return "text"
        if path == "/count":
            return length
        return pattern(offset, length)

    def write(self, file: Any, offset: int, data: bytes) -> None:
        path, written = file
        if path == "/full":
            raise OSError(errno.ENOSPC, "full")
        written.append(data)

    def flush(self, file: Any) -> None:
        if file[0] == "/flushFails":
            raise PosixError("EPERM", "not flushed")

    def release(self, file: Any) -> None:
        print(f"released {file[0]}")
        if file[0] == "/releaseFails":
            raise PosixError("EPERM", "not released")

    def chmod(self, path: str, mode: int) -> None:
        print(f"chmod {path} {mode}")

    def utimes(self, path: str, mtime: datetime) -> None:
        print(f"utimes {path} {mtime.isoformat()}")

    def rename(self, old_path: str, new_path: str) -> None:
        print(f"rename {old_path} {new_path}")

    def statfs(self) -> dict[str, int]:
        return {"files": 1, "directories": 2, "bytes": 3}

    def end(self) -> None:
        print("ended")


def later(function: Any, declared: bool) -> Any:
    @functools.wraps(function)
    async def coroutine(*values: Any) -> Any:
        await asyncio.sleep(0)
        if values == ("/never",):
            print("waits")
            await asyncio.Event().wait()
        result = function(*values)
        return list(result) if inspect.isgenerator(result) else result

    @functools.wraps(function)
    def future(*values: Any) -> Any:
        return coroutine(*values)

    return coroutine if declared else future


def main(kind: str) -> None:
    file_system: Any = OddFileSystem()
    if kind in ("coroutines", "futures"):
        for name in [name for name in dir(file_system) if not name.startswith("_")]:
            setattr(file_system, name, later(getattr(file_system, name), kind == "coroutines"))
    if kind == "thread":
        threading.Thread(target=time.sleep, args=(3600,), name="tireless").start()
    if kind == "before":
        print("before serving")
    serve(file_system)
    print("after serve")


if __name__ == "__main__":
    main(sys.argv[1])
