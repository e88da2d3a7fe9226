"""kemvi unmount: finds the mount without asking it, waits for its end, names who is in the way, and by force always works."""

import json
import os
import signal
import subprocess
import time

from harness import system
from harness.deadline import SLOWNESS, eventually
from harness.place import assert_fails


def test_it_is_also_found_under_the_name_of_the_systems_own_command(place):
    place.mount()
    result = place.run("umount", place.point)
    assert (result.returncode, result.stderr) == (0, "")


def test_nothing_mounted_is_code_9(place):
    assert_fails(place.run("unmount", place.point), 9, place.point, "nothing is mounted")


def test_a_path_that_does_not_exist_is_code_9(place):
    assert_fails(place.run("unmount", place.folder / "none" / "x"), 9, "nothing is mounted")


def test_another_file_system_is_code_9_and_stays(place):
    assert_fails(place.run("unmount", "/proc"), 9, "type proc", "umount")


def test_it_waits_until_the_helper_has_ended(place):
    place.use_helper("notesTheEnd.mjs")
    place.mount()
    assert place.run("unmount", place.point).returncode == 0
    assert place.notes() == ["input ended"]
    assert system.processes(place.folder) == []


def test_it_names_the_process_that_it_waits_for(place):
    place.use_helper("endsSlowly.mjs")
    place.mount()
    host = place.host()
    result = place.run("unmount", place.point)
    assert result.returncode == 0
    assert f"process {host} still waits for its helper" in result.stderr


def test_a_process_whose_device_number_has_gone_to_another_mount_is_not_waited_for(place):
    place.mount()
    stopped, number = place.host(), system.mount_at(place.point).minor
    os.kill(stopped, signal.SIGSTOP)
    try:
        subprocess.run(["umount", "-l", place.point] if os.getuid() == 0 else ["fusermount3", "-uz", place.point], check=True)
        second = place.folder / "second"
        second.mkdir()
        eventually(lambda: _mounted_with(place, second, number), 60, "the number to be given away again")
        status = place.run("status", "--json", second)
        assert status.returncode == 0 and json.loads(status.stdout)["mountPoint"] == str(second), status.stderr
        assert place.run("unmount", second).stderr == ""
    finally:
        os.kill(stopped, signal.SIGCONT)
    eventually(lambda: not system.is_alive(stopped), 30, "the end of the one whose mount was taken away")


def _mounted_with(place, point, number):
    """Mounts until the mount has that device number: the lowest that is free, which a test beside this one may have."""
    assert place.run("mount", place.source, point).returncode == 0
    if system.mount_at(point).minor == number:
        return True
    place.unmount(point=point)
    return False


def test_the_mount_point_may_be_named_in_any_way(place):
    link = place.folder / "link"
    link.symlink_to(place.point)
    for name, cwd in [("point", place.folder), ("point/", place.folder), ("./tree/../point/.", place.folder),
                      ("../point", place.source), (str(link), place.folder), (f"{place.folder}//point//", "/")]:
        place.mount()
        result = place.run("unmount", name, cwd=cwd)
        assert (result.returncode, result.stderr) == (0, ""), name


def test_names_with_spaces_and_backslashes_are_found(place):
    point = place.folder / "a b\\040\tc\nd#"
    point.mkdir()
    assert place.run("mount", place.source, point).returncode == 0
    assert place.is_mounted(point)
    assert place.run("unmount", point).returncode == 0


def test_a_busy_mount_stays_and_its_users_are_named(place):
    place.mount()
    in_folder = subprocess.Popen(["sleep", "100"], cwd=place.point)
    with open(place.point / "a.txt", encoding="utf-8") as opened:
        on_file = subprocess.Popen(["sleep", "100"], stdin=opened)
    try:
        result = place.run("unmount", place.point)
        assert_fails(result, 10, place.point, f"{in_folder.pid} (sleep)", f"{on_file.pid} (sleep)", "--force")
        assert (place.point / "a.txt").exists()
    finally:
        for user in (in_folder, on_file):
            user.kill()
            user.wait()
    assert place.run("unmount", place.point).returncode == 0


def test_at_most_five_users_are_named(place):
    place.mount()
    users = [subprocess.Popen(["sleep", "100"], cwd=place.point) for _ in range(7)]
    try:
        result = place.run("unmount", place.point)
        assert_fails(result, 10, "and others")
        assert result.stderr.count("(sleep)") == 5
    finally:
        for user in users:
            user.kill()
            user.wait()
    assert place.run("unmount", place.point).returncode == 0


def make_stale(place):
    """Kills the host and, before it, the process that would clear up after it."""
    place.mount()
    watcher, host = place.watcher(), place.host()
    os.kill(watcher, signal.SIGKILL)
    os.kill(host, signal.SIGKILL)
    eventually(lambda: not system.is_alive(host), 30, "the end of the host")


def test_a_stale_mount_is_named_as_such_and_cleared(place):
    make_stale(place)
    result = place.run("mount", place.source, place.point)
    assert_fails(result, 6, "stale", f"kemvi unmount {place.point}")
    assert place.run("unmount", place.point).returncode == 0
    place.mount()
    assert place.run("unmount", place.point).returncode == 0


def test_a_stale_mount_is_cleared_by_force_too(place):
    make_stale(place)
    assert place.run("unmount", "--force", place.point).returncode == 0


def test_force_ends_a_mount_that_is_in_use(place):
    place.mount()
    user = subprocess.Popen(["sleep", "100"], cwd=place.point)
    try:
        assert place.run("unmount", "--force", place.point).returncode == 0
        place.assert_nothing_left()
    finally:
        user.kill()
        user.wait()


def test_force_ends_a_mount_whose_helper_never_answers(place):
    place.use_helper("hangsOnReaddir.mjs")
    place.mount()
    listing = place.start_listing()
    begin = time.monotonic()
    assert place.run("unmount", "--force", place.point).returncode == 0
    assert time.monotonic() - begin < 7 * SLOWNESS
    listing.wait(10 * SLOWNESS)
    place.assert_nothing_left()
    assert not system.is_alive(int(place.notes()[0]))


def test_force_ends_a_helper_that_does_not_end(place):
    place.use_helper("neverEnds.mjs")
    place.mount()
    helper = place.helper()
    assert place.run("unmount", "--force", place.point).returncode == 0
    assert not system.is_alive(helper)


def test_force_ends_a_host_that_is_stopped(place):
    place.mount()
    host, helper = place.host(), place.helper()
    os.kill(host, signal.SIGSTOP)
    assert place.run("unmount", "--force", place.point).returncode == 0
    assert not system.is_alive(host) and not system.is_alive(helper)


def test_force_lets_a_willing_helper_finish(place):
    place.use_helper("notesTheEnd.mjs")
    place.mount()
    assert place.run("unmount", "--force", place.point).returncode == 0
    assert place.notes() == ["input ended"]


def test_force_leaves_other_mounts_alone(place):
    other = place.folder / "other"
    other.mkdir()
    place.mount()
    assert place.run("mount", place.source, other).returncode == 0
    host, helper = place.host(other), place.helper(other)
    assert place.run("unmount", "--force", place.point).returncode == 0
    assert system.is_alive(host) and system.is_alive(helper)
    assert (other / "a.txt").read_text() == "hello\n"
    assert place.run("unmount", other).returncode == 0


def test_a_hung_mount_is_found_without_asking_it(place):
    place.use_helper("hangsOnReaddir.mjs")
    place.mount("-o", "attr_timeout=0,entry_timeout=0")
    listing = place.start_listing()
    result = place.run("unmount", place.point)
    assert result.returncode == 10, result.stderr
    assert place.run("unmount", "--force", place.point).returncode == 0
    listing.wait(10 * SLOWNESS)
