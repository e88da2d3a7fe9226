"""A helper that ends or talks nonsense: every operation fails at once, it is said once, and unmounting works."""

import contextlib
import errno
import os
import re
import signal
import time

import pytest

from harness import system
from harness.deadline import eventually
from harness.worker import Worker

AT_ONCE = 2.0


@pytest.fixture
def victim(controlled):
    """A volume with some files, one of them open for reading and writing."""
    for name in ("open", "read", "remove", "rename", "truncate", "times", "mode"):
        (controlled.backing / name).write_bytes(b"content" * 100)
    (controlled.backing / "folder").mkdir()
    controlled.descriptor = os.open(controlled.path / "open", os.O_RDWR)
    os.pread(controlled.descriptor, 10, 0)
    os.pwrite(controlled.descriptor, b"C", 0)
    controlled.checks_descriptors = False
    controlled.expect_log("helper")
    yield controlled
    try:
        os.close(controlled.descriptor)
    except OSError as error:
        assert error.errno == errno.EIO


def kill_helper(volume, number=signal.SIGKILL):
    pids = volume.helper_pids()
    for pid in pids:
        with contextlib.suppress(ProcessLookupError):  # one that is just ending is as good
            os.kill(pid, number)
    eventually(lambda: not any(system.is_alive(pid) for pid in pids), 10, "the end of the helper")


def every_operation(volume):
    path = volume.path
    return {
        "stat": lambda: os.stat(path / "unseen"),
        "list": lambda: os.listdir(path / "folder"),
        "list the root": lambda: os.listdir(path),
        "open and read": lambda: (path / "read").read_bytes(),
        "create": lambda: (path / "fresh").touch(),
        "mkdir": lambda: os.mkdir(path / "fresh"),
        "unlink": lambda: os.unlink(path / "remove"),
        "rmdir": lambda: os.rmdir(path / "folder"),
        "rename": lambda: os.rename(path / "rename", path / "renamed"),
        "truncate": lambda: os.truncate(path / "truncate", 3),
        "utime": lambda: os.utime(path / "times", (1, 1)),
        "chmod": lambda: os.chmod(path / "mode", 0o600),
        "write to an open file": lambda: os.pwrite(volume.descriptor, b"x", 0),
        "resize an open file": lambda: os.ftruncate(volume.descriptor, 5),
        "synchronise an open file": lambda: os.fsync(volume.descriptor),
    }


def failures_of(volume):
    told = {}
    for name, call in every_operation(volume).items():
        begin = time.monotonic()
        try:
            call()
            told[name] = "worked"
        except OSError as error:
            told[name] = errno.errorcode[error.errno]
        assert time.monotonic() - begin < AT_ONCE, name
    return told


def test_every_operation_fails_at_once_with_eio(victim):
    kill_helper(victim)
    told = failures_of(victim)
    assert set(told.values()) == {"EIO"}, told
    assert (victim.backing / "remove").exists() and (victim.backing / "rename").exists()


def test_death_is_told_in_one_line(victim):
    kill_helper(victim)
    failures_of(victim)
    failures_of(victim)
    assert len(victim.log().splitlines()) == 1, victim.log()
    assert re.search(r"helper closed stdout \(request \d+\); the helper \(pid \d+\) was killed by signal 9 \(Killed\); "
                     r'operations fail with "Input/output error"', victim.log())


def test_answers_out_of_step_are_told_in_one_line(controlled):
    controlled.expect_log("did not match")
    controlled.helper.rule("extraLine", "getattr", "/first")
    for name in ("first", *(f"{number}" for number in range(50))):
        with pytest.raises(OSError) as caught:
            os.stat(controlled.path / name)
        assert caught.value.errno == errno.EIO
    assert len(controlled.log().splitlines()) == 1, controlled.log()
    assert "did not match request id" in controlled.log()


def test_error_of_the_helper_is_told_with_code_message_and_operation(controlled):
    controlled.helper.fail("getattr", "ENOSPC", path="/secret")
    with pytest.raises(OSError):
        os.stat(controlled.path / "secret")
    assert controlled.log_lines(r'getattr of <private> failed: ENOSPC: refused by the test \(programs see "Input/output error"\)')
    assert "secret" not in controlled.log()


def test_many_errors_of_one_kind_are_one_line_a_second_with_their_number(controlled):
    controlled.helper.fail("getattr", "EIO")
    for number in range(500):
        with pytest.raises(OSError):
            os.stat(controlled.path / f"{number}")
    told = eventually(lambda: [int(count) for count in re.findall(r"(\d+) times since", controlled.log())], 10, "a count")
    controlled.unmount()
    controlled.wait_for_end(10)
    told = [int(count) for count in re.findall(r"(\d+) times since", controlled.log())]
    assert len(controlled.log().splitlines()) == 1 + len(told), controlled.log()
    assert 1 + sum(told) == 500 and len(told) < 30, controlled.log()


def test_everyday_errors_are_not_told(controlled):
    for code in ("ENOENT", "EEXIST", "ENOTEMPTY", "EPERM", "EROFS"):
        rule = controlled.helper.fail("getattr", code)
        with pytest.raises(OSError):
            os.stat(controlled.path / "file")
        controlled.helper.drop(rule)
    assert controlled.log() == ""


def test_unmounting_works_after_the_death(victim):
    kill_helper(victim)
    failures_of(victim)
    try:
        os.close(victim.descriptor)
    except OSError:
        pass
    victim.descriptor = os.open("/dev/null", os.O_RDONLY)
    victim.unmount()
    victim.wait_for_end(10)


def test_unmounting_works_after_a_death_that_nobody_noticed(controlled):
    controlled.expect_log("helper")
    kill_helper(controlled)
    controlled.unmount()
    controlled.wait_for_end(10)


def test_figures_and_root_are_told_without_the_helper(victim):
    kill_helper(victim)
    assert os.statvfs(victim.path).f_frsize == 4096
    assert os.stat(victim.path).st_ino == 2


def test_death_in_the_middle_of_a_request_fails_that_request(victim):
    victim.helper.rule("die", "read")
    begin = time.monotonic()
    with pytest.raises(OSError) as caught:
        (victim.path / "read").read_bytes()
    assert caught.value.errno == errno.EIO and time.monotonic() - begin < AT_ONCE
    told = failures_of(victim)
    assert set(told.values()) == {"EIO"}, told


def test_everybody_who_waits_fails_when_the_helper_dies(victim):
    victim.helper.block("getattr", "/unseen")
    workers = [Worker(os.stat, victim.path / "unseen")]
    victim.helper.blocked_request()  # whoever comes from here on waits behind it
    workers += [Worker(os.listdir, victim.path / "folder"), Worker((victim.path / "read").read_bytes)]
    for worker in workers:
        eventually(lambda pid=worker.pid: system.is_waiting(pid), 10, "a waiting process")
    kill_helper(victim)
    for number, worker in enumerate(workers):
        with pytest.raises(OSError) as caught:
            print(number, worker.result(AT_ONCE))
        assert caught.value.errno == errno.EIO


def test_helper_that_lives_but_closed_its_output_is_as_dead_however_many_requests_come(controlled):
    """More requests than the pipe to a helper that does not read can take."""
    controlled.expect_log("helper")
    controlled.helper.rule("closeOutput", "getattr", "/first")
    for name in ("first", *(f"{number:0250}" for number in range(4500))):
        with pytest.raises(OSError) as caught:
            os.stat(controlled.path / name)
        assert caught.value.errno == errno.EIO
    assert len(controlled.log().splitlines()) == 1 and "has closed its output but still runs" in controlled.log()
    kill_helper(controlled)


def test_helper_that_ends_by_a_signal_to_end_is_as_dead(victim):
    kill_helper(victim, signal.SIGTERM)
    told = failures_of(victim)
    assert set(told.values()) == {"EIO"}, told


def test_close_fails_or_works_but_the_descriptor_is_gone(victim):
    kill_helper(victim)
    try:
        os.close(victim.descriptor)
    except OSError as error:
        assert error.errno == errno.EIO
    with pytest.raises(OSError) as caught:
        os.fstat(victim.descriptor)
    assert caught.value.errno == errno.EBADF
    victim.descriptor = os.open("/dev/null", os.O_RDONLY)


@pytest.mark.parametrize("text", ["this is not JSON", "{}", "[]", '{"id":"999999","ok":true}', '{"id":1,"ok":true}', "",
                                  '{"id":"x","ok":"yes"}', "\x00\x01\x02"])
def test_answer_that_is_nonsense_fails_one_operation_and_the_next_one_works(controlled, text):
    controlled.expect_log("")
    (controlled.backing / "file").write_bytes(b"content")
    rule = controlled.helper.rule("garbage", "getattr", text=text)
    with pytest.raises(OSError) as caught:
        os.stat(controlled.path / "file")
    assert caught.value.errno == errno.EIO
    controlled.helper.drop(rule)
    assert (controlled.path / "file").read_bytes() == b"content"


def failure_with(volume):
    with pytest.raises(OSError) as caught:
        os.stat(volume.path / "file")
    return caught.value.errno


@pytest.mark.parametrize("code", ["ENOENT", "EEXIST", "EINVAL", "EISDIR", "ENOTDIR", "ENOTEMPTY", "EACCES", "EPERM",
                                  "EROFS", "EIO"])
def test_error_code_of_the_helper_is_the_error_of_the_call(controlled, code):
    controlled.helper.fail("getattr", code)
    assert failure_with(controlled) == getattr(errno, code)


@pytest.mark.parametrize("code", ["ENOSPC", "EBUSY", "EDQUOT", "ENOMEM", "ESTALE", "enoent", "2", "", "ENAMETOOLONG"])
def test_error_code_that_is_not_known_is_an_input_output_error(controlled, code):
    controlled.helper.fail("getattr", code)
    assert failure_with(controlled) == errno.EIO


def test_error_without_a_code_is_an_input_output_error(controlled):
    controlled.helper.rule("failNameless", "getattr", message="something")
    assert failure_with(controlled) == errno.EIO
