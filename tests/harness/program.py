"""The command under test, and the configuration that it reads."""

import json
import os
import subprocess
from pathlib import Path

from .deadline import LIMIT

KEMVI = os.environ.get("KEMVI_BIN", "kemvi")
SHIPPED_HELPER = os.environ.get("KEMVI_HELPER", "")
NATIVE_HELPER = os.environ.get("KEMVI_NATIVE_HELPER", "")  # where it is to be served with, the shipped program in C++
MARKER = "KEMVI_TEST_WORKSPACE"


class Program:
    """The `kemvi` command as a test runs it, in an environment that marks every process of the test."""

    def __init__(self, workspace, path=KEMVI):
        self.path, self.workspace = path, Path(workspace)
        self.environment = dict(os.environ, HOME=str(workspace))
        self.environment[MARKER] = str(workspace)
        self.environment.setdefault("ASAN_OPTIONS", "detect_leaks=1")

    def run(self, *arguments, limit=LIMIT, environment=None, **more):
        """Runs the command to its end. Output is text; never raises for an exit code."""
        more = {"stdin": subprocess.DEVNULL, "cwd": self.workspace} | more
        return subprocess.run([self.path, *map(str, arguments)], capture_output=True, text=True, errors="surrogateescape",
                              timeout=limit, check=False, env=self.environment | (environment or {}), **more)

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
