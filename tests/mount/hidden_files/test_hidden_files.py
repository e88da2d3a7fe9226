"""A file that is removed or replaced while open lives on under a hidden name until its last close."""

import errno
import os
import signal

import pytest

from harness import system
from harness.calls import put
from harness.deadline import eventually
from harness.worker import Worker


def opened(volume, name, flags=os.O_RDWR):
    descriptor = os.open(volume.path / name, flags)
    os.pread(descriptor, 1, 0)
    return descriptor


def gone(volume, folder=""):
    eventually(lambda: volume.hidden(folder) == [], 10, "the removal of the hidden file")


def test_removed_open_file_gets_one_recognisable_name_beside_its_old_one(mount):
    volume = mount()
    (volume.path / "folder").mkdir()
    put(volume.path / "folder" / "file")
    descriptor = opened(volume, "folder/file")
    os.unlink(volume.path / "folder" / "file")
    assert len(volume.hidden("folder")) == 1 and os.listdir(volume.backing / "folder") == volume.hidden("folder")
    os.close(descriptor)
    gone(volume, "folder")
    assert os.listdir(volume.backing / "folder") == []


def test_replaced_open_file_gets_a_hidden_name(mount):
    volume = mount()
    put(volume.path / "target")
    put(volume.path / "fresh", b"fresh")
    descriptor = opened(volume, "target")
    os.rename(volume.path / "fresh", volume.path / "target")
    assert len(volume.hidden()) == 1
    os.close(descriptor)
    gone(volume)
    assert os.listdir(volume.backing) == ["target"]


def test_closed_file_is_removed_without_a_detour(controlled):
    put(controlled.path / "file")
    eventually(lambda: not controlled.helper_files(), 5)
    controlled.helper.forget()
    os.unlink(controlled.path / "file")
    assert controlled.helper.short("rename", "unlink") == ["unlink /file"]


def test_hidden_name_is_never_listed(mount):
    volume = mount(options=["entry_timeout=0", "attr_timeout=0"])
    for name in ("file", "other"):
        put(volume.path / name)
    descriptor = opened(volume, "file")
    os.unlink(volume.path / "file")
    assert os.listdir(volume.path) == ["other"]
    assert [entry.name for entry in os.scandir(volume.path)] == ["other"]
    os.close(descriptor)


def test_hidden_name_is_never_found(mount):
    volume = mount(options=["entry_timeout=0", "attr_timeout=0"])
    put(volume.path / "file")
    descriptor = opened(volume, "file")
    os.unlink(volume.path / "file")
    hidden = volume.path / volume.hidden()[0]
    put(volume.path / "other")
    for call in (lambda: os.stat(hidden), lambda: os.open(hidden, os.O_RDONLY), lambda: os.unlink(hidden),
                 lambda: os.rename(hidden, volume.path / "found"), lambda: os.truncate(hidden, 0)):
        with pytest.raises(OSError) as caught:
            call()
        assert caught.value.errno == errno.ENOENT
    assert os.pread(descriptor, 20, 0) == b"content"
    os.close(descriptor)


def test_hidden_name_cannot_be_taken_while_it_is_used(mount):
    volume = mount()
    put(volume.path / "file")
    descriptor = opened(volume, "file")
    os.unlink(volume.path / "file")
    hidden = volume.path / volume.hidden()[0]
    put(volume.path / "other", b"other")
    for call in (lambda: hidden.write_bytes(b"taken"), lambda: os.rename(volume.path / "other", hidden),
                 lambda: os.mkdir(hidden)):
        with pytest.raises(OSError):
            call()
    assert os.pread(descriptor, 20, 0) == b"content"
    os.close(descriptor)
    gone(volume)


def test_hidden_file_lives_until_the_last_of_several_closes(mount):
    volume = mount()
    put(volume.path / "file")
    first, second = opened(volume, "file"), opened(volume, "file")
    os.unlink(volume.path / "file")
    os.close(first)
    assert os.pread(second, 20, 0) == b"content" and len(volume.hidden()) == 1
    third = os.open(f"/proc/self/fd/{second}", os.O_RDONLY)
    os.close(second)
    assert os.pread(third, 20, 0) == b"content"
    os.close(third)
    gone(volume)


def test_several_removed_files_of_one_name_have_hidden_names_of_their_own(mount):
    volume = mount()
    descriptors = []
    for version in range(5):
        put(volume.path / "file", b"version %d" % version)
        descriptors.append(opened(volume, "file"))
        os.unlink(volume.path / "file")
    assert len(volume.hidden()) == 5
    for version, descriptor in enumerate(descriptors):
        assert os.pread(descriptor, 20, 0) == b"version %d" % version
    for descriptor in descriptors[::2] + descriptors[1::2]:
        os.close(descriptor)
    gone(volume)
    assert os.listdir(volume.backing) == []


def test_process_that_dies_closes_its_hidden_files(mount):
    volume = mount()
    put(volume.path / "file")

    def hold():
        os.open(volume.path / "file", os.O_RDWR)
        os.unlink(volume.path / "file")
        signal.pause()
    worker = Worker(hold)
    eventually(lambda: len(volume.hidden()) == 1, 10)
    worker.kill()
    gone(volume)


def test_folder_with_nothing_but_hidden_files_can_be_removed(mount):
    volume = mount()
    (volume.path / "folder").mkdir()
    put(volume.path / "folder" / "file")
    descriptor = opened(volume, "folder/file")
    os.unlink(volume.path / "folder" / "file")
    os.rmdir(volume.path / "folder")
    assert os.pread(descriptor, 20, 0) == b"content"
    os.pwrite(descriptor, b"C", 0)
    assert os.pread(descriptor, 20, 0) == b"Content"
    assert os.listdir(volume.path) == []
    os.close(descriptor)
    eventually(lambda: os.listdir(volume.backing) == [], 10, "an empty tree")


def test_whole_tree_with_open_files_can_be_removed(mount):
    import shutil
    volume = mount()
    (volume.path / "a" / "b" / "c").mkdir(parents=True)
    descriptors = []
    for folder in ("a", "a/b", "a/b/c"):
        put(volume.path / folder / "file", folder.encode())
        descriptors.append(opened(volume, folder + "/file"))
    shutil.rmtree(volume.path / "a")
    assert os.listdir(volume.path) == []
    assert [os.pread(descriptor, 20, 0) for descriptor in descriptors] == [b"a", b"a/b", b"a/b/c"]
    for descriptor in descriptors:
        os.close(descriptor)
    eventually(lambda: os.listdir(volume.backing) == [], 10, "an empty tree")


def test_empty_folder_with_hidden_files_can_be_replaced(mount):
    volume = mount()
    for name in ("one", "two"):
        (volume.path / name).mkdir()
    put(volume.path / "two" / "file")
    descriptor = opened(volume, "two/file")
    os.unlink(volume.path / "two" / "file")
    os.rename(volume.path / "one", volume.path / "two")
    assert os.pread(descriptor, 20, 0) == b"content"
    os.close(descriptor)
    eventually(lambda: os.listdir(volume.backing) == ["two"] and os.listdir(volume.backing / "two") == [], 10)


def test_hidden_file_is_told_as_a_file_of_its_size(mount):
    volume = mount()
    put(volume.path / "file", b"12345")
    descriptor = opened(volume, "file")
    os.unlink(volume.path / "file")
    os.ftruncate(descriptor, 2)
    assert os.fstat(descriptor).st_size == 2
    os.lseek(descriptor, 0, os.SEEK_END)
    os.write(descriptor, b"67")
    assert os.pread(descriptor, 10, 0) == b"1267"
    os.close(descriptor)
    gone(volume)


def test_file_made_removed_and_used_like_a_temporary_one(mount):
    volume = mount()
    descriptor = os.open(volume.path / "temporary", os.O_RDWR | os.O_CREAT | os.O_EXCL, 0o600)
    os.unlink(volume.path / "temporary")
    os.write(descriptor, b"x" * 100_000)
    assert os.pread(descriptor, 200_000, 0) == b"x" * 100_000
    os.close(descriptor)
    gone(volume)


def test_temporary_files_of_the_library_work(volume):
    import tempfile
    with tempfile.TemporaryFile(dir=volume.path) as file:
        file.write(b"content")
        file.seek(0)
        assert file.read() == b"content"
    assert os.listdir(volume.path) == []


def test_crash_leaves_a_name_that_a_later_mount_shows_and_removes(mount):
    first = mount()
    first.checks_descriptors, first.expects_exit = False, None
    put(first.path / "file")
    descriptor = opened(first, "file")
    os.unlink(first.path / "file")
    first.host.kill()
    first.wait_for_end()
    eventually(lambda: not system.mount_points(first.path), 10)
    try:
        os.close(descriptor)
    except OSError:
        pass
    left = os.listdir(first.backing)
    assert len(left) == 1 and left[0].startswith(".kemvi-hidden-")
    second = mount(backing=first.backing)
    put(second.path / "file")
    descriptor = opened(second, "file")
    os.unlink(second.path / "file")
    assert os.pread(descriptor, 20, 0) == b"content"
    os.close(descriptor)
    eventually(lambda: os.listdir(second.backing) == left, 10, "only the leftover of the crash")
    assert os.listdir(second.path) == left
    os.unlink(second.path / left[0])
    assert os.listdir(second.backing) == []


def test_helper_that_cannot_rename_refuses_the_removal_of_an_open_file(controlled):
    put(controlled.path / "file")
    descriptor = opened(controlled, "file")
    rule = controlled.helper.fail("rename", "EACCES")
    with pytest.raises(OSError) as caught:
        os.unlink(controlled.path / "file")
    assert caught.value.errno == errno.EACCES
    controlled.helper.drop(rule)
    assert os.pread(descriptor, 20, 0) == b"content" and (controlled.path / "file").read_bytes() == b"content"
    os.close(descriptor)


def test_failed_removal_of_a_hidden_file_is_told_in_the_log(controlled):
    put(controlled.path / "file")
    descriptor = opened(controlled, "file")
    os.unlink(controlled.path / "file")
    controlled.expect_log(r"\.kemvi-hidden-")
    controlled.helper.fail("unlink", "EACCES")
    os.close(descriptor)
    eventually(lambda: controlled.log_lines(r"\.kemvi-hidden-"), 10, "a line about the file that stays")
