"""Puts one answer line together and hands it to the reader, in pieces when it is long."""
from __future__ import annotations

from collections.abc import Callable

from .stat_text import quote

_flush_size = 1 << 16


class AnswerLine:
    """Begun with `begin`, it can still become an error at its end: "ok" comes last."""

    def __init__(self, send: Callable[[bytes], None]) -> None:
        self.send = send
        self._waiting: list[bytes] = []
        self._size = 0
        self._closing = ""
        self._is_begun = False
        self._is_partly_sent = False

    def begin(self, request_id: str, opening: str, closing: str) -> None:
        """`closing` ends what `opening` begins, should the line have to end with an error."""
        self._closing = closing
        self._is_begun = True
        self.add(f'{{"id":{quote(request_id)},{opening}'.encode())

    def add(self, data: bytes) -> None:
        """More of the line."""
        self._waiting.append(data)
        self._size += len(data)
        if self._size >= _flush_size:
            self._flush()
            self._is_partly_sent = True

    def end(self, text: str) -> None:
        """The last of the line, without the line feed."""
        self._waiting.append(f"{text}\n".encode())
        self._flush()
        self._is_begun = self._is_partly_sent = False

    def fail(self, request_id: str, failure: str) -> None:
        """Ends the line with an error, or writes one that says nothing else."""
        if self._is_begun and self._is_partly_sent:
            self.end(f'{self._closing},"ok":false,{failure}}}')
            return
        self._waiting.clear()
        self._size = 0
        self.end(f'{{"id":{quote(request_id)},"ok":false,{failure}}}')

    def _flush(self) -> None:
        data = b"".join(self._waiting)
        self._waiting.clear()
        self._size = 0
        self.send(data)


def failure_text(message: str, code: str | None = None, name: str | None = None) -> str:
    """The `error` member of an answer."""
    text = f'"error":{{"message":{quote(message)}'
    if code is not None:
        text += f',"code":{quote(code)}'
    if name is not None:
        text += f',"name":{quote(name)}'
    return text + "}"
