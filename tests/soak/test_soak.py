"""The soak finds what it is there to find, and ends as it says."""

import os
import signal
import subprocess
import sys
import time
from pathlib import Path

import pytest

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

import recovery  # noqa: E402  pylint: disable=wrong-import-position
from served import mounts_below, processes_of  # noqa: E402  pylint: disable=wrong-import-position

COMMAND = [sys.executable, "-B", str(HERE / "soak.py"), "--binary", os.environ["KEMVI_BIN"],
           "--sdk", os.environ["KEMVI_SDK"], "--load", "1"]
LIMIT = 240

needs_mounts = pytest.mark.skipif(not os.path.exists("/dev/fuse"), reason="this machine has no /dev/fuse")


def soak(folder, *arguments):
    return subprocess.run([*COMMAND, "--folder", str(folder), *arguments], stdin=subprocess.DEVNULL, capture_output=True,
                          text=True, timeout=LIMIT, check=False)


def assert_nothing_left(folder):
    assert not mounts_below(folder)
    assert not [pid for run in folder.iterdir() for pid in processes_of(run)]


@needs_mounts
@pytest.mark.parametrize("fault", ["wrong", "lost"])
def test_a_helper_that_serves_something_else_is_found(tmp_path, fault):
    done = soak(tmp_path, "0.02", "--seed", "3", "--programs", "tar,keeper", "--fault", fault)
    assert done.returncode == 1, done.stdout + done.stderr
    assert "FAILED after" in done.stdout and "seed 3" in done.stdout
    assert "on the mount:" in done.stdout and "plain:" in done.stdout
    (kept,) = tmp_path.iterdir()
    assert f"kept: {kept}" in done.stdout
    assert_nothing_left(tmp_path)


@needs_mounts
def test_kills_of_every_kind_lose_nothing_that_was_done(tmp_path):
    done = soak(tmp_path, "0.005", "--seed", "5", "--only-kills", "--programs", "editor,files,kept,database")
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


BEFORE, AFTER = b"a" * 2000, b"b" * 3000


@pytest.mark.parametrize("content, allowed", [
    (BEFORE, True),
    (AFTER, True),
    (b"b" * 1024 + b"a" * 976, True),  # written as far as the second block
    (b"a" * 2000 + b"\0" * 24 + b"b" * 512, False),  # half a block is no version's
    (b"a" * 1999, False),  # a size that was never meant
    (b"c" * 2000, False),
    (b"b" * 512 + b"c" * 512 + b"a" * 976, False),
])
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
