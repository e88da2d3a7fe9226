"""Waiting for something to become true, and never for a time to pass."""

import errno
import os
import time

# Sanitizers and busy machines make everything several times slower; limits grow with it, nothing else changes.
SLOWNESS = float(os.environ.get("KEMVI_TEST_SLOWNESS", "1"))

# Seconds for what takes not a tenth of that on an idle machine.
LIMIT = 30 * SLOWNESS


class Late(AssertionError):
    """What was waited for did not come in time."""


def eventually(condition, seconds=10.0, what="the condition"):
    """Calls `condition` until it answers something true and returns that; raises Late after `seconds`, which are stretched
    where everything is slow."""
    seconds *= SLOWNESS
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


def unless_overtaken(call, tries=20):
    """The result of `call`, made again when it meets ESTALE: what an opener gets whom two replacements overtook."""
    for left in reversed(range(tries)):
        try:
            return call()
        except OSError as error:
            if error.errno != errno.ESTALE or left == 0:
                raise
    return None
