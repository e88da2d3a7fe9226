"""A tree behind a slow network: the example that shows what a web server holds, each answer of which takes a while."""

import os
import subprocess
from pathlib import Path

import pytest

from harness.volume import Volume

EXAMPLE = Path(__file__).resolve().parents[3] / "examples" / "http"
DELAY = 50  # milliseconds
FOLDERS, FILES = 10, 50


@pytest.fixture
def tree(workspace):
    top = workspace / "served"
    for folder in range(FOLDERS):
        (top / f"d{folder}").mkdir(parents=True)
        for file in range(FILES):
            (top / f"d{folder}" / f"f{file:02}").write_text(f"file {file} of {folder}\n" * 20)
    (top / "large").write_bytes(bytes(index % 251 for index in range(3_000_000)))
    return top


@pytest.fixture
def server(tree):
    """Its address."""
    command = ["node", str(EXAMPLE / "server.mjs"), str(tree), "0", str(DELAY)]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as process:
        try:
            yield process.stdout.readline().strip()
        finally:
            process.kill()


@pytest.fixture
def helper(workspace):
    """The example where it finds the kit."""
    folder = workspace / "helper"
    (folder / "node_modules").mkdir(parents=True)
    (folder / "node_modules" / "kemvi-helper").symlink_to(Path(os.environ["KEMVI_HELPER"]).parents[1])
    (folder / "tree.mjs").write_text((EXAMPLE / "tree.mjs").read_text())
    return folder / "tree.mjs"


@pytest.fixture
def slow(mount, server, helper):
    return mount(helper=helper, environment={"HTTP_TREE": server})


def test_five_hundred_files_are_searched_in_less_than_their_delays(slow):
    limit = FOLDERS * FILES * DELAY / 1000 / 2  # one after the other they would take twice that, without any work
    done = subprocess.run(["grep", "-rc", "file", "--exclude=large", "."], cwd=slow.path, capture_output=True, text=True,
                          timeout=limit, check=True)
    lines = done.stdout.split()
    assert len(lines) == FOLDERS * FILES
    assert all(line.endswith(":20") for line in lines)


def test_it_is_what_the_server_holds(slow, tree):
    done = subprocess.run(["diff", "-r", str(tree), str(slow.path)], capture_output=True, text=True, timeout=50, check=False)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_what_is_not_there_and_what_cannot_be_changed(slow):
    with pytest.raises(FileNotFoundError):
        (slow.path / "d1" / "none").stat()
    with pytest.raises(OSError):
        (slow.path / "new").write_text("text")
    with pytest.raises(OSError):
        (slow.path / "large").unlink()
