"""What becomes of files that are open, processes that work and handles of the helper when a mount ends; mounts side by side.

How the command begins and ends a mount is tested in tests/cli.
"""

import json
import os
import signal
import subprocess

import pytest

from harness import system
from harness.deadline import eventually
from harness.worker import Worker


# Endings

def test_lazy_unmount_serves_open_files_to_their_end(mount):
    volume = mount()
    (volume.path / "file").write_bytes(b"content")
    with open(volume.path / "file", "r+b", buffering=0) as file:
        subprocess.run(["fusermount3", "-u", "-z", volume.path], check=True, timeout=20)
        assert os.listdir(volume.path) == []
        assert file.read() == b"content"
        file.write(b" and more")
    assert volume.wait_for_end() == 0
    assert (volume.backing / "file").read_bytes() == b"content and more"


def test_ending_gives_back_what_is_open(mount):
    volume = mount(control=True)
    volume.checks_descriptors = False
    descriptor = os.open(volume.path / "file", os.O_RDWR | os.O_CREAT)
    os.write(descriptor, b"content")
    os.pread(descriptor, 3, 0)
    volume.host.send_signal(signal.SIGTERM)
    assert volume.wait_for_end() == 0
    opened = volume.helper.count("open")
    assert opened >= 2 and volume.helper.count("release") == opened
    try:
        os.close(descriptor)
    except OSError:
        pass


def test_ending_removes_hidden_files_of_files_still_open(mount):
    volume = mount()
    volume.checks_descriptors = False
    descriptor = os.open(volume.path / "file", os.O_RDWR | os.O_CREAT)
    os.unlink(volume.path / "file")
    assert len(volume.hidden()) == 1
    volume.host.send_signal(signal.SIGTERM)
    assert volume.wait_for_end() == 0
    assert os.listdir(volume.backing) == []
    try:
        os.close(descriptor)
    except OSError:
        pass


def test_slow_helper_is_waited_for_after_an_unmount(mount):
    volume = mount(control=True)
    rule = volume.helper.rule("neverExits")
    subprocess.run(["fusermount3", "-u", volume.path], check=True, timeout=20)
    eventually((volume.helper.folder / "endOfInput").exists, 10, "the end of the helper's input")
    assert volume.host.poll() is None
    volume.helper.drop(rule)
    assert volume.wait_for_end(10) == 0


def test_concurrent_work_and_unmount_do_not_hang(mount):
    """A mount taken away under busy processes: they get errors, nobody hangs."""
    volume = mount()
    volume.checks_descriptors = False
    volume.expect_log("")

    def work():
        count = 0
        try:
            while True:
                (volume.path / f"file{os.getpid()}").write_bytes(b"x" * 5000)
                os.listdir(volume.path)
                count += 1
        except OSError:
            return count
    workers = [Worker(work) for _ in range(3)]
    eventually(lambda: len(os.listdir(volume.backing)) == 3, 20)
    volume.host.send_signal(signal.SIGTERM)
    eventually(lambda: not system.mount_points(volume.path), 20)
    for worker in workers:
        if not worker.is_gone(2) and not worker.is_done():
            worker.kill()  # it works on in the empty mount point, which is writable to it
    volume.wait_for_end(20)
    for name in os.listdir(volume.path):
        os.unlink(volume.path / name)


@pytest.mark.root_only
def test_aborted_connection_leaves_no_stale_mount(mount, workspace):
    """A connection that is cut through the kernel's control file system."""
    volume = mount()
    volume.checks_descriptors, volume.expects_exit = False, None
    volume.expect_log("")
    (volume.path / "file").write_bytes(b"content")
    minor = os.minor((volume.path / "file").stat().st_dev)
    control = workspace / "control"
    control.mkdir()
    subprocess.run(["mount", "-t", "fusectl", "none", control], check=True)
    try:
        (control / str(minor) / "abort").write_text("1")
    finally:
        subprocess.run(["umount", control], check=True)
    volume.wait_for_end(10)
    eventually(lambda: system.mount_points(volume.path) == [], 5, "the unmount")
    assert volume.helper_pids() == []
    assert list(volume.path.iterdir()) == []


# Beginnings

def test_two_mounts_live_side_by_side(mount):
    first, second = mount(), mount()
    (first.path / "file").write_bytes(b"first")
    assert os.listdir(second.path) == []
    first.unmount()
    (second.path / "file").write_bytes(b"second")
    assert (second.backing / "file").read_bytes() == b"second"


def test_two_mounts_serve_one_tree(mount):
    first = mount(options=["entry_timeout=0", "attr_timeout=0"])
    second = mount(options=["entry_timeout=0", "attr_timeout=0"], backing=first.backing)
    (first.path / "file").write_bytes(b"content")
    assert (second.path / "file").read_bytes() == b"content"
    os.unlink(second.path / "file")
    assert not (first.path / "file").exists()


def test_helper_gets_the_configured_environment(mount, workspace):
    script = workspace / "tell.mjs"
    script.write_text(f"import fs from 'node:fs'; fs.writeFileSync({str(workspace / 'environment')!r},"
                      "JSON.stringify(process.env)); await import(process.env.KEMVI_TEST_INNER)")
    volume = mount(helper=script, environment={"KEMVI_HOME": "inherited", "OTHER": "kept"}, control=True)
    told = json.loads((workspace / "environment").read_text())
    assert told["KEMVI_DRIVE_ID"] == "test" and told["KEMVI_REPO_ROOT"] == str(volume.backing)
    assert told["KEMVI_HOME"] == str(volume.source) and told["OTHER"] == "kept"
    volume.helper = None
