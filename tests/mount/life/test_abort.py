"""A connection that is cut through the kernel's control file system."""

import os
import subprocess

import pytest

from harness import system
from harness.deadline import eventually


@pytest.mark.root_only
def test_aborted_connection_leaves_no_stale_mount(mount, workspace):
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
