"""One run of a helper: its open files, and the answer to each request line."""
from __future__ import annotations

import binascii
import json
import os
import re
import traceback
from collections.abc import Awaitable, Callable
from typing import Any, NamedTuple

from .answer_line import AnswerLine, failure_text
from .errors import PosixError, message_of, posix_code
from .file_system import OPTIONAL, FileSystem, OpenFlags
from .operations import OPERATIONS, Operation
from .requests import Request, parse_request
from .stat_text import describe, quote

# Longer reads are asked of the file system in pieces of this size, so that no length is too long for the memory. A
# multiple of 3, so that the pieces' base64 texts make one.
_read_piece = 3 << 19
_first_id = re.compile(rb'\s*\{\s*"id"\s*:\s*("(?:[^"\\]|\\.)*")')
_own_folder = os.path.dirname(os.path.abspath(__file__)) + os.sep
_already_written = object()


class OpenFile(NamedTuple):
    """What a handle stands for."""

    file: Any
    path: str
    flags: OpenFlags


class Session:
    """Answers requests, one at a time."""

    def __init__(self, file_system: FileSystem, send: Callable[[bytes], None], report: Callable[[str], None]) -> None:
        """`send` writes all of the bytes given; `report` takes lines for people."""
        self.file_system: Any = file_system
        self.line = AnswerLine(send)
        self._send = send
        self._report = report
        self._functions = {name: getattr(file_system, name, None) for name in OPTIONAL}
        self.getattr = file_system.getattr
        self._read: Callable[[Any, int, int], Any] = file_system.read
        self._handles: dict[int, OpenFile] = {}
        self._last_handle = 0

    def function(self, name: str) -> Callable[..., Any] | None:
        """An optional function of the file system."""
        return self._functions[name]

    def answer(self, line: bytes) -> Awaitable[None] | None:
        """Answers one request line. Returns something to await when the answer comes later. Raises BrokenPipeError when
        nobody reads the answers any more."""
        try:
            request = parse_request(line)
        except (ValueError, RecursionError) as error:
            self._answer_malformed(line, error)
            return None
        op = request.get("op")
        if type(request.get("id")) is not str or type(op) is not str:
            self._answer_incomplete(request)
            return None
        operation = OPERATIONS.get(op)
        try:
            if operation is None:
                raise PosixError("EINVAL", f"unknown operation {json.dumps(op)}")
            result = operation.call(self, request)
            if hasattr(type(result), "__await__"):
                return self._answer_later(request, operation, result)
            self._finish(request, operation, result)
        except Exception as error:
            self._fail(request, error)
        except BaseException as error:  # an end, which the sender of the request is told of first
            self._fail(request, error)
            raise
        return None

    async def _answer_later(self, request: Request, operation: Operation, awaited: Awaitable[Any]) -> None:
        try:
            self._finish(request, operation, await awaited)
        except Exception as error:
            self._fail(request, error)
        except BaseException as error:
            self._fail(request, error)
            raise

    def _finish(self, request: Request, operation: Operation, result: Any) -> None:
        if operation.answer is not None:
            operation.answer(self, request, result)
        else:
            self._send(f'{{"id":{quote(request["id"])},"ok":true}}\n'.encode())

    def answer_result(self, request: Request, text: str) -> None:
        """`text` is JSON."""
        self._send(f'{{"id":{quote(request["id"])},"ok":true,"result":{text}}}\n'.encode())

    def open_by_path(self, path: str) -> Any:
        """Without a function `open` a file is its path, after a look that there is one."""
        stat: Any = self.getattr(path)
        if hasattr(type(stat), "__await__"):
            return self._open_by_path_later(path, stat)
        return _path_of_file(path, stat)

    async def _open_by_path_later(self, path: str, stat: Awaitable[Any]) -> str:
        return _path_of_file(path, await stat)

    # Reading

    def read(self, request: Request, file: Any, offset: int, length: int) -> Any:
        """Asks for the bytes of a read. Returns those of a short one; writes a long one's as they come."""
        if length == 0:
            return b""
        if length <= _read_piece:
            return self._read(file, offset, length)
        self.line.begin(request["id"], '"dataBase64":"', '"')
        done = 0
        while done < length:
            piece = min(length - done, _read_piece)
            data: Any = self._read(file, offset + done, piece)
            if hasattr(type(data), "__await__"):
                return self._read_on(file, offset, length, done, data)
            count = self._add_piece(data, piece)
            done += count
            if count < piece:
                break
        return _already_written

    async def _read_on(self, file: Any, offset: int, length: int, done: int, awaited: Awaitable[Any]) -> Any:
        while True:
            piece = min(length - done, _read_piece)
            count = self._add_piece(await awaited, piece)
            done += count
            if count < piece or done == length:
                return _already_written
            awaited = self._read(file, offset + done, min(length - done, _read_piece))

    def _add_piece(self, data: Any, piece: int) -> int:
        data = _checked_bytes(data, piece)
        self.line.add(binascii.b2a_base64(data, newline=False))
        return len(data)

    def answer_read(self, request: Request, data: Any) -> None:
        """`data` is what `read` returned."""
        if data is _already_written:
            self.line.end('","ok":true}')
            return
        data = _checked_bytes(data, request["length"])
        head = f'{{"id":{quote(request["id"])},"ok":true,"dataBase64":"'.encode()
        self._send(b"".join((head, binascii.b2a_base64(data, newline=False), b'"}\n')))

    # Failing

    def _fail(self, request: Request, error: BaseException) -> None:
        code = posix_code(error)
        if code is None:
            self._report(f"{self._what(request)} failed: {stack_of(error)}")
        self.line.fail(request["id"], failure_text(message_of(error), code, type(error).__name__))

    def _what(self, request: Request) -> str:
        """The request, for people."""
        path = request.get("path") or request.get("oldPath")
        if path is None:
            opened = self._handles.get(request["handle"]) if type(request.get("handle")) is int else None
            path = opened.path if opened else None
        return f"{request['op']} of {path}" if path is not None else str(request["op"])

    def _answer_malformed(self, line: bytes, error: Exception) -> None:
        """A line that is no JSON object: its sender waits all the same, so it is answered when it shows an id."""
        message = f"the request line cannot be read: {error}"
        self._report(f"{message}: {json.dumps(line[:200].decode(errors='replace'))}")
        found = _first_id.match(line)
        if found is not None:
            shown = found[1].decode(errors="replace")
            self._send(f'{{"id":{shown},"ok":false,{failure_text(message, "EINVAL")}}}\n'.encode())

    def _answer_incomplete(self, request: Request) -> None:
        """An object without an id or an op that are strings."""
        request_id, op = request.get("id"), request.get("op")
        message = f"{'id' if type(request_id) is not str else 'op'} of the request must be a string"
        self._report(f"{message}: {describe({'id': request_id, 'op': op})}")
        if type(request_id) in (str, int, float):
            self._send(f'{{"id":{quote(str(request_id))},"ok":false,{failure_text(message, "EINVAL")}}}\n'.encode())

    # Open files

    def add_handle(self, file: Any, path: str, flags: OpenFlags) -> int:
        """A number that was never used before."""
        self._last_handle += 1
        self._handles[self._last_handle] = OpenFile(file, path, flags)
        return self._last_handle

    def open_file(self, request: Request) -> OpenFile:
        """Raises EBADF when the handle of the request is not open."""
        handle = request.get("handle")
        opened = self._handles.get(handle) if type(handle) is int else None
        if opened is None:
            raise PosixError("EBADF", f"handle {describe(handle)} is not open")
        return opened

    def release(self, handle: int, opened: OpenFile) -> Any:
        """Forgets a handle and gives its file back; may give something to await."""
        del self._handles[handle]
        function = self.function("release")
        return None if function is None else function(opened.file)

    def end(self) -> list[Awaitable[Any]]:
        """Gives back what is still open, then ends the file system. What fails is reported, and the rest goes on. Returns
        what is to be awaited: nothing, where all functions are plain."""
        later = [self._attempt(f"release of {opened.path}", self.release, handle, opened)
                 for handle, opened in list(self._handles.items())]
        function = self.function("end")
        if function is not None:
            pending = [each for each in later if each is not None]
            if pending:
                later = [self._end_after(pending, function)]
            else:
                later = [self._attempt("end", function)]
        return [each for each in later if each is not None]

    async def _end_after(self, pending: list[Awaitable[Any]], function: Callable[..., Any]) -> None:
        for each in pending:
            await each
        last = self._attempt("end", function)
        if last is not None:
            await last

    def _attempt(self, what: str, step: Callable[..., Any], *values: Any) -> Awaitable[None] | None:
        try:
            result = step(*values)
        except Exception as error:
            self._report(f"{what} failed: {stack_of(error)}")
            return None
        return self._attempt_later(what, result) if hasattr(type(result), "__await__") else None

    async def _attempt_later(self, what: str, awaited: Awaitable[Any]) -> None:
        try:
            await awaited
        except Exception as error:
            self._report(f"{what} failed: {stack_of(error)}")


def _path_of_file(path: str, stat: Any) -> str:
    if getattr(stat, "is_directory", False):
        raise PosixError("EISDIR", f"{path} is a folder")
    return path


def _checked_bytes(data: Any, length: int) -> Any:
    if not isinstance(data, (bytes, bytearray)):
        if not isinstance(data, memoryview):
            hint = "; text becomes bytes with .encode()" if isinstance(data, str) else ""
            raise TypeError(f"read of the file system gave {describe(data)}, expected bytes{hint}")
        data = data.cast("B") if data.contiguous else data.tobytes()
    return data if len(data) <= length else data[:length]


def stack_of(error: BaseException) -> str:
    """What was thrown and where, without the kit's own calls above it."""
    frame = error.__traceback__
    while frame is not None and frame.tb_frame.f_code.co_filename.startswith(_own_folder):
        frame = frame.tb_next
    lines = traceback.format_exception(type(error), error, frame)
    last = "".join(traceback.format_exception_only(type(error), error)).strip()
    above = [line.rstrip("\n") for line in lines[:-1]] if frame is not None else []
    return "\n".join([last, *above])
