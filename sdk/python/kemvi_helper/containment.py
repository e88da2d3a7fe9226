"""Turns paths of the served tree into real paths that do not leave it.

Real paths are bytes: what a name is must not depend on the locale.
"""
from __future__ import annotations

import os
import re
import time

from .errors import PosixError, posix_code

# How long a folder's real place is believed. Asking anew for each request would cost as much as the request itself.
_believed_seconds = 0.1
_most_believed = 10_000
_odd_part = re.compile(r"/\.{0,2}(?:/|\Z)")


class Containment:
    """A folder, and what lies in it."""

    def __init__(self, root: str | bytes) -> None:
        """`root` is an existing folder. Raises OSError when it is none."""
        self.root = os.path.realpath(os.fsencode(root), strict=True)
        if not os.path.isdir(self.root):
            raise PosixError("ENOTDIR", f"{os.fsdecode(root)} is not a folder")
        self.prefix = self.root if self.root == b"/" else self.root + b"/"
        self._places: dict[str, tuple[bytes, float]] = {}

    def locate(self, path: str) -> bytes:
        """Where a path of the tree lies. Its folder is followed through links, its last component is not. Raises EACCES
        when it would lead out of the tree; ENOENT, ENOTDIR when its folder is none."""
        if path == "/":
            return self.root
        folder, _, name = path.rpartition("/")
        if name in ("", ".") or path.startswith("//"):
            raise _not_plain(path)
        if name == "..":
            raise _leaves_tree(path)
        real = self.folder(folder or "/")
        return (real if real == b"/" else real + b"/") + _encoded(name, path)

    def folder(self, path: str) -> bytes:
        """The real path of a folder of the tree, links followed."""
        if path == "/":
            return self.root
        now = time.monotonic()
        known = self._places.get(path)
        if known is not None and now - known[1] < _believed_seconds:
            return known[0]
        real = self.follow(path)
        if len(self._places) >= _most_believed:
            self._places.clear()
        self._places[path] = (real, now)
        return real

    def follow(self, path: str) -> bytes:
        """The real path of anything in the tree, all links followed, asked anew."""
        if path != "/" and _odd_part.search(path):
            raise _leaves_tree(path) if "/.." in path else _not_plain(path)
        try:
            real = os.path.realpath(self.root + _encoded(path, path), strict=True)
        except OSError as error:
            folder = path.rpartition("/")[0]
            if folder:
                self.follow(folder)  # out of the tree even what is missing is refused
            raise without_real_path(error, path) from None
        if real != self.root and not real.startswith(self.prefix):
            raise _leaves_tree(path)
        return real

    def forget(self) -> None:
        """To be called after a change that may have moved folders."""
        self._places.clear()


def _encoded(text: str, path: str) -> bytes:
    try:
        data = text.encode()
    except UnicodeEncodeError:
        data = b"\0"
    if b"\0" in data:
        raise PosixError("EINVAL", f"{path!r} is not a path")
    return data


def _leaves_tree(path: str) -> PosixError:
    return PosixError("EACCES", f"{path} leads out of the served folder")


def _not_plain(path: str) -> PosixError:
    return PosixError("EINVAL", f"{path} is not a plain path")


def without_real_path(error: OSError, path: str) -> OSError:
    """The error of a call of the system, told with the path of the tree instead of the real one."""
    code = posix_code(error)
    if isinstance(error, PosixError) or code is None:
        return error
    return PosixError(code, f"{error.strerror}: {path}")
