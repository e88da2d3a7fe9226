"""Times as the protocol writes them: YYYY-MM-DDTHH:MM:SS.mmmZ, always UTC, always three fractional digits."""
from __future__ import annotations

import re
from datetime import datetime, timedelta, timezone

_epoch = datetime(1970, 1, 1)
_utc_epoch = datetime(1970, 1, 1, tzinfo=timezone.utc)
_millisecond = timedelta(milliseconds=1)
_earliest = (datetime.min - _epoch) // _millisecond
_latest = (datetime.max - _epoch) // _millisecond
_form = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d+(?:Z|[+-]\d\d:\d\d)", re.ASCII)

_seconds = tuple(f"{second:02d}." for second in range(60))
_fractions = tuple(f"{fraction:03d}Z" for fraction in range(1000))

# Neighbouring entries of a listing mostly share their minute, so most times cost three look-ups.
_known = (None, "")  # type: tuple[int | None, str]


def time_text(milliseconds: int) -> str:
    """The text of a time since 1970; what four digits of a year cannot say is moved to the nearest time that they can."""
    global _known
    if not _earliest <= milliseconds <= _latest:
        milliseconds = _earliest if milliseconds < _earliest else _latest
    minute, within = divmod(milliseconds, 60_000)
    known_minute, text = _known
    if minute != known_minute:
        text = (_epoch + timedelta(minutes=minute)).isoformat()[:17]
        _known = (minute, text)
    second, fraction = divmod(within, 1000)
    return text + _seconds[second] + _fractions[fraction]


def milliseconds_of(time: datetime) -> int:
    """Milliseconds since 1970; a fraction is cut off."""
    if time.tzinfo is None:
        time = time.astimezone()
    return (time - _utc_epoch) // _millisecond


def parse_time(text: str) -> datetime | None:
    """The time in UTC, or None when the text is not a time in the protocol's form."""
    if _form.fullmatch(text) is None:
        return None
    try:
        return datetime.fromisoformat(text).astimezone(timezone.utc)
    except (ValueError, OverflowError):
        return None
