"""Keeps a run of tests together: nothing that it starts outlives it, whether the run ends or is killed."""

import ctypes
import os
import signal
import sys
import time

from . import system
from .deadline import SLOWNESS

SIGNAL_AT_PARENTS_DEATH, BECOME_SUBREAPER = 1, 36  # prctl(2)
ENDING = 5 * SLOWNESS  # seconds for what ends by itself
WATCHERS = 10          # seconds for those that take mounts away


class _Killed(BaseException):
    """Whoever asked for the run is gone."""


def kept(run):
    """Calls `run` in a process of its own and returns the exit code that it answers, or 1 where processes were left behind,
    which are told and ended. Should this process be killed, all that was started ends."""
    parent = os.getpid()
    keeper = _in_child(lambda: _keep(run, parent))
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # the run's own, in the same group
    code = os.waitstatus_to_exitcode(os.waitpid(keeper, 0)[1])
    return code if code >= 0 else 1


def _in_child(work):
    sys.stdout.flush()
    sys.stderr.flush()
    child = os.fork()
    if child != 0:
        return child
    code = 1
    try:
        code = work()
    except SystemExit as end:
        code = end.code
    except BaseException:  # the interpreter's own way out is the parent's
        sys.excepthook(*sys.exc_info())
    finally:
        sys.stdout.flush()
        sys.stderr.flush()
        os._exit(code if isinstance(code, int) else 1)


# A process between the caller and the run: what loses its parent becomes its child, so all there is can be found.
def _keep(run, parent):
    def killed(_number, _frame):
        signal.signal(signal.SIGTERM, signal.SIG_IGN)  # another one comes where the whole group was sent the first
        raise _Killed
    libc = ctypes.CDLL(None)
    libc.prctl(BECOME_SUBREAPER, 1)
    signal.signal(signal.SIGTERM, killed)
    try:
        libc.prctl(SIGNAL_AT_PARENTS_DEATH, signal.SIGTERM)
        if os.getppid() != parent:
            return 1
        worker = _in_child(lambda: _begin(run))
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        ended, status = os.wait()
        while ended != worker:
            ended, status = os.wait()
        code = abs(os.waitstatus_to_exitcode(status))
        _wait_for(lambda: not _descendants(), ENDING)
    except _Killed:
        _end(_descendants())
        return 1
    left = _descendants()
    for pid in left:
        print(f"FAILED: left behind by the run: process {pid}: {system.command_of(pid)}")
    _end(left)
    return 1 if left and code == 0 else code


def _begin(run):
    signal.signal(signal.SIGTERM, signal.SIG_DFL)
    return run()


def _descendants():
    """All live processes that this one or its children have started, those without a parent left among them."""
    _collect()
    of = {}
    for entry in filter(str.isdigit, os.listdir("/proc")):
        if system.is_alive(entry):
            of.setdefault(system.parent_of(entry), []).append(int(entry))
    found = []
    waiting = [os.getpid()]
    while waiting:
        more = of.get(waiting.pop(), [])
        found += more
        waiting += more
    return found


def _collect():
    try:
        while os.waitpid(-1, os.WNOHANG)[0] != 0:
            pass
    except ChildProcessError:
        pass


def _wait_for(condition, seconds):
    end = time.monotonic() + seconds
    while not condition() and time.monotonic() < end:
        time.sleep(0.02)


def _end(pids):
    """Those that watch over a mount last: they take it away when its process is gone."""
    watchers = {pid for pid in pids if system.name_of(pid) == "kemvi-watch"}
    _kill(set(pids) - watchers)
    _wait_for(lambda: not _descendants(), WATCHERS if watchers else 1)
    _kill(_descendants())
    _collect()


def _kill(pids):
    for pid in pids:
        try:
            os.kill(pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
