"""Who may write through a mount cannot choose what the next mount runs: its configuration is shown and stays as it is."""

import errno
import json
import os
import subprocess
from pathlib import Path

import pytest

from harness.calls import failure, put
from harness.program import SHIPPED_HELPER

NAME = "mount-config.json"
FOLDING_STORE = Path(__file__).parent / "foldingStore.mjs"


@pytest.fixture
def served(mount, workspace):
    """A source directory that is itself served, as `kemvi init` has it by default, with a way to prove it unchanged."""
    volume = mount(backing=workspace / "source")
    volume.configuration = volume.backing / NAME
    volume.before = volume.configuration.read_bytes()
    yield volume
    assert volume.configuration.read_bytes() == volume.before
    assert volume.configuration.stat().st_mode & 0o777 == 0o644


def assert_untouchable(path):
    """Every call by which a program could change a file, or put another in its place."""
    for flags in (os.O_WRONLY, os.O_RDWR, os.O_WRONLY | os.O_TRUNC, os.O_WRONLY | os.O_APPEND, os.O_RDWR | os.O_CREAT):
        def write():
            descriptor = os.open(path, flags)
            try:
                os.write(descriptor, b"{}")
            finally:
                os.close(descriptor)
        assert failure(write) == errno.EPERM
    assert failure(os.truncate, path, 0) == errno.EPERM
    assert failure(os.truncate, path, 5) == errno.EPERM
    assert failure(os.truncate, path, 5000) == errno.EPERM
    assert failure(os.chmod, path, 0o666) == errno.EPERM
    assert failure(os.utime, path, (1, 1)) == errno.EPERM


def assert_in_place(path, other):
    put(other)
    assert failure(os.unlink, path) == errno.EPERM
    assert failure(os.rename, path, other.with_name("moved")) == errno.EPERM
    assert failure(os.rename, other, path) == errno.EPERM
    os.unlink(other)


def test_configuration_in_the_served_folder_is_read_and_never_changed(served):
    path = served.path / NAME
    assert path.read_bytes() == served.before
    assert_untouchable(path)
    assert_in_place(path, served.path / "other")
    assert path.read_bytes() == served.before


def test_configuration_stays_while_somebody_has_it_open(served):
    descriptor = os.open(served.path / NAME, os.O_RDONLY)
    assert_in_place(served.path / NAME, served.path / "other")
    os.close(descriptor)
    assert not served.hidden()


def test_other_ways_to_the_configuration_are_closed_too(served):
    (served.backing / "folder").mkdir()
    (served.backing / "folder" / "link").symlink_to("../" + NAME)
    (served.backing / "folder" / "up").symlink_to(".", target_is_directory=True)
    os.link(served.configuration, served.backing / "alias")
    assert_untouchable(served.path / "folder" / "link")
    assert_untouchable(served.path / "alias")
    assert_untouchable(served.path / "folder" / ".." / NAME)
    assert_untouchable(served.path / "." / NAME)


def test_what_is_removed_behind_the_mount_cannot_be_put_back_through_it(served):
    served.configuration.unlink()
    assert failure(os.open, served.path / NAME, os.O_WRONLY | os.O_CREAT) == errno.EPERM
    assert failure(os.mkdir, served.path / NAME) == errno.EPERM
    put(served.path / "other")
    assert failure(os.rename, served.path / "other", served.path / NAME) == errno.EPERM
    served.configuration.write_bytes(served.before)


def test_source_directory_within_the_served_folder_is_not_moved_away(mount, workspace):
    volume = mount(backing=workspace / "tree", name="")
    (volume.backing / "deep").mkdir()
    source = volume.backing / "deep" / "source"
    os.rename(volume.source, source)
    point = workspace / "point"
    point.mkdir()
    assert volume.program.run("mount", source, point).returncode == 0
    try:
        assert_untouchable(point / "deep" / "source" / NAME)
        assert_in_place(point / "deep" / "source" / NAME, point / "other")
        for folder in ("deep", "deep/source"):
            assert failure(os.rename, point / folder, point / "moved") == errno.EPERM
        put(point / "deep" / "source" / "file")
        os.rename(point / "deep" / "source" / "file", point / "deep" / "file")
    finally:
        assert volume.program.run("unmount", point).returncode == 0


def test_store_without_case_has_no_other_spelling(mount, workspace):
    store = mount(helper=FOLDING_STORE, environment={"KEMVI_TEST_INNER": SHIPPED_HELPER})
    source, point = store.path / "Source", workspace / "point"
    source.mkdir()
    point.mkdir()
    told = {"driveId": "d", "kemviHome": str(workspace), "repoRoot": str(store.path), "helperPath": SHIPPED_HELPER}
    put(source / NAME, json.dumps(told).encode())
    assert store.program.run("mount", source, point).returncode == 0
    try:
        for path in ("Source/" + NAME, "Source/MOUNT-CONFIG.JSON", "SOURCE/" + NAME, "source/Mount-Config.json"):
            assert json.loads((point / path).read_bytes()) == told
            assert_untouchable(point / path)
            assert_in_place(point / path, point / "other")
        assert failure(os.rename, point / "SOURCE", point / "moved") == errno.EPERM
        assert json.loads((source / NAME).read_bytes()) == told
    finally:
        assert store.program.run("unmount", point).returncode == 0


def run(*command, cwd):
    environment = dict(os.environ, GIT_CONFIG_NOSYSTEM="1", HOME=str(cwd), GIT_AUTHOR_NAME="a", GIT_AUTHOR_EMAIL="a@b",
                       GIT_COMMITTER_NAME="a", GIT_COMMITTER_EMAIL="a@b")
    return subprocess.run(command, cwd=cwd, env=environment, capture_output=True, text=True, check=False, timeout=60)


def test_programs_that_copy_whole_trees_work_beside_the_configuration(served, workspace):
    (served.path / "folder").mkdir()
    put(served.path / "folder" / "file")
    out = workspace / "out"
    for command in (["cp", "-r", f"{served.path}/.", out], ["rsync", "-a", f"{served.path}/", out],
                    ["rsync", "-a", f"{out}/", f"{served.path}/"], ["git", "init", "-q"], ["git", "add", "-A"],
                    ["git", "commit", "-q", "-m", "all"], ["git", "stash"], ["git", "status", "--short"]):
        done = run(*command, cwd=served.path)
        assert (done.returncode, done.stderr) == (0, ""), command
    assert done.stdout == ""
    assert (out / NAME).read_bytes() == served.before


@pytest.mark.root_only
def test_set_user_id_never_reaches_the_served_tree_and_goes_when_a_file_is_overwritten(mount):
    volume = mount(options=["allow_other", "fmask=0", "dmask=0"])
    program = put(volume.path / "program")
    os.chmod(program, 0o6755)
    assert (volume.backing / "program").stat().st_mode & 0o7777 == 0o755
    os.chmod(volume.backing / "program", 0o6755)
    put(program, b"other")
    assert (volume.backing / "program").stat().st_mode & 0o7777 == 0o755
