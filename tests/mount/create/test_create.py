"""Files and folders come into being exactly when and how they were asked for."""

import errno
import os
import stat

import pytest

from harness.calls import put


def failure(call, *arguments, **more):
    with pytest.raises(OSError) as caught:
        call(*arguments, **more)
    return caught.value.errno


def test_created_file_is_empty_and_in_the_served_tree(volume):
    os.close(os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT | os.O_EXCL))
    assert (volume.backing / "file").read_bytes() == b""
    assert os.stat(volume.path / "file").st_size == 0


def test_truncating_open_empties_an_existing_file(volume):
    put(volume.path / "file")
    os.close(os.open(volume.path / "file", os.O_WRONLY | os.O_TRUNC))
    assert (volume.backing / "file").read_bytes() == b""


def test_truncating_create_empties_an_existing_file(volume):
    put(volume.path / "file")
    os.close(os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT | os.O_TRUNC))
    assert (volume.backing / "file").read_bytes() == b""


def test_truncating_create_empties_a_file_the_kernel_thought_absent(mount):
    volume = mount(options=["negative_timeout=60"])
    assert not (volume.path / "file").exists()
    put(volume.backing / "file")
    os.close(os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT | os.O_TRUNC))
    assert (volume.backing / "file").read_bytes() == b""
    assert os.stat(volume.path / "file").st_size == 0


def test_truncating_open_of_a_file_that_is_open_elsewhere_is_seen_there(volume):
    put(volume.path / "file")
    with open(volume.path / "file", "rb", buffering=0) as reader:
        assert reader.read(3) == b"con"
        os.close(os.open(volume.path / "file", os.O_WRONLY | os.O_TRUNC))
        assert reader.read() == b"" and os.fstat(reader.fileno()).st_size == 0


def test_open_without_create_of_a_missing_file_is_refused(volume):
    assert failure(os.open, volume.path / "absent", os.O_RDWR) == errno.ENOENT
    assert os.listdir(volume.path) == []


def test_create_in_a_missing_folder_is_refused(volume):
    assert failure(os.open, volume.path / "absent" / "file", os.O_WRONLY | os.O_CREAT) == errno.ENOENT


def test_create_over_a_folder_is_refused(volume):
    (volume.path / "folder").mkdir()
    assert failure(os.open, volume.path / "folder", os.O_WRONLY | os.O_CREAT) == errno.EISDIR
    assert failure(os.open, volume.path / "folder", os.O_WRONLY | os.O_CREAT | os.O_EXCL) == errno.EEXIST
    assert failure(os.open, volume.path / "folder", os.O_WRONLY) == errno.EISDIR


def test_create_by_opening_for_reading_makes_an_empty_file(volume):
    descriptor = os.open(volume.path / "file", os.O_RDONLY | os.O_CREAT)
    assert os.read(descriptor, 10) == b""
    os.close(descriptor)
    assert (volume.backing / "file").read_bytes() == b""


def test_file_created_read_only_can_be_written_by_its_creator(volume):
    descriptor = os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT, 0o444)
    os.write(descriptor, b"content")
    os.close(descriptor)
    assert (volume.path / "file").read_bytes() == b"content"


def test_file_created_for_its_owner_alone_is_so_in_the_served_tree(volume):
    """Key files: what is withheld from others stays withheld, though the volume shows one mode for all files."""
    os.close(os.open(volume.path / "key", os.O_WRONLY | os.O_CREAT, 0o600))
    os.mkdir(volume.path / "private", 0o700)
    assert stat.S_IMODE(os.stat(volume.backing / "key").st_mode) == 0o600
    assert stat.S_IMODE(os.stat(volume.backing / "private").st_mode) == 0o700


def test_node_of_a_plain_file_is_made_empty(volume):
    os.mknod(volume.path / "file", 0o644 | stat.S_IFREG)
    assert os.stat(volume.path / "file").st_size == 0 and stat.S_ISREG(os.stat(volume.path / "file").st_mode)


def test_folder_is_made_empty(volume):
    os.mkdir(volume.path / "folder")
    assert os.listdir(volume.path / "folder") == [] and (volume.backing / "folder").is_dir()


@pytest.mark.parametrize("kind", ["file", "folder"])
def test_folder_is_not_made_where_something_is(volume, kind):
    if kind == "file":
        put(volume.path / "name")
    else:
        (volume.path / "name").mkdir()
    assert failure(os.mkdir, volume.path / "name") == errno.EEXIST


def test_folder_in_a_missing_folder_is_refused(volume):
    assert failure(os.mkdir, volume.path / "absent" / "folder") == errno.ENOENT


def test_unnamed_temporary_file_is_refused_as_not_supported(mount):
    volume = mount()
    assert failure(os.open, volume.path, os.O_TMPFILE | os.O_RDWR) == errno.EOPNOTSUPP


def test_create_after_remove_after_create_makes_a_fresh_file_each_time(volume):
    for turn in range(20):
        with open(volume.path / "file", "xb") as file:
            assert os.fstat(file.fileno()).st_size == 0
            file.write(b"x" * turn)
        assert os.stat(volume.path / "file").st_size == turn
        os.unlink(volume.path / "file")


def test_exclusive_create_of_a_free_name_costs_one_look_and_one_open(controlled):
    os.close(os.open(controlled.path / "file", os.O_WRONLY | os.O_CREAT | os.O_EXCL))
    asked = controlled.helper.short()
    assert asked.count("open /file write+create+truncate") == 1
    assert [line for line in asked if line.startswith("getattr")] in (["getattr /file"] * 2, ["getattr /file"] * 3), asked


def test_failed_create_leaves_no_file_and_no_descriptor(controlled):
    controlled.helper.fail("open", "EACCES")
    assert failure(os.open, controlled.path / "file", os.O_WRONLY | os.O_CREAT) == errno.EACCES
    assert os.listdir(controlled.path) == []


def test_create_whose_file_vanishes_at_once_is_an_error_and_not_a_ghost(controlled):
    """The helper creates, then cannot find the file: whatever is answered, later operations tell the truth."""
    controlled.checks_descriptors = False  # the handle that the helper kept to itself
    rule = controlled.helper.rule("failAfter", "open", "/file", code="EIO", message="made it, lost it")
    assert failure(os.open, controlled.path / "file", os.O_WRONLY | os.O_CREAT) == errno.EIO
    controlled.helper.drop(rule)
    assert (controlled.path / "file").read_bytes() == b""


def test_many_files_in_one_folder(volume):
    for index in range(500):
        put(volume.path / f"file{index}", b"%d" % index)
    assert len(os.listdir(volume.path)) == 500
    for index in range(0, 500, 50):
        assert (volume.path / f"file{index}").read_bytes() == b"%d" % index
