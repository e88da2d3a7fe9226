"""Mounts on top of each other: none is made over one of ours by accident, and the end of one takes away that one alone,
whatever lies on the path by then."""

import os
import re
import shutil
import signal
import subprocess
import urllib.request

import pytest

from harness import system
from harness.deadline import LIMIT, eventually
from harness.place import assert_fails

ENDINGS = [signal.SIGTERM, signal.SIGKILL]


def end(place, process, number):
    """Ends a mount in the foreground by a signal and waits until its watch has ended, too."""
    watch = [pid for pid in system.children(process.pid) if system.name_of(pid) == "kemvi-watch"]
    process.send_signal(number)
    process.communicate()
    eventually(lambda: not any(system.is_alive(pid) for pid in watch), 30, "the end of the watch")


def types_at(place):
    return [mount.type for mount in system.mounts(place.point)]


@pytest.mark.root_only
@pytest.mark.parametrize("number", ENDINGS)
def test_the_end_of_a_mount_leaves_what_was_mounted_over_it(place, number):
    process = place.start_foreground()
    subprocess.run(["mount", "-t", "tmpfs", "none", place.point], check=True)
    try:
        (place.point / "kept").write_text("kept")
        end(place, process, number)
        assert types_at(place) == ["fuse.kemvi", "tmpfs"]
        assert (place.point / "kept").read_text() == "kept"
    finally:
        subprocess.run(["umount", place.point], check=True)
    assert place.run("unmount", place.point).returncode == 0, "what is left beneath is cleared like any stale mount"


@pytest.mark.parametrize("number", ENDINGS)
def test_the_end_of_a_detached_mount_leaves_the_mount_that_took_its_place(place, number):
    first = place.start_foreground()
    with open(place.point / "a.txt", encoding="utf-8"):
        subprocess.run(["fusermount3", "-u", "-z", place.point], check=True)
        place.mount()
        host = place.host()
        end(place, first, number)
        assert system.is_alive(host) and (place.point / "a.txt").read_text() == "hello\n"
    assert place.run("unmount", place.point).returncode == 0


def test_of_a_detached_mount_and_the_one_that_took_its_place_the_figures_are_those_of_the_one_that_is_there(place):
    """A server of figures takes no page on which a series stands twice."""
    first = place.start_foreground()
    with open(place.point / "a.txt", encoding="utf-8"):
        subprocess.run(["fusermount3", "-u", "-z", place.point], check=True)
        other = place.folder / "other"
        shutil.copytree(place.source, other)
        assert place.run("mount", other, place.point).returncode == 0
        metrics = place.start("metrics", "--listen", "127.0.0.1:0")
        url = re.fullmatch(r"kemvi: serving (\S+)\n", metrics.stderr.readline()).group(1)
        page = urllib.request.urlopen(url, timeout=LIMIT).read().decode()
        metrics.terminate()
        metrics.communicate(timeout=LIMIT)
        series = [line.rsplit(" ", 1)[0] for line in page.splitlines() if f'mountpoint="{place.point}"' in line]
        assert f'kemvi_up{{mountpoint="{place.point}"}}' in series and len(series) == len(set(series))
        assert f'source="{other}"' in page and f'source="{place.source}"' not in page
    assert place.run("unmount", place.point).returncode == 0
    end(place, first, signal.SIGTERM)


@pytest.mark.parametrize("number", ENDINGS)
def test_a_mount_whose_folder_was_renamed_is_taken_away(place, number):
    folder, renamed = place.folder / "before", place.folder / "after"
    (folder / "point").mkdir(parents=True)
    place.point = folder / "point"
    process = place.start_foreground()
    os.rename(folder, renamed)
    assert place.is_mounted(renamed / "point")
    end(place, process, number)
    assert system.mounts(place.folder) == []


@pytest.mark.root_only
def test_the_end_of_a_mount_in_a_hidden_folder_leaves_the_file_system_that_hides_it(place):
    """The path leads to another mount of the same name by then."""
    folder = place.folder / "folder"
    (folder / "point").mkdir(parents=True)
    place.point = folder / "point"
    process = place.start_foreground()
    subprocess.run(["mount", "-t", "tmpfs", "none", folder], check=True)
    try:
        place.point.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "none", place.point], check=True)
        end(place, process, signal.SIGTERM)
        assert types_at(place) == ["fuse.kemvi", "tmpfs"]
        subprocess.run(["umount", place.point], check=True)
    finally:
        subprocess.run(["umount", folder], check=True)
    assert place.run("unmount", place.point).returncode == 0


def test_a_mount_taken_away_from_outside_while_a_new_one_comes_leaves_the_new_one(place):
    """The kernel gives the number of the old mount to the new one at once."""
    for _ in range(5):
        first = place.start_foreground()
        subprocess.run(["fusermount3", "-u", place.point], check=True)
        place.mount()
        assert first.wait() == 0
        assert place.is_mounted() and (place.point / "a.txt").exists()
        assert place.run("unmount", place.point).returncode == 0
    assert not system.processes(place.folder)


# Several at once

def outcomes(processes):
    """The exit code of each process with what it said."""
    return sorted((process.wait(), process.communicate()[1]) for process in processes)


def assert_one_of(place, found):
    assert [code for code, _ in found] == [0] + [6] * (len(found) - 1), found
    for _, text in found[1:]:
        assert len(text.splitlines()) == 1 and str(place.point) in text, found
        assert "is being mounted" in text or "is mounted already" in text, found
    assert len(system.mounts(place.point)) == 1
    assert (place.point / "a.txt").exists()


def test_of_several_mounts_at_once_exactly_one_succeeds(place):
    for _ in range(2):
        assert_one_of(place, outcomes([place.start("mount", place.source, place.point) for _ in range(4)]))
        assert place.run("unmount", place.point).returncode == 0


@pytest.mark.root_only
def test_that_needs_no_right_to_write_to_the_mount_point(place):
    folder = place.folder / "folder"
    folder.mkdir()
    subprocess.run(["mount", "-t", "tmpfs", "none", folder], check=True)
    try:
        place.point = folder / "point"
        place.point.mkdir()
        subprocess.run(["mount", "-o", "remount,ro", folder], check=True)
        assert_one_of(place, outcomes([place.start("mount", place.source, place.point) for _ in range(4)]))
        assert place.run("unmount", place.point).returncode == 0
    finally:
        subprocess.run(["umount", folder], check=True)


def test_a_mount_point_is_held_until_its_mount_is_made_and_no_longer_than_its_process_lives(place):
    place.use_helper("hangs.mjs")
    process = place.start("mount", "-f", place.source, place.point)
    assert process.stderr.readline() == "hangs.mjs: started\n"
    assert_fails(place.run("mount", place.source, place.point), 6, place.point,
                 f"is being mounted by process {process.pid}")
    process.kill()
    process.wait()
    place.configure()
    place.mount()
    assert place.run("unmount", place.point).returncode == 0
    place.clear()
