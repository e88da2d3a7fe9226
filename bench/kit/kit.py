#!/usr/bin/env python3
"""The kit's loop for Python over a file system that does the same work as the bare loop."""
import os
import stat
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "sdk/python"))

from kemvi_helper import Entry, Stat, serve  # noqa: E402

root = os.environ["KEMVI_REPO_ROOT"]


class Folder:
    def getattr(self, path):
        found = os.lstat(root + path)
        return Stat(is_directory=stat.S_ISDIR(found.st_mode), size=found.st_size, modified_at=found.st_mtime)

    def readdir(self, path):
        for name in os.listdir(root + path):
            found = os.lstat(f"{root}{path}/{name}")
            yield Entry(name, is_directory=stat.S_ISDIR(found.st_mode), size=found.st_size, modified_at=found.st_mtime)

    def open(self, path, flags):
        return os.open(root + path, os.O_RDWR | os.O_CREAT if flags.write else os.O_RDONLY, 0o666)

    def read(self, file, offset, length):
        return os.pread(file, length, offset)

    def write(self, file, offset, data):
        os.pwrite(file, data, offset)

    def release(self, file):
        os.close(file)


serve(Folder())
