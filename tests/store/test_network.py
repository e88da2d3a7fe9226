"""A network that stops answering: packets vanish, nobody says so. In a network of the test's own, with engines of its own."""

import ctypes
import errno
import os
import subprocess
import time

import pytest

from harness.calls import failure, put
from harness.deadline import SLOWNESS, eventually
from harness.worker import Worker
from machines import IS_LOCAL

NEW_NETWORK = 0x40000000
RECONNECT = 4
LOST = ["lost", "connection", "ECONN", "server", "terminat", "EIO", "timeout", "again", "answer"]

libc = ctypes.CDLL(None, use_errno=True)


class Network:
    """One of this thread's, and of what it starts, with nothing but the machine itself in it."""

    def __init__(self):
        self.before = os.open("/proc/self/ns/net", os.O_RDONLY | os.O_CLOEXEC)
        if libc.unshare(NEW_NETWORK) != 0:
            pytest.skip("no network of its own can be had: " + os.strerror(ctypes.get_errno()))
        # Another process runs what changes it: whoever is started while a file is open gives back a copy of its descriptor,
        # which is an occasion to write it.
        self.shell = subprocess.Popen(["sh"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1,
                                      env=os.environ | {"PATH": "/usr/sbin:/sbin:/usr/bin:/bin"})
        self.run("ip link set lo up")

    def run(self, command):
        self.shell.stdin.write(f"{command}; echo $?\n")
        assert self.shell.stdout.readline() == "0\n", command

    def lose_everything(self):
        """Every packet is larger than what may pass, and none is refused."""
        self.run("tc qdisc add dev lo root tbf rate 8bit burst 1b latency 1ms")

    def pass_again(self):
        self.run("tc qdisc del dev lo root")

    def leave(self):
        self.shell.stdin.close()
        self.shell.stdout.close()
        self.shell.wait(10)
        libc.setns(self.before, NEW_NETWORK)
        os.close(self.before)


@pytest.fixture
def network(time_limit):
    made = Network()
    yield made
    made.leave()


@pytest.fixture
def store(network, make_store, own_postgres):
    if IS_LOCAL:
        pytest.skip("a folder is behind no network")
    return make_store(own_postgres.without_password("tcp").replace("postgresql:", "postgres:"),
                      secrets={"PGPASSWORD": own_postgres.password()})


@pytest.fixture
def store_in_s3(network, make_store, own_postgres, own_s3):
    return make_store(own_postgres.url().replace("postgresql:", "postgres:"), s3=own_s3)


def ends_in_time(call, *arguments):
    begin = time.monotonic()
    assert failure(call, *arguments) == errno.EIO
    took = time.monotonic() - begin
    assert took < RECONNECT + 3 * SLOWNESS, f"took {took} s"


@pytest.mark.root_only
@pytest.mark.limit(240)
def test_a_silent_network_is_an_error_in_time_and_forgotten_when_it_speaks_again(store, network):
    one, other = store.several(2, reconnect=RECONNECT)
    for machine in (one, other):
        machine.expect_log(*LOST)
    put(one.path / "file", b"old")
    assert (other.path / "file").read_bytes() == b"old"
    network.lose_everything()
    try:
        ends_in_time(os.mkdir, one.path / "folder")
        descriptor = os.open(one.path / "never", os.O_RDONLY) if (one.path / "never").exists() else None
        assert descriptor is None
    except OSError as error:
        assert error.errno == errno.EIO
    finally:
        network.pass_again()
    eventually(lambda: performed(os.mkdir, one.path / "folder") in (None, errno.EEXIST), 30, "an answer")
    put(one.path / "file", b"new")
    eventually(lambda: (other.path / "file").read_bytes() == b"new", 30, "what was written meanwhile")


@pytest.mark.root_only
@pytest.mark.limit(240)
def test_who_waits_for_a_silent_network_can_be_killed(store, network):
    machine, = store.several(1, reconnect=20)
    machine.expect_log(*LOST)
    network.lose_everything()
    try:
        waiting = Worker(os.mkdir, str(machine.path / "folder"))
        time.sleep(0.5)
        assert not waiting.is_done()
        waiting.kill()
        assert waiting.is_gone(2 * SLOWNESS)
    finally:
        network.pass_again()
    eventually(lambda: performed(os.mkdir, machine.path / "folder") in (None, errno.EEXIST), 40, "an answer")


@pytest.mark.root_only
@pytest.mark.long
@pytest.mark.limit(300)
def test_what_did_not_reach_the_objects_is_told_and_can_be_written_again(store_in_s3, network):
    machine, = store_in_s3.several(1, reconnect=RECONNECT)
    machine.expect_log(*LOST)
    descriptor = os.open(machine.path / "file", os.O_RDWR | os.O_CREAT)
    network.lose_everything()
    try:
        os.write(descriptor, b"x" * 400_000)
        ends_in_time(os.fsync, descriptor)
    finally:
        network.pass_again()
    eventually(lambda: performed(os.fsync, descriptor) is None, 30, "objects that are kept")
    os.close(descriptor)
    assert store_in_s3.machine().path.joinpath("file").read_bytes() == b"x" * 400_000
    store_in_s3.check()


def performed(call, *arguments):
    try:
        call(*arguments)
    except OSError as error:
        return error.errno
    return None
