"""Fixtures of the mount tests. Every test gets folders of its own, a time limit, and is held to leave nothing behind."""

import faulthandler
import os
import signal
import sys
import tempfile
from pathlib import Path

import pytest

from harness import system
from harness.volume import PlainVolume, Program, Volume, clear_workspace

DEFAULT_LIMIT = 60

# Sanitizers make everything several times slower; limits grow with it, nothing else changes.
SLOWNESS = float(os.environ.get("KEMVI_TEST_SLOWNESS", "1"))


def pytest_addoption(parser):
    parser.addoption("--plain", action="store_true",
                     help="run what can run on a plain directory there, to test the tests themselves")


def pytest_configure(config):
    config.addinivalue_line("markers", "limit(seconds): how long the test may take")
    config.addinivalue_line("markers", "root_only: needs root")
    config.addinivalue_line("markers", "user_only: is about an ordinary user")


def pytest_collection_modifyitems(items):
    for item in items:
        if item.get_closest_marker("root_only") and os.getuid() != 0:
            item.add_marker(pytest.mark.skip(reason="needs root"))
        if item.get_closest_marker("user_only") and os.getuid() == 0:
            item.add_marker(pytest.mark.skip(reason="is about an ordinary user"))


def pytest_sessionfinish(session, exitstatus):
    """A run in which every test was skipped has not passed."""
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    ran = [kind for kind in ("passed", "failed", "error", "xfailed", "xpassed") if reporter.stats.get(kind)]
    if exitstatus == 0 and not ran:
        session.exitstatus = 77


@pytest.fixture(scope="session")
def binary():
    found = os.environ.get("KEMVI_BIN")
    if not found:
        pytest.exit("KEMVI_BIN does not name the kemvi command", 2)
    return found


@pytest.fixture(scope="session")
def local_helper():
    found = os.environ.get("KEMVI_HELPER")
    if not found:
        pytest.exit("KEMVI_HELPER does not name the helper script", 2)
    return found


@pytest.fixture
def limit(request):
    marker = request.node.get_closest_marker("limit")
    return (marker.args[0] if marker else DEFAULT_LIMIT) * SLOWNESS


@pytest.fixture(autouse=True)
def time_limit(limit):
    """Ends a test that hangs. Runs before every other fixture, so it covers their set-up too."""
    def late(_number, _frame):
        raise AssertionError(f"the test took longer than {limit} s")
    previous = signal.signal(signal.SIGALRM, late)
    faulthandler.dump_traceback_later(limit + 3, exit=False, file=sys.__stderr__)
    signal.setitimer(signal.ITIMER_REAL, limit)
    yield
    signal.setitimer(signal.ITIMER_REAL, 0)
    faulthandler.cancel_dump_traceback_later()
    signal.signal(signal.SIGALRM, previous)


@pytest.fixture
def workspace(time_limit):
    """A private folder; what is left of mounts and processes in it when the test has ended fails the test."""
    folder = Path(tempfile.mkdtemp(prefix="kemvi-mount-"))
    yield folder
    left = system.mount_points(folder)
    left += [f"{pid}: {system.command_of(pid)}" for pid in system.processes(folder)]
    if left:
        # A process that ends with the mount may take a moment more than the unmount did.
        try:
            from harness.deadline import eventually
            eventually(lambda: not system.mount_points(folder) and not system.processes(folder), 5)
            left = []
        except AssertionError:
            pass
    clear_workspace(folder)
    assert not left, f"left behind: {left}"


@pytest.fixture
def program(workspace, binary, local_helper):
    """The command itself, for tests of its life."""
    return Program(binary, local_helper, workspace)


def close_leaked(workspace):
    """A test that failed may have left descriptors open; they are not to make its unmount fail too."""
    for descriptor, target in system.descriptors(os.getpid()).items():
        if target.startswith(str(workspace) + "/"):
            try:
                os.close(descriptor)
            except OSError:
                pass


@pytest.fixture
def mount(request, workspace, limit):
    """Makes volumes: mount(options=["ro"], control=True). Not to be had on a plain directory."""
    if request.config.getoption("--plain"):
        pytest.skip("needs a mount")
    made = []
    binary, local_helper = request.getfixturevalue("binary"), request.getfixturevalue("local_helper")

    def make(**more):
        more.setdefault("name", str(len(made) or ""))
        volume = Volume(workspace, binary, local_helper, **more)
        made.append(volume)
        return volume.open(limit)

    yield make
    close_leaked(workspace)
    faults = []
    for volume in reversed(made):
        try:
            volume.close()
        except AssertionError as fault:
            faults.append(str(fault))
    assert not faults, "\n".join(faults)


@pytest.fixture
def volume(request, workspace):
    """A volume with the shipped helper and no options; with --plain a plain directory."""
    if request.config.getoption("--plain"):
        yield PlainVolume(workspace)
    else:
        yield request.getfixturevalue("mount")()


@pytest.fixture
def controlled(mount):
    """A volume whose helper tells what it was asked and misbehaves on demand."""
    return mount(control=True)
