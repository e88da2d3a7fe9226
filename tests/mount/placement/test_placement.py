"""Host and helper on one processor while the mount is busy: never outside what they were given, nobody else with them,
and nothing of it left when the mount is idle."""

import os
import signal
import subprocess
import sys
import time
from pathlib import Path

import pytest

from harness import system
from harness.deadline import SLOWNESS, eventually
from harness.rest import comes_to_rest

HERE = Path(__file__).resolve().parent
PROCESSORS = os.sched_getaffinity(0)

needs_two = pytest.mark.skipif(len(PROCESSORS) < 2, reason="needs two processors")


def masks(pid):
    """The processors of each thread of a process."""
    found = {}
    for entry in os.listdir(f"/proc/{pid}/task"):
        try:
            found[int(entry)] = os.sched_getaffinity(int(entry))
        except OSError:
            continue
    return found


def work(volume, count=200):
    """Requests that the kernel cannot answer by itself."""
    for number in range(count):
        try:
            os.stat(volume.path / f"none{number % 50}")
        except FileNotFoundError:
            pass


def work_until(volume, condition, seconds=20, what="the condition"):
    end = time.monotonic() + seconds * SLOWNESS
    while not condition():
        if time.monotonic() >= end:
            if volume.log_lines("others want every processor"):
                pytest.skip("other programs want every processor of this machine")
            pytest.fail(f"{what} did not come true while the mount was busy")
        work(volume, 20)


def is_placed(pid):
    return os.sched_getaffinity(pid) != PROCESSORS


def are_all_back(volume):
    return all(mask == PROCESSORS for pid in (volume.host.pid, volume.helper_pid()) for mask in masks(pid).values())


def burn(where):
    """A process that uses a processor up until it is killed, or a minute has passed."""
    return subprocess.Popen([sys.executable, "-c", "import time\nend = time.monotonic() + 60\nwhile time.monotonic() < end: pass"],
                            preexec_fn=lambda: os.sched_setaffinity(0, where))


@pytest.fixture
def auto(mount):
    return mount(options=["placement=auto", "log_level=debug"])


@needs_two
def test_host_and_helper_share_one_processor_and_are_put_back_when_the_mount_is_idle(auto):
    helper = auto.helper_pid()
    auto.expect_log("placement: ", "getattr of <private> failed")
    for _burst in range(3):
        work_until(auto, lambda: is_placed(helper), what="the placing")
        eventually(lambda: are_all_back(auto), what="the masks of before")


@needs_two
def test_no_other_thread_of_host_or_helper_is_placed(auto):
    helper = auto.helper_pid()
    auto.expect_log("placement: ", "getattr of <private> failed")
    seen = 0
    placed = {}

    def look():
        nonlocal seen
        if is_placed(helper):
            seen += 1
            for pid in (helper, auto.host.pid):
                for thread, mask in masks(pid).items():
                    if mask != PROCESSORS:
                        placed[thread] = placed.get(thread, 0) + 1
        return seen >= 20
    work_until(auto, look, what="placement, looked at twenty times")
    # One that was just being started may be met once.
    assert sorted(thread for thread, times in placed.items() if times > 2 and thread in masks(helper)) == [helper]
    assert len([thread for thread, times in placed.items() if times > 2]) <= 2


@needs_two
@pytest.mark.limit(150)
def test_what_the_helper_starts_has_the_processors_that_the_helper_had(mount):
    volume = mount(options=["placement=auto", "log_level=debug"], helper=HERE / "busyFamily.mjs", environment={"KEMVI_TEST_KIT": os.environ["KEMVI_SDK"]})
    helper = volume.helper_pid()
    volume.expect_log("placement: ", "getattr of <private> failed")
    started = volume.backing / "started"
    for number in range(1, 3):
        # A helper that starts processes is left alone for a while, longer each time, up to 16 s.
        work_until(volume, lambda: is_placed(helper), seconds=45, what="the placing")
        threads = len(masks(helper))
        try:
            os.stat(volume.path / "spawn")
        except FileNotFoundError:
            pass
        child = int(started.read_text().split()[-1])
        assert len(started.read_text().split()) == number
        try:
            # Also while work goes on.
            work_until(volume, lambda child=child: os.sched_getaffinity(child) == PROCESSORS, what="the child's mask")
            eventually(lambda threads=threads: len(masks(helper)) > threads, what="the worker")
            eventually(lambda: are_all_back(volume), what="the masks of before")
            assert os.sched_getaffinity(child) == PROCESSORS
        finally:
            os.kill(child, signal.SIGKILL)


@needs_two
def test_a_helper_that_outlives_a_killed_host_has_its_processors_again(mount):
    volume = mount(options=["placement=auto", "log_level=debug"], helper=HERE / "outliving.mjs", environment={"KEMVI_TEST_KIT": os.environ["KEMVI_SDK"]})
    volume.expect_log("placement: ", "getattr of <private> failed")
    helper = volume.helper_pid()
    work_until(volume, lambda: is_placed(helper), what="the placing")
    volume.expects_exit = -signal.SIGKILL
    # Killed as it works: stopped first, so that it cannot put anything back.
    for _try in range(200):
        work(volume, 20)
        volume.host.send_signal(signal.SIGSTOP)
        if is_placed(helper):
            break
        volume.host.send_signal(signal.SIGCONT)
    assert is_placed(helper)
    volume.host.kill()
    volume.wait_for_end()
    eventually(lambda: not is_placed(helper), 4, "the masks of before")
    assert system.is_alive(helper)
    os.kill(helper, signal.SIGKILL)


@needs_two
def test_nothing_is_placed_where_it_is_turned_off(mount):
    volume = mount(options=["placement=off", "log_level=debug"])
    volume.expect_log("getattr of <private> failed")
    helper = volume.helper_pid()
    for _look in range(50):
        work(volume, 40)
        assert not is_placed(helper) and are_all_back(volume)
    assert volume.log_lines("placement") == []


@needs_two
def test_a_mount_that_was_given_one_processor_stays_on_it(mount):
    one = {min(PROCESSORS)}
    os.sched_setaffinity(0, one)
    try:
        volume = mount(options=["placement=auto", "log_level=debug"])
    finally:
        os.sched_setaffinity(0, PROCESSORS)
    volume.expect_log("getattr of <private> failed")
    for _look in range(50):
        work(volume, 40)
        for pid in (volume.host.pid, volume.helper_pid()):
            assert all(mask == one for mask in masks(pid).values())
    assert volume.log_lines("placement: off: one processor")


@needs_two
def test_a_helper_that_is_placed_by_somebody_else_stays_there(auto):
    helper = auto.helper_pid()
    auto.expect_log("placement: ", "getattr of <private> failed")
    one = {max(PROCESSORS)}
    work_until(auto, lambda: is_placed(helper), what="the placing")
    eventually(lambda: are_all_back(auto), what="the masks of before")
    os.sched_setaffinity(helper, one)
    for _look in range(50):
        work(auto, 40)
        assert os.sched_getaffinity(helper) == one
        assert not any(is_placed(thread) for thread in masks(auto.host.pid))


@needs_two
@pytest.mark.limit(90)
def test_placement_is_given_up_where_others_want_the_processor(auto):
    helper = auto.helper_pid()
    auto.expect_log("placement: ", "getattr of <private> failed")
    work_until(auto, lambda: is_placed(helper), seconds=40, what="the placing")
    where = os.sched_getaffinity(helper)
    while len(where) != 1:  # it may just have been put back
        work(auto, 20)
        where = os.sched_getaffinity(helper)
    burners = [burn(where) for _burner in range(3)]
    try:
        left = "placement: (given up for .* wait for the processor|.* from now on (apart|waiting))"
        before = len(auto.log_lines(left))
        work_until(auto, lambda: len(auto.log_lines(left)) > before, seconds=40, what="the giving up")
    finally:
        for burner in burners:
            burner.kill()
            burner.wait()
    eventually(lambda: are_all_back(auto), what="the masks of before")


@pytest.mark.limit(180)
@pytest.mark.parametrize("placement", ["auto", "off"])
def test_an_idle_mount_uses_no_processor(mount, placement):
    volume = mount(options=[f"placement={placement}"])
    volume.expect_log("getattr of <private> failed")
    work(volume, 3000)
    comes_to_rest(volume.host.pid)
    assert len(masks(volume.host.pid)) >= 2
