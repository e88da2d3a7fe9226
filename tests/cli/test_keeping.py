"""Nothing that a run of the tests starts outlives it."""

import os
import signal
import subprocess
import sys

import pytest

from harness import system
from harness.deadline import LIMIT, eventually

KEPT = """
import subprocess, sys
from harness import keeping

def run():
    subprocess.run(sys.argv[1:], check=True, stdin=subprocess.DEVNULL)
    print("started", flush=True)
    return {after}

sys.exit(keeping.kept(run))
"""
# Has no parent any more when the run ends, and no mark of the run.
ORPHAN = ["env", "-i", "sh", "-c", "setsid sleep 1234 & echo $! >orphan"]


def start(place, command, after):
    return subprocess.Popen([sys.executable, "-c", KEPT.format(after=after), *map(str, command)], cwd=place.folder,
                            env=place.environment(KEMVI_TEST_SLOWNESS=0.1), stdout=subprocess.PIPE, text=True,
                            start_new_session=True)


def test_a_run_that_leaves_a_process_behind_fails_and_ends_it(place):
    with start(place, ORPHAN, after="0") as run:
        said, _ = run.communicate(timeout=LIMIT)
    orphan = int((place.folder / "orphan").read_text())
    assert run.returncode == 1 and f"left behind by the run: process {orphan}: sleep 1234" in said
    assert not system.is_alive(orphan)


def test_a_run_that_leaves_nothing_ends_with_its_own_code(place):
    for code in (0, 3, 77):
        with start(place, ["true"], after=code) as run:
            assert run.communicate(timeout=LIMIT) == ("started\n", None) and run.returncode == code


@pytest.mark.parametrize("end", [lambda run: os.kill(run.pid, signal.SIGKILL), lambda run: os.killpg(run.pid, signal.SIGTERM)],
                         ids=["killed", "terminated with its group"])
def test_the_mounts_of_a_run_that_is_killed_end(place, end):
    mount = [place.program.path, "mount", place.source, place.point]
    with start(place, mount, after="__import__('time').sleep(1000)") as run:
        assert run.stdout.readline() == "started\n"
        served = [place.host(), place.helper(), place.watcher()]
        end(run)
        eventually(lambda: not any(map(system.is_alive, served)), 20, "the end of the mount's processes")
        eventually(lambda: not place.is_mounted(), 20, "the end of the mount")
