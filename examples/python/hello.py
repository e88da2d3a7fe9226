#!/usr/bin/env python3
"""A read-only file system of two files that are made when they are looked at."""
import time

from kemvi_helper import Entry, OpenFlags, PosixError, Stat, serve

STARTED = int(time.time())


def contents(path: str) -> tuple[bytes, int]:
    """The bytes of a file and the time of its last change, or an error that the program using the mount understands."""
    if path == "/hello.txt":
        return b"Hello from a file system in Python.\n", STARTED
    if path == "/seconds.txt":
        now = int(time.time())
        return "".join(f"{second}\n" for second in range(now - STARTED + 1)).encode(), now
    raise PosixError("ENOENT", f"there is no {path}")


class Hello:
    def getattr(self, path: str) -> Stat:
        if path == "/":
            return Stat(is_directory=True, modified_at=STARTED)
        data, changed = contents(path)
        return Stat(size=len(data), modified_at=changed)

    def readdir(self, path: str) -> list[Entry]:
        if path != "/":
            raise PosixError("ENOTDIR", f"{path} is not a folder")
        stats = {name: self.getattr("/" + name) for name in ("hello.txt", "seconds.txt")}
        return [Entry(name, size=stat.size, modified_at=stat.modified_at) for name, stat in stats.items()]

    # What open returns is handed to read: whoever has a file open sees it as it was when it was opened.
    def open(self, path: str, flags: OpenFlags) -> bytes:
        return contents(path)[0]

    def read(self, file: bytes, offset: int, length: int) -> bytes:
        return file[offset:offset + length]


serve(Hello())
