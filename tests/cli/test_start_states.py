"""The command works whatever the caller left it: standard descriptors closed, signals ignored or blocked."""

import os
import signal
import subprocess
from pathlib import Path

import pytest

from harness import system
from harness.deadline import SLOWNESS, eventually
from harness.program import KEMVI

CLOSED = {"no input": [0], "no output": [1], "no errors": [2], "only errors": [0, 1], "nothing": [0, 1, 2]}


class Starter:
    """Starts the command in one such state."""

    def __init__(self, place, prepare):
        self.place, self.prepare = place, prepare

    def start(self, *arguments):
        log = self.place.folder / "output"
        with open(log, "ab") as output:
            return subprocess.Popen([KEMVI, *map(str, arguments)], cwd=self.place.folder, stdin=subprocess.DEVNULL,
                                    stdout=output, stderr=output, env=self.place.environment(),
                                    preexec_fn=self.prepare)

    def run(self, *arguments):
        with self.start(*arguments) as process:
            return process.wait(30 * SLOWNESS)

    def output(self):
        return (self.place.folder / "output").read_text()


def closing(descriptors):
    def prepare():
        for descriptor in descriptors:
            os.close(descriptor)
    return prepare


def ignoring(*numbers):
    def prepare():
        for number in numbers:
            signal.signal(number, signal.SIG_IGN)
    return prepare


def blocking():
    signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())


STATES = {name: closing(descriptors) for name, descriptors in CLOSED.items()} | {
    "SIGCHLD ignored": ignoring(signal.SIGCHLD),
    "everything ignored": ignoring(*signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP}),
    "everything blocked": blocking}


@pytest.fixture(params=STATES)
def started(request, place):
    return Starter(place, STATES[request.param])


def test_a_mount_in_the_background_lives_and_ends(place, started):
    assert started.run("mount", place.source, place.point) == 0
    assert (place.point / "a.txt").read_text() == "hello\n"
    host = place.host()
    eventually(lambda: all_asleep(host), 30, "a host that sleeps while there is nothing to do")
    assert_standard_descriptors(host)
    assert started.run("unmount", place.point) == 0
    place.assert_nothing_left()


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_a_mount_in_the_background_is_ended_by_every_stop_signal_also_by_one_that_was_ignored(place, number):
    assert Starter(place, STATES["everything ignored"]).run("mount", place.source, place.point) == 0
    host = place.host()
    os.kill(host, number)
    eventually(lambda: not system.is_alive(host), 30, "the end of the host")


def test_a_mount_in_the_foreground_lives_and_ends(place, started):
    with started.start("mount", "-f", place.source, place.point) as process:
        eventually(lambda: place.is_mounted() or process.poll() is not None, 30, "the mount")
        assert process.poll() is None, started.output()
        assert (place.point / "a.txt").read_text() == "hello\n"
        assert_standard_descriptors(process.pid)
        process.terminate()
        assert process.wait(30 * SLOWNESS) == 0


def test_a_mount_that_fails_says_so_by_its_exit_code(place, started):
    place.use_helper("exits.mjs")
    assert started.run("mount", place.source, place.point) == 5
    assert started.run("mount", "-f", place.source, place.point) == 5
    place.assert_nothing_left()


def test_unmount_refuses_a_mount_in_use_and_ends_it_by_force(place, started):
    place.mount()
    with open(place.point / "a.txt", encoding="utf-8"):
        assert started.run("unmount", place.point) == 10
        assert place.is_mounted()
        assert started.run("unmount", "--force", place.point) == 0


def test_init_does_its_work(place, started):
    fresh = place.folder / "fresh"
    assert started.run("init", fresh, "--repo-root", place.tree) == 0
    assert (fresh / "mount-config.json").exists()


@pytest.mark.parametrize("state", ["nothing", "everything ignored", "everything blocked"])
def test_check_does_its_work(place, state):
    assert Starter(place, STATES[state]).run("check", place.source) == 0


@pytest.mark.root_only
def test_descriptors_without_dev_null_are_as_good_as_closed(place):
    """They are of a kind that takes no right to read the root directory."""
    script = 'mount -t tmpfs none /dev && exec "$0" "$@" <&- >&- 2>&-'
    with subprocess.Popen([system.OWN_MOUNT_TABLE, "sh", "-c", script, KEMVI, "metrics", "--listen", "127.0.0.1:0"],
                          env=place.environment()) as process:
        try:
            eventually(lambda: system.name_of(process.pid).startswith("kemvi"), 30, "the command")
            eventually(lambda: all(os.path.exists(f"/proc/{process.pid}/fd/{number}") for number in range(4)), 30, "its start")
            for number in range(3):
                flags, = (line.split()[1] for line in Path(f"/proc/{process.pid}/fdinfo/{number}").read_text().splitlines()
                          if line.startswith("flags:"))
                assert os.readlink(f"/proc/{process.pid}/fd/{number}") == "/" and int(flags, 8) & os.O_PATH
        finally:
            process.terminate()


def all_asleep(pid):
    states = []
    for task in Path(f"/proc/{pid}/task").iterdir():
        stat = (task / "stat").read_text()
        states.append(stat[stat.rindex(")") + 2])
    return set(states) == {"S"}


def assert_standard_descriptors(host):
    """They lead where they should in host and helper, and not to anything of the mount's own that came to the number."""
    helper, = [pid for pid in system.children(host) if system.name_of(pid) == "node"]
    for pid in (host, helper):
        for number in range(3):
            target = os.readlink(f"/proc/{pid}/fd/{number}")
            known = target == "/dev/null" or target.endswith("/output")
            # The helper's input and output are pipes, and in the background the host reads what is said.
            assert known or target.startswith("pipe:") and (pid == helper or number == 2), (pid, number, target)


def has_signal(pid, which, number):
    """Whether a signal is in one of the sets that the kernel lists for the process's first thread."""
    lines = Path(f"/proc/{pid}/status").read_text().splitlines()
    words = dict(line.split(":", 1) for line in lines)[which]
    return int(words, 16) >> (number - 1) & 1 == 1


# What a caller wants who has signals ignored

@pytest.mark.parametrize("number", [signal.SIGHUP, signal.SIGINT])
def test_a_foreground_mount_keeps_ignoring_what_nohup_and_scripts_have_ignored(place, number):
    place.use_helper("notesTheEnd.mjs")
    with Starter(place, ignoring(number)).start("mount", "-f", place.source, place.point) as process:
        eventually(lambda: place.is_mounted(), 30, "the mount")
        assert (place.point / "a.txt").exists()
        assert has_signal(process.pid, "SigIgn", number) and not has_signal(process.pid, "SigBlk", number)
        process.send_signal(number)
        assert process.poll() is None and place.is_mounted()
        process.terminate()
        assert process.wait(30 * SLOWNESS) == 0
