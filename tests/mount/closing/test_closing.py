"""Handles are given back with the last close, whose error is the helper's."""

import errno
import os
import signal
import subprocess

import pytest

from harness.calls import failure, put
from harness.deadline import eventually
from harness.worker import Worker, in_child


@pytest.fixture
def file(controlled):
    path = put(controlled.backing / "file")
    os.stat(controlled.path / "file")
    controlled.helper.forget()
    return controlled.path / path.name


@pytest.mark.parametrize("code", ["EIO", "EACCES", "ENOSPC", "EPERM"])
def test_error_of_giving_back_a_written_file_is_the_error_of_close(controlled, file, code):
    controlled.checks_descriptors = False
    descriptor = os.open(file, os.O_WRONLY)
    os.write(descriptor, b"C")
    rule = controlled.helper.rule("failAfter", "release", code=code, message="too late")
    assert failure(os.close, descriptor) == (errno.EIO if code == "ENOSPC" else getattr(errno, code))
    controlled.helper.drop(rule)
    assert failure(os.fstat, descriptor) == errno.EBADF


def test_error_of_close_reaches_programs(controlled, file):
    controlled.checks_descriptors = False
    rule = controlled.helper.rule("failAfter", "release", code="EIO", message="too late")
    done = subprocess.run(["cp", "/proc/version", file], capture_output=True, text=True, check=False, timeout=20)
    controlled.helper.drop(rule)
    assert done.returncode != 0 and "Input/output error" in done.stderr


def test_written_file_is_given_back_before_close_returns(controlled, file):
    descriptor = os.open(file, os.O_WRONLY)
    os.write(descriptor, b"C")
    assert controlled.helper.count("release") == 0
    os.close(descriptor)
    assert controlled.helper.count("open") == 1 and controlled.helper.count("release") == 1


def test_read_file_is_given_back_after_the_last_close(controlled, file):
    descriptor = os.open(file, os.O_RDONLY)
    os.read(descriptor, 3)
    assert controlled.helper.count("release") == 0
    os.close(descriptor)
    eventually(lambda: controlled.helper.count("release") == 1, 10)


def held(controlled):
    """Handles that the helper has given out and not got back."""
    return controlled.helper.count("open") - controlled.helper.count("release")


def test_file_stays_open_in_the_helper_while_somebody_has_it_open(controlled, file):
    first, second = os.open(file, os.O_RDWR), os.open(file, os.O_RDWR)
    for descriptor in (first, second):
        os.pread(descriptor, 3, 0)
        os.pwrite(descriptor, b"C", 0)
    assert held(controlled) == 2, "one handle to read and one to write, shared by all openers"
    controlled.helper.forget()
    os.close(first)
    os.pwrite(second, b"c", 0)
    assert os.pread(second, 20, 0) == b"content"
    assert controlled.helper.count("open", "release") == 0
    os.close(second)
    eventually(lambda: controlled.helper.count("release") == 2, 10)


def test_only_the_mode_nobody_has_open_is_given_back(controlled, file):
    reader, writer = os.open(file, os.O_RDONLY), os.open(file, os.O_WRONLY)
    os.pread(reader, 3, 0)
    os.pwrite(writer, b"C", 0)
    assert {tuple(request["flags"]) for request in controlled.helper.requests("open")} == {("read",), ("write", "create")}
    assert held(controlled) == 2
    os.close(writer)
    eventually(lambda: held(controlled) == 1, 10)
    controlled.helper.forget()
    assert os.pread(reader, 20, 0) == b"Content"
    assert controlled.helper.count("open") == 0, "the file was still open for reading"
    os.close(reader)
    eventually(lambda: not controlled.helper_files(), 10)


def test_each_opener_gets_the_file_that_has_the_name_now(mount):
    volume = mount(options=["entry_timeout=0", "attr_timeout=0"])
    put(volume.backing / "file", b"old content")
    with open(volume.path / "file", "rb", buffering=0) as old:
        assert old.read() == b"old content"
        put(volume.backing / "fresh", b"new")
        os.rename(volume.backing / "fresh", volume.backing / "file")
        assert (volume.path / "file").read_bytes() == b"new"


def test_writing_after_a_duplicate_was_closed_opens_again(controlled, file):
    descriptor = os.open(file, os.O_WRONLY)
    os.write(descriptor, b"C")
    os.close(os.dup(descriptor))
    os.write(descriptor, b"O")
    os.close(os.dup(descriptor))
    os.close(os.dup(descriptor))
    os.write(descriptor, b"N")
    os.close(descriptor)
    assert (controlled.backing / "file").read_bytes() == b"CONtent"


def test_reading_after_a_duplicate_was_closed_goes_on(volume):
    put(volume.path / "file", b"x" * 300_000)
    descriptor = os.open(volume.path / "file", os.O_RDONLY)
    for _ in range(3):
        assert len(os.read(descriptor, 100_000)) == 100_000
        os.close(os.dup(descriptor))
    os.close(descriptor)


def test_child_that_inherits_and_exits_disturbs_nothing(volume):
    descriptor = os.open(volume.path / "file", os.O_RDWR | os.O_CREAT)
    for turn in range(4):
        os.write(descriptor, b"%d" % turn)
        assert in_child(lambda: os.write(descriptor, b"c")) == 1
    assert os.pread(descriptor, 20, 0) == b"0c1c2c3c"
    os.close(descriptor)
    assert (volume.backing / "file").read_bytes() == b"0c1c2c3c"


def test_killed_process_gives_back_its_files(controlled, file):
    ready = controlled.workspace / "ready"

    def hold():
        descriptor = os.open(file, os.O_RDWR)
        os.pread(descriptor, 3, 0)
        os.pwrite(descriptor, b"C", 0)
        ready.touch()
        signal.pause()
    worker = Worker(hold)
    eventually(ready.exists, 10)
    worker.kill()
    assert worker.is_gone(10)
    eventually(lambda: controlled.helper.count("release") == 2, 10)


def test_data_written_before_close_is_there_after_it(volume):
    for turn in range(30):
        descriptor = os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT | os.O_TRUNC)
        os.write(descriptor, b"%d" % turn * 1000)
        os.close(descriptor)
        assert (volume.backing / "file").read_bytes() == b"%d" % turn * 1000


def test_synchronising_flushes_the_written_file_in_the_helper(controlled, file):
    descriptor = os.open(file, os.O_WRONLY)
    os.write(descriptor, b"C")
    controlled.helper.forget()
    os.fsync(descriptor)
    assert controlled.helper.count("flush") == 1
    os.fdatasync(descriptor)
    os.close(descriptor)


def test_synchronising_ends_with_the_question_whether_the_helper_still_answers(controlled, file):
    descriptor = os.open(file, os.O_WRONLY)
    os.write(descriptor, b"C")
    controlled.helper.forget()
    os.fsync(descriptor)
    assert controlled.helper.ops() == ["flush", "statfs"]
    os.close(descriptor)


def test_failed_flush_is_the_end_of_synchronising(controlled, file):
    descriptor = os.open(file, os.O_WRONLY)
    os.write(descriptor, b"C")
    controlled.helper.forget()
    rule = controlled.helper.fail("flush", "EACCES")
    assert failure(os.fsync, descriptor) == errno.EACCES
    assert controlled.helper.ops() == ["flush"]
    controlled.helper.drop(rule)
    os.close(descriptor)


def test_error_of_synchronising_is_told(controlled, file):
    descriptor = os.open(file, os.O_WRONLY)
    os.write(descriptor, b"C")
    rule = controlled.helper.fail("flush", "EIO")
    assert failure(os.fsync, descriptor) == errno.EIO
    controlled.helper.drop(rule)
    os.fsync(descriptor)
    os.close(descriptor)


def flushed(controlled):
    """Paths that the helper was asked to make safe since the last `forget`."""
    opened, told = None, []
    for request in controlled.helper.requests("open", "flush"):
        opened = request.get("path", opened)
        if request["op"] == "flush":
            told.append(opened)
    return told


def test_synchronising_after_a_duplicate_was_closed_flushes(controlled, file):
    descriptor = os.open(file, os.O_WRONLY)
    os.write(descriptor, b"C")
    os.close(os.dup(descriptor))
    controlled.helper.forget()
    os.fsync(descriptor)
    assert flushed(controlled) == ["/file"]
    os.close(descriptor)


def test_synchronising_after_a_child_exited_flushes(controlled, file):
    descriptor = os.open(file, os.O_WRONLY)
    os.write(descriptor, b"C")
    in_child(lambda: None)
    controlled.helper.forget()
    os.fsync(descriptor)
    assert controlled.helper.count("flush") == 1
    os.close(descriptor)


def test_synchronising_after_somebody_else_opened_the_file_flushes(controlled, file):
    descriptor = os.open(file, os.O_WRONLY)
    os.write(descriptor, b"C")
    assert file.read_bytes() == b"Content"
    controlled.helper.forget()
    os.fsync(descriptor)
    assert flushed(controlled) == ["/file"]
    os.close(descriptor)


def test_synchronising_by_name_after_the_writer_has_closed_flushes(controlled, file):
    file.write_bytes(b"written")
    controlled.helper.forget()
    subprocess.run(["sync", file], check=True, timeout=20)
    assert flushed(controlled) == ["/file"]
    controlled.helper.forget()
    subprocess.run(["sync", file], check=True, timeout=20)
    assert controlled.helper.count("flush") == 0, "nothing was written since"


def test_synchronising_a_file_that_was_only_read_needs_no_leave_to_write(controlled, file):
    descriptor = os.open(file, os.O_RDONLY)
    os.fsync(descriptor)
    assert [request["flags"] for request in controlled.helper.requests("open")] == [["read"]]
    os.close(descriptor)


def test_error_of_synchronising_is_that_of_the_file_that_is_synchronised(controlled):
    first = os.open(controlled.path / "first", os.O_WRONLY | os.O_CREAT)
    second = os.open(controlled.path / "second", os.O_WRONLY | os.O_CREAT)
    os.write(first, b"content")
    os.write(second, b"content")
    rule = controlled.helper.rule("failOpenedAt", "flush", opened="/second", code="EACCES", message="refused")
    os.fsync(first)
    assert failure(os.fsync, second) == errno.EACCES
    controlled.helper.drop(rule)
    for descriptor in (first, second):
        os.fsync(descriptor)
        os.close(descriptor)


def test_folder_can_be_synchronised(volume):
    (volume.path / "folder").mkdir()
    descriptor = os.open(volume.path / "folder", os.O_RDONLY | os.O_DIRECTORY)
    os.fsync(descriptor)
    os.close(descriptor)


def test_error_of_a_write_is_told_at_the_write(controlled, file):
    descriptor = os.open(file, os.O_WRONLY)
    rule = controlled.helper.fail("write", "EACCES")
    assert failure(os.write, descriptor, b"C") == errno.EACCES
    controlled.helper.drop(rule)
    assert os.write(descriptor, b"C") == 1
    os.close(descriptor)
    assert (controlled.backing / "file").read_bytes() == b"Content"


def test_file_opened_and_closed_without_use_may_cost_no_handle_and_leaves_none(controlled, file):
    for flags in (os.O_RDONLY, os.O_WRONLY, os.O_RDWR):
        os.close(os.open(file, flags))
    eventually(lambda: not controlled.helper_files(), 10)
    eventually(lambda: controlled.helper.count("open") == controlled.helper.count("release"), 10)


def test_open_for_reading_of_what_the_helper_refuses_is_told_at_the_open_or_the_read(controlled, file):
    controlled.helper.fail("open", "EACCES")
    assert failure(lambda: file.read_bytes()) == errno.EACCES


def test_open_for_writing_of_what_the_helper_refuses_is_told_at_the_open(controlled, file):
    """A program that opens, writes and ignores close would otherwise learn too late."""
    controlled.helper.fail("open", "EACCES")
    assert failure(os.open, file, os.O_WRONLY) == errno.EACCES
