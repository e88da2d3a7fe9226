"""The fourteen operations: which fields each one needs, what it calls, how its result is written."""
from __future__ import annotations

from collections.abc import Callable, Iterable
from typing import TYPE_CHECKING, Any, NamedTuple

from .errors import PosixError
from .requests import Request, count_field, data_field, flags_field, path_field, time_field
from .stat_text import EntryTexts, base_name, describe, quote, stat_text, wrong

if TYPE_CHECKING:
    from .session import Session


class Operation(NamedTuple):
    """`call` asks the file system, and may give something to await; `answer` writes the answer. Without that the answer is
    success alone."""

    call: Callable[["Session", Request], Any]
    answer: Callable[["Session", Request, Any], None] | None = None


def _changing(session: Session, name: str) -> Callable[..., Any]:
    """The function of the file system for a change, or the error that tells why there is none."""
    if session.function("write") is None:
        raise PosixError("EROFS", "this file system is read-only")
    function = session.function(name)
    if function is None:
        raise PosixError("EPERM", f"this file system has no {name}")
    return function


def _call_statfs(session: Session, request: Request) -> Any:
    function = session.function("statfs")
    return None if function is None else function()


def _answer_statfs(session: Session, request: Request, figures: Any) -> None:
    if figures is None:
        figures = {}
    if not isinstance(figures, dict):
        raise TypeError(f"statfs of the file system gave {describe(figures)}, expected a dict such as {{'files': 2}}")
    numbers = {name: figures.get(name, 0) for name in ("files", "directories", "bytes")}
    for name, value in numbers.items():
        if type(value) is not int or value < 0:
            raise TypeError(f"statfs of the file system gave {describe(value)} for {name}, expected a whole number")
    session.answer_result(
        request, f'{{"files":{numbers["files"]},"directories":{numbers["directories"]},"bytes":{numbers["bytes"]}}}')


def _call_getattr(session: Session, request: Request) -> Any:
    return session.getattr(path_field(request, "path"))


def _answer_getattr(session: Session, request: Request, stat: Any) -> None:
    path = request["path"]
    session.answer_result(request, stat_text(stat, quote(path), quote(base_name(path))))


def _call_readdir(session: Session, request: Request) -> Any:
    return session.file_system.readdir(path_field(request, "path"))


def _answer_readdir(session: Session, request: Request, entries: Any) -> None:
    path = request["path"]
    if not isinstance(entries, Iterable):
        raise wrong(quote(path), "a list of members", entries)
    texts = EntryTexts(path)
    line = session.line
    line.begin(request["id"], '"result":[', "]")
    batch: list[str] = []
    separator = ""
    for entry in entries:
        batch.append(texts.text(entry))
        if len(batch) == 128:
            line.add((separator + ",".join(batch)).encode())
            separator = ","
            batch.clear()
    if batch:
        line.add((separator + ",".join(batch)).encode())
    line.end('],"ok":true}')


def _call_open(session: Session, request: Request) -> Any:
    path = path_field(request, "path")
    flags = flags_field(request)
    if flags.write:
        _changing(session, "write")
    function = session.function("open")
    return session.open_by_path(path) if function is None else function(path, flags)


def _answer_open(session: Session, request: Request, file: Any) -> None:
    handle = session.add_handle(file, request["path"], flags_field(request))
    session.answer_result(request, f'{{"handle":{handle}}}')


def _call_read(session: Session, request: Request) -> Any:
    opened = session.open_file(request)
    offset = count_field(request, "offset")
    length = count_field(request, "length")
    if not opened.flags.read:
        raise PosixError("EBADF", f"handle {request['handle']} is not open for reading")
    return session.read(request, opened.file, offset, length)


def _answer_read(session: Session, request: Request, data: Any) -> None:
    session.answer_read(request, data)


def _call_write(session: Session, request: Request) -> Any:
    opened = session.open_file(request)
    offset = count_field(request, "offset")
    if not opened.flags.write:
        raise PosixError("EBADF", f"handle {request['handle']} is not open for writing")
    return _changing(session, "write")(opened.file, offset, data_field(request))


def _call_flush(session: Session, request: Request) -> Any:
    opened = session.open_file(request)
    function = session.function("flush")
    return None if function is None else function(opened.file)


def _call_release(session: Session, request: Request) -> Any:
    opened = session.open_file(request)
    request["path"] = opened.path  # of which the handle tells nothing afterwards
    return session.release(request["handle"], opened)


def _call_mkdir(session: Session, request: Request) -> Any:
    return _changing(session, "mkdir")(path_field(request, "path"))


def _call_unlink(session: Session, request: Request) -> Any:
    return _changing(session, "unlink")(path_field(request, "path"))


def _call_rename(session: Session, request: Request) -> Any:
    return _changing(session, "rename")(path_field(request, "oldPath"), path_field(request, "newPath"))


def _call_chmod(session: Session, request: Request) -> Any:
    path = path_field(request, "path")
    mode = count_field(request, "mode")
    if mode > 0o7777:
        raise PosixError("EINVAL", "mode must be 0 to 4095")
    return _changing(session, "chmod")(path, mode)


def _call_utimes(session: Session, request: Request) -> Any:
    path = path_field(request, "path")
    time = time_field(request, "mtime")
    return _changing(session, "utimes")(path, time)


OPERATIONS: dict[str, Operation] = {
    "ping": Operation(lambda session, request: None),
    "statfs": Operation(_call_statfs, _answer_statfs),
    "getattr": Operation(_call_getattr, _answer_getattr),
    "readdir": Operation(_call_readdir, _answer_readdir),
    "open": Operation(_call_open, _answer_open),
    "read": Operation(_call_read, _answer_read),
    "write": Operation(_call_write),
    "flush": Operation(_call_flush),
    "release": Operation(_call_release),
    "mkdir": Operation(_call_mkdir),
    "unlink": Operation(_call_unlink),
    "rename": Operation(_call_rename),
    "chmod": Operation(_call_chmod),
    "utimes": Operation(_call_utimes),
}
