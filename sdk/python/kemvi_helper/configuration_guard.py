"""Keeps the configuration that a mount was made from out of reach of those who use the mount: whoever can change it chooses
the program that the next mount runs."""
from __future__ import annotations

import os
import re
import stat
import time
import unicodedata
from typing import NamedTuple

from .errors import PosixError

_file_name = b"mount-config.json"
_most_links = 40  # as many as the kernel follows
_believed_seconds = 1.0
_others_may_write = 0o022

# Characters that are not shown, and that some stores leave out when they compare names.
_ignorable = re.compile(
    "[\u00ad\u034f\u061c\u115f\u1160\u17b4\u17b5\u180b-\u180f\u200b-\u200f\u202a-\u202e\u2060-\u206f\u3164\ufe00-\ufe0f"
    "\ufeff\uffa0\ufff0-\ufff8\U0001bca0-\U0001bca3\U0001d173-\U0001d17a\U000e0000-\U000e0fff]+")


class _Name(NamedTuple):
    """One name on the way to the configuration: that of the file, of a folder above it or of a link that leads to it."""

    folder: bytes
    """Real."""
    name: bytes
    found: os.stat_result | None
    """What has the name, links not followed; None when nothing has it."""


class _Way(NamedTuple):
    names: list[_Name]
    """Those that lie in the served folder."""
    file: os.stat_result | None
    """The configuration itself, when it is there."""
    is_exact: bool
    """Whether other spellings of a name are known to be other files."""
    since: float


class ConfigurationGuard:
    """To be asked before anything is changed."""

    def __init__(self, root: bytes, source: bytes | None) -> None:
        """`root` is the real path of the served folder, `source` the folder of the configuration; the served folder when it
        is not told."""
        self._root = root
        self._prefix = root if root == b"/" else root + b"/"
        try:
            self._source = os.path.realpath(source or root, strict=True)
        except OSError:
            self._source = source or root  # gone, and to be kept from coming back through the mount
        self._way = self._walk()

    def check_name(self, real: bytes, path: str) -> None:
        """Before a name is made, removed, replaced or given to something else. `real` is its real path, of which only the
        last component may be a link; `path` is for the message. Raises EPERM when it is a name on the way to the
        configuration."""
        way = self._current()
        folder, _, name = real.rpartition(b"/")
        for each in way.names:
            if name == each.name or (not way.is_exact and _folded(name) == _folded(each.name)):
                if _is_same_folder(folder or b"/", each.folder, way.is_exact):
                    raise _is_guarded(path)
            elif not way.is_exact and _is_still(_joined(each.folder, each.name), each.found, _look_at(real)):
                raise _is_guarded(path)  # a short name, or a spelling that only the store knows to be the same

    def check_file(self, found: os.stat_result, path: str) -> None:
        """Before a file is changed, whatever name it was reached by. Raises EPERM when it is the configuration."""
        if _is_same(found, self._current().file):
            self._way = self._walk()  # the number of a file that is gone may have been given to a new one
            if _is_same(found, self._way.file):
                raise _is_guarded(path)

    def check_folder_mode(self, real: bytes, before: int, after: int, path: str) -> None:
        """Before a folder's mode is set: others who may write there replace the configuration past the mount."""
        if after & ~before & _others_may_write == 0:
            return
        way = self._current()
        if any(_is_same_folder(real, each.folder, way.is_exact) for each in way.names):
            raise PosixError("EPERM", f"{path} leads to the configuration of this mount; others may not write there")

    def _current(self) -> _Way:
        if time.monotonic() - self._way.since >= _believed_seconds:
            self._way = self._walk()
        return self._way

    def _is_served(self, real: bytes) -> bool:
        return real == self._root or real.startswith(self._prefix)

    def _walk(self) -> _Way:
        """Goes from the served folder, or else from the source directory, to the configuration as the kernel would."""
        since = time.monotonic()
        found_names: list[_Name] = []
        file: os.stat_result | None = None
        is_exact = True
        inside = self._is_served(self._source)
        folder = self._root if inside else self._source
        names = [*(self._source[len(self._root):].split(b"/") if inside else []), _file_name]
        links = 0
        while names:
            name = names.pop(0)
            if name in (b"", b"."):
                continue
            if name == b"..":
                folder = folder.rpartition(b"/")[0] or b"/"
                continue
            real = _joined(folder, name)
            found = _look_at(real)
            if self._is_served(folder):
                found_names.append(_Name(folder, name, found))
                is_exact = is_exact and found is not None and _tells_case(folder, name)
            if found is not None and stat.S_ISLNK(found.st_mode) and links < _most_links:
                links += 1
                target = _target_of(real)
                if target.startswith(b"/"):
                    folder = b"/"
                names[:0] = target.split(b"/")
            elif found is not None and stat.S_ISDIR(found.st_mode):
                folder = real
            else:
                if found is not None and stat.S_ISREG(found.st_mode) and not names:
                    file = found
                break
        return _Way(found_names, file, is_exact, since)


def _joined(folder: bytes, name: bytes) -> bytes:
    return folder + name if folder == b"/" else folder + b"/" + name


def _look_at(real: bytes) -> os.stat_result | None:
    try:
        return os.lstat(real)
    except OSError:
        return None


def _target_of(link: bytes) -> bytes:
    try:
        return os.readlink(link)
    except OSError:
        return b""  # it has gone since it was looked at


def _tells_case(folder: bytes, name: bytes) -> bool:
    """Whether a folder tells upper from lower case, as far as the name shows it."""
    other = name.lower() if name == name.upper() else name.upper()
    return other == name or _look_at(_joined(folder, other)) is None


def _folded(name: bytes) -> str:
    """One spelling for all that a store may take for the same name: case, composition, ligatures, invisible characters, dots
    and spaces at the end."""
    visible = _ignorable.sub("", unicodedata.normalize("NFKC", name.decode(errors="replace")))
    return visible.casefold().rstrip(". ")


def _is_same(one: os.stat_result | None, other: os.stat_result | None) -> bool:
    return one is not None and other is not None and one.st_ino == other.st_ino and one.st_dev == other.st_dev


def _is_still(real: bytes, seen: os.stat_result | None, changed: os.stat_result | None) -> bool:
    """Whether what was seen at a path is what is to be changed, and is still at that path."""
    return _is_same(seen, changed) and _is_same(_look_at(real), changed)


def _is_same_folder(one: bytes, other: bytes, is_exact: bool) -> bool:
    """Also where one of them is another spelling of the other, or the same folder mounted a second time."""
    if one == other or (not is_exact and _folded(one) == _folded(other)):
        return True
    return _is_same(_look_at(one), _look_at(other))


def _is_guarded(path: str) -> PosixError:
    return PosixError("EPERM", f"{path} is the configuration of this mount or leads to it; change it behind the mount")
