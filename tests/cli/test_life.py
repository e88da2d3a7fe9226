"""The life of a mount: ready when the command returns, nothing held open, an orderly end for every way to ask for it."""

import errno
import os
import re
import signal
import subprocess
import time
from pathlib import Path

import pytest

from harness import system
from harness.calls import failure
from harness.deadline import SLOWNESS, eventually
from harness.program import KEMVI


# Readiness

def test_the_mount_is_usable_when_the_command_returns(place):
    for _ in range(5):
        place.mount()
        assert (place.point / "a.txt").read_text() == "hello\n"
        assert place.run("unmount", place.point).returncode == 0


def test_it_stands_in_the_mount_table_with_type_and_source(place):
    place.mount()
    mount, = system.mounts(place.point)
    assert (mount.type, mount.source) == ("fuse.kemvi", str(place.source))
    assert "default_permissions" not in mount.super_options and "allow_other" not in mount.super_options
    assert place.run("unmount", place.point).returncode == 0


def test_output_of_the_command_can_be_captured(place):
    output = subprocess.run(["sh", "-c", 'out=$("$0" mount source point --log-file log 2>&1); echo "<$out>"', KEMVI], check=True,
                            cwd=place.folder, env=place.environment(), capture_output=True, text=True, timeout=30)
    assert output.stdout == "<>\n"
    assert place.run("unmount", place.point).returncode == 0


def test_no_descriptor_of_the_caller_is_kept(place):
    reading, writing = os.pipe()
    pipe = os.readlink(f"/proc/self/fd/{writing}")
    process = place.start("mount", place.source, place.point, "--log-file", place.folder / "log", pass_fds=[writing], stderr=writing, stdout=writing)
    os.close(writing)
    assert process.wait() == 0
    assert os.read(reading, 1) == b"", "the pipe has no writer any more"
    os.close(reading)
    host = place.host()
    for pid in [host, *system.children(host)]:
        kept = [os.readlink(entry) for entry in Path(f"/proc/{pid}/fd").iterdir()]
        assert pipe not in kept
        assert not any(target.startswith(("/dev/tty", "/dev/pts")) for target in kept)
    assert place.run("unmount", place.point).returncode == 0


def test_the_background_processes_leave_session_and_working_directory(place):
    place.mount()
    host = place.host()
    for pid in (host, place.helper()):
        assert os.getsid(pid) == host
        assert os.readlink(f"/proc/{pid}/cwd") == "/"
    assert place.run("unmount", place.point).returncode == 0


def test_relative_paths_work(place):
    assert place.run("mount", "source", "./point/").returncode == 0
    assert (place.point / "a.txt").exists()
    assert place.run("unmount", "point/").returncode == 0


def test_names_with_spaces_and_other_letters_work(place):
    """Also such as mean something in the options of a mount or in the table of mounts."""
    source, point = place.folder / "the source \u00e4,1", place.folder / "the 'mount' \u00f6=\\1"
    place.source.rename(source)
    point.mkdir()
    assert place.run("mount", source, point).returncode == 0
    assert (point / "a.txt").exists() and system.mount_at(point).source == str(source)
    place.unmount(point=point)


def test_options_may_come_in_several_arguments(place):
    place.mount("-o", "fmask=077", "-o", "dmask=022,ro")
    assert (place.point / "a.txt").stat().st_mode & 0o777 == 0o700
    assert failure((place.point / "x").mkdir) == errno.EROFS
    place.unmount()


def test_what_the_helper_says_is_on_the_terminal_until_the_mount_is_ready(place):
    place.use_helper("talks.mjs")
    assert place.mount("--log-file", place.folder / "log").stderr == "talks.mjs: starting\n"
    os.listdir(place.point)
    assert place.run("unmount", place.point).returncode == 0


def test_what_the_helper_says_stays_on_the_terminal_in_the_foreground(place):
    place.use_helper("talks.mjs")
    process = place.start_foreground()
    os.listdir(place.point)
    process.send_signal(signal.SIGTERM)
    _, errors = process.communicate()
    first, second = errors.splitlines()
    assert first == "talks.mjs: starting"
    assert re.fullmatch(rf"\d{{4}}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{{3}} kemvi: {place.point}: Helper: talks.mjs: listing", second)


# Interrupted before it is ready

@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
@pytest.mark.parametrize("foreground", [[], ["-f"]])
def test_a_signal_before_the_mount_is_ready_ends_everything(place, number, foreground):
    place.use_helper("hangs.mjs")
    process = place.start("mount", *foreground, place.source, place.point)
    first = process.stderr.readline()
    assert first == "hangs.mjs: started\n"
    process.send_signal(number)
    _, errors = process.communicate(timeout=10 * SLOWNESS)
    assert process.returncode == 13, errors
    assert "interrupted before the mount was ready" in errors
    place.assert_nothing_left()


def test_nothing_survives_a_command_that_is_killed_before_the_mount_is_ready(place):
    place.use_helper("hangs.mjs")
    process = place.start("mount", place.source, place.point)
    assert process.stderr.readline() == "hangs.mjs: started\n"
    process.kill()
    process.communicate()
    place.assert_nothing_left()


def test_a_slow_start_names_the_helper_that_is_waited_for(place):
    place.use_helper("hangs.mjs")
    process = place.start("mount", place.source, place.point)
    assert process.stderr.readline() == "hangs.mjs: started\n"
    line = process.stderr.readline()
    helper = [pid for pid in system.processes(place.folder) if system.name_of(pid) == "node"][0]
    assert line.startswith("kemvi: ") and f"still waiting for the helper (pid {helper})" in line
    process.terminate()
    process.communicate()


# The end

@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_ends_a_foreground_mount_in_order(place, number):
    place.use_helper("notesTheEnd.mjs")
    process = place.start_foreground()
    process.send_signal(number)
    _, errors = process.communicate()
    assert (process.returncode, errors) == (0, "")
    assert place.notes() == ["input ended"], "the helper was let to its end"


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_a_signal_ends_a_background_mount_in_order(place, number):
    place.use_helper("notesTheEnd.mjs")
    place.mount()
    os.kill(place.host(), number)
    eventually(lambda: not system.processes(place.folder), 30, "the end")
    assert place.notes() == ["input ended"]


@pytest.mark.parametrize("command", [["fusermount3", "-u"], ["fusermount3", "-u", "-z"],
                                     pytest.param(["umount"], marks=pytest.mark.root_only),
                                     pytest.param(["umount", "-l"], marks=pytest.mark.root_only)], ids=" ".join)
def test_an_unmount_from_outside_ends_a_mount_in_order(place, command):
    place.use_helper("notesTheEnd.mjs")
    process = place.start_foreground()
    subprocess.run([*command, place.point], check=True)
    _, errors = process.communicate()
    assert (process.returncode, errors) == (0, "")
    assert place.notes() == ["input ended"]


def test_a_helper_that_does_not_end_is_named_and_the_second_signal_kills_it(place):
    place.use_helper("neverEnds.mjs")
    process = place.start_foreground()
    helper = [pid for pid in system.children(process.pid) if system.name_of(pid) == "node"][0]
    process.terminate()
    line = process.stderr.readline()
    assert f"still waiting for the helper (pid {helper})" in line and "another signal" in line
    assert system.is_alive(helper) and not place.is_mounted()
    process.terminate()
    assert process.wait() == 11
    assert not system.is_alive(helper)


def test_two_signals_in_a_row_do_not_wait(place):
    place.use_helper("neverEnds.mjs")
    process = place.start_foreground()
    process.terminate()
    eventually(lambda: not place.is_mounted(), 30, "the first signal's effect")
    begin = time.monotonic()
    process.send_signal(signal.SIGINT)
    assert process.wait() == 11
    assert time.monotonic() - begin < 2.5 * SLOWNESS


def test_a_helper_stuck_in_a_request_is_killed_by_the_second_signal(place):
    place.use_helper("hangsOnReaddir.mjs")
    process = place.start_foreground()
    listing = place.start_listing()
    process.terminate()
    assert "still waiting" in process.stderr.readline()
    process.terminate()
    assert process.wait() == 11
    listing.wait()
    child = int(place.notes()[0])
    eventually(lambda: not system.is_alive(child), 30, "the end of the helper's own child")


def test_a_killed_host_leaves_no_mount(place):
    for _ in range(5):
        place.mount()
        os.kill(place.host(), signal.SIGKILL)
        eventually(lambda: not place.is_mounted(), 30, "the end of the mount")


def test_a_killed_host_in_the_foreground_leaves_no_mount_either(place):
    process = place.start_foreground()
    process.kill()
    process.communicate()
    eventually(lambda: not place.is_mounted(), 30, "the end of the mount")


def test_a_host_that_dies_after_its_mount_was_replaced_leaves_the_new_one(place):
    place.use_helper("neverEnds.mjs")
    process = place.start_foreground(stderr=subprocess.DEVNULL)
    subprocess.run(["fusermount3", "-u", place.point], check=True)
    place.configure()
    place.mount()
    process.kill()
    process.wait()
    host = place.host()
    helpers = [host, *system.children(host)]
    eventually(lambda: "kemvi-watch" not in [system.name_of(pid) for pid in system.processes(place.folder)
                                           if pid not in helpers], 30, "the end of the old watch")
    assert (place.point / "a.txt").exists()
    assert place.run("unmount", place.point).returncode == 0
    place.clear()


def test_a_mount_right_after_an_unmount_stays(place):
    for _ in range(10):
        place.mount()
        assert place.run("unmount", place.point).returncode == 0
    place.mount()
    host = place.host()
    eventually(lambda: set(system.processes(place.folder)) <= {host, *system.children(host)}, 30, "the end of the earlier mounts")
    assert (place.point / "a.txt").exists()
    assert place.run("unmount", place.point).returncode == 0
