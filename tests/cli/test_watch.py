"""What the command says and does about a mount whose helper's files are watched (what the mount does: tests/mount/watch)."""

import json
import os
import shutil
import signal
import subprocess

import pytest

from harness import system
from harness.deadline import LIMIT, eventually
from harness.place import assert_fails
from harness.program import KEMVI, SHIPPED_HELPER

ENDS = "process.exit(4);\n"


@pytest.fixture
def script(place):
    """The shipped helper by way of a script of the user's."""
    path = place.folder / "tree.mjs"
    path.write_text(f"import '{SHIPPED_HELPER}';\n")
    place.configure(path)
    return path


def log(place):
    return (place.folder / "log").read_text()


def status(place):
    return json.loads(place.run("status", "--json", place.point).stdout)


def test_a_mount_in_the_background_is_watched_too(place, script):
    place.mount("--watch", "--log-file", place.folder / "log")
    assert (place.point / "a.txt").read_text() == "hello\n"
    script.write_text(script.read_text() + "// changed\n")
    eventually(lambda: "tree.mjs changed: the helper was started anew (pid " in log(place), 20, "the restart")
    assert (place.point / "a.txt").read_text() == "hello\n"
    good = script.read_text()
    script.write_text(ENDS)
    eventually(lambda: "tree.mjs changed: the helper could not be started anew" in log(place), 20, "the failure")
    script.write_text(good)
    eventually(lambda: log(place).count("was started anew") == 2, 20, "the restart")
    assert (place.point / "a.txt").read_text() == "hello\n"
    place.unmount()
    place.assert_nothing_left()


def test_in_the_foreground_the_terminal_says_so(place, script):
    with place.start_foreground("--watch") as process:
        script.write_text(script.read_text() + "// changed\n")
        said = iter(process.stderr.readline, "")
        assert any("tree.mjs changed: the helper was started anew" in line for line in said)
        process.send_signal(signal.SIGINT)
        assert process.wait(LIMIT) == 0


def test_the_status_tells_what_is_watched(place, script):
    place.mount("--watch")
    watched = status(place)["helper"]["watched"]
    assert watched[0] == str(script) and SHIPPED_HELPER in watched
    assert f"\n  watched   {script} and {len(watched) - 1} other files\n" in place.run("status", place.point).stdout
    place.unmount()
    place.mount()
    assert "watched" not in status(place)["helper"] and "watched" not in place.run("status", place.point).stdout
    place.unmount()


def test_a_program_is_watched_itself(place):
    program = place.folder / "program"
    assert place.run("init", place.folder / "native", "--native").returncode == 0
    native = json.loads((place.folder / "native" / "mount-config.json").read_text())
    shutil.copy(native["helperCommand"][0], program)
    place.configure(native["helperPath"], helperCommand=[str(program)])
    place.mount("--watch", "--log-file", place.folder / "log")
    fresh = place.folder / "fresh"
    shutil.copy(program, fresh)
    with open(fresh, "ab") as file:
        file.write(b"another build")
    os.replace(fresh, program)
    eventually(lambda: log(place).count("program changed: the helper was started anew") == 1, 20, "the restart")
    assert os.readlink(f"/proc/{status(place)['helper']['pid']}/exe") == str(program)
    assert (place.point / "a.txt").read_text() == "hello\n"
    place.unmount()


def test_the_first_start_has_to_succeed(place, script):
    script.write_text(ENDS)
    assert_fails(place.run("mount", "--watch", place.source, place.point), 5, script, "kemvi check")
    place.assert_nothing_left()


def test_it_is_no_mount_option(place):
    assert_fails(place.run("mount", "-o", "watch", place.source, place.point), 2, "watch")
    assert not place.is_mounted()


@pytest.mark.parametrize("counted", ["instances", "watches"])
def test_a_limit_of_the_system_refuses_the_mount_and_is_named(place, script, counted):
    lowered = f"echo 0 > /proc/sys/user/max_inotify_{counted} || exit 99; exec \"$@\""
    result = subprocess.run(["unshare", "--user", "--map-root-user", "sh", "-c", lowered, "sh", KEMVI, "mount", "--watch",
                             place.source, place.point], capture_output=True, text=True, timeout=LIMIT, check=False,
                            env=place.environment(), cwd=place.folder)
    if result.returncode in (1, 99) and "kemvi: " not in result.stderr:
        pytest.skip("no user namespaces here")
    assert_fails(result, 1, "--watch", f"/proc/sys/fs/inotify/max_user_{counted}")
    assert not system.mount_points(place.point)
    place.assert_nothing_left()
