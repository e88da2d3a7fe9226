"""Waiting for something to become true, and never for a time to pass."""

import time


class Late(AssertionError):
    """What was waited for did not come in time."""


def eventually(condition, seconds=10.0, what="the condition"):
    """Calls `condition` until it answers something true and returns that; raises Late after `seconds`."""
    end = time.monotonic() + seconds
    pause = 0.001
    while True:
        answer = condition()
        if answer:
            return answer
        if time.monotonic() >= end:
            raise Late(f"{what} did not come true within {seconds} s")
        time.sleep(pause)
        pause = min(pause * 2, 0.05)
