"""A second process of a test: one command at a time, in Python, with descriptors of its own."""

import multiprocessing
import os
import signal
import subprocess
import sys
import traceback

_fork = multiprocessing.get_context("fork")


def _serve(pipe, function, arguments):
    for number in (signal.SIGALRM, signal.SIGINT):
        signal.signal(number, signal.SIG_DFL)
    signal.setitimer(signal.ITIMER_REAL, 0)
    try:
        pipe.send((True, function(*arguments)))
    except OSError as error:
        pipe.send((False, ("OSError", error.errno, str(error))))
    except BaseException:  # pylint: disable=broad-except
        pipe.send((False, ("fault", 0, traceback.format_exc())))
    pipe.close()
    os._exit(0)


class Worker:
    """`function(*arguments)` in a process of its own."""

    def __init__(self, function, *arguments):
        self.pipe, theirs = _fork.Pipe()
        self.process = _fork.Process(target=_serve, args=(theirs, function, arguments), daemon=True)
        self.process.start()
        theirs.close()
        self.pid = self.process.pid

    def result(self, seconds=30):
        """What the function returned; an OSError that it raised is raised here."""
        if not self.pipe.poll(seconds):
            raise AssertionError(f"process {self.pid} did not answer within {seconds} s")
        try:
            good, value = self.pipe.recv()
        except EOFError:
            raise AssertionError(f"process {self.pid} ended without an answer") from None
        self.process.join(seconds)
        if good:
            return value
        if value[0] == "OSError":
            raise OSError(value[1], value[2])
        raise AssertionError(value[2])

    def is_done(self):
        return self.pipe.poll(0)

    def kill(self, number=signal.SIGKILL):
        os.kill(self.pid, number)

    def is_gone(self, seconds=0):
        """Whether the process has ended, within so many seconds."""
        self.process.join(seconds)
        return self.process.exitcode is not None


def in_child(function, *arguments, seconds=30):
    """Runs a function in a process of its own and returns its result."""
    return Worker(function, *arguments).result(seconds)


def script(text, *arguments, **more):
    """Starts a small Python program; for tests that need a process of which nothing was inherited."""
    return subprocess.Popen([sys.executable, "-c", text, *map(str, arguments)], **more)
