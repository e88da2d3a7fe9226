"""Whether a mount leaves the processor alone."""

import time
from pathlib import Path

from harness.deadline import Late, eventually


def turns(pid):
    """How many times each thread of a process was given a processor, by number and name."""
    counts = {}
    for task in Path(f"/proc/{pid}/task").iterdir():
        try:
            name = (task / "comm").read_text().strip()
            counts[f"{task.name} ({name})"] = int((task / "schedstat").read_text().split()[2])
        except (FileNotFoundError, ProcessLookupError):
            pass  # has just ended
    return counts


def comes_to_rest(pid):
    """Waits until not one thread of a process has run for two seconds. Tests beside this one ask all mounts of their
    user now and then, which wakes the thread that answers; so it may be long until nobody does."""
    last, since, ran = turns(pid), time.monotonic(), {}

    def rests():
        nonlocal last, since, ran
        now = turns(pid)
        if now != last:
            ran = {thread: count - last.get(thread, 0) for thread, count in now.items() if count != last.get(thread)}
            last, since = now, time.monotonic()
        return time.monotonic() - since > 2
    try:
        eventually(rests, 120, "a host that rests")
    except Late as late:
        raise Late(f"{late}; what ran last, and how many times: {ran}") from late
