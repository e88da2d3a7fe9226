"""What programs have changed and the kernel still holds is written when a mount ends in order."""

import mmap
import os
import signal

import pytest

from harness.deadline import eventually
from harness.worker import Worker

SIZE = 2 * 1024 * 1024
SIGNALS = [signal.SIGTERM, signal.SIGINT]


def dirty_map(path, data):
    """Changes a file through a shared map and keeps the map."""
    with open(path, "r+b") as file:
        view = mmap.mmap(file.fileno(), len(data))
    view[:] = data
    return view


def holding(workspace, make, *arguments):
    """A process that keeps what `make` returns until it is killed."""
    ready = workspace / f"ready{len(os.listdir(workspace))}"

    def hold():
        kept = make(*arguments)
        ready.touch()
        while True:
            signal.pause()
        return kept
    worker = Worker(hold)
    eventually(ready.exists, 20, "the change")
    return worker


def write_and_keep(path, data):
    descriptor = os.open(path, os.O_WRONLY | os.O_CREAT)
    os.write(descriptor, data)
    return descriptor


def ended_by(volume, number):
    volume.checks_descriptors = False
    volume.host.send_signal(number)
    return volume.wait_for_end(30)


def pattern_of(number):
    return bytes([number + 1]) * SIZE


@pytest.mark.parametrize("number", SIGNALS, ids=lambda number: number.name)
@pytest.mark.parametrize("options", [[], ["writeback"]], ids=["default", "writeback"])
def test_changes_made_through_shared_maps_are_written_at_an_orderly_end(mount, workspace, options, number):
    volume = mount(options=options)
    workers = []
    for index in range(3):
        (volume.path / f"file{index}").write_bytes(bytes(SIZE))
        workers.append(holding(workspace, dirty_map, volume.path / f"file{index}", pattern_of(index)))
    assert ended_by(volume, number) == 0
    for index, worker in enumerate(workers):
        worker.kill()
        assert (volume.backing / f"file{index}").read_bytes() == pattern_of(index)


@pytest.mark.parametrize("number", SIGNALS, ids=lambda number: number.name)
def test_writes_that_the_kernel_holds_back_are_written_at_an_orderly_end(mount, workspace, number):
    volume = mount(options=["writeback"])
    workers = [holding(workspace, write_and_keep, volume.path / f"file{index}", pattern_of(index)) for index in range(3)]
    assert ended_by(volume, number) == 0
    for index, worker in enumerate(workers):
        worker.kill()
        assert (volume.backing / f"file{index}").read_bytes() == pattern_of(index)


def test_file_that_was_renamed_since_is_written_too_and_one_that_was_removed_is_not(mount, workspace):
    volume = mount(options=["writeback"], control=True)
    renamed = holding(workspace, write_and_keep, volume.path / "renamed", pattern_of(0))
    removed = holding(workspace, write_and_keep, volume.path / "removed", pattern_of(1))
    os.rename(volume.path / "renamed", volume.path / "moved")
    os.unlink(volume.path / "removed")
    assert ended_by(volume, signal.SIGTERM) == 0
    for worker in (renamed, removed):
        worker.kill()
    assert (volume.backing / "moved").read_bytes() == pattern_of(0)
    assert os.listdir(volume.backing) == ["moved"]


@pytest.mark.parametrize("options", [[], ["writeback"]], ids=["default", "writeback"])
def test_everything_is_written_when_unmount_has_returned(mount, options):
    volume = mount(options=options)
    (volume.path / "mapped").write_bytes(bytes(SIZE))
    dirty_map(volume.path / "mapped", pattern_of(1)).close()
    os.close(write_and_keep(volume.path / "written", pattern_of(2)))
    volume.unmount()
    assert (volume.backing / "mapped").read_bytes() == pattern_of(1)
    assert (volume.backing / "written").read_bytes() == pattern_of(2)


def test_forced_unmount_writes_too_while_the_helper_answers(mount, workspace):
    volume = mount(options=["writeback"])
    volume.checks_descriptors = False
    worker = holding(workspace, write_and_keep, volume.path / "file", b"held back")
    assert volume.program.run("unmount", "--force", volume.path).returncode == 0
    worker.kill()
    assert volume.wait_for_end(10) == 0
    assert (volume.backing / "file").read_bytes() == b"held back"


def test_second_signal_ends_the_writing_where_the_helper_hangs(mount, workspace):
    volume = mount(options=["writeback"], control=True)
    volume.expects_exit = None
    volume.expect_log("")
    worker = holding(workspace, write_and_keep, volume.path / "file", pattern_of(0))
    volume.helper.block("write")
    volume.host.send_signal(signal.SIGTERM)
    volume.helper.blocked_request()
    told = eventually(lambda: volume.log_lines("still writing"), 20, "a line that tells of the writing")
    assert "another signal" in told[0] and str(volume.helper_pid()) in told[0] and " s" in told[0]
    assert volume.host.poll() is None
    volume.host.send_signal(signal.SIGTERM)
    assert volume.wait_for_end(10) == 11
    worker.kill()
    assert worker.is_gone(5)


@pytest.mark.long  # as long as the limit
def test_writing_is_given_up_at_the_limit_that_was_told(mount, workspace):
    volume = mount(options=["writeback"], control=True)
    volume.expects_exit = 1
    volume.expect_log("")
    worker = holding(workspace, write_and_keep, volume.path / "file", pattern_of(0))
    rule = volume.helper.block("write")
    volume.host.send_signal(signal.SIGTERM)
    eventually(lambda: volume.log_lines("for at most 27 s more"), 20, "a line that tells of the limit")
    eventually(lambda: volume.log_lines("the rest is lost"), 60, "the end of the writing")
    worker.kill()
    assert worker.is_gone(5), "nobody has to wait for the helper any more"
    volume.helper.drop(rule)
    assert volume.wait_for_end(10) == 1
