"""A program of the soak as a process of its own."""

import ctypes
import os
import random
import resource
import signal
import time
import traceback

import programs
from pair import Discrepancy, Interrupted, Pair

PR_SET_PDEATHSIG = 1
DONE, INTERRUPTED, FOUND = 0, 3, 4  # how a worker ends


def die_with_parent(number=signal.SIGKILL):
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, number)


def start(control, name, seed, log, load):
    """Forks; returns the pid."""
    pid = os.fork()
    if pid:
        return pid
    status = FOUND
    try:
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        signal.signal(signal.SIGTERM, signal.SIG_DFL)
        os.setsid()
        die_with_parent()
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        status = _run(control, name, seed, log, load)
    finally:
        os._exit(status)


def _run(control, name, seed, log, load):
    counts = {}
    try:
        pair = Pair(control, name, log, counts)
        program = programs.ALL[name](pair, random.Random(f"{seed} {name}"))
        program.begin()
        while not control.is_raised("stop"):
            if control.is_raised("pause"):
                _pause(control, name, program, counts)
                continue
            began = time.monotonic()
            program.step()
            control.tell(f"counts-{name}", counts)
            _breathe(control, (time.monotonic() - began) * load)
        program.rest()
        return DONE
    except Interrupted as reason:
        control.tell(f"interrupted-{name}", str(reason))
        return INTERRUPTED
    except Discrepancy as found:
        control.tell(f"found-{name}", str(found))
    except BaseException:  # whatever it is, the run must tell it
        control.tell(f"found-{name}", traceback.format_exc())
    finally:
        control.tell(f"counts-{name}", counts)
    return FOUND


def _pause(control, name, program, counts):
    """Twice: first everything is closed and may be compared, then everything is removed."""
    program.rest()
    control.tell(f"counts-{name}", counts)
    control.tell(f"resting-{name}", True)
    while control.is_raised("pause") and not control.is_raised("stop"):
        if control.is_raised("sweep") and not control.is_raised(f"swept-{name}"):
            program.sweep()
            program.rest()
            control.tell(f"swept-{name}", True)
        time.sleep(0.1)


def _breathe(control, seconds):
    """Leaves the processors to others for a while."""
    end = time.monotonic() + min(seconds, 60)
    while time.monotonic() < end and not any(map(control.is_raised, ("stop", "pause", "killed"))):
        time.sleep(min(0.2, max(end - time.monotonic(), 0.01)))
