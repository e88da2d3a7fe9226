"""Owners and modes: what may be changed, what is only accepted, what others may do."""

import errno
import os
import shutil
import stat
import subprocess

import pytest

from harness import system
from harness.calls import failure, put
from harness.place import HELPERS
from harness.program import KEMVI, Program, write_configuration

UID, GID = os.getuid(), os.getgid()


def test_everything_belongs_to_the_mounting_user(mount):
    volume = mount()
    (volume.path / "folder").mkdir()
    put(volume.path / "file")
    for path in (volume.path, volume.path / "folder", volume.path / "file"):
        assert (os.stat(path).st_uid, os.stat(path).st_gid) == (UID, GID)


def test_chown_to_the_shown_owner_succeeds_and_asks_nothing(controlled):
    put(controlled.path / "file")
    controlled.helper.forget()
    for uid, gid in ((UID, GID), (UID, -1), (-1, GID), (-1, -1)):
        os.chown(controlled.path / "file", uid, gid)
    assert controlled.helper.count("chmod", "utimes") == 0


@pytest.mark.parametrize("uid,gid", [(UID + 1, -1), (-1, GID + 1), (UID + 1, GID + 1)])
def test_chown_to_anybody_else_is_not_permitted(mount, uid, gid):
    volume = mount()
    put(volume.path / "file")
    (volume.path / "folder").mkdir()
    assert failure(os.chown, volume.path / "file", uid, gid) == errno.EPERM
    assert failure(os.chown, volume.path / "folder", uid, gid) == errno.EPERM
    assert os.stat(volume.path / "file").st_uid == UID


def test_chown_to_anybody_else_succeeds_silently_when_quiet(mount):
    volume = mount(options=["quiet"])
    put(volume.path / "file")
    os.chown(volume.path / "file", UID + 1, GID + 1)
    assert (os.stat(volume.path / "file").st_uid, os.stat(volume.path / "file").st_gid) == (UID, GID)


def test_chown_through_a_descriptor_follows_the_same_rules(mount):
    volume = mount()
    descriptor = os.open(put(volume.path / "file"), os.O_RDWR)
    os.fchown(descriptor, UID, GID)
    assert failure(os.fchown, descriptor, UID + 1, -1) == errno.EPERM
    os.close(descriptor)


@pytest.mark.parametrize("mode", [0o600, 0o755, 0o444, 0o000, 0o777, 0o700])
def test_chmod_reaches_the_served_tree_and_is_shown_unchanged(mount, mode):
    volume = mount()
    put(volume.path / "file")
    (volume.path / "folder").mkdir()
    os.chmod(volume.path / "file", mode)
    assert stat.S_IMODE(os.stat(volume.backing / "file").st_mode) == mode
    assert stat.S_IMODE(os.stat(volume.path / "file").st_mode) == 0o644
    os.chmod(volume.path / "folder", 0o700)
    assert stat.S_IMODE(os.stat(volume.backing / "folder").st_mode) == 0o700
    assert stat.S_IMODE(os.stat(volume.path / "folder").st_mode) == 0o755


def test_chmod_is_one_request_with_the_permission_bits_alone(controlled):
    put(controlled.path / "file")
    controlled.helper.forget()
    os.chmod(controlled.path / "file", 0o755)
    assert [request["mode"] for request in controlled.helper.requests("chmod")] == [0o755]


def test_chmod_the_helper_refuses_is_refused(controlled):
    put(controlled.path / "file")
    controlled.helper.fail("chmod", "EPERM")
    assert failure(os.chmod, controlled.path / "file", 0o600) == errno.EPERM


def test_chmod_through_a_descriptor_works(mount):
    volume = mount()
    descriptor = os.open(put(volume.path / "file"), os.O_RDWR)
    os.fchmod(descriptor, 0o600)
    assert stat.S_IMODE(os.stat(volume.backing / "file").st_mode) == 0o600
    os.close(descriptor)


@pytest.mark.root_only
def test_owner_and_group_options_are_shown(mount):
    volume = mount(options=["uid=1234", "gid=4321"])
    put(volume.path / "file")
    for path in (volume.path, volume.path / "file"):
        assert (os.stat(path).st_uid, os.stat(path).st_gid) == (1234, 4321)
    os.chown(volume.path / "file", 1234, 4321)
    assert failure(os.chown, volume.path / "file", 0, 0) == errno.EPERM


def test_mask_options_are_shown_and_what_is_withheld_is_refused(mount):
    volume = mount(options=["fmask=0333", "dmask=0022"])
    put(volume.backing / "file")
    assert stat.S_IMODE(os.stat(volume.path / "file").st_mode) == 0o444
    assert stat.S_IMODE(os.stat(volume.path).st_mode) == 0o755
    if UID != 0:
        assert failure(os.open, volume.path / "file", os.O_WRONLY) == errno.EACCES
    assert not os.access(volume.path / "file", os.X_OK)


@pytest.mark.root_only
def test_shown_modes_are_enforced_for_other_users(mount):
    volume = mount(options=["allow_other", "fmask=077", "dmask=022"])
    put(volume.path / "file")
    os.chmod(volume.workspace, 0o755)
    done = subprocess.run(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "cat", volume.path / "file"],
                          capture_output=True, check=False, timeout=20)
    assert done.returncode != 0 and b"Permission denied" in done.stderr and done.stdout == b""


def test_access_is_told_by_the_shown_mode(mount):
    volume = mount()
    put(volume.path / "file")
    assert os.access(volume.path / "file", os.R_OK | os.W_OK)
    assert not os.access(volume.path / "file", os.X_OK)
    assert os.access(volume.path, os.R_OK | os.W_OK | os.X_OK)


def test_copy_with_everything_preserved_succeeds_for_own_files(volume, workspace):
    put(workspace / "original")
    os.utime(workspace / "original", (1000, 1000))
    done = subprocess.run(["cp", "-p", workspace / "original", volume.path / "copy"], capture_output=True, text=True,
                          check=False, timeout=20)
    assert done.returncode == 0 and done.stderr == ""
    assert os.stat(volume.path / "copy").st_mtime == 1000


SPECIAL = 0o7000


@pytest.mark.parametrize("mode", [0o4755, 0o2755, 0o1777, 0o7000])
def test_no_bit_beyond_the_permissions_reaches_the_served_tree(mount, mode):
    volume = mount()
    put(volume.path / "file")
    (volume.path / "folder").mkdir()
    for name in ("file", "folder"):
        os.chmod(volume.path / name, mode)
        assert stat.S_IMODE(os.stat(volume.backing / name).st_mode) == mode & ~SPECIAL
        os.chmod(volume.backing / name, 0o700)
    os.close(os.open(volume.path / "new", os.O_WRONLY | os.O_CREAT, mode))
    os.mkdir(volume.path / "newFolder", mode)
    os.mknod(volume.path / "newNode", mode | stat.S_IFREG)
    for name in ("new", "newFolder", "newNode"):
        assert os.stat(volume.backing / name).st_mode & SPECIAL == 0


def test_programs_that_ask_for_such_bits_succeed(mount):
    """cp -p, install and tar would otherwise end with an error for each file, with nothing a user could do."""
    volume = mount()
    original = put(volume.workspace / "original")
    os.chmod(original, 0o6755)
    for command in (["cp", "-p", original, volume.path / "copied"],
                    ["install", "-m", "4755", original, volume.path / "installed"],
                    ["mkdir", "-m", "2775", volume.path / "shared"],
                    ["chmod", "u+s,g+s", volume.path / "copied"]):
        done = subprocess.run(command, capture_output=True, text=True, check=False, timeout=20)
        assert (done.returncode, done.stderr) == (0, "")
    for name in os.listdir(volume.backing):
        assert os.stat(volume.backing / name).st_mode & SPECIAL == 0
    assert stat.S_IMODE(os.stat(volume.backing / "installed").st_mode) == 0o755


# Other users

@pytest.mark.root_only
def test_other_users_have_no_access(mount):
    volume = mount()
    (volume.path / "file").write_bytes(b"content")
    os.chmod(volume.workspace, 0o755)
    command = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "cat", str(volume.path / "file")]
    done = subprocess.run(command, capture_output=True, check=False, timeout=20)
    assert done.returncode != 0 and done.stdout == b""


# Mounts as an ordinary user, and tells what that user and root get to see. What the user needs lies in /mnt, which only
# this shell sees; the arguments are the options of the mount.
ROOT_LOOKS_ON = """
mount --bind . /mnt && cd /mnt
mkdir dev && mount -t tmpfs none dev && mknod -m 666 dev/fuse c 10 229 && mount --bind dev/fuse /dev/fuse
mount --bind fuse.conf /etc/fuse.conf
user="setpriv --reuid=65534 --regid=65534 --clear-groups"
$user ./kemvi mount --log-file /mnt/log "$@" /mnt/source /mnt/point
echo "user: $($user stat -c %s /mnt/point/a.txt 2>&1)"
echo "root: $(stat -c %s /mnt/point/a.txt 2>&1)"
echo "root: $(ls /mnt/point 2>&1)"
$user ./kemvi unmount /mnt/point
"""


@pytest.mark.root_only
@pytest.mark.parametrize("options,size,listing", [([], "Permission denied", "Permission denied"),
                                                  (["-o", "allow_other"], "6", "a.txt")], ids=["alone", "allow_other"])
def test_root_has_access_to_the_mount_of_a_user_only_when_allowed(workspace, options, size, listing):
    for name in ("source", "point"):
        (workspace / name).mkdir()
        (workspace / name).chmod(0o777)
    workspace.chmod(0o777)
    shutil.copy(KEMVI, workspace / "kemvi")
    shutil.copy(HELPERS / "answering.mjs", workspace)
    (workspace / "helper.mjs").write_text("import { serve } from './answering.mjs'; serve();")
    (workspace / "fuse.conf").write_text("user_allow_other\n")
    write_configuration(workspace / "source", "/mnt/helper.mjs", "/mnt/tree")
    done = subprocess.run([system.OWN_MOUNT_TABLE, "sh", "-ec", ROOT_LOOKS_ON, "sh", *options],
                          cwd=workspace, env=Program(workspace).environment, capture_output=True, text=True,
                          timeout=30, check=False)
    assert done.returncode == 0, done.stderr
    user, *root = [line.split(": ")[0] + ": " + line.split(": ")[-1] for line in done.stdout.splitlines()]
    assert user == "user: 6" and root == [f"root: {size}", f"root: {listing}"], done.stdout


@pytest.mark.root_only
def test_other_users_may_read_and_not_write_when_allowed(mount):
    volume = mount(options=["allow_other"])
    (volume.path / "file").write_bytes(b"content")
    os.chmod(volume.workspace, 0o755)
    other = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    done = subprocess.run([*other, "cat", volume.path / "file"], capture_output=True, check=False, timeout=20)
    assert done.stdout == b"content"
    for command in (["touch", volume.path / "fresh"], ["sh", "-c", 'echo x >> "$1"', "sh", volume.path / "file"],
                    ["rm", "-f", volume.path / "file"], ["mkdir", volume.path / "folder"]):
        assert subprocess.run([*other, *command], capture_output=True, check=False, timeout=20).returncode != 0
    assert os.listdir(volume.backing) == ["file"] and (volume.backing / "file").read_bytes() == b"content"
