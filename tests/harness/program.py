"""The command under test, and the configuration that it reads."""

import json
import os
import subprocess
from pathlib import Path

from . import late
from .deadline import LIMIT

KEMVI = os.environ.get("KEMVI_BIN", "kemvi")
SHIPPED_HELPER = os.environ.get("KEMVI_HELPER", "")
NATIVE_HELPER = os.environ.get("KEMVI_NATIVE_HELPER", "")  # where it is to be served with, a program that is as `local`: that in C++ or in Python
MARKER = "KEMVI_TEST_WORKSPACE"


class Program:
    """The `kemvi` command as a test runs it, in an environment that marks every process of the test."""

    def __init__(self, workspace, path=KEMVI):
        self.path, self.workspace = path, Path(workspace)
        self.environment = dict(os.environ, HOME=str(workspace))
        # A container may be a service itself, whose manager is not to be told of a test's mounts, nor waited for.
        for name in ("NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"):
            self.environment.pop(name, None)
        self.environment[MARKER] = str(workspace)
        self.environment.setdefault("ASAN_OPTIONS", "detect_leaks=1")

    def run(self, *arguments, limit=LIMIT, environment=None, **more):
        """Runs the command to its end. Output is text; never raises for an exit code. Where it is late the exception has what
        could be seen of it and of its mount, before it is killed."""
        more = {"stdin": subprocess.DEVNULL, "cwd": self.workspace} | more
        command = [self.path, *map(str, arguments)]
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="surrogateescape",
                              env=self.environment | (environment or {}), **more) as process:
            try:
                output, errors = process.communicate(timeout=limit)
            except subprocess.TimeoutExpired as expired:
                expired.seen = late.look(self.workspace, [process.pid])
                raise
            finally:
                if process.poll() is None:
                    process.kill()
        return subprocess.CompletedProcess(command, process.returncode, output, errors)

    def start(self, *arguments, **more):
        more = {"stdin": subprocess.DEVNULL, "cwd": self.workspace} | more
        return subprocess.Popen([self.path, *map(str, arguments)], env=self.environment, **more)


def write_configuration(source, helper, tree, **replaced):
    """A mount-config.json as `kemvi init` writes it; `replaced` changes keys, None leaves one out."""
    entries = {"driveId": "test", "kemviHome": str(source), "repoRoot": str(tree), "helperPath": str(helper)}
    if NATIVE_HELPER and str(helper) == SHIPPED_HELPER:
        entries["helperPath"] = str(Path(helper).with_name("program.mjs"))
        entries["helperCommand"] = [NATIVE_HELPER]
    entries.update(replaced)
    text = json.dumps({key: value for key, value in entries.items() if value is not None})
    (Path(source) / "mount-config.json").write_text(text)
