"""An open descriptor belongs to a file, not to a name."""

import os

import pytest

from harness.calls import put
from harness.worker import in_child

FNV_OF_A = 564752086074186029
FNV_OF_A_B = 3908606180096663756
# Three names in the root whose paths have the same hash, and so the same number. Found by lattice reduction.
SAME_NUMBER = ["O6l625JS9VX7l0Y5DQaPvc", "KLuZ09x2XP9p5qtjGQd1qb", "Mp7ZuzE1J6S57kO5EVb0Vl"]


def open_rw(path):
    return os.open(path, os.O_RDWR)


def use_descriptor(descriptor, expected):
    """Everything that a descriptor must still do: tell, read, write, grow, shrink."""
    assert os.fstat(descriptor).st_size == len(expected)
    assert os.pread(descriptor, 100, 0) == expected
    assert os.pwrite(descriptor, b"NEW", 0) == 3
    assert os.pread(descriptor, 100, 0) == b"NEW" + expected[3:]
    os.ftruncate(descriptor, 5)
    assert os.fstat(descriptor).st_size == 5
    assert os.pread(descriptor, 100, 0) == (b"NEW" + expected[3:])[:5]
    os.ftruncate(descriptor, 8)
    assert os.pread(descriptor, 100, 0) == (b"NEW" + expected[3:])[:5] + bytes(3)
    os.fsync(descriptor)
    return (b"NEW" + expected[3:])[:5] + bytes(3)


def test_descriptor_works_after_its_file_was_renamed(volume):
    descriptor = open_rw(put(volume.path / "old", b"content"))
    os.rename(volume.path / "old", volume.path / "new")
    left = use_descriptor(descriptor, b"content")
    os.close(descriptor)
    assert (volume.path / "new").read_bytes() == left
    assert (volume.backing / "new").read_bytes() == left
    assert sorted(os.listdir(volume.backing)) == ["new"]


@pytest.mark.parametrize("depth", [1, 2, 5])
def test_descriptor_works_after_a_parent_folder_was_renamed(volume, depth):
    folder = volume.path.joinpath("top", *["sub"] * (depth - 1))
    folder.mkdir(parents=True)
    descriptor = open_rw(put(folder / "file", b"content"))
    os.rename(volume.path / "top", volume.path / "moved")
    left = use_descriptor(descriptor, b"content")
    os.close(descriptor)
    assert volume.backing.joinpath("moved", *["sub"] * (depth - 1), "file").read_bytes() == left
    assert os.listdir(volume.backing) == ["moved"]


def test_descriptor_works_after_its_parent_and_then_its_grandparent_moved(volume):
    (volume.path / "a" / "b").mkdir(parents=True)
    (volume.path / "elsewhere").mkdir()
    descriptor = open_rw(put(volume.path / "a" / "b" / "file", b"content"))
    os.rename(volume.path / "a" / "b", volume.path / "a" / "c")
    os.rename(volume.path / "a", volume.path / "elsewhere" / "a")
    os.rename(volume.path / "elsewhere" / "a" / "c" / "file", volume.path / "file")
    left = use_descriptor(descriptor, b"content")
    os.close(descriptor)
    assert (volume.path / "file").read_bytes() == left


def test_descriptor_works_after_its_file_was_replaced_by_rename(volume):
    descriptor = open_rw(put(volume.path / "target", b"content"))
    put(volume.path / "fresh", b"another file")
    os.rename(volume.path / "fresh", volume.path / "target")
    use_descriptor(descriptor, b"content")
    assert (volume.path / "target").read_bytes() == b"another file"
    os.close(descriptor)
    assert (volume.path / "target").read_bytes() == b"another file"
    assert os.listdir(volume.path) == ["target"]


def test_descriptor_works_after_its_file_was_unlinked(volume):
    descriptor = open_rw(put(volume.path / "file", b"content"))
    os.unlink(volume.path / "file")
    assert not (volume.path / "file").exists()
    use_descriptor(descriptor, b"content")
    os.close(descriptor)
    assert os.listdir(volume.path) == []


def test_descriptor_works_after_unlink_and_a_rename_of_the_folder(volume):
    (volume.path / "folder").mkdir()
    descriptor = open_rw(put(volume.path / "folder" / "file", b"content"))
    os.unlink(volume.path / "folder" / "file")
    os.rename(volume.path / "folder", volume.path / "moved")
    use_descriptor(descriptor, b"content")
    os.close(descriptor)
    assert os.listdir(volume.path / "moved") == []


def test_new_file_at_the_name_of_an_unlinked_one_is_another_file(volume):
    descriptor = open_rw(put(volume.path / "file", b"old content"))
    os.unlink(volume.path / "file")
    put(volume.path / "file", b"new content")
    os.pwrite(descriptor, b"XXXXXXXX", 0)
    assert (volume.path / "file").read_bytes() == b"new content"
    assert os.pread(descriptor, 100, 0) == b"XXXXXXXXent"
    os.close(descriptor)
    assert (volume.path / "file").read_bytes() == b"new content"
    assert os.listdir(volume.path) == ["file"]


def test_new_file_at_the_old_name_of_a_renamed_one_is_another_file(volume):
    descriptor = open_rw(put(volume.path / "file", b"old content"))
    os.rename(volume.path / "file", volume.path / "moved")
    put(volume.path / "file", b"new content")
    os.pwrite(descriptor, b"XXX", 0)
    os.ftruncate(descriptor, 4)
    os.close(descriptor)
    assert (volume.path / "file").read_bytes() == b"new content"
    assert (volume.path / "moved").read_bytes() == b"XXX "


def test_new_file_below_the_old_name_of_a_renamed_folder_is_another_file(volume):
    (volume.path / "folder").mkdir()
    descriptor = open_rw(put(volume.path / "folder" / "file", b"old content"))
    os.rename(volume.path / "folder", volume.path / "moved")
    (volume.path / "folder").mkdir()
    put(volume.path / "folder" / "file", b"new content")
    os.pwrite(descriptor, b"XXX", 0)
    os.close(descriptor)
    assert (volume.path / "folder" / "file").read_bytes() == b"new content"
    assert (volume.path / "moved" / "file").read_bytes() == b"XXX content"


def test_two_open_files_swap_names_through_a_third(volume):
    first = open_rw(put(volume.path / "a", b"was a"))
    second = open_rw(put(volume.path / "b", b"was b"))
    os.rename(volume.path / "a", volume.path / "t")
    os.rename(volume.path / "b", volume.path / "a")
    os.rename(volume.path / "t", volume.path / "b")
    os.pwrite(first, b"WAS", 0)
    assert os.pread(first, 10, 0) == b"WAS a"
    assert os.pread(second, 10, 0) == b"was b"
    os.pwrite(second, b"Was", 0)
    os.close(first)
    os.close(second)
    assert (volume.path / "a").read_bytes() == b"Was b"
    assert (volume.path / "b").read_bytes() == b"WAS a"


def test_two_folders_with_open_files_swap_names(volume):
    for name in "ab":
        (volume.path / name).mkdir()
    first = open_rw(put(volume.path / "a" / "f", b"was a"))
    second = open_rw(put(volume.path / "b" / "f", b"was b"))
    os.rename(volume.path / "a", volume.path / "t")
    os.rename(volume.path / "b", volume.path / "a")
    os.rename(volume.path / "t", volume.path / "b")
    os.pwrite(first, b"WAS", 0)
    os.pwrite(second, b"Was", 0)
    assert os.pread(first, 10, 0) == b"WAS a"
    os.close(first)
    os.close(second)
    assert (volume.path / "a" / "f").read_bytes() == b"Was b"
    assert (volume.path / "b" / "f").read_bytes() == b"WAS a"


def test_separate_reader_and_writer_follow_a_rename(volume):
    path = put(volume.path / "file", b"0123456789")
    reader, writer = os.open(path, os.O_RDONLY), os.open(path, os.O_WRONLY)
    for step in range(5):
        os.rename(path, volume.path / f"name{step}")
        path = volume.path / f"name{step}"
        os.pwrite(writer, b"%d" % step, step)
        assert os.pread(reader, 10, 0) == bytes(b"01234")[:step + 1] + b"0123456789"[step + 1:]
    os.close(reader)
    os.close(writer)


def test_appending_descriptor_follows_a_rename(volume):
    descriptor = os.open(put(volume.path / "file", b"one\n"), os.O_WRONLY | os.O_APPEND)
    os.write(descriptor, b"two\n")
    os.rename(volume.path / "file", volume.path / "moved")
    os.write(descriptor, b"three\n")
    os.close(descriptor)
    assert (volume.path / "moved").read_bytes() == b"one\ntwo\nthree\n"


def test_times_and_mode_are_set_through_a_descriptor_of_a_renamed_file(volume):
    descriptor = open_rw(put(volume.path / "file", b"x"))
    os.rename(volume.path / "file", volume.path / "moved")
    os.utime(descriptor, (5, 5))
    os.fchmod(descriptor, 0o755)
    assert os.fstat(descriptor).st_mtime == 5
    assert os.stat(volume.backing / "moved").st_mode & 0o777 == 0o755
    os.close(descriptor)


def test_times_are_set_through_a_descriptor_of_an_unlinked_file(volume):
    descriptor = open_rw(put(volume.path / "file", b"x"))
    os.unlink(volume.path / "file")
    os.utime(descriptor, (5, 5))
    assert os.fstat(descriptor).st_mtime == 5
    os.close(descriptor)


def test_open_folder_follows_its_rename(volume):
    (volume.path / "folder").mkdir()
    put(volume.path / "folder" / "file", b"x")
    folder = os.open(volume.path / "folder", os.O_RDONLY | os.O_DIRECTORY)
    os.rename(volume.path / "folder", volume.path / "moved")
    descriptor = os.open("made", os.O_WRONLY | os.O_CREAT, dir_fd=folder)
    os.write(descriptor, b"made")
    os.close(descriptor)
    assert sorted(os.listdir(folder)) == ["file", "made"]
    os.close(folder)
    assert (volume.path / "moved" / "made").read_bytes() == b"made"


def test_working_folder_follows_its_rename(volume):
    (volume.path / "folder").mkdir()

    def stay():
        os.chdir(volume.path / "folder")
        os.rename(volume.path / "folder", volume.path / "moved")
        with open("made", "w", encoding="ascii") as made:
            made.write("made")
        return os.getcwd()
    assert in_child(stay) == str(volume.path / "moved")
    assert (volume.path / "moved" / "made").read_bytes() == b"made"


def test_inherited_descriptor_works_in_a_child_after_rename_and_unlink(volume):
    descriptor = open_rw(put(volume.path / "file", b"content"))

    def child():
        os.rename(volume.path / "file", volume.path / "moved")
        os.unlink(volume.path / "moved")
        os.pwrite(descriptor, b"CON", 0)
        return os.pread(descriptor, 100, 0)
    assert in_child(child) == b"CONtent"
    assert os.pread(descriptor, 100, 0) == b"CONtent"
    os.close(descriptor)


def test_descriptor_survives_replacement_over_and_over(volume):
    path = put(volume.path / "file", b"version 0")
    descriptors = []
    for version in range(1, 8):
        descriptors.append(open_rw(path))
        put(volume.path / "next", b"version %d" % version)
        os.rename(volume.path / "next", path)
    for version, descriptor in enumerate(descriptors):
        assert os.pread(descriptor, 100, 0) == b"version %d" % version
        os.close(descriptor)
    assert path.read_bytes() == b"version 7"
    assert os.listdir(volume.backing) == ["file"]


def test_rename_onto_itself_changes_nothing(volume):
    descriptor = open_rw(put(volume.path / "file", b"content"))
    os.rename(volume.path / "file", volume.path / "file")
    use_descriptor(descriptor, b"content")
    os.close(descriptor)


def test_inode_number_is_told_alike_by_stat_fstat_and_listing(volume):
    (volume.path / "folder").mkdir()
    put(volume.path / "folder" / "file", b"x")
    for path in (volume.path / "folder", volume.path / "folder" / "file"):
        number = os.stat(path).st_ino
        descriptor = os.open(path, os.O_RDONLY)
        assert os.fstat(descriptor).st_ino == number
        os.close(descriptor)
        assert [entry.inode() for entry in os.scandir(path.parent) if entry.name == path.name] == [number]


def test_inode_number_is_the_hash_of_the_path(mount):
    volume = mount()
    (volume.path / "a").mkdir()
    put(volume.path / "a" / "b", b"x")
    assert os.stat(volume.path / "a").st_ino == FNV_OF_A
    assert os.stat(volume.path / "a" / "b").st_ino == FNV_OF_A_B
    assert os.stat(volume.path).st_ino == 2


def test_inode_number_is_the_same_after_a_remount(mount):
    first = mount()
    put(first.path / "file", b"x")
    number = os.stat(first.path / "file").st_ino
    first.unmount()
    second = mount(backing=first.backing)
    assert os.stat(second.path / "file").st_ino == number


def test_many_names_have_distinct_inode_numbers(volume):
    for index in range(300):
        (volume.path / f"file{index}").touch()
    numbers = {os.stat(volume.path / f"file{index}").st_ino for index in range(300)}
    assert len(numbers) == 300


def test_open_files_of_one_inode_number_are_not_mixed_up(volume):
    paths = [put(volume.path / name, b"%d........." % index) for index, name in enumerate(SAME_NUMBER)]
    if not volume.is_plain:
        assert len({os.stat(path).st_ino for path in paths}) == 1
    descriptors = [open_rw(path) for path in paths]
    for step in range(1, 5):
        for index, descriptor in enumerate(descriptors):
            assert os.pwrite(descriptor, b"%d" % index, step) == 1
    for index, descriptor in enumerate(descriptors):
        os.posix_fadvise(descriptor, 0, 0, os.POSIX_FADV_DONTNEED)
        assert os.pread(descriptor, 20, 0) == b"%d" % index * 5 + b"....."
    os.unlink(paths[0])
    os.rename(paths[1], volume.path / "renamed")
    for index, descriptor in enumerate(descriptors):
        os.pwrite(descriptor, b"%d" % index, 5)
        os.fsync(descriptor)
        os.posix_fadvise(descriptor, 0, 0, os.POSIX_FADV_DONTNEED)
        assert os.pread(descriptor, 20, 0) == b"%d" % index * 6 + b"...."
    for descriptor in descriptors:
        os.close(descriptor)
    assert (volume.backing / "renamed").read_bytes() == b"111111...."
    assert (volume.backing / SAME_NUMBER[2]).read_bytes() == b"222222...."
