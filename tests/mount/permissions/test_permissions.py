"""What is refused to whom must not depend on who checks it, the kernel (-o default_permissions) or the host. Every call is
made on trees of either kind, over the modes that a served file can have and the callers that can reach a mount."""

import contextlib
import errno
import os
import subprocess
from collections import namedtuple

import pytest

from harness import libc, system
from harness.calls import failure, put

FILE_MODES = (0o644, 0o755, 0o444, 0o600, 0o111, 0o000)
FOLDER_MODES = (0o755, 0o555, 0o700, 0o000)
OTHER = 65534

Kind = namedtuple("Kind", "name options")
KERNEL = Kind("kernel", ["default_permissions"])
HOST = Kind("host", [])


def open_and_close(path, flags, mode=0o644):
    os.close(os.open(path, flags, mode))


def execute(path):
    subprocess.run([path], check=False, capture_output=True, timeout=20)


def enter(path):
    before = os.open(".", os.O_RDONLY)
    try:
        os.chdir(path)
        os.fchdir(before)
    finally:
        os.close(before)


def write_through_descriptor(path):
    with open(path, "rb+", buffering=0) as file:
        os.ftruncate(file.fileno(), 3)
        file.write(b"abc")


OF_A_FILE = {
    "open to read": lambda path: open_and_close(path, os.O_RDONLY),
    "open to write": lambda path: open_and_close(path, os.O_WRONLY),
    "open for both": lambda path: open_and_close(path, os.O_RDWR),
    "open to append": lambda path: open_and_close(path, os.O_WRONLY | os.O_APPEND),
    "open and empty": lambda path: open_and_close(path, os.O_WRONLY | os.O_TRUNC),
    "open to read and empty": lambda path: open_and_close(path, os.O_RDONLY | os.O_TRUNC),
    "create what is there": lambda path: open_and_close(path, os.O_WRONLY | os.O_CREAT),
    "read": lambda path: path.read_bytes(),
    "write through a descriptor": write_through_descriptor,
    "truncate": lambda path: os.truncate(path, 2),
    "set both times": lambda path: os.utime(path, (1000, 1000)),
    "set the times to now": os.utime,
    "chmod": lambda path: os.chmod(path, 0o640),
    "chmod with more bits": lambda path: os.chmod(path, 0o6755),
    "chown to the same": lambda path: os.chown(path, os.getuid(), os.getgid()),
    "chown to nobody in particular": lambda path: os.chown(path, -1, -1),
    "chown to another": lambda path: os.chown(path, OTHER - 1, -1),
    "chgrp to another": lambda path: os.chown(path, -1, OTHER - 1),
    "execute": execute,
    "list it": os.listdir,
    "remove": os.unlink,
    "rename": lambda path: os.rename(path, path.with_name("renamed")),
    "replace": lambda path: os.rename(put_quietly(path.with_name("another")), path),
    "set an attribute": lambda path: os.setxattr(path, "user.name", b"value"),
}

OF_A_FOLDER = {
    "list": os.listdir,
    "list with attributes": lambda path: [entry.stat() for entry in os.scandir(path)],
    "look up": lambda path: os.stat(path / "member"),
    "look up what is not there": lambda path: os.stat(path / "absent"),
    "enter": enter,
    "create": lambda path: open_and_close(path / "new", os.O_WRONLY | os.O_CREAT | os.O_EXCL),
    "make a node": lambda path: os.mknod(path / "new"),
    "make a pipe": lambda path: os.mkfifo(path / "new"),
    "make a folder": lambda path: os.mkdir(path / "new"),
    "make a link": lambda path: os.symlink("member", path / "new"),
    "make a hard link": lambda path: os.link(path / "member", path / "new"),
    "remove a member": lambda path: os.unlink(path / "member"),
    "remove a folder": lambda path: os.rmdir(path / "inner"),
    "rename a member": lambda path: os.rename(path / "member", path / "renamed"),
    "move a member out": lambda path: os.rename(path / "member", path.with_name("moved")),
    "move a folder out": lambda path: os.rename(path / "inner", path.with_name("moved")),
    "move a file in": lambda path: os.rename(path.with_name("beside"), path / "moved"),
    "open a member to write": lambda path: open_and_close(path / "member", os.O_WRONLY),
    "remove it": os.rmdir,
    "chmod": lambda path: os.chmod(path, 0o711),
    "set the times to now": os.utime,
    "set both times": lambda path: os.utime(path, (1000, 1000)),
    "chown to another": lambda path: os.chown(path, OTHER - 1, -1),
}

ACCESS = {f"access {kind}{'' if real else ' as who works'}": (kind, mask, real) for real in (True, False)
          for kind, mask in {"F": os.F_OK, "R": os.R_OK, "W": os.W_OK, "X": os.X_OK, "RW": os.R_OK | os.W_OK,
                             "RX": os.R_OK | os.X_OK, "RWX": os.R_OK | os.W_OK | os.X_OK}.items()}


def put_quietly(path):
    path.write_bytes(b"another")
    return path


def outcome(call, *arguments):
    try:
        call(*arguments)
        return "done"
    except OSError as error:
        return errno.errorcode[error.errno]


def access(path, of):
    _, mask, real = of
    return os.access(path, mask, effective_ids=not real)


@contextlib.contextmanager
def working_for_another():
    """As a server of files does that works for its users in turn: it goes on being itself, and files see another."""
    libc.library.setfsuid(OTHER)
    try:
        yield
    finally:
        libc.library.setfsuid(0)


def file_outcomes(volume, mode, caller):
    """What becomes of every call on a file of that mode, each on a file of its own."""
    results = {}
    (volume.backing / "files").mkdir(exist_ok=True)
    for number, (name, call) in enumerate(OF_A_FILE.items()):
        backing = volume.backing / "files" / str(number)
        backing.mkdir()
        put(backing / "file", b"#!/bin/sh\n").chmod(mode)
        path = volume.path / "files" / str(number) / "file"
        with caller():
            results[name] = outcome(call, path)
    put(volume.backing / "files" / "asked").chmod(mode)
    with caller():
        results |= {name: access(volume.path / "files" / "asked", of) for name, of in ACCESS.items()}
    return results


def folder_outcomes(volume, mode, caller):
    results = {}
    (volume.backing / "folders").mkdir(exist_ok=True)
    for number, (name, call) in enumerate(OF_A_FOLDER.items()):
        backing = volume.backing / "folders" / str(number)
        (backing / "folder" / "inner").mkdir(parents=True)
        put(backing / "folder" / "member")
        put(backing / "beside")
        (backing / "folder").chmod(mode)
        with caller():
            results[name] = outcome(call, volume.path / "folders" / str(number) / "folder")
        for folder in ("folder", "renamed"):
            if (backing / folder).is_dir():
                (backing / folder).chmod(0o755)
    with caller():
        results |= {name: access(volume.path / "folders", of) for name, of in ACCESS.items()}
    return results


# An error either way, with another number: what there is not at all is not there for those without permission either.
NOT_OFFERED = {"set an attribute", "make a hard link"}


def compared(mount, outcomes, mode, caller, options=()):
    volumes = [mount(options=[*kind.options, *options], name=kind.name) for kind in (KERNEL, HOST)]
    volumes[0].workspace.chmod(0o755)
    for volume in volumes:
        volume.expect_log("failed: EACCES")  # an ordinary user's helper is refused by the served tree
    first, second = (outcomes(volume, mode, caller) for volume in volumes)
    for name in NOT_OFFERED & first.keys():
        assert "done" not in (first.pop(name), second.pop(name))
    assert first == second
    return first


@pytest.mark.parametrize("mode", FILE_MODES, ids=oct)
def test_the_owner_of_a_file_may_do_the_same_whoever_checks(mount, mode):
    told = compared(mount, file_outcomes, mode, contextlib.nullcontext)
    assert told["execute"] == "EACCES" and not told["access X"] and told["access RW"]


@pytest.mark.parametrize("mode", FOLDER_MODES, ids=oct)
def test_the_owner_of_a_folder_may_do_the_same_whoever_checks(mount, mode):
    told = compared(mount, folder_outcomes, mode, contextlib.nullcontext)
    assert told["access RWX"] and told["enter"] == "done"


@pytest.mark.root_only
@pytest.mark.parametrize("mode", (0o644, 0o600), ids=oct)
def test_who_works_for_another_may_do_the_same_with_a_file_whoever_checks(mount, mode):
    told = compared(mount, file_outcomes, mode, working_for_another)
    assert told["open to read"] == "done" and told["open to write"] == "EACCES" and told["remove"] == "EACCES"
    assert told["chmod"] == "EPERM" and not told["access W as who works"] and told["access W"]


@pytest.mark.root_only
@pytest.mark.parametrize("mode", (0o755, 0o700), ids=oct)
def test_who_works_for_another_may_do_the_same_with_a_folder_whoever_checks(mount, mode):
    told = compared(mount, folder_outcomes, mode, working_for_another)
    assert told["list"] == "done" and told["look up"] == "done"
    assert {told[name] for name in ("create", "make a folder", "remove a member", "move a member out", "move a file in",
                                    "remove a folder", "rename a member")} == {"EACCES"}


def test_a_mount_for_reading_refuses_the_same_whoever_checks(mount):
    told = compared(mount, file_outcomes, 0o644, contextlib.nullcontext, options=["ro"])
    assert told["open to write"] == told["remove"] == told["chmod"] == "EROFS"
    assert told["access R"] and not told["access W"] and not told["access RW"]


def test_access_that_is_refused_for_reading_only_is_told_as_such(mount):
    volume = mount(options=["ro"])
    put(volume.backing / "file")
    assert libc.library.access(os.fsencode(volume.path / "file"), os.W_OK) == -1
    assert libc.ctypes.get_errno() == errno.EROFS


@pytest.mark.parametrize("options,checks", [([], False), (["ro", "quiet"], False), (["default_permissions"], True),
                                            (["uid=0"], True), (["gid=0"], True), (["fmask=0"], True),
                                            (["dmask=0"], True), (["umask=0"], True)])
def test_the_kernel_checks_where_somebody_might_be_refused_something(mount, options, checks):
    volume = mount(options=options)
    assert ("default_permissions" in mounted_with(volume)) == checks


@pytest.mark.root_only
def test_the_kernel_checks_where_others_get_in(mount):
    assert "default_permissions" in mounted_with(mount(options=["allow_other"]))


def mounted_with(volume):
    return system.mount_at(volume.path).super_options


def test_programs_can_be_executed_where_that_is_shown(mount):
    volume = mount(options=["fmask=022"])
    put(volume.path / "program", b"#!/bin/sh\nexit 7\n")
    assert subprocess.run([volume.path / "program"], check=False, timeout=20).returncode == 7
    assert os.access(volume.path / "program", os.X_OK)


def test_asking_for_access_asks_the_helper_for_nothing(controlled):
    put(controlled.path / "file")
    os.stat(controlled.path / "file")
    controlled.helper.forget()
    assert os.access(controlled.path / "file", os.R_OK | os.W_OK) and not os.access(controlled.path / "file", os.X_OK)
    assert os.access(controlled.path, os.R_OK | os.W_OK | os.X_OK)
    enter(controlled.path)
    assert controlled.helper.requests() == []


def test_no_change_of_names_makes_the_kernel_ask_for_the_folder(controlled):
    folder = controlled.path / "folder"
    folder.mkdir()
    put(folder / "first")
    os.stat(folder)
    controlled.helper.forget()
    for number in range(10):
        put(folder / str(number))
    for number in range(10):
        os.unlink(folder / str(number))
    assert [request for request in controlled.helper.requests("getattr") if request["path"] == "/folder"] == []


def test_a_folder_whose_names_changed_shows_its_new_time(mount):
    volume = mount()
    folder = volume.path / "folder"
    folder.mkdir()
    os.utime(volume.backing / "folder", (1000, 1000))
    os.utime(folder, (2000, 2000))
    assert os.stat(folder).st_mtime == 2000
    put(folder / "new")
    assert os.stat(folder).st_mtime == pytest.approx(os.stat(volume.backing / "folder").st_mtime, abs=0.01)
