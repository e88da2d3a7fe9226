"""Turns lines into requests. The fields are checked where they are used."""
from __future__ import annotations

import binascii
import json
import re
from datetime import datetime
from typing import Any

from .errors import PosixError
from .file_system import OpenFlags
from .times import parse_time


def _refuse_constant(name: str) -> None:
    raise ValueError(f"{name} is no JSON")


_decode = json.JSONDecoder(parse_constant=_refuse_constant).decode
_short_line = 512
_data_key = b'"dataBase64":"'
_base64 = re.compile(r"[A-Za-z0-9+/]*={0,2}", re.ASCII)

Request = dict[str, Any]
_payload = object()
PAYLOAD: Any = _payload
"""The key of a payload's bytes, which are not text any more; no key of JSON is like it."""


def parse_request(line: bytes) -> Request:
    """Raises ValueError when the line is not a JSON object."""
    request = _parse_long(line) if len(line) > _short_line else _decode(line.decode())
    if type(request) is not dict:
        raise ValueError("the line is not a JSON object")
    return request


def _parse_long(line: bytes) -> Any:
    """The payload of a write never becomes part of a JSON text: it is cut out and decoded as it came."""
    key = line.find(_data_key)
    if key < 1 or line[key - 1] not in b",{":
        return _decode(line.decode())
    start = key + len(_data_key)
    end = line.find(b'"', start)
    if end < 0:
        raise ValueError('the line ends within "dataBase64"')
    request = _decode((line[:start] + line[end:]).decode())
    if type(request) is not dict:
        return request
    request[PAYLOAD] = _bytes_of(line[start:end])
    return request


def _bytes_of(text: bytes) -> bytes | None:
    if b"\\" in text:
        text = text.replace(b"\\/", b"/")
    if len(text) % 4 or text.endswith(b"==="):  # which the strict mode lets pass
        return None
    try:
        return binascii.a2b_base64(text, strict_mode=True)
    except binascii.Error:
        return None


def path_field(request: Request, field: str) -> str:
    """Raises EINVAL when it is not a path."""
    path = request.get(field)
    if type(path) is not str or path[:1] != "/":
        raise PosixError("EINVAL", f'{field} must be a string that starts with "/"')
    if "\0" in path:
        raise PosixError("EINVAL", f"{field} {json.dumps(path)} holds a NUL, which no name can")
    if not path.isascii():
        try:
            path.encode()
        except UnicodeEncodeError:
            raise PosixError("EINVAL", f"{field} {json.dumps(path)} is no well-formed text") from None
    return path


def count_field(request: Request, field: str) -> int:
    """Raises EINVAL when it is not a whole number from 0 to 2^53 - 1."""
    value = request.get(field)
    if type(value) is int and 0 <= value < 1 << 53:
        return value
    raise PosixError("EINVAL", f"{field} must be a whole number, 0 or more")


def time_field(request: Request, field: str) -> datetime:
    """Raises EINVAL when it is not a time."""
    text = request.get(field)
    time = parse_time(text) if type(text) is str else None
    if time is None:
        raise PosixError("EINVAL", f"{field} must be a time like 2024-05-01T12:34:56.789Z")
    return time


def data_field(request: Request) -> bytes:
    """The bytes of a write. Raises EINVAL when they are none."""
    if PAYLOAD in request:
        data = request[PAYLOAD]
    else:
        text = request.get("dataBase64")
        if type(text) is not str:
            raise PosixError("EINVAL", "dataBase64 must be a string")
        data = _bytes_of(text.encode()) if _base64.fullmatch(text) else None
    if data is None:
        raise PosixError("EINVAL", "dataBase64 is not padded base64")
    return bytes(data)


_known_flags: dict[tuple[str, ...], OpenFlags] = {}


def flags_field(request: Request) -> OpenFlags:
    """Raises EINVAL when they make no sense."""
    words = request.get("flags")
    if type(words) is not list or not all(type(word) is str for word in words):
        raise PosixError("EINVAL", "flags must be an array of strings")
    key = tuple(words)
    known = _known_flags.get(key)
    if known is None:
        known = _flags(words)
        if len(_known_flags) < 100:
            _known_flags[key] = known
    return known


def _flags(words: list[str]) -> OpenFlags:
    for word in words:
        if word not in ("read", "write", "create", "truncate"):
            raise PosixError("EINVAL", f"unknown flag {json.dumps(word)}")
    flags = OpenFlags(**{word: True for word in words})
    if not flags.read and not flags.write:
        raise PosixError("EINVAL", 'flags must contain "read" or "write"')
    if not flags.write and (flags.create or flags.truncate):
        raise PosixError("EINVAL", 'the flags "create" and "truncate" need "write"')
    return flags
