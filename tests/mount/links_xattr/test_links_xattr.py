"""What the volume does not have is refused with the error that programs know, and asks the helper nothing."""

import errno
import os
import socket
import stat
import subprocess

import pytest

from harness.calls import failure


@pytest.fixture
def file(controlled):
    (controlled.path / "file").write_bytes(b"content")
    controlled.helper.forget()
    return controlled.path / "file"


def changes(controlled):
    return controlled.helper.count("open", "mkdir", "unlink", "rename", "chmod", "utimes", "write")


def test_symbolic_link_is_not_supported(controlled, file):
    assert failure(os.symlink, "file", controlled.path / "link") == errno.EOPNOTSUPP
    assert failure(os.symlink, "/absent", controlled.path / "folder") == errno.EOPNOTSUPP
    assert changes(controlled) == 0 and os.listdir(controlled.path) == ["file"]


def test_hard_link_is_not_supported(controlled, file):
    assert failure(os.link, file, controlled.path / "link") == errno.EOPNOTSUPP
    assert changes(controlled) == 0 and os.listdir(controlled.path) == ["file"]


def test_hard_link_over_an_existing_name_is_refused_and_keeps_it(controlled, file):
    (controlled.path / "other").write_bytes(b"other")
    assert failure(os.link, file, controlled.path / "other") == errno.EEXIST
    assert (controlled.path / "other").read_bytes() == b"other"


def test_reading_a_file_as_a_link_is_invalid(controlled, file):
    assert failure(os.readlink, file) == errno.EINVAL


@pytest.mark.parametrize("kind", [stat.S_IFIFO, stat.S_IFSOCK])
def test_pipe_and_socket_nodes_are_not_supported(controlled, kind):
    assert failure(os.mknod, controlled.path / "node", kind | 0o644) == errno.EOPNOTSUPP
    assert os.listdir(controlled.path) == []


@pytest.mark.root_only
@pytest.mark.parametrize("kind", [stat.S_IFCHR, stat.S_IFBLK])
def test_device_nodes_are_not_supported(controlled, kind):
    with pytest.raises(OSError) as caught:
        os.mknod(controlled.path / "node", kind | 0o644, os.makedev(1, 3))
    assert caught.value.errno == errno.EOPNOTSUPP


def test_socket_cannot_be_bound(controlled):
    with socket.socket(socket.AF_UNIX) as server:
        os.chdir(controlled.path)
        try:
            with pytest.raises(OSError):
                server.bind("socket")
        finally:
            os.chdir("/")
    assert os.listdir(controlled.path) == []


def test_extended_attributes_are_not_supported_and_never_reach_the_helper(controlled, file):
    for _ in range(3):
        assert failure(os.setxattr, file, "user.name", b"value") == errno.EOPNOTSUPP
        assert failure(os.getxattr, file, "user.name") == errno.EOPNOTSUPP
        assert failure(os.removexattr, file, "user.name") == errno.EOPNOTSUPP
        assert failure(os.listxattr, file) == errno.EOPNOTSUPP
    assert changes(controlled) == 0


def test_programs_that_copy_attributes_and_links_get_along_without(controlled, file):
    done = subprocess.run(["cp", "--preserve=mode,timestamps", file, controlled.path / "copy"], capture_output=True,
                          text=True, check=False, timeout=20)
    assert done.returncode == 0 and done.stderr == ""
    done = subprocess.run(["ls", "-la", controlled.path], capture_output=True, text=True, check=False, timeout=20)
    assert done.returncode == 0 and done.stderr == ""


def test_file_locks_of_one_machine_work(volume):
    import fcntl
    from harness.worker import in_child
    (volume.path / "file").write_bytes(b"content")
    with open(volume.path / "file", "r+b") as file:
        fcntl.flock(file, fcntl.LOCK_EX)

        def try_lock():
            with open(volume.path / "file", "r+b") as other:
                fcntl.flock(other, fcntl.LOCK_EX | fcntl.LOCK_NB)
        assert failure(lambda: in_child(try_lock)) == errno.EWOULDBLOCK
        fcntl.flock(file, fcntl.LOCK_UN)
        in_child(try_lock)
        fcntl.lockf(file, fcntl.LOCK_EX, 10, 0)

        def try_range():
            with open(volume.path / "file", "r+b") as other:
                fcntl.lockf(other, fcntl.LOCK_EX | fcntl.LOCK_NB, 10, 5)
        assert failure(lambda: in_child(try_range)) == errno.EAGAIN


def test_links_count_as_one_for_files_and_two_for_folders(mount):
    volume = mount()
    (volume.path / "file").touch()
    (volume.path / "folder" / "sub").mkdir(parents=True)
    assert os.stat(volume.path / "file").st_nlink == 1
    assert os.stat(volume.path / "folder").st_nlink == 2
