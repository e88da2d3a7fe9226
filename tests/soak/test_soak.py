"""The soak finds what it is there to find, and ends as it says."""

import contextlib
import os
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path
from types import SimpleNamespace

import pytest

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

# pylint: disable=wrong-import-position
import operations  # noqa: E402
import recovery  # noqa: E402
import soak  # noqa: E402
from control import Control  # noqa: E402
from served import Fault, mounts_below, processes_of  # noqa: E402

COMMAND = [sys.executable, "-B", str(HERE / "soak.py"), "--binary", os.environ["KEMVI_BIN"],
           "--sdk", os.environ["KEMVI_SDK"], "--load", "1"]
LIMIT = 240

needs_mounts = pytest.mark.skipif(not os.path.exists("/dev/fuse"), reason="this machine has no /dev/fuse")


def run_soak(folder, *arguments):
    return subprocess.run([*COMMAND, "--folder", str(folder), *arguments], stdin=subprocess.DEVNULL, capture_output=True,
                          text=True, timeout=LIMIT, check=False)


def assert_nothing_left(folder):
    assert not mounts_below(folder)
    assert not [pid for run in folder.iterdir() for pid in processes_of(run)]


@needs_mounts
@pytest.mark.parametrize("fault", ["wrong", "lost"])
def test_a_helper_that_serves_something_else_is_found(tmp_path, fault):
    done = run_soak(tmp_path, "0.02", "--seed", "3", "--programs", "tar,keeper", "--fault", fault)
    assert done.returncode == 1, done.stdout + done.stderr
    assert "FAILED after" in done.stdout and "seed 3" in done.stdout
    assert "on the mount:" in done.stdout and "plain:" in done.stdout
    (kept,) = tmp_path.iterdir()
    assert f"kept: {kept}" in done.stdout
    assert_nothing_left(tmp_path)


@needs_mounts
def test_kills_of_every_kind_lose_nothing_that_was_done(tmp_path):
    done = run_soak(tmp_path, "0.005", "--seed", "5", "--only-kills", "--programs", "editor,files,kept,database")
    assert done.returncode == 0, done.stdout + done.stderr
    assert done.stdout.endswith("clean\n") and '"kills": {"' in done.stdout
    assert not list(tmp_path.iterdir())


@needs_mounts
def test_an_interrupt_ends_it_and_leaves_nothing(tmp_path):
    running = subprocess.Popen([*COMMAND, "--folder", str(tmp_path), "1"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               text=True, start_new_session=True)
    end = time.monotonic() + 60
    while not mounts_below(tmp_path) and time.monotonic() < end:
        time.sleep(0.1)
    running.send_signal(signal.SIGINT)
    told, _ = running.communicate(timeout=LIMIT)
    assert running.returncode == 130 and told.endswith("interrupted\n")
    assert not list(tmp_path.iterdir()) and not mounts_below(tmp_path)


@pytest.fixture(name="folders")
def make_folders(tmp_path):
    control = Control(tmp_path)
    control.make()
    for folder in (control.tree / "work" / "editor", control.plain / "editor"):
        folder.mkdir()
        (folder / "done").write_bytes(b"finished")
        (folder / "text").write_bytes(b"old")
    return control


def check_after_kill(control, pending):
    folder = recovery.Afterwards(control, "editor", pending, may_lose=False)
    folder.prepare()
    folder.check_tree()


NEW = 7, 5000  # seed and length of what is written
PENDING = {"op": "write_whole", "arguments": ["text", *NEW]}


@pytest.mark.parametrize("left", [b"old", b"", operations.data(*NEW)[:1024], operations.data(*NEW)],
                         ids=["not begun", "emptied", "in part", "done"])
def test_after_a_kill_the_operation_under_way_may_be_done_in_part(folders, left):
    (folders.tree / "work/editor/text").write_bytes(left)
    check_after_kill(folders, PENDING)


@pytest.mark.parametrize("name, left", [("text", b"other"), ("text", operations.data(*NEW) + b"more"), ("done", b"finishe"),
                                        ("done", b"Finished"), ("more", b"")],
                         ids=["foreign", "too long", "short", "changed", "new"])
def test_after_a_kill_nothing_else_may_be_there(folders, name, left):
    (folders.tree / "work/editor" / name).write_bytes(left)
    with pytest.raises(AssertionError, match=f"{name}: is"):
        check_after_kill(folders, PENDING)


def test_after_a_kill_nothing_that_was_done_may_be_missing(folders):
    (folders.tree / "work/editor/done").unlink()
    with pytest.raises(AssertionError, match="done: is absent"):
        check_after_kill(folders, None)


def test_a_rename_under_way_is_done_or_not(folders):
    pending = {"op": "rename", "arguments": ["text", "done"]}
    check_after_kill(folders, pending)
    shutil.rmtree(folders.folder / "after")
    os.rename(folders.tree / "work/editor/text", folders.tree / "work/editor/done")
    check_after_kill(folders, pending)
    shutil.rmtree(folders.folder / "after")
    (folders.tree / "work/editor/done").unlink()
    with pytest.raises(AssertionError, match="done: is absent"):
        check_after_kill(folders, pending)


@pytest.mark.parametrize("last, found", [(9000, False), (9193, True)])
def test_memory_that_grows_from_rest_to_rest_is_found(last, found):
    rests = [{"host memory": host, "helper memory": 20000, "host descriptors": 9, "helper descriptors": 9}
             for host in (1000, 5000, last)]
    phase = soak.Phase(60, None, (), 20)
    told = contextlib.nullcontext() if not found else pytest.raises(Fault, match="host memory grew from 1000 to 9193 KiB")
    with told:
        soak.Soak.check_growth(SimpleNamespace(figures=[], number=1), phase, rests)


BEFORE, AFTER = b"a" * 2000, b"b" * 3000


@pytest.mark.parametrize("content, allowed", [
    (BEFORE, True),
    (AFTER, True),
    (b"b" * 1024 + b"a" * 976, True),  # written as far as the second block
    (b"a" * 2000 + b"\0" * 24 + b"b" * 512, False),  # half a block is no version's
    (b"a" * 1999, False),  # a size that was never meant
    (b"c" * 2000, False),
    (b"b" * 512 + b"c" * 512 + b"a" * 976, False),
], ids=["before", "after", "begun", "half a block", "a byte short", "foreign", "foreign block"])
def test_a_file_is_a_mixture_of_what_it_was_and_was_to_be(content, allowed):
    assert recovery.is_mixture(content, [BEFORE, AFTER]) == allowed


def test_the_head_of_a_file_that_was_made_shorter_is_taken_up_as_documented(tmp_path):
    (tmp_path / "emptied").write_bytes(b"")
    (tmp_path / ".kemvi-hidden-1-head-of-emptied").write_bytes(b"head")
    (tmp_path / "whole").write_bytes(b"whole file")
    (tmp_path / ".kemvi-hidden-2-head-of-whole").write_bytes(b"whole")
    (tmp_path / ".kemvi-hidden-3").write_bytes(b"removed")
    assert recovery.take_up_hidden(tmp_path) == 3
    assert recovery.tree_of(tmp_path) == {"emptied": b"head", "whole": b"whole file"}
