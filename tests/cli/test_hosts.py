"""The process that serves a mount is found whatever became of the program file or of the mount, nobody else's process is
taken for it, and its helper never outlives it for long."""

import os
import pwd
import shutil
import signal
import subprocess
import sys

import pytest

from harness import system
from harness.deadline import SLOWNESS, eventually
from harness.place import assert_fails
from harness.program import KEMVI

OTHER_USER = pwd.getpwnam("nobody")


def mount_by(program, place):
    subprocess.run([program, "mount", place.source, place.point], env=place.environment(), cwd=place.folder, check=True,
                   stdin=subprocess.DEVNULL, capture_output=True, timeout=30 * SLOWNESS)


# After the program file was replaced

@pytest.fixture(params=["another copy", "replaced since"])
def other_program(request, place):
    """Mounts by a program file that is not the one that unmounts."""
    copy = place.folder / "bin" / "kemvi"
    copy.parent.mkdir()
    shutil.copy2(KEMVI, copy)

    def mount():
        mount_by(copy, place)
        if request.param == "replaced since":
            shutil.copy2(KEMVI, place.folder / "new")
            os.replace(place.folder / "new", copy)
            assert "(deleted)" in os.readlink(f"/proc/{place.host()}/exe")
    return mount


def test_unmount_waits_for_the_host_of_another_program_file(place, other_program):
    place.use_helper("endsSlowly.mjs")
    other_program()
    host, helper = place.host(), place.helper()
    result = place.run("unmount", place.point)
    assert result.returncode == 0 and f"process {host} still waits" in result.stderr
    assert not system.is_alive(host) and not system.is_alive(helper)


def test_force_ends_the_host_of_another_program_file(place, other_program):
    place.use_helper("hangsOnReaddir.mjs")
    other_program()
    host, helper = place.host(), place.helper()
    listing = place.start_listing()
    result = place.run("unmount", "--force", place.point)
    assert result.returncode == 0, result.stderr
    assert not system.is_alive(host) and not system.is_alive(helper)
    assert result.stderr == "", "neither is named as one that had to be killed, nor is the watch"
    listing.wait(10 * SLOWNESS)


# After the mount is gone

def test_force_ends_what_an_unmount_left_that_was_cut_off(place):
    place.use_helper("neverEnds.mjs")
    place.mount()
    host, helper = place.host(), place.helper()
    unmount = place.start("unmount", place.point)
    eventually(lambda: not place.is_mounted(), 30, "the unmount")
    unmount.kill()
    unmount.communicate()
    assert_fails(place.run("unmount", place.point), 9, "nothing is mounted", f"process {host}", "--force")
    assert system.is_alive(host) and system.is_alive(helper)
    assert place.run("unmount", "--force", "point").returncode == 0
    assert not system.is_alive(host) and not system.is_alive(helper)
    assert_fails(place.run("unmount", "--force", place.point), 9, "nothing is mounted here")


def test_force_ends_a_mount_that_was_detached_and_is_in_use(place):
    place.mount()
    with open(place.point / "a.txt", encoding="utf-8"):
        host, helper = place.host(), place.helper()
        subprocess.run(["fusermount3", "-u", "-z", place.point], check=True)
        assert place.run("unmount", "--force", place.point).returncode == 0
        assert not system.is_alive(host) and not system.is_alive(helper)


def test_a_mount_of_a_mount_ends_without_its_host(place):
    """A bind mount: the volume lives on at its first place."""
    if os.getuid() != 0:
        pytest.skip("only root can make one")
    place.mount()
    second = place.folder / "second"
    second.mkdir()
    subprocess.run(["mount", "--bind", place.point, second], check=True)
    result = place.run("unmount", second)
    assert result.returncode == 0 and str(place.point) in result.stderr
    assert [mount.point for mount in system.mounts(place.folder)] == [str(place.point)]
    assert (place.point / "a.txt").exists()
    assert place.run("unmount", place.point).returncode == 0


# In a mount table of its own, of which this mount alone stays: the tests beside this one have theirs gone when they unmount.
KEEP = 'mount --bind "$1" "$2" && echo ready; read end'


@pytest.mark.root_only
def test_a_mount_that_another_mount_table_still_has_is_told_and_not_waited_for(place):
    """As of a container that was started meanwhile: the volume lives on for it."""
    place.mount()
    kept = place.folder / "kept"
    kept.mkdir()
    container = subprocess.Popen(["unshare", "--mount", "--propagation", "slave", "sh", "-c", KEEP, "sh", place.point, kept],
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    assert container.stdout.readline() == "ready\n"
    host = place.host()
    result = place.run("unmount", place.point)
    assert result.returncode == 0 and f"for process {container.pid} " in result.stderr, result.stderr
    assert system.mounts(place.folder) == [] and system.is_alive(host)
    container.communicate("")
    eventually(lambda: not system.is_alive(host), 30, "the end of the host")


# A mount table of its own and a root of its own: what the table still has lies outside the root, so none shows it.
UNSEEN = """
import ctypes, os, sys
libc = ctypes.CDLL(None, use_errno=True)
new_namespace, bind, recursive, slave = 0x20000, 0x1000, 0x4000, 1 << 19
assert libc.unshare(new_namespace) == 0 and libc.mount(None, b"/", None, recursive | slave, None) == 0
assert libc.mount(os.fsencode(sys.argv[2]), os.fsencode(sys.argv[3]), None, bind, None) == 0
os.chroot(sys.argv[1])
os.chdir("/")
print("ready", flush=True)
sys.stdin.read()
"""


@pytest.mark.root_only
def test_a_mount_that_is_kept_where_no_mount_table_shows_it_is_told_and_not_waited_for(place):
    """As of a system that was booted in a folder meanwhile."""
    place.mount()
    root, kept = place.folder / "root", place.folder / "kept"
    root.mkdir()
    kept.mkdir()
    with subprocess.Popen([sys.executable, "-c", UNSEEN, root, place.point, kept], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, text=True) as container:
        assert container.stdout.readline() == "ready\n"
        host = place.host()
        result = place.run("unmount", place.point)
        assert result.returncode == 0 and "does not show it" in result.stderr and f"kill {host}" in result.stderr
        assert system.mounts(place.folder) == [] and system.is_alive(host)
        container.communicate("")
    eventually(lambda: not system.is_alive(host), 30, "the end of the host")


# Who is not taken for a host

# Holds what a host holds, under the name of one. Arguments: the device number, the mount point, the user to be when the
# record is made, the user to be afterwards.
IMPOSTOR = """
import ctypes, os, sys
minor, point, maker, keeper = sys.argv[1:5]
os.setresuid(int(maker), int(maker), 0)
record = os.memfd_create("kemvi-mount")
os.write(record, minor.ljust(12).encode() + point.encode())
os.setresuid(0, 0, 0)
os.setresuid(int(keeper), int(keeper), int(keeper))
ctypes.CDLL(None).prctl(15, f"kemvi-{minor}".encode())
ctypes.CDLL(None).prctl(4, 1)
print("ready", flush=True)
sys.stdin.read()
"""


@pytest.mark.root_only
@pytest.mark.parametrize("maker, keeper", [(OTHER_USER.pw_uid, OTHER_USER.pw_uid), (OTHER_USER.pw_uid, 0)],
                         ids=["another user's process", "root's process given another user's record"])
def test_no_other_user_can_have_a_process_taken_for_the_host(place, maker, keeper):
    place.mount()
    host, helper = place.host(), place.helper()
    minor = system.mounts(place.point)[0].minor
    with subprocess.Popen([sys.executable, "-c", IMPOSTOR, str(minor), str(place.point), str(maker), str(keeper)],
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, cwd="/") as impostor:
        try:
            assert impostor.stdout.readline() == "ready\n"
            assert system.name_of(impostor.pid) == f"kemvi-{minor}"
            assert place.run("unmount", "--force", place.point).returncode == 0
            assert not system.is_alive(host) and not system.is_alive(helper)
            assert system.is_alive(impostor.pid)
        finally:
            impostor.kill()


def test_a_process_that_only_bears_the_name_is_left_alone(place):
    place.mount()
    minor = system.mounts(place.point)[0].minor
    named = place.folder / f"kemvi-{minor}"
    shutil.copy2("/bin/sleep", named)
    with subprocess.Popen([named, "1000"]) as bearer:
        try:
            eventually(lambda: system.name_of(bearer.pid) == f"kemvi-{minor}", 30, "the name")
            assert place.run("unmount", "--force", place.point).returncode == 0
            assert system.is_alive(bearer.pid)
        finally:
            bearer.kill()


# A helper without its host

def test_a_helper_that_hangs_is_ended_after_its_host_was_killed(place):
    place.use_helper("hangsOnReaddir.mjs")
    place.mount()
    host, helper, watch = place.host(), place.helper(), place.watcher()
    listing = place.start_listing()
    child = int(place.notes()[0])
    os.kill(host, signal.SIGKILL)
    eventually(lambda: not system.is_alive(watch), 30, "the end of the watch")
    eventually(lambda: not system.is_alive(helper) and not system.is_alive(child), 30, "the end of the helper and its child")
    listing.wait(10 * SLOWNESS)


def test_a_helper_that_hangs_at_its_start_is_ended_after_its_host_was_killed(place):
    place.use_helper("hangs.mjs")
    process = place.start("mount", "-f", place.source, place.point)
    assert process.stderr.readline() == "hangs.mjs: started\n"
    watch, = [pid for pid in system.children(process.pid) if system.name_of(pid) == "kemvi-watch"]
    helper, = [pid for pid in system.children(process.pid) if system.name_of(pid) == "node"]
    held = f"/proc/{watch}/fd"
    eventually(lambda: any("pidfd" in os.readlink(f"{held}/{name}") for name in os.listdir(held)),
             30, "the watch's look at the helper")
    process.kill()
    process.communicate()
    eventually(lambda: not system.is_alive(watch), 30, "the end of the watch")
    eventually(lambda: not system.is_alive(helper), 30, "the end of the helper")


def test_a_helper_that_ends_by_itself_may_finish_after_its_host_was_killed(place):
    place.use_helper("notesTheEnd.mjs")
    place.mount()
    os.kill(place.host(), signal.SIGKILL)
    eventually(lambda: not system.processes(place.folder), 30, "the end of everything")
    assert place.notes() == ["input ended"]
