"""Mount options: what each one does to the mount."""

import errno
import os
import shutil
import subprocess

import pytest

from harness import system
from harness.calls import failure


def test_read_only_mount_refuses_every_change_and_asks_the_helper_for_none(mount):
    volume = mount(options=["ro"], control=True)
    (volume.backing / "file").write_bytes(b"content")
    (volume.backing / "folder").mkdir()
    path = volume.path
    for call in (lambda: os.open(path / "file", os.O_WRONLY), lambda: os.open(path / "file", os.O_RDWR),
                 lambda: os.open(path / "fresh", os.O_WRONLY | os.O_CREAT), lambda: os.truncate(path / "file", 0),
                 lambda: os.open(path / "file", os.O_RDONLY | os.O_TRUNC),
                 lambda: os.mkdir(path / "fresh"), lambda: os.unlink(path / "file"), lambda: os.rmdir(path / "folder"),
                 lambda: os.rename(path / "file", path / "other"), lambda: os.utime(path / "file", (1, 1)),
                 lambda: os.chmod(path / "file", 0o600), lambda: os.mknod(path / "fresh"),
                 lambda: os.symlink("a", path / "fresh"), lambda: os.link(path / "file", path / "fresh")):
        assert failure(call) == errno.EROFS
    assert (path / "file").read_bytes() == b"content" and sorted(os.listdir(path)) == ["file", "folder"]
    assert volume.helper.count("write", "mkdir", "unlink", "rename", "chmod", "utimes") == 0
    assert all(request["flags"] == ["read"] for request in volume.helper.requests("open"))
    assert "ro" in system.mount_at(path).options


def test_last_of_contradicting_options_wins(mount):
    volume = mount(options=["ro", "rw", "fmask=077", "fmask=022"])
    (volume.path / "file").write_bytes(b"content")
    assert os.stat(volume.path / "file").st_mode & 0o777 == 0o755


def test_name_of_the_source_can_be_chosen(mount):
    volume = mount(options=["fsname=my drive"])
    assert system.mount_at(volume.path).source == "my drive"
    told = subprocess.run(["df", volume.path], capture_output=True, text=True, check=True, timeout=20).stdout
    assert "my drive" in told


def test_kernel_options_reach_the_mount(mount):
    volume = mount(options=["nosuid", "nodev", "noexec", "noatime", "fmask=022"])
    assert {"nosuid", "nodev", "noexec", "noatime"} <= set(system.mount_at(volume.path).options)
    shutil.copy(shutil.which("true"), volume.path / "program")
    with pytest.raises(PermissionError):
        subprocess.run([volume.path / "program"], check=False, timeout=20)


def test_mount_of_an_ordinary_user_or_of_root_never_honours_set_user_id_or_devices(mount):
    volume = mount()
    assert {"nosuid", "nodev"} <= set(system.mount_at(volume.path).options)


@pytest.mark.parametrize("size", [4096, 65536, 131072])
def test_requests_are_no_larger_than_asked_for(mount, size):
    volume = mount(options=[f"request_size={size}"], control=True)
    data = os.urandom(600_000)
    (volume.path / "file").write_bytes(data)
    assert max(request["size"] for request in volume.helper.requests("write")) == size
    with open(volume.path / "file", "rb") as file:
        os.posix_fadvise(file.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)
        assert file.read() == data
    lengths = [request["length"] for request in volume.helper.requests("read")]
    assert max(lengths) == size


def test_requests_are_64_kib_at_most_unless_asked_otherwise(controlled):
    data = os.urandom(600_000)
    (controlled.backing / "file").write_bytes(data)
    assert (controlled.path / "file").read_bytes() == data
    (controlled.path / "copy").write_bytes(data)
    assert max(request["length"] for request in controlled.helper.requests("read")) == 65536
    assert max(request["size"] for request in controlled.helper.requests("write")) == 65536
