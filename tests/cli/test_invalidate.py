"""kemvi invalidate: what it takes, and what it says to what it does not take. That it works: tests/mount/invalidation."""

import json
import os
import socket

import pytest

from harness.place import assert_fails


@pytest.fixture
def mounted(place):
    place.mount()
    yield place
    place.unmount()


def test_a_path_or_all_is_needed_and_not_both(mounted):
    assert_fails(mounted.run("invalidate", mounted.point), 2, mounted.point, "which paths", "--all")
    assert_fails(mounted.run("invalidate", mounted.point, "--all", "/a"), 2, "--all", "everything")
    assert_fails(mounted.run("invalidate"), 2, "MOUNTPOINT")


@pytest.mark.parametrize("path, problem", [
    ("", "is empty"), ("..", 'has the part ".."'), ("/a/../b", 'has the part ".."'), ("./a", 'has the part "."'),
    (b"caf\xe9", "is not UTF-8"),
])
def test_what_is_no_path_of_the_tree_is_refused_by_name(mounted, path, problem):
    path = os.fsdecode(path)
    result = mounted.run("invalidate", mounted.point, "/good", path)
    assert result.returncode == 2 and problem in result.stderr


def test_paths_that_only_look_odd_are_taken(mounted):
    result = mounted.run("invalidate", mounted.point, "..a", "/a..", "...", "//a//b/", "-")
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")


def test_more_paths_than_one_request_holds_are_taken(mounted):
    result = mounted.run("invalidate", mounted.point, *(f"/{number}/" + "\n" * 200 for number in range(2000)))
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")


def test_nothing_mounted_is_code_9(place):
    assert_fails(place.run("invalidate", place.point, "--all"), 9, place.point, "nothing is mounted")


def channel_of(place):
    """The socket of the mount, as its helper knows it."""
    with open(f"/proc/{place.helper()}/environ", "rb") as environment:
        entries = dict(entry.split(b"=", 1) for entry in environment.read().split(b"\0") if b"=" in entry)
    return entries[b"KEMVI_CONTROL"]


def ask(place, request):
    with socket.socket(socket.AF_UNIX) as peer:
        peer.settimeout(20)
        peer.connect(channel_of(place))
        lines = peer.makefile("rw")
        assert json.loads(lines.readline())["channel"] == 1
        lines.write(json.dumps(request) + "\n")
        lines.flush()
        return json.loads(lines.readline())


@pytest.mark.parametrize("members, named", [
    ({}, "paths"), ({"paths": []}, "paths"), ({"paths": ["/a"], "all": True}, "all"), ({"paths": ["/a", "/b\0"]}, "NUL"),
    ({"paths": ["/a/.."]}, '".."'), ({"paths": "/a"}, "paths"), ({"paths": [3]}, "paths"), ({"all": 1}, "all"),
    ({"paths": ["/a"], "beneath": True}, "beneath"),
])
def test_channel_refuses_by_name_what_is_no_invalidation(mounted, members, named):
    answer = ask(mounted, {"op": "invalidate", **members})
    assert answer["ok"] is False and named in answer["error"]["message"]


def test_channel_tells_how_much_was_forgotten(mounted):
    (mounted.tree / "file").write_bytes(b"")
    os.stat(mounted.point / "file")
    assert ask(mounted, {"op": "invalidate", "paths": ["file"]}) == {"ok": True, "forgotten": 2}
    assert ask(mounted, {"op": "invalidate", "all": True})["ok"] is True
