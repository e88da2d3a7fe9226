"""A connection that is cut through the kernel's control file system."""

import os
import subprocess

import pytest

from harness import system
from harness.deadline import eventually


@pytest.mark.rootOnly
def test_aborted_connection_leaves_no_stale_mount(mount, workspace):
    volume = mount()
    volume.checksDescriptors, volume.expectsExit = False, None
    volume.expectLog("")
    (volume.path / "file").write_bytes(b"content")
    minor = os.minor((volume.path / "file").stat().st_dev)
    control = workspace / "control"
    control.mkdir()
    subprocess.run(["mount", "-t", "fusectl", "none", control], check=True)
    try:
        (control / str(minor) / "abort").write_text("1")
    finally:
        subprocess.run(["umount", control], check=True)
    volume.waitForEnd(10)
    eventually(lambda: system.mountPoints(volume.path) == [], 5, "the unmount")
    assert volume.helperPids() == []
    assert list(volume.path.iterdir()) == []
