"""Mounts on top of each other: the end of one takes away that one alone, whatever lies on the path by then."""

import os
import signal
import subprocess

import pytest

from conftest import children_of, is_alive, mounts_under, name_of, processes_about, root_only, wait_for

ENDINGS = [signal.SIGTERM, signal.SIGKILL]


def end(place, process, number):
    """Ends a mount in the foreground by a signal and waits until its watch has ended, too."""
    watch = [pid for pid in children_of(process.pid) if name_of(pid) == "kemvi-watch"]
    process.send_signal(number)
    process.communicate()
    wait_for(lambda: not any(is_alive(pid) for pid in watch), "the end of the watch")


def types_at(place):
    return [mount["type"] for mount in mounts_under(place.point)]


@root_only
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
        assert is_alive(host) and (place.point / "a.txt").read_text() == "hello\n"
    assert place.run("unmount", place.point).returncode == 0


@pytest.mark.parametrize("number", ENDINGS)
def test_a_mount_whose_folder_was_renamed_is_taken_away(place, number):
    folder, renamed = place.folder / "before", place.folder / "after"
    (folder / "point").mkdir(parents=True)
    place.point = folder / "point"
    process = place.start_foreground()
    os.rename(folder, renamed)
    assert place.is_mounted(renamed / "point")
    end(place, process, number)
    assert mounts_under(place.folder) == []


@root_only
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
    assert not processes_about(place.folder)
