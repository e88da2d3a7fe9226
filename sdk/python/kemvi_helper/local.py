"""Serves a folder of this machine: `python3 -m kemvi_helper` serves the one in KEMVI_REPO_ROOT."""
from __future__ import annotations

import errno
import os
import stat
from collections.abc import Callable, Iterator
from datetime import datetime, timedelta, timezone
from typing import NamedTuple

from .configuration_guard import ConfigurationGuard
from .containment import Containment, without_real_path
from .errors import PosixError
from .file_system import Entry, OpenFlags, Stat
from .streams import report

_permission_bits = 0o777
_as_another_user = stat.S_ISUID | stat.S_ISGID  # a program runs with the rights of the file's owner or group
_epoch = datetime(1970, 1, 1, tzinfo=timezone.utc)
_microsecond = timedelta(microseconds=1)


class LocalFile(NamedTuple):
    """An open file."""

    descriptor: int
    path: str


class LocalFileSystem:
    """A folder of this machine as a file system. Nothing outside of the folder is reached: links that stay inside are
    followed; one that leads out, nowhere or in a circle shows as an empty file that cannot be opened. Special files are
    shown, not opened. Names that are not UTF-8 cannot be told in the protocol and are left out of listings.

    The configuration of the mount is shown, and never changed, moved or removed. No file gets a set-user-id or set-group-id
    bit, and one that is opened for writing loses them.
    """

    def __init__(self, root: str, source: str | None = None) -> None:
        """`root` is the folder to serve, `source` the one with the configuration of the mount: that in KEMVI_SOURCE when it
        is left out, and the served one where that tells nothing. Raises OSError when the root is no folder."""
        source = source if source is not None else os.environ.get("KEMVI_SOURCE")
        self._tree = Containment(root)
        self._guard = ConfigurationGuard(self._tree.root, os.fsencode(source) if source else None)
        self._has_warned = False

    def getattr(self, path: str) -> Stat:
        real = self._tree.locate(path)
        try:
            found = os.lstat(real)
        except OSError as error:
            raise without_real_path(error, path) from None
        return self._shown(found, path)

    def readdir(self, path: str) -> Iterator[Entry]:
        folder = self._tree.folder(path)
        try:
            members = os.scandir(folder)
        except OSError as error:
            raise without_real_path(error, path) from None
        prefix = path if path == "/" else path + "/"
        with members:
            for member in members:
                name = self._told(member.name, path)
                if name is None:
                    continue
                try:
                    found = self._shown(member.stat(follow_symlinks=False), prefix + name)
                except FileNotFoundError:
                    continue  # removed meanwhile
                except OSError as error:
                    raise without_real_path(error, prefix + name) from None
                yield Entry(name, is_directory=found.is_directory, size=found.size, modified_at=found.modified_at)

    def _told(self, name: bytes, folder: str) -> str | None:
        try:
            return name.decode()
        except UnicodeDecodeError:
            if not self._has_warned:
                self._has_warned = True
                report(f"names that are not UTF-8 are left out of listings, first in {folder}")
            return None

    def _shown(self, found: os.stat_result, path: str) -> Stat:
        """`found` is what is at the path, links not followed."""
        if stat.S_ISLNK(found.st_mode):
            found = self._through_link(path) or found
        kind = stat.S_IFMT(found.st_mode)
        size = found.st_size if kind == stat.S_IFREG else 0
        return Stat(is_directory=kind == stat.S_IFDIR, size=size, modified_at=found.st_mtime)

    def _through_link(self, path: str) -> os.stat_result | None:
        """What a link leads to; None when that is out, nowhere or in a circle."""
        try:
            return os.lstat(self._follow_link(path))
        except OSError:
            return None

    def _follow_link(self, path: str) -> bytes:
        """The real path of what a link leads to."""
        target = self._tree.follow(path)
        # A link to a folder that the path came through would be a tree without end.
        folder = path
        while folder not in ("", "/"):
            folder = folder.rpartition("/")[0]
            if self._tree.folder(folder or "/") == target:
                raise PosixError("ELOOP", f"{path} leads back to a folder that it lies in")
        return target

    # Open files

    def open(self, path: str, flags: OpenFlags) -> LocalFile:
        real = self._tree.locate(path)
        try:
            return LocalFile(self._open_real(real, path, flags), path)
        except OSError as error:
            raise without_real_path(error, path) from None

    def _open_real(self, real: bytes, path: str, flags: OpenFlags) -> int:
        try:
            found = os.lstat(real)
            if stat.S_ISLNK(found.st_mode):
                real = self._follow_link(path)
                found = os.lstat(real)
            _check_openable(found, path)
        except FileNotFoundError:
            if not flags.create:
                raise
            made = self._make(real, path, flags)
            if made is not None:
                return made
        return self._open_checked(real, path, flags)

    def _make(self, real: bytes, path: str, flags: OpenFlags) -> int | None:
        """Opens a file that this very call makes: empty, a plain one, and none that was there before under another name.
        None when there is something by now, whatever it is."""
        self._guard.check_name(real, path)
        try:
            return os.open(real, _access_mode(flags) | os.O_CREAT | os.O_EXCL, 0o666)
        except FileExistsError:
            return None

    def _open_checked(self, real: bytes, path: str, flags: OpenFlags) -> int:
        """Something else may have taken the file's place since it was looked at: the open never waits, follows no link, and
        what was opened is looked at once more before it is emptied."""
        if flags.write:
            self._guard.check_name(real, path)
        create = os.O_CREAT if flags.create else 0
        descriptor = os.open(real, _access_mode(flags) | create | os.O_NOFOLLOW | os.O_NONBLOCK, 0o666)
        try:
            found = os.fstat(descriptor)
            _check_openable(found, path)
            if flags.write:
                self._guard.check_file(found, path)
                if found.st_mode & _as_another_user:
                    _drop_other_users_rights(descriptor, found.st_mode)
            if flags.truncate:
                os.ftruncate(descriptor, 0)
            return descriptor
        except BaseException:
            os.close(descriptor)
            raise

    def read(self, file: LocalFile, offset: int, length: int) -> bytes:
        return os.pread(file.descriptor, length, offset)

    def write(self, file: LocalFile, offset: int, data: bytes) -> None:
        done = os.pwrite(file.descriptor, data, offset)
        while done < len(data):
            done += os.pwrite(file.descriptor, memoryview(data)[done:], offset + done)

    def flush(self, file: LocalFile) -> None:
        os.fdatasync(file.descriptor)

    def release(self, file: LocalFile) -> None:
        os.close(file.descriptor)

    # Names

    def mkdir(self, path: str) -> None:
        self._change(path, os.mkdir)

    def unlink(self, path: str) -> None:
        """Removes a file, a link or an empty folder."""
        def remove(real: bytes) -> None:
            if stat.S_ISDIR(os.lstat(real).st_mode):
                os.rmdir(real)
                self._tree.forget()
            else:
                os.unlink(real)

        self._change(path, remove)

    def rename(self, old_path: str, new_path: str) -> None:
        new_real = self._tree.locate(new_path)
        if new_path == "/":
            raise _is_root(new_path)
        self._guard.check_name(new_real, new_path)
        self._change(old_path, lambda real: os.rename(real, new_real))
        self._tree.forget()

    def _change(self, path: str, change: Callable[[bytes], None]) -> None:
        """Changes what is at a path itself, not what a link there leads to."""
        if path == "/":
            raise _is_root(path)
        real = self._tree.locate(path)
        self._guard.check_name(real, path)
        try:
            change(real)
        except OSError as error:
            raise without_real_path(error, path) from None

    # Attributes

    def chmod(self, path: str, mode: int) -> None:
        """Sets the permission bits and no others. A folder keeps the bits that decide who removes from it and what group new
        files get."""
        asked = mode & _permission_bits

        def change(real: bytes, found: os.stat_result) -> None:
            kept = 0
            if stat.S_ISDIR(found.st_mode):
                self._guard.check_folder_mode(real, found.st_mode, asked, path)
                kept = stat.S_IMODE(found.st_mode) & ~_permission_bits
            os.chmod(real, asked | kept)

        self._on_target(path, change)

    def utimes(self, path: str, mtime: datetime) -> None:
        """Sets the time of the last change; that of the last access stays."""
        modified = (mtime - _epoch) // _microsecond * 1000
        self._on_target(path, lambda real, found: os.utime(real, ns=(found.st_atime_ns, modified)))

    def _on_target(self, path: str, change: Callable[[bytes, os.stat_result], None]) -> None:
        real = self._tree.locate(path)
        try:
            found = os.lstat(real)
            if stat.S_ISLNK(found.st_mode):
                real = self._follow_link(path)
                found = os.lstat(real)
            if not stat.S_ISDIR(found.st_mode):
                self._guard.check_name(real, path)
                self._guard.check_file(found, path)
            change(real, found)
        except OSError as error:
            raise without_real_path(error, path) from None

    def statfs(self) -> dict[str, int]:
        """The figures of the file system that the folder lies on."""
        figures = os.statvfs(self._tree.root)
        return {"files": figures.f_files - figures.f_ffree, "directories": 0,
                "bytes": (figures.f_blocks - figures.f_bfree) * figures.f_frsize}


def _drop_other_users_rights(descriptor: int, mode: int) -> None:
    """What another user's program becomes must not run with that user's rights. Where the file is not ours to change, the
    system does this itself when it is written to."""
    try:
        os.fchmod(descriptor, stat.S_IMODE(mode) & ~_as_another_user)
    except OSError as error:
        if error.errno != errno.EPERM:
            raise


def _access_mode(flags: OpenFlags) -> int:
    if not flags.write:
        return os.O_RDONLY
    return os.O_RDWR if flags.read else os.O_WRONLY


def _check_openable(found: os.stat_result, path: str) -> None:
    kind = stat.S_IFMT(found.st_mode)
    if kind == stat.S_IFDIR:
        raise PosixError("EISDIR", f"{path} is a folder")
    if kind != stat.S_IFREG:
        raise PosixError("EACCES", f"{path} is a special file and is not opened")


def _is_root(path: str) -> PosixError:
    return PosixError("EPERM", f"{path} is the root of the served folder")
