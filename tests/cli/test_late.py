"""What is late is shown with what its processes are at: a hang that is seen once must not need to be seen twice."""

import os
import signal
import subprocess
import sys

import pytest

from harness.deadline import LIMIT

pytestmark = pytest.mark.limit(240)


def test_a_command_that_is_late_is_shown_with_every_process_of_its_mount(place):
    place.mount()
    host, helper, watcher = place.host(), place.helper(), place.watcher()
    os.kill(host, signal.SIGSTOP)
    try:
        with pytest.raises(subprocess.TimeoutExpired) as late:
            place.run("unmount", place.point, limit=5)
    finally:
        os.kill(host, signal.SIGCONT)
    seen = late.value.seen
    for pid in (host, helper, watcher):
        assert f"\nprocess {pid} (" in seen
    assert f"thread {host} (kemvi-" in seen and "its status: (no answer" in seen
    assert f"unmount {place.point}\n  thread " in seen
    assert "waits in " in seen and "system call " in seen and "descriptor 0: /dev/null" in seen and "memfd:kemvi-mount" in seen
    place.clear()


LATE = """
import subprocess
from harness.deadline import eventually

def test_late(workspace):
    with subprocess.Popen(["sleep", "1000"], env={"MARK": str(workspace)}) as process:
        try:
            eventually(lambda: False, 0.01, "what never comes")
        except AssertionError:
            process.returncode = 0  # left to those who look after the test
            raise
"""


def test_a_test_that_waits_in_vain_shows_its_processes_and_leaves_none(place):
    (place.folder / "test_late.py").write_text(LATE)
    done = subprocess.run([sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "-p", "conftest", "--rootdir", place.folder,
                           place.folder / "test_late.py"], cwd=place.folder, capture_output=True, text=True, check=False,
                          timeout=2 * LIMIT, stdin=subprocess.DEVNULL)
    said = done.stdout
    assert "what never comes did not come true" in said and "- what was late -" in said
    assert "nothing is mounted\n" in said and "(sleep), S, child of" in said and "waits in" in said
    assert "left behind: ['process" in said
