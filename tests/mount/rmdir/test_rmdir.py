"""Removing folders: only empty ones, asked first, whatever the helper's own remove would do."""

import errno
import os

import pytest

from harness.calls import failure
from harness.worker import in_child


def test_empty_folder_is_removed(volume):
    (volume.path / "folder").mkdir()
    os.rmdir(volume.path / "folder")
    assert os.listdir(volume.backing) == []
    assert failure(os.stat, volume.path / "folder") == errno.ENOENT


@pytest.mark.parametrize("kind", ["file", "folder"])
def test_folder_with_entries_stays_though_the_helper_would_remove_it_whole(controlled, kind):
    (controlled.path / "folder").mkdir()
    if kind == "file":
        (controlled.path / "folder" / "inner").write_bytes(b"inner")
    else:
        (controlled.path / "folder" / "inner").mkdir()
    controlled.helper.rule("recursiveUnlink", "unlink")
    assert failure(os.rmdir, controlled.path / "folder") == errno.ENOTEMPTY
    assert (controlled.backing / "folder" / "inner").exists()
    assert controlled.helper.count("unlink") == 0


def test_folder_filled_from_outside_stays_though_the_helper_would_remove_it_whole(controlled):
    (controlled.path / "folder").mkdir()
    assert os.listdir(controlled.path / "folder") == []
    (controlled.backing / "folder" / "inner").write_bytes(b"inner")
    controlled.helper.rule("recursiveUnlink", "unlink")
    assert failure(os.rmdir, controlled.path / "folder") == errno.ENOTEMPTY
    assert (controlled.backing / "folder" / "inner").read_bytes() == b"inner"


def test_helper_is_asked_for_the_entries_before_the_removal(controlled):
    (controlled.path / "folder").mkdir()
    controlled.helper.forget()
    os.rmdir(controlled.path / "folder")
    assert [line for line in controlled.helper.short("readdir", "unlink")] == ["readdir /folder", "unlink /folder"]


def test_removal_by_the_wrong_call_is_refused_with_a_recursive_helper(controlled):
    controlled.helper.rule("recursiveUnlink", "unlink")
    (controlled.path / "folder").mkdir()
    (controlled.path / "folder" / "inner").touch()
    (controlled.path / "file").touch()
    assert failure(os.unlink, controlled.path / "folder") == errno.EISDIR
    assert failure(os.rmdir, controlled.path / "file") == errno.ENOTDIR
    assert (controlled.backing / "folder" / "inner").exists() and (controlled.backing / "file").exists()


def test_file_that_became_a_folder_outside_is_not_removed_as_a_file(mount):
    volume = mount(control=True, options=["entry_timeout=0", "attr_timeout=0"])
    (volume.backing / "name").write_bytes(b"file")
    os.stat(volume.path / "name")
    os.unlink(volume.backing / "name")
    (volume.backing / "name").mkdir()
    (volume.backing / "name" / "inner").touch()
    volume.helper.rule("recursiveUnlink", "unlink")
    assert failure(os.unlink, volume.path / "name") == errno.EISDIR
    assert (volume.backing / "name" / "inner").exists()


def test_missing_folder_is_not_found(volume):
    assert failure(os.rmdir, volume.path / "absent") == errno.ENOENT


def test_mount_point_cannot_be_removed(mount):
    volume = mount()
    assert failure(os.rmdir, volume.path) == errno.EBUSY


def test_error_of_the_listing_keeps_the_folder(controlled):
    (controlled.path / "folder").mkdir()
    rule = controlled.helper.fail("readdir", "EACCES")
    assert failure(os.rmdir, controlled.path / "folder") == errno.EACCES
    controlled.helper.drop(rule)
    assert (controlled.backing / "folder").is_dir()


def test_error_of_the_removal_is_told(controlled):
    (controlled.path / "folder").mkdir()
    rule = controlled.helper.fail("unlink", "EPERM")
    assert failure(os.rmdir, controlled.path / "folder") == errno.EPERM
    controlled.helper.drop(rule)
    assert (controlled.path / "folder").is_dir()


def test_working_folder_of_a_process_can_be_removed(volume):
    (volume.path / "folder").mkdir()

    def stay():
        os.chdir(volume.path / "folder")
        os.rmdir(volume.path / "folder")
        return failure(os.open, "file", os.O_WRONLY | os.O_CREAT)
    assert in_child(stay) == errno.ENOENT
    assert os.listdir(volume.path) == []


def test_folder_can_be_made_again_after_its_removal(volume):
    for _ in range(10):
        (volume.path / "folder").mkdir()
        (volume.path / "folder" / "file").write_bytes(b"x")
        (volume.path / "folder" / "file").unlink()
        os.rmdir(volume.path / "folder")
    assert os.listdir(volume.path) == []


def test_deep_tree_is_removed_from_the_leaves_up(volume):
    os.makedirs(volume.path / "a" / "b" / "c" / "d")
    for folder in ("a/b/c/d", "a/b/c", "a/b", "a"):
        os.rmdir(volume.path / folder)
    assert os.listdir(volume.path) == []
