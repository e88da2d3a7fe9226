"""Every byte is the right one, however the helper cuts its answers."""

import errno
import hashlib
import os

import pytest

from harness.worker import Worker

DATA = bytes(range(256)) * 1200 + b"the end"  # 307,207 bytes: no multiple of anything


def put(path, data=DATA):
    path.write_bytes(data)
    return path


@pytest.mark.parametrize("most", [1, 7, 100, 4095, 4096, 65535])
def test_short_answers_give_the_right_bytes(controlled, most):
    data = DATA if most > 50 else DATA[:most * 301]
    put(controlled.backing / "file", data)
    controlled.helper.rule("shortReads", "read", most=most)
    assert (controlled.path / "file").read_bytes() == data


@pytest.mark.parametrize("most", [1, 100, 5000])
def test_short_answers_give_the_right_bytes_at_odd_places(controlled, most):
    data = put(controlled.backing / "file", DATA if most > 1 else DATA[:9_001]).read_bytes()
    controlled.helper.rule("shortReads", "read", most=most)
    descriptor = os.open(controlled.path / "file", os.O_RDONLY)
    for place in (0, 1, 4095, len(data) // 2, len(data) - 5, len(data)):
        assert os.pread(descriptor, 3000, place) == data[place:place + 3000]
    os.close(descriptor)


@pytest.mark.parametrize("extra", [1, 4096, 100_000])
def test_answers_longer_than_asked_are_cut(controlled, extra):
    put(controlled.backing / "file")
    controlled.helper.rule("longReads", "read", extra=extra)
    assert (controlled.path / "file").read_bytes() == DATA
    descriptor = os.open(controlled.path / "file", os.O_RDONLY)
    assert os.pread(descriptor, 10, 100) == DATA[100:110]
    os.close(descriptor)


def test_answers_that_arrive_byte_by_byte_are_read_whole(controlled):
    put(controlled.backing / "file", DATA[:70_000])
    controlled.helper.rule("bytewise")
    assert (controlled.path / "file").read_bytes() == DATA[:70_000]


def test_error_in_the_middle_of_a_joined_read_is_never_zeros(controlled):
    put(controlled.backing / "file", b"\xff" * 40_000)
    controlled.helper.rule("failReadsFrom", "read", offset=10_000, code="EIO", message="bad place")
    controlled.helper.rule("shortReads", "read", most=5_000)
    descriptor = os.open(controlled.path / "file", os.O_RDONLY)
    try:
        got = os.pread(descriptor, 40_000, 0)
    except OSError as error:
        assert error.errno == errno.EIO
        got = b""
    assert got == b"\xff" * len(got) and len(got) < 15_000
    with pytest.raises(OSError) as caught:
        os.pread(descriptor, 1_000, 20_000)
    assert caught.value.errno == errno.EIO
    os.close(descriptor)


def test_error_of_a_read_is_told_and_passes(controlled):
    put(controlled.backing / "file")
    rule = controlled.helper.fail("read", "EACCES")
    with pytest.raises(OSError) as caught:
        (controlled.path / "file").read_bytes()
    assert caught.value.errno == errno.EACCES
    controlled.helper.drop(rule)
    assert (controlled.path / "file").read_bytes() == DATA


def test_nothing_is_read_at_and_behind_the_end(volume):
    put(volume.path / "file", b"12345")
    descriptor = os.open(volume.path / "file", os.O_RDONLY)
    assert os.pread(descriptor, 10, 5) == b""
    assert os.pread(descriptor, 10, 1 << 40) == b""
    assert os.pread(descriptor, 10, 3) == b"45"
    assert os.pread(descriptor, 0, 0) == b""
    os.close(descriptor)


@pytest.mark.parametrize("block", [1 << 20, 1 << 16, 4096, 1000])
def test_every_block_size_reads_the_same(volume, block):
    put(volume.path / "file")
    with open(volume.path / "file", "rb", buffering=0) as file:
        assert b"".join(iter(lambda: file.read(block), b"")) == DATA


def test_hole_is_read_as_zeros(volume):
    descriptor = os.open(volume.path / "file", os.O_RDWR | os.O_CREAT)
    os.pwrite(descriptor, b"end", 200_000)
    assert os.pread(descriptor, 300_000, 0) == bytes(200_000) + b"end"
    os.close(descriptor)


def test_what_was_written_is_read_at_once_by_another_descriptor(volume):
    put(volume.path / "file", b"old")
    reader, writer = os.open(volume.path / "file", os.O_RDONLY), os.open(volume.path / "file", os.O_WRONLY)
    for step in range(20):
        os.pwrite(writer, b"%03d" % step, step * 1000)
        assert os.pread(reader, 3, step * 1000) == b"%03d" % step
    os.close(reader)
    os.close(writer)


def digest(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


def test_several_processes_read_a_file_at_once(mount):
    volume = mount()
    data = os.urandom(3 << 20)
    put(volume.backing / "file", data)
    workers = [Worker(digest, volume.path / "file") for _ in range(4)]
    assert {worker.result(40) for worker in workers} == {hashlib.sha256(data).hexdigest()}


def test_vectored_and_positioned_calls_agree(volume):
    put(volume.path / "file")
    descriptor = os.open(volume.path / "file", os.O_RDONLY)
    first, second = bytearray(70_000), bytearray(130_000)
    assert os.preadv(descriptor, [first, second], 11) == 200_000
    assert bytes(first + second) == DATA[11:200_011]
    os.close(descriptor)


def test_unbuffered_reads_and_writes_are_right(volume):
    import mmap
    put(volume.path / "file", bytes(range(256)) * 64)
    descriptor = os.open(volume.path / "file", os.O_RDWR | os.O_DIRECT)
    buffer = mmap.mmap(-1, 8192)
    assert os.preadv(descriptor, [buffer], 4096) == 8192
    assert buffer[:] == (bytes(range(256)) * 64)[4096:12288]
    buffer[:] = b"d" * 8192
    assert os.pwritev(descriptor, [buffer], 8192) == 8192
    os.close(descriptor)
    assert (volume.path / "file").read_bytes() == (bytes(range(256)) * 64)[:8192] + b"d" * 8192


def test_copy_inside_the_kernel_is_right(volume):
    put(volume.path / "file")
    source = os.open(volume.path / "file", os.O_RDONLY)
    target = os.open(volume.path / "copy", os.O_WRONLY | os.O_CREAT)
    done = 0
    while done < len(DATA):
        done += os.copy_file_range(source, target, len(DATA) - done, done, done)
    os.close(source)
    os.close(target)
    assert (volume.path / "copy").read_bytes() == DATA


def test_sendfile_out_of_and_into_the_volume_is_right(volume, workspace):
    put(volume.path / "file")
    for origin, goal in ((volume.path / "file", workspace / "out"), (workspace / "out", volume.path / "back")):
        source, target = os.open(origin, os.O_RDONLY), os.open(goal, os.O_WRONLY | os.O_CREAT)
        done = 0
        while count := os.sendfile(target, source, done, 1 << 20):
            done += count
        os.close(source)
        os.close(target)
    assert (volume.path / "back").read_bytes() == DATA
