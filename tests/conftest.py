"""What every test of the real command gets: a folder of its own, a time limit, and the proof that nothing is left behind."""

import faulthandler
import os
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

import pytest

from harness import late, system
from harness.deadline import SLOWNESS, Late, eventually
from harness.length import IS_SHORT

DEFAULT_LIMIT = 60


def pytest_addoption(parser):
    parser.addoption("--plain", action="store_true",
                     help="run what can run on a plain directory there, to test the tests themselves")


def pytest_configure(config):
    config.addinivalue_line("markers", "limit(seconds): how long the test may take")
    config.addinivalue_line("markers", "long: takes long, so a short run leaves it out")
    config.addinivalue_line("markers", "root_only: needs root")
    config.addinivalue_line("markers", "user_only: is about an ordinary user")


def pytest_collection_modifyitems(items):
    for item in items:
        if item.get_closest_marker("root_only") and os.getuid() != 0:
            item.add_marker(pytest.mark.skip(reason="needs root"))
        if item.get_closest_marker("user_only") and os.getuid() == 0:
            item.add_marker(pytest.mark.skip(reason="is about an ordinary user"))
        if item.get_closest_marker("long") and IS_SHORT:
            item.add_marker(pytest.mark.skip(reason="is long, and this is a short run"))


def pytest_sessionfinish(session, exitstatus):
    """A run in which every test was skipped has not passed."""
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    ran = [kind for kind in ("passed", "failed", "error", "xfailed", "xpassed") if reporter.stats.get(kind)]
    if exitstatus == 0 and not ran:
        session.exitstatus = 77


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """What is late is shown with what its processes are at."""
    report = (yield).get_result()
    fault = call.excinfo.value if call.excinfo else None
    if isinstance(fault, (Late, subprocess.TimeoutExpired)) and "workspace" in item.funcargs:
        signal.setitimer(signal.ITIMER_REAL, 0)  # this test has failed, and looking takes its time
        for name in ("stdout", "stderr"):
            if said := getattr(fault, name, None):
                report.sections.append((f"{name} of what was late", said if isinstance(said, str) else said.decode(errors="replace")))
        report.sections.append(("what was late", getattr(fault, "seen", None) or late.look(item.funcargs["workspace"])))
        signal.setitimer(signal.ITIMER_REAL, DEFAULT_LIMIT * SLOWNESS)  # for what ends the test


@pytest.fixture
def limit(request):
    marker = request.node.get_closest_marker("limit")
    return (marker.args[0] if marker else DEFAULT_LIMIT) * SLOWNESS


@pytest.fixture(autouse=True)
def time_limit(limit):
    """Ends a test that hangs. Runs before every other fixture, so it covers their set-up too."""
    def ring(_number, _frame):
        raise Late(f"the test took longer than {limit} s")
    previous = signal.signal(signal.SIGALRM, ring)
    faulthandler.dump_traceback_later(limit + 3, exit=False, file=sys.__stderr__)
    signal.setitimer(signal.ITIMER_REAL, limit)
    yield
    signal.setitimer(signal.ITIMER_REAL, 0)
    faulthandler.cancel_dump_traceback_later()
    signal.signal(signal.SIGALRM, previous)


@pytest.fixture
def workspace(time_limit):
    """A private folder; what is left of mounts and processes in it when the test has ended fails the test."""
    folder = Path(tempfile.mkdtemp(prefix="kemvi-test-"))
    yield folder
    try:
        # A process that ends with the mount may take a moment more than the unmount did.
        eventually(lambda: not system.mounts(folder) and not system.processes(folder), 20)
        left = []
    except Late:
        left = system.clear_away(folder)
    shutil.rmtree(folder, ignore_errors=True)
    assert not left, f"left behind: {left}"
