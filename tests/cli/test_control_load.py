"""What the control channel bears: thousands of requests while git works on the mount, and hundreds of mounts that are asked at once."""

import ctypes
import json
import os
import re
import signal
import socket
import subprocess
import threading
import time
import urllib.request
from pathlib import Path

import pytest

from harness import system
from harness.deadline import LIMIT, SLOWNESS, eventually

PEERS = 4
PER_SECOND = 1000  # asked, as far as the machine comes along
ENOUGH = 3000  # answers, over as many clones as that takes
FILES = 300


@pytest.fixture(name="place")
def place_unmounted_at_the_end(place):
    yield place
    for point in system.mount_points(place.folder):
        place.unmount(point=point)


# Thousands of requests

class Asking(threading.Thread):
    """Asks status and stats in turn, at most at its share of the rate, on a connection of its own, and checks each answer."""

    def __init__(self, path, point, host):
        super().__init__()
        self.point, self.host = point, host
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(LIMIT)
        self.socket.connect(path)
        self.lines = self.socket.makefile("rb")
        assert json.loads(self.lines.readline())["channel"] == 1
        self.asked = self.answered = self.requests = 0
        self.problem = None
        self.done = threading.Event()

    def run(self):
        try:
            begin = time.monotonic()
            while not self.done.wait(max(0.0, begin + self.asked * PEERS / PER_SECOND - time.monotonic())):
                self.ask("stats" if self.asked % 2 else "status")
        except Exception as problem:  # pylint: disable=broad-except
            self.problem = problem

    def ask(self, op):
        self.asked += 1
        self.socket.sendall(b'{"op":"%s"}\n' % op.encode())
        answer = json.loads(self.lines.readline())
        assert answer["ok"] and answer["mountPoint"] == self.point, answer
        if op == "status":
            assert answer["host"]["pid"] == self.host and answer["state"] in ("serving", "waiting"), answer
            assert answer["requests"] >= self.requests, "what was counted is forgotten"
            self.requests = answer["requests"]
        else:
            for counts in answer["kernel"] + answer["exchanges"]:
                assert sum(bucket[2] for bucket in counts["histogram"]) == counts["count"], counts
        self.answered += 1

    def end(self):
        self.done.set()
        self.join(LIMIT)
        self.lines.close()
        self.socket.close()


def repository(folder):
    def git(*arguments):
        subprocess.run(["git", "-c", "user.name=t", "-c", "user.email=t@t", "-C", folder, *arguments], check=True,
                       capture_output=True, timeout=LIMIT)
    folder.mkdir()
    git("init", "-q")
    for number in range(FILES):
        (folder / f"{number}.txt").write_text(f"{number}\n" * number)
    git("add", "-A")
    git("commit", "-qm", "all")
    return folder


def threads_and_descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/task")), len(system.descriptors(pid))


@pytest.mark.limit(180)
def test_thousands_of_requests_are_answered_while_git_clones(place, workspace):
    if subprocess.run(["git", "--version"], capture_output=True, check=False).returncode != 0:
        pytest.skip("git is not installed")
    origin = repository(workspace / "origin")
    place.mount()
    host = place.host()
    environment = Path(f"/proc/{place.helper()}/environ").read_bytes().split(b"\0")
    path, = [entry.split(b"=", 1)[1].decode() for entry in environment if entry.startswith(b"KEMVI_CONTROL=")]
    threads, descriptors = threads_and_descriptors(host)
    peers = [Asking(path, str(place.point), host) for _ in range(PEERS)]
    eventually(lambda: threads_and_descriptors(host) == (threads, descriptors + PEERS), 30, "a descriptor for each, no thread")
    for peer in peers:
        peer.start()
    clones = 0
    most_threads = 0
    try:
        while sum(peer.answered for peer in peers) < ENOUGH and not any(peer.problem for peer in peers):
            clone = place.point / f"clone{clones}"
            clones += 1
            subprocess.run(["git", "clone", "-q", "--no-local", origin, clone], check=True, capture_output=True, timeout=120 * SLOWNESS)
            most_threads = max(most_threads, threads_and_descriptors(host)[0])
            subprocess.run(["git", "-C", clone, "fsck", "--strict"], check=True, capture_output=True, timeout=LIMIT)
            subprocess.run(["diff", "-r", "-x", ".git", origin, clone], check=True, timeout=LIMIT)
    finally:
        for peer in peers:
            peer.end()
    for peer in peers:
        assert peer.problem is None and peer.answered == peer.asked > 0, (peer.problem, peer.asked, peer.answered)
    # The helper's files may be open a moment longer.
    eventually(lambda: threads_and_descriptors(host) == (threads, descriptors), 30, "the descriptors and threads of before")
    assert most_threads == threads


# Two hundred mounts

MOUNTS, SILENT = 200, 60


def be_a_mount(folder, number, is_silent, ready):
    """What a process that serves a mount shows of itself, as far as other commands go by it. Never returns."""
    ctypes.CDLL(None).prctl(15, f"kemvi-{9000 + number}".encode(), 0, 0, 0)  # PR_SET_NAME
    path = f"{folder}/{os.getpid()}.sock"
    point = f"{folder}/{number:03}"
    record = os.memfd_create("kemvi-mount")
    os.write(record, b"-".ljust(12) + point.encode() + b"\0" + path.encode())
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(path)
    listener.listen(16)
    os.write(ready, b"x")
    while is_silent:
        signal.pause()
    while True:
        peer, _ = listener.accept()
        with peer, peer.makefile("rb") as lines:
            peer.sendall(json.dumps({"kemvi": "0", "channel": 1, "mountPoint": point}).encode() + b"\n")
            if lines.readline():
                peer.sendall(json.dumps({"ok": True, "state": "serving", "source": "/s", "mountPoint": point}).encode() + b"\n")


@pytest.fixture(name="mounts")
def many_mounts(workspace):
    """Processes that look like those of mounts, the last of them silent; yields the folder that they name."""
    reading, writing = os.pipe()
    pids = []
    for number in range(MOUNTS):
        pid = os.fork()
        if pid == 0:
            try:
                be_a_mount(workspace, number, number >= MOUNTS - SILENT, writing)
            finally:
                os._exit(1)
        pids.append(pid)
    os.close(writing)
    count = 0
    while count < MOUNTS:
        told = len(os.read(reading, MOUNTS))
        assert told, "one of them has ended"
        count += told
    yield workspace
    for pid in pids:
        os.kill(pid, signal.SIGKILL)
        os.waitpid(pid, 0)
    os.close(reading)


def most_threads_until_end(process):
    """Reads what the process writes meanwhile."""
    written = []
    reader = threading.Thread(target=lambda: written.append(process.stdout.read()))
    reader.start()
    most = 0
    while process.poll() is None:
        try:
            most = max(most, len(os.listdir(f"/proc/{process.pid}/task")))
        except FileNotFoundError:
            break
        time.sleep(0.01)
    reader.join(LIMIT)
    process.wait(LIMIT)
    return most, written[0]


def test_two_hundred_mounts_are_listed_in_the_time_of_one(place, mounts):
    begin = time.monotonic()
    process = place.start("list", "--json")
    threads, text = most_threads_until_end(process)
    taken = time.monotonic() - begin
    process.stderr.close()
    assert process.returncode == 0
    told = {one["mountPoint"]: one["state"] for one in json.loads(text) if one["mountPoint"].startswith(str(mounts))}
    assert told == {f"{mounts}/{number:03}": "silent" if number >= MOUNTS - SILENT else "serving" for number in range(MOUNTS)}
    assert threads == 1
    assert taken < 5 * SLOWNESS, "the silent ones take a second together"


def test_two_hundred_mounts_are_served_to_prometheus_in_the_time_of_one(place, mounts):
    process = place.start("metrics", "--listen", "127.0.0.1:0")
    url = re.fullmatch(r"kemvi: serving (\S+)\n", process.stderr.readline()).group(1)
    most = 0
    pages = []
    fetching = threading.Thread(target=lambda: pages.append(urllib.request.urlopen(url, timeout=LIMIT).read().decode()))
    begin = time.monotonic()
    fetching.start()
    while fetching.is_alive():
        most = max(most, len(os.listdir(f"/proc/{process.pid}/task")))
        time.sleep(0.01)
    taken = time.monotonic() - begin
    process.terminate()
    process.communicate(timeout=LIMIT)
    up = dict(re.findall(r'^kemvi_up\{mountpoint="(\S+)"\} (\d)$', pages[0], re.M))
    assert [up[f"{mounts}/{number:03}"] for number in range(MOUNTS)] == ["1"] * (MOUNTS - SILENT) + ["0"] * SILENT
    assert most == 1
    assert taken < 5 * SLOWNESS, "the silent ones take a second together"
