"""What a helper says when its tree changes by itself."""
from __future__ import annotations

import json
import os
import threading
from collections.abc import Iterable

from .change_notices import ChangeNotices
from .stat_text import describe
from .streams import report

_lock = threading.Lock()
_notices: ChangeNotices | None = None
_said: set[str] = set()


def changed(paths: str | Iterable[str]) -> None:
    """Tells the mount that something was made, removed, replaced or written at these paths, or beneath them, otherwise than
    through the mount: what it and the kernel remember of them is dropped, within some milliseconds. With that a mount may
    remember for long (`-o entry_timeout=3600,attr_timeout=3600`).

    `paths` are those of the served tree, as `getattr` is given them; they need not exist any more. Returns at once and
    throws nothing; what it cannot do it says on standard error, once. May be called from any thread, with either loop.
    """
    try:
        for path in [paths] if isinstance(paths, str) else paths:
            _tell(path)
    except Exception as error:
        _say_once(f"changed: expected a path, or several, not {describe(paths)} ({error})")


def end_notices() -> None:
    """For the end of `serve`."""
    with _lock:
        if _notices is not None:
            _notices.end()


def _tell(path: object) -> None:
    global _notices
    problem = _problem_of(path)
    address = os.environ.get("KEMVI_CONTROL")
    if problem is not None:
        _say_once(f"changed: {json.dumps(path) if isinstance(path, str) else describe(path)} {problem}")
    elif not address:
        _say_once("changed: there is no mount to tell (KEMVI_CONTROL names no socket)")
    else:
        with _lock:
            if _notices is None:
                _notices = ChangeNotices(address, report)
        _notices.add(str(path))


def _problem_of(path: object) -> str | None:
    if not isinstance(path, str):
        return "is no path"
    if path == "":
        return 'is empty; "/" is the whole tree'
    if "\0" in path:
        return "holds a NUL, which no name can"
    try:
        path.encode()
    except UnicodeEncodeError:
        return "is no well-formed text"
    if any(part in (".", "..") for part in path.split("/")):
        return 'has a part "." or ".."'
    return None


def _say_once(text: str) -> None:
    with _lock:
        if text in _said or len(_said) >= 20:
            return
        _said.add(text)
    report(text)
