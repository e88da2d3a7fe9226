"""What programs have changed and the kernel still holds is written when a mount ends in order."""

import mmap
import os
import signal

import pytest

from harness.deadline import eventually
from harness.worker import Worker

SIZE = 2 * 1024 * 1024
SIGNALS = [signal.SIGTERM, signal.SIGINT]


def dirtyMap(path, data):
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


def writeAndKeep(path, data):
    descriptor = os.open(path, os.O_WRONLY | os.O_CREAT)
    os.write(descriptor, data)
    return descriptor


def endedBy(volume, number):
    volume.checksDescriptors = False
    volume.host.send_signal(number)
    return volume.waitForEnd(30)


def patternOf(number):
    return bytes([number + 1]) * SIZE


@pytest.mark.parametrize("number", SIGNALS, ids=lambda number: number.name)
@pytest.mark.parametrize("options", [[], ["writeback"]], ids=["default", "writeback"])
def test_changes_made_through_shared_maps_are_written_at_an_orderly_end(mount, workspace, options, number):
    volume = mount(options=options)
    workers = []
    for index in range(3):
        (volume.path / f"file{index}").write_bytes(bytes(SIZE))
        workers.append(holding(workspace, dirtyMap, volume.path / f"file{index}", patternOf(index)))
    assert endedBy(volume, number) == 0
    for index, worker in enumerate(workers):
        worker.kill()
        assert (volume.backing / f"file{index}").read_bytes() == patternOf(index)


@pytest.mark.parametrize("number", SIGNALS, ids=lambda number: number.name)
def test_writes_that_the_kernel_holds_back_are_written_at_an_orderly_end(mount, workspace, number):
    volume = mount(options=["writeback"])
    workers = [holding(workspace, writeAndKeep, volume.path / f"file{index}", patternOf(index)) for index in range(3)]
    assert endedBy(volume, number) == 0
    for index, worker in enumerate(workers):
        worker.kill()
        assert (volume.backing / f"file{index}").read_bytes() == patternOf(index)


def test_file_that_was_renamed_since_is_written_too_and_one_that_was_removed_is_not(mount, workspace):
    volume = mount(options=["writeback"], control=True)
    renamed = holding(workspace, writeAndKeep, volume.path / "renamed", patternOf(0))
    removed = holding(workspace, writeAndKeep, volume.path / "removed", patternOf(1))
    os.rename(volume.path / "renamed", volume.path / "moved")
    os.unlink(volume.path / "removed")
    assert endedBy(volume, signal.SIGTERM) == 0
    for worker in (renamed, removed):
        worker.kill()
    assert (volume.backing / "moved").read_bytes() == patternOf(0)
    assert os.listdir(volume.backing) == ["moved"]


@pytest.mark.parametrize("options", [[], ["writeback"]], ids=["default", "writeback"])
def test_everything_is_written_when_unmount_has_returned(mount, options):
    volume = mount(options=options)
    (volume.path / "mapped").write_bytes(bytes(SIZE))
    dirtyMap(volume.path / "mapped", patternOf(1)).close()
    os.close(writeAndKeep(volume.path / "written", patternOf(2)))
    volume.unmount()
    assert (volume.backing / "mapped").read_bytes() == patternOf(1)
    assert (volume.backing / "written").read_bytes() == patternOf(2)


def test_forced_unmount_writes_too_while_the_helper_answers(mount, workspace):
    volume = mount(options=["writeback"])
    volume.checksDescriptors = False
    worker = holding(workspace, writeAndKeep, volume.path / "file", b"held back")
    assert volume.program.run("unmount", "--force", volume.path).returncode == 0
    worker.kill()
    assert volume.waitForEnd(10) == 0
    assert (volume.backing / "file").read_bytes() == b"held back"


def test_second_signal_ends_the_writing_where_the_helper_hangs(mount, workspace):
    volume = mount(options=["writeback"], control=True)
    volume.expectsExit = None
    volume.expectLog("")
    worker = holding(workspace, writeAndKeep, volume.path / "file", patternOf(0))
    volume.helper.block("write")
    volume.host.send_signal(signal.SIGTERM)
    volume.helper.blockedRequest()
    told = eventually(lambda: volume.logLines("still writing"), 20, "a line that tells of the writing")
    assert "another signal" in told[0] and str(volume.helperPid()) in told[0] and " s" in told[0]
    assert volume.host.poll() is None
    volume.host.send_signal(signal.SIGTERM)
    assert volume.waitForEnd(10) == 11
    worker.kill()
    assert worker.isGone(5)


@pytest.mark.rootOnly  # it takes as long as the limit; once is enough
def test_writing_is_given_up_at_the_limit_that_was_told(mount, workspace):
    volume = mount(options=["writeback"], control=True)
    volume.expectsExit = 1
    volume.expectLog("")
    worker = holding(workspace, writeAndKeep, volume.path / "file", patternOf(0))
    rule = volume.helper.block("write")
    volume.host.send_signal(signal.SIGTERM)
    eventually(lambda: volume.logLines("for at most 27 s more"), 20, "a line that tells of the limit")
    eventually(lambda: volume.logLines("the rest is lost"), 60, "the end of the writing")
    worker.kill()
    assert worker.isGone(5), "nobody has to wait for the helper any more"
    volume.helper.drop(rule)
    assert volume.waitForEnd(10) == 1
