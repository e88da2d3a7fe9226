"""The JSON text of what is known of a file, and the checks that keep a mistake from becoming a silent 0 or 1970."""
from __future__ import annotations

import inspect
import json
import math
import re
import time
from collections.abc import Callable
from datetime import datetime

from .file_system import Entry, Stat
from .times import milliseconds_of, time_text

quote: Callable[[str], str] = json.JSONEncoder().encode
"""A text as a JSON string, quotes included, in ASCII."""

_unknown_size = -1  # what the protocol has for it
_start_of_helper = int(time.time() * 1000)
_plain_name = re.compile(r"[^\0-\x1f\"\\/.\x7f-\U0010ffff][^\0-\x1f\"\\/\x7f-\U0010ffff]*")


def stat_text(stat: object, quoted_path: str, quoted_name: str) -> str:
    """Raises TypeError, naming the path, when a value is not what it must be."""
    if not isinstance(stat, Stat):
        raise wrong(quoted_path, "a Stat, such as Stat(size=5)", stat)
    is_directory = stat.is_directory
    if is_directory is not True and is_directory is not False:
        raise wrong(quoted_path, "is_directory as True or False", is_directory)
    size = stat.size
    if stat.size_unknown:
        size = _unknown_size
    elif size is None and is_directory:
        size = 0
    elif type(size) is not int or size < 0:
        raise wrong(quoted_path, "size as a whole number of bytes", size)
    kind = "true" if is_directory else "false"
    return (f'{{"path":{quoted_path},"name":{quoted_name},"isDirectory":{kind},"size":{size},'
            f'"modifiedAt":"{time_text(_milliseconds(stat.modified_at, quoted_path))}"}}')


def _milliseconds(modified_at: object, quoted_path: str) -> int:
    # A number of seconds is a fraction of a microsecond short of the time that it stands for.
    if type(modified_at) is float and math.isfinite(modified_at):
        return math.floor(modified_at * 1000 + 0.0005)
    if modified_at is None:
        return _start_of_helper
    if isinstance(modified_at, datetime):
        return milliseconds_of(modified_at)
    if isinstance(modified_at, (int, float)) and not isinstance(modified_at, bool) and math.isfinite(modified_at):
        return math.floor(modified_at * 1000)
    raise wrong(quoted_path, "modified_at as a datetime or seconds since 1970", modified_at)


def wrong(quoted_path: str, expected: str, got: object) -> TypeError:
    """The error of a file system that gave something else than it should."""
    forgotten = ""
    if inspect.isawaitable(got):
        forgotten = "; is an await missing?"
        if inspect.iscoroutine(got):
            got.close()
    return TypeError(f"the file system gave {describe(got)} for {quoted_path}, expected {expected}{forgotten}")


def describe(value: object) -> str:
    """A short text of any value."""
    try:
        text = repr(value)
    except Exception:
        text = f"a {type(value).__name__}"
    return text if len(text) <= 200 else text[:200] + "..."


def base_name(path: str) -> str:
    """Its last component; "/" for the root."""
    return path if path == "/" else path[path.rindex("/") + 1:]


class EntryTexts:
    """Makes the texts of the members of one folder."""

    def __init__(self, folder: str) -> None:
        self._quoted_prefix = quote(folder if folder == "/" else folder + "/")[:-1]

    def text(self, entry: object) -> str:
        """The text of one member. Raises TypeError when it is none."""
        if not isinstance(entry, Entry):
            raise wrong(self._quoted_prefix + '"', "members that are Entries, such as Entry('a.txt', size=5)", entry)
        name = entry.name
        if type(name) is str and _plain_name.fullmatch(name):
            in_quotes = name + '"'
        else:
            in_quotes = self._checked_name(name)
        return stat_text(entry, self._quoted_prefix + in_quotes, '"' + in_quotes)

    def _checked_name(self, name: object) -> str:
        """Its JSON text without the first quote."""
        if not isinstance(name, str) or name in ("", ".", "..") or "/" in name or "\0" in name:
            raise wrong(self._quoted_prefix + '"', "members with the name of one file", name)
        return quote(name)[1:]
