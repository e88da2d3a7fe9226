"""The helper of a check dies with the check, however that ends."""

import signal
from pathlib import Path

import pytest

from harness import system
from harness.deadline import LIMIT, eventually

BROKEN = Path(__file__).resolve().parent / "broken"


def start(place, fault="hangs at statfs", **options):
    """A check whose helper hangs, and the helper's process."""
    place.configure(BROKEN / "disk.mjs", kemviHome=fault)
    process = place.start("check", place.source, "--op-timeout", "3600", **options)
    eventually(lambda: fault in place.notes(), 30, "the helper that hangs")
    return process, int(place.notes()[0].split()[1])


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_ends_check_and_helper(place, number):
    process, helper = start(place)
    process.send_signal(number)
    output, told = process.communicate(timeout=LIMIT)
    assert process.returncode == 13, told
    assert not system.is_alive(helper)
    assert output.splitlines()[-1].startswith("interrupted")
    assert "skip  folders are listed (not reached)" in output


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGSEGV])
def test_the_helper_dies_with_a_check_that_is_killed(place, number):
    process, helper = start(place)
    process.send_signal(number)
    process.communicate(timeout=LIMIT)
    assert process.returncode == -number
    eventually(lambda: not system.is_alive(helper), 30, "the helper's end")


def test_the_helpers_own_children_die_with_a_check_that_is_killed(place):
    place.use_helper("hangsOnReaddir.mjs")
    process = place.start("check", place.source, "--op-timeout", "3600")
    eventually(lambda: "listing" in place.notes(), 30, "the request for a listing")
    child = int(place.notes()[0])
    process.kill()
    process.communicate(timeout=LIMIT)
    eventually(lambda: not system.is_alive(child), 30, "the end of the helper's child")


def test_a_signal_that_was_ignored_when_the_check_was_started_stays_ignored(place):
    process, _ = start(place, preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
    process.send_signal(signal.SIGHUP)
    process.send_signal(signal.SIGTERM)
    process.communicate(timeout=LIMIT)
    assert process.returncode == 13
