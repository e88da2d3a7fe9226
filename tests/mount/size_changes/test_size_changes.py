"""Truncating and growing, seen in the bytes and in what the helper is asked."""

import errno
import os
import stat

import pytest

from harness import libc
from harness.calls import failure
from harness.length import amount

DATA = bytes(range(256)) * 40  # 10,240 bytes


def put(path, data=DATA):
    path.write_bytes(data)
    return path


@pytest.mark.parametrize("size", [0, 1, 4095, 4096, 4097, 10_239, 10_240, 10_241, 20_000, 1_000_000])
@pytest.mark.parametrize("how", ["by name", "by descriptor", "by a writing descriptor"])
def test_file_has_the_new_size_its_head_and_zeros(volume, size, how):
    path = put(volume.path / "file")
    if how == "by name":
        os.truncate(path, size)
    else:
        descriptor = os.open(path, os.O_RDWR if how == "by descriptor" else os.O_WRONLY)
        os.ftruncate(descriptor, size)
        assert os.fstat(descriptor).st_size == size
        os.close(descriptor)
    wanted = DATA[:size] + bytes(max(0, size - len(DATA)))
    assert os.stat(path).st_size == size
    assert path.read_bytes() == wanted == (volume.backing / "file").read_bytes()


def test_truncate_to_nothing_reads_and_writes_nothing(controlled):
    put(controlled.backing / "file")
    os.truncate(controlled.path / "file", 0)
    assert controlled.helper.count("read", "write") == 0
    assert (controlled.backing / "file").read_bytes() == b""


def test_growing_writes_one_byte_and_reads_nothing(controlled):
    put(controlled.backing / "file")
    os.truncate(controlled.path / "file", 50_000)
    assert controlled.helper.count("read") == 0
    assert [(request["offset"], request["size"]) for request in controlled.helper.requests("write")] == [(49_999, 1)]


def test_growing_a_folder_of_files_does_not_empty_any(controlled):
    put(controlled.backing / "file")
    os.truncate(controlled.path / "file", 50_000)
    assert not any("truncate" in request.get("flags", []) for request in controlled.helper.requests("open"))


def test_shrinking_keeps_no_more_than_needed(controlled):
    put(controlled.backing / "file")
    os.truncate(controlled.path / "file", 4)
    assert sum(request["length"] for request in controlled.helper.requests("read")) < 10_000
    assert (controlled.backing / "file").read_bytes() == DATA[:4]


def test_same_size_changes_no_byte(controlled):
    put(controlled.backing / "file")
    os.truncate(controlled.path / "file", len(DATA))
    assert (controlled.backing / "file").read_bytes() == DATA


def test_resize_through_a_short_reading_helper_keeps_the_head(controlled):
    """The volume preserves what one read gives; a helper that answers short must not cost data."""
    put(controlled.backing / "file")
    controlled.helper.rule("shortReads", "read", most=1000)
    os.truncate(controlled.path / "file", 5000)
    assert (controlled.backing / "file").read_bytes() == DATA[:5000]


def test_failed_write_of_a_resize_is_told(controlled):
    put(controlled.backing / "file")
    rule = controlled.helper.fail("write", "EACCES")
    assert failure(os.truncate, controlled.path / "file", 20_000) == errno.EACCES
    controlled.helper.drop(rule)
    assert (controlled.backing / "file").read_bytes() == DATA


HEAD = DATA[:4000]


def shrink_until(mount, nth):
    """Shrinks a file, with host and helper killed before the `nth` request. Returns the volume, and whether it came to
    that."""
    volume = mount(control=True)
    volume.checks_descriptors, volume.expects_exit = False, None
    put(volume.backing / "file")
    os.stat(volume.path / "file")
    rule = volume.helper.rule("killAllAt", nth=nth)
    try:
        os.truncate(volume.path / "file", len(HEAD))
    except OSError:
        volume.wait_for_end()
        return volume, True
    volume.helper.drop(rule)
    volume.expects_exit = 0
    return volume, False


@pytest.mark.limit(120)
def test_head_is_in_the_file_or_in_a_copy_beside_it_whenever_host_and_helper_are_killed(mount):
    for nth in range(1, 100, amount(1, 6)):
        volume, died = shrink_until(mount, nth)
        names = os.listdir(volume.backing)
        copies = [name for name in names if name.startswith(".kemvi-hidden-") and name.endswith("-head-of-file")]
        assert sorted(names) == sorted([*copies, "file"]) and len(copies) <= 1
        contents = [(volume.backing / name).read_bytes() for name in names]
        assert HEAD in contents or DATA in contents, f"lost at request {nth}"
        for name in copies:
            assert stat.S_IMODE(os.stat(volume.backing / name).st_mode) == 0o600 or not contents[names.index(name)]
        if not died:
            assert nth > 10 and contents == [HEAD]
            return


def test_shrinking_keeps_mode_and_other_names_of_the_file(volume):
    path = put(volume.path / "file")
    os.chmod(volume.backing / "file", 0o640)
    os.link(volume.backing / "file", volume.backing / "other")
    os.truncate(path, 100)
    assert stat.S_IMODE(os.stat(volume.backing / "file").st_mode) == 0o640
    assert (volume.backing / "other").read_bytes() == DATA[:100]
    assert sorted(os.listdir(volume.backing)) == ["file", "other"]


@pytest.mark.parametrize("op", ["create", "write", "flush"])
def test_shrinking_works_where_no_copy_can_be_made(controlled, op):
    """A folder that takes no new files, a full disk."""
    put(controlled.backing / "file")
    controlled.helper.rule("failCopies", "open" if op == "create" else op, code="EACCES", message="no room")
    os.truncate(controlled.path / "file", 100)
    assert (controlled.backing / "file").read_bytes() == DATA[:100]
    assert os.listdir(controlled.backing) == ["file"]


def test_mount_over_the_temporary_folder_shrinks_a_large_file(mount, workspace):
    """A long head goes through a temporary file. On the mount itself the host would wait for itself for ever."""
    volume = mount(environment={"TMPDIR": str(workspace / "mount")})
    large = os.urandom(20 << 20)
    put(volume.backing / "file", large)
    os.truncate(volume.path / "file", 18 << 20)
    assert (volume.backing / "file").read_bytes() == large[:18 << 20]


def test_descriptors_opened_before_a_resize_go_on(volume):
    path = put(volume.path / "file")
    reader, writer = os.open(path, os.O_RDONLY), os.open(path, os.O_WRONLY)
    os.pread(reader, 10, 0)
    os.pwrite(writer, b"x", 0)
    os.truncate(path, 100)
    assert os.pread(reader, 1000, 0) == b"x" + DATA[1:100]
    os.pwrite(writer, b"y", 99)
    os.truncate(path, 200)
    assert os.pread(reader, 1000, 0) == b"x" + DATA[1:99] + b"y" + bytes(100)
    os.close(reader)
    os.close(writer)


def test_write_behind_the_end_leaves_zeros_between(volume):
    path = put(volume.path / "file", b"head")
    descriptor = os.open(path, os.O_WRONLY)
    os.pwrite(descriptor, b"tail", 10_000)
    os.close(descriptor)
    assert path.read_bytes() == b"head" + bytes(9_996) + b"tail"


def test_shrink_then_grow_shows_zeros_and_not_old_bytes(volume):
    path = put(volume.path / "file")
    descriptor = os.open(path, os.O_RDWR)
    assert os.pread(descriptor, 20_000, 0) == DATA
    os.ftruncate(descriptor, 100)
    os.ftruncate(descriptor, 10_000)
    assert os.pread(descriptor, 20_000, 0) == DATA[:100] + bytes(9_900)
    os.close(descriptor)


def test_resize_of_a_removed_open_file_works(volume):
    descriptor = os.open(put(volume.path / "file"), os.O_RDWR)
    os.unlink(volume.path / "file")
    os.ftruncate(descriptor, 5)
    assert os.pread(descriptor, 100, 0) == DATA[:5]
    os.ftruncate(descriptor, 10)
    assert os.pread(descriptor, 100, 0) == DATA[:5] + bytes(5)
    os.close(descriptor)


def test_resize_of_a_folder_is_refused(volume):
    (volume.path / "folder").mkdir()
    assert failure(os.truncate, volume.path / "folder", 0) == errno.EISDIR


def test_resize_of_a_missing_file_is_not_found(volume):
    assert failure(os.truncate, volume.path / "absent", 0) == errno.ENOENT


def test_negative_size_is_invalid(volume):
    put(volume.path / "file")
    assert failure(os.truncate, volume.path / "file", -1) == errno.EINVAL


def test_size_too_large_for_the_served_tree_is_an_error_and_keeps_the_file(volume):
    volume.expect_log("failed: E")
    put(volume.path / "file")
    assert failure(os.truncate, volume.path / "file", (1 << 63) - 1) == errno.EINVAL
    assert (volume.backing / "file").read_bytes() == DATA


def test_preallocation_is_not_supported_and_the_library_has_a_way_without_it(mount):
    path = put(mount().path / "file")
    descriptor = os.open(path, os.O_RDWR)
    assert failure(libc.fallocate, descriptor, 0, 0, 50_000) == errno.EOPNOTSUPP
    assert path.read_bytes() == DATA
    os.posix_fallocate(descriptor, 0, 60_000)
    assert os.fstat(descriptor).st_size == 60_000
    assert path.read_bytes()[:len(DATA)] == DATA
    os.close(descriptor)


def test_holes_and_data_are_told_in_the_simplest_true_way(volume):
    path = put(volume.path / "file")
    descriptor = os.open(path, os.O_RDONLY)
    assert os.lseek(descriptor, 0, os.SEEK_DATA) == 0
    assert os.lseek(descriptor, 0, os.SEEK_HOLE) == len(DATA)
    assert os.lseek(descriptor, 0, os.SEEK_END) == len(DATA)
    os.close(descriptor)


def test_space_told_is_the_size_in_whole_blocks(mount):
    volume = mount()
    for size, blocks in ((0, 0), (1, 8), (4096, 8), (4097, 16)):
        put(volume.path / "file", b"x" * size)
        assert os.stat(volume.path / "file").st_blocks == blocks
