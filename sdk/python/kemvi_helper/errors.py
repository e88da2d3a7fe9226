"""Errors that a file system throws on purpose, and what anything that is thrown says in an answer."""
from __future__ import annotations

import errno

# What Python programs throw without a number: `raise FileNotFoundError("there is no such page")`.
_codes_of_kinds: tuple[tuple[type[OSError], str], ...] = (
    (FileNotFoundError, "ENOENT"),
    (FileExistsError, "EEXIST"),
    (IsADirectoryError, "EISDIR"),
    (NotADirectoryError, "ENOTDIR"),
    (PermissionError, "EACCES"),
)


class PosixError(OSError):
    """An error that the program using the mount sees as a POSIX error.

    ENOENT, EEXIST, EINVAL, EISDIR, ENOTDIR, ENOTEMPTY, EACCES, EPERM and EROFS reach the program as they are, any other
    name as EIO. `OSError(errno.ENOENT, "there is no such page")` and `FileNotFoundError("there is no such page")` do the
    same.
    """

    def __init__(self, code: str, message: str) -> None:
        """`code` is the POSIX name, `message` one line for people. Raises ValueError for a name that is none."""
        number = getattr(errno, code, None) if isinstance(code, str) and code.startswith("E") else None
        if number is None:
            raise ValueError(f"PosixError: {code!r} is no POSIX name; expected one like 'ENOENT'")
        super().__init__(number, message)
        self.code = code


def posix_code(error: BaseException) -> str | None:
    """The POSIX name of an error of the file system, or None for a fault of the program."""
    if isinstance(error, PosixError):
        return error.code
    if not isinstance(error, OSError):
        return None
    if error.errno is not None:
        return errno.errorcode.get(error.errno)
    for kind, code in _codes_of_kinds:
        if isinstance(error, kind):
            return code
    return None


def message_of(error: BaseException) -> str:
    """What an error says, in one line and never empty."""
    if isinstance(error, OSError) and error.strerror:
        text = str(error.strerror)
        if error.filename is not None:
            name = error.filename
            text += ": " + (name.decode(errors="replace") if isinstance(name, bytes) else str(name))
    else:
        try:
            text = str(error)
        except Exception:  # what has no text
            text = ""
    return text or type(error).__name__
