"""What a helper tells its mount of changes, over the mount's control channel."""
from __future__ import annotations

import json
import queue
import re
import socket
import threading
import unittest
from typing import Any, NamedTuple
from urllib.parse import quote

from driver import PATIENCE, Driver, python, temporary_folder


class Request(NamedTuple):
    """What the mount was told, and the connection that it came by."""

    paths: list[str]
    peer: socket.socket

    def answer(self, said: dict[str, Any] | None = None) -> None:
        self.peer.sendall(json.dumps(said or {"ok": True, "forgotten": 1}).encode() + b"\n")

    def drop(self) -> None:
        self.peer.shutdown(socket.SHUT_RDWR)


class Channel:
    """A mount's end of the channel. The test takes each request and answers it."""

    def __init__(self, test: unittest.TestCase, listens: bool = True) -> None:
        self.address = temporary_folder(test) / "socket"
        self.connections = 0
        self._requests: queue.Queue[Request] = queue.Queue()
        self._server = socket.socket(socket.AF_UNIX)
        self._peers: list[socket.socket] = []
        test.addCleanup(self._close)
        if listens:
            self.listen()

    def listen(self) -> None:
        self._server.bind(str(self.address))
        self._server.listen()
        threading.Thread(target=self._serve, daemon=True).start()

    def _close(self) -> None:
        for each in [self._server, *self._peers]:
            each.close()

    def _serve(self) -> None:
        try:
            while True:
                peer, _ = self._server.accept()
                self.connections += 1
                self._peers.append(peer)
                threading.Thread(target=self._hear, args=(peer,), daemon=True).start()
        except OSError:
            pass  # closed

    def _hear(self, peer: socket.socket) -> None:
        try:
            peer.sendall(b'{"kemvi":"0.2.0","channel":1,"mountPoint":"/mnt"}\n')
            with peer.makefile("rb") as lines:
                for line in lines:
                    request = json.loads(line)
                    assert list(request) == ["op", "paths"] and request["op"] == "invalidate", request
                    self._requests.put(Request(request["paths"], peer))
        except OSError:
            pass  # the test has dropped it

    def request(self) -> Request:
        return self._requests.get(timeout=PATIENCE)


class Changed(unittest.TestCase):
    def start(self, channel: Channel | None, loop: str = "blocking") -> tuple[Driver, Any]:
        helper = Driver(self, python("changing_helper.py", loop), {"KEMVI_CONTROL": str(channel.address) if channel else ""})
        return helper, lambda paths: helper.ok("getattr", path="/tell/" + quote(json.dumps(paths), safe=""))

    def test_what_has_changed_is_told_in_its_order_and_once(self) -> None:
        for loop in ("blocking", "events"):
            channel = Channel(self)
            helper, tell = self.start(channel, loop)
            tell("/first")
            first = channel.request()
            self.assertEqual(first.paths, ["/first"])
            tell(["/b", "/a", "c/d", "/b"])
            tell(["/too", "/b"])
            first.answer()
            second = channel.request()
            self.assertEqual(second.paths, ["/b", "/a", "c/d", "/too"])
            second.answer()
            self.assertEqual(channel.connections, 1)
            self.assertEqual(helper.end(), 0, "an open connection does not keep it")
            self.assertEqual(helper.stderr, "")

    def test_nothing_is_asked_for_before_something_has_changed(self) -> None:
        channel = Channel(self)
        helper, tell = self.start(channel)
        tell([])
        self.assertEqual(helper.end(), 0)
        self.assertEqual(channel.connections, 0)

    def test_any_thread_may_tell(self) -> None:
        channel = Channel(self)
        helper, _ = self.start(channel)
        helper.ok("getattr", path="/tellFromThreads")
        told: list[str] = []
        while len(told) < 20:
            request = channel.request()
            told += request.paths
            request.answer()
        self.assertEqual(sorted(told), sorted(f"/{number}" for number in range(20)))
        self.assertEqual(channel.connections, 1)

    def test_very_many_paths_are_one_everything(self) -> None:
        channel = Channel(self)
        helper, tell = self.start(channel)
        tell("/before")
        first = channel.request()
        helper.ok("getattr", path="/tellMany")
        first.answer()
        self.assertEqual(channel.request().paths, ["/"])

    def test_many_bytes_of_paths_are_several_requests(self) -> None:
        channel = Channel(self)
        _, tell = self.start(channel)
        paths = [f"/{number}/" + "x" * 200 for number in range(500)]
        tell(paths)
        told: list[str] = []
        while len(told) < len(paths):
            request = channel.request()
            self.assertLessEqual(len("/".join(request.paths)), 64 * 1024)
            told += request.paths
            request.answer()
        self.assertEqual(told, paths)

    def test_what_was_not_answered_is_told_again_on_a_new_connection(self) -> None:
        channel = Channel(self)
        helper, tell = self.start(channel)
        tell("/a")
        first = channel.request()
        tell("/b")
        first.drop()
        again = channel.request()
        self.assertEqual(again.paths, ["/a", "/b"])
        again.answer()
        self.assertEqual(helper.end(), 0)

    def test_a_mount_that_is_not_there_yet_is_told_when_it_is(self) -> None:
        channel = Channel(self, listens=False)
        helper, tell = self.start(channel)
        tell("/a")
        helper.said(r"changed: the mount is not to be reached at .*socket \(ENOENT\); goes on trying\n")
        channel.listen()
        request = channel.request()
        self.assertEqual(request.paths, ["/a"])
        request.answer()
        self.assertEqual(helper.end(), 0)
        self.assertEqual(helper.stderr.count("not to be reached"), 1)

    def test_a_mount_that_never_comes_does_not_keep_the_helper(self) -> None:
        helper, tell = self.start(Channel(self, listens=False))
        tell("/a")
        helper.said("goes on trying")
        self.assertEqual(helper.end(), 0)

    def test_a_refusal_is_said_and_the_next_is_told(self) -> None:
        channel = Channel(self)
        helper, tell = self.start(channel)
        tell("/a")
        channel.request().answer({"ok": False, "error": {"message": "not this one", "code": "badMember"}})
        tell("/b")
        self.assertEqual(channel.request().paths, ["/b"])
        helper.said("changed: not this one\n")

    def test_what_is_no_path_is_said_once_thrown_never_and_harms_no_other(self) -> None:
        channel = Channel(self)
        helper, tell = self.start(channel)
        helper.ok("getattr", path="/tellOdd")
        tell(["", "/a/../b", "/nul\0", "/./a", "\ud800", "/good", "/..a"])
        told = channel.request()
        tell(["/a/../b"])
        self.assertEqual(told.paths[0], "/good")
        for said in ("expected a path, or several, not 3 ", "expected a path, or several, not None ", "not a Wordless ",
                     "4 is no path", '"" is empty', '"/a/../b" has a part', '"/nul\\u0000" holds a NUL',
                     '"/./a" has a part', '"\\ud800" is no well-formed text'):
            helper.said(re.escape(said))
            self.assertEqual(helper.stderr.count(said), 1, said)

    def test_without_a_mount_nothing_is_done_and_that_is_said_once(self) -> None:
        helper, tell = self.start(None)
        tell("/a")
        tell("/b")
        self.assertEqual(helper.end(), 0)
        self.assertEqual(helper.stderr.count("there is no mount to tell"), 1)


if __name__ == "__main__":
    unittest.main()
