"""Renames, seen in what the helper is asked and in what every descriptor does afterwards."""

import errno
import os

import pytest

from harness.calls import failure, put
from harness.deadline import eventually


def test_plain_rename_is_one_rename_request(controlled):
    put(controlled.backing / "a")
    os.rename(controlled.path / "a", controlled.path / "b")
    assert controlled.helper.short("rename") == ["rename /a /b"]
    assert controlled.helper.count("unlink", "open", "release", "readdir") == 0


def test_open_file_is_given_back_before_its_rename(controlled):
    descriptor = os.open(put(controlled.path / "a"), os.O_RDWR)
    os.pread(descriptor, 3, 0)
    os.pwrite(descriptor, b"C", 0)
    controlled.helper.forget()
    os.rename(controlled.path / "a", controlled.path / "b")
    ops = [op for op in controlled.helper.ops() if op in ("release", "rename")]
    assert ops == ["release", "release", "rename"]
    # The kernel may have kept the page: the file's time need not have moved on since it was made.
    os.posix_fadvise(descriptor, 0, 0, os.POSIX_FADV_DONTNEED)
    assert os.pread(descriptor, 20, 0) == b"Content"
    assert "open /b read" in controlled.helper.short("open")
    os.close(descriptor)


def test_everything_open_beneath_a_folder_is_given_back_before_its_rename(controlled):
    (controlled.path / "top" / "sub").mkdir(parents=True)
    descriptors = [os.open(put(controlled.path / "top" / name), os.O_RDONLY) for name in ("a", "sub/b", "sub/c")]
    for descriptor in descriptors:
        os.pread(descriptor, 3, 0)
    put(controlled.path / "topmost")
    other = os.open(controlled.path / "topmost", os.O_RDONLY)
    os.pread(other, 3, 0)
    controlled.helper.forget()
    os.rename(controlled.path / "top", controlled.path / "moved")
    before = controlled.helper.ops()[:controlled.helper.ops().index("rename")]
    assert before.count("release") == 3, "what merely begins with the same letters is not beneath it"
    for descriptor in descriptors:
        assert os.pread(descriptor, 20, 0) == b"content"
        os.close(descriptor)
    os.close(other)


def test_atomic_helper_is_let_replace_by_itself(controlled):
    put(controlled.path / "a", b"is a")
    put(controlled.path / "b", b"is b")
    controlled.helper.forget()
    os.rename(controlled.path / "a", controlled.path / "b")
    assert controlled.helper.short("rename", "unlink") == ["rename /a /b"]
    assert (controlled.backing / "b").read_bytes() == b"is a"


@pytest.mark.parametrize("code", ["EEXIST", "EIO", "EPERM", "ENOTEMPTY", "EINVAL", "ENOTSUP"])
def test_replaced_item_is_set_aside_only_after_the_helper_refused_to_replace(controlled, code):
    controlled.helper.rule("renameRefusesExisting", "rename", code=code)
    put(controlled.path / "a", b"is a")
    put(controlled.path / "b", b"is b")
    controlled.helper.forget()
    os.rename(controlled.path / "a", controlled.path / "b")
    first, aside, again, removal = controlled.helper.short("rename", "unlink")
    assert first == again == "rename /a /b"
    assert aside.startswith("rename /b /.kemvi-hidden-") and removal == "unlink " + aside.split()[2]
    assert (controlled.path / "b").read_bytes() == b"is a"
    assert os.listdir(controlled.backing) == ["b"]


def test_both_files_stay_when_a_helper_that_refuses_to_replace_then_fails(controlled):
    controlled.helper.rule("renameRefusesExisting", "rename")
    put(controlled.path / "a", b"is a")
    put(controlled.path / "b", b"is b")
    controlled.helper.fail("rename", "EACCES", path="/a")
    assert failure(os.rename, controlled.path / "a", controlled.path / "b") == errno.EACCES
    assert sorted(os.listdir(controlled.backing)) == ["a", "b"]
    assert (controlled.path / "a").read_bytes() == b"is a" and (controlled.path / "b").read_bytes() == b"is b"


def test_open_file_is_replaced_by_a_helper_that_refuses_to_replace(controlled):
    controlled.helper.rule("renameRefusesExisting", "rename")
    put(controlled.path / "a", b"is a")
    with open(put(controlled.path / "b", b"is b"), "rb", buffering=0) as old:
        os.rename(controlled.path / "a", controlled.path / "b")
        assert old.read() == b"is b"
        assert (controlled.path / "b").read_bytes() == b"is a"
    eventually(lambda: os.listdir(controlled.backing) == ["b"], 10, "the removal of the replaced file")


def test_folder_with_entries_is_not_replaced_by_a_helper_that_refuses_to_replace(controlled):
    controlled.helper.rule("renameRefusesExisting", "rename")
    controlled.helper.rule("recursiveUnlink", "unlink")
    for name in "ab":
        (controlled.path / name).mkdir()
        put(controlled.path / name / "file")
    assert failure(os.rename, controlled.path / "a", controlled.path / "b") == errno.ENOTEMPTY
    assert (controlled.backing / "b" / "file").exists() and (controlled.backing / "a" / "file").exists()


@pytest.mark.parametrize("code", ["EIO", "EPERM", "ENOSPC"])
def test_both_files_stay_when_every_rename_fails(controlled, code):
    put(controlled.path / "a", b"is a")
    put(controlled.path / "b", b"is b")
    controlled.helper.fail("rename", code)
    with pytest.raises(OSError):
        os.rename(controlled.path / "a", controlled.path / "b")
    assert controlled.helper.count("unlink") == 0
    assert sorted(os.listdir(controlled.backing)) == ["a", "b"]
    assert (controlled.path / "a").read_bytes() == b"is a" and (controlled.path / "b").read_bytes() == b"is b"


@pytest.mark.parametrize("code", ["EACCES", "EROFS"])
def test_errors_that_are_no_refusal_to_replace_are_not_tried_again(controlled, code):
    put(controlled.path / "a")
    put(controlled.path / "b")
    controlled.helper.fail("rename", code)
    controlled.helper.forget()
    with pytest.raises(OSError):
        os.rename(controlled.path / "a", controlled.path / "b")
    assert controlled.helper.count("rename") == 1 and controlled.helper.count("unlink") == 0


def test_rename_between_folders(volume):
    (volume.path / "one").mkdir()
    (volume.path / "two").mkdir()
    put(volume.path / "one" / "file")
    os.rename(volume.path / "one" / "file", volume.path / "two" / "other")
    assert os.listdir(volume.path / "one") == [] and (volume.path / "two" / "other").read_bytes() == b"content"


def test_folder_moves_with_everything_in_it(volume):
    (volume.path / "one" / "sub" / "deep").mkdir(parents=True)
    (volume.path / "two").mkdir()
    put(volume.path / "one" / "sub" / "deep" / "file")
    os.stat(volume.path / "one" / "sub" / "deep" / "file")
    os.rename(volume.path / "one" / "sub", volume.path / "two" / "sub")
    assert (volume.path / "two" / "sub" / "deep" / "file").read_bytes() == b"content"
    assert not (volume.path / "one" / "sub").exists()
    put(volume.path / "two" / "sub" / "deep" / "more")
    assert (volume.backing / "two" / "sub" / "deep" / "more").exists()


def test_folder_cannot_move_into_itself(volume):
    (volume.path / "a" / "b").mkdir(parents=True)
    assert failure(os.rename, volume.path / "a", volume.path / "a" / "b" / "c") == errno.EINVAL
    assert (volume.path / "a" / "b").is_dir()


def test_folder_does_not_replace_one_that_it_lies_in(volume):
    (volume.path / "a" / "b").mkdir(parents=True)
    assert failure(os.rename, volume.path / "a" / "b", volume.path / "a") == errno.ENOTEMPTY


def test_rename_of_what_is_missing_is_not_found(volume):
    put(volume.path / "file")
    assert failure(os.rename, volume.path / "absent", volume.path / "other") == errno.ENOENT
    assert failure(os.rename, volume.path / "file", volume.path / "absent" / "other") == errno.ENOENT
    assert os.listdir(volume.path) == ["file"]


def test_rename_out_of_the_volume_is_another_device(mount):
    volume = mount()
    put(volume.path / "file")
    assert failure(os.rename, volume.path / "file", volume.workspace / "file") == errno.EXDEV


def test_rename_changes_only_the_case_of_letters(volume):
    put(volume.path / "name")
    os.rename(volume.path / "name", volume.path / "NAME")
    assert os.listdir(volume.path) == ["NAME"] and (volume.path / "NAME").read_bytes() == b"content"


def test_attributes_after_a_rename_are_those_of_the_file(volume):
    put(volume.path / "a", b"12345")
    os.utime(volume.path / "a", (1000, 1000))
    put(volume.path / "b", b"1")
    os.stat(volume.path / "b")
    os.rename(volume.path / "a", volume.path / "b")
    assert os.stat(volume.path / "b").st_size == 5 and os.stat(volume.path / "b").st_mtime == 1000


def test_long_chain_of_renames_of_an_open_file(volume):
    descriptor = os.open(put(volume.path / "n0", b""), os.O_RDWR)
    for step in range(60):
        os.rename(volume.path / f"n{step}", volume.path / f"n{step + 1}")
        os.write(descriptor, b"x")
    assert os.fstat(descriptor).st_size == 60
    os.close(descriptor)
    assert os.listdir(volume.path) == ["n60"] and (volume.backing / "n60").read_bytes() == b"x" * 60


@pytest.mark.parametrize("mode", [os.O_RDONLY, os.O_RDWR], ids=["reader", "writer"])
def test_failed_release_before_a_rename_is_told_and_the_rename_goes_on(controlled, mode):
    """In the log, and to a writer by its close."""
    controlled.checks_descriptors = False  # the helper is told to keep a file open
    descriptor = os.open(put(controlled.path / "a", b"is a"), mode)
    os.pread(descriptor, 3, 0)
    rule = controlled.helper.fail("release", "EIO")
    os.rename(controlled.path / "a", controlled.path / "b")
    line, = controlled.log().splitlines()
    assert "release of <private> failed" in line
    controlled.helper.drop(rule)
    assert os.listdir(controlled.backing) == ["b"] and (controlled.path / "b").read_bytes() == b"is a"
    assert os.pread(descriptor, 20, 0) == b"is a"
    if mode == os.O_RDWR:
        assert failure(os.close, descriptor) == errno.EIO
    else:
        os.close(descriptor)


def test_time_of_a_folder_shows_the_rename_in_it(volume):
    (volume.path / "folder").mkdir()
    put(volume.path / "folder" / "file")
    os.utime(volume.path / "folder", (1000, 1000))
    assert os.stat(volume.path / "folder").st_mtime == 1000
    os.rename(volume.path / "folder" / "file", volume.path / "folder" / "other")
    assert os.stat(volume.path / "folder").st_mtime > 1000
