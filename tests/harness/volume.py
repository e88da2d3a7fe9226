"""One served tree and the volume that shows it."""

import os
import re
import signal
import subprocess
import threading
from pathlib import Path

from . import late, system
from .control import HelperControl
from .deadline import Late, eventually
from .program import SHIPPED_HELPER, Program, write_configuration

HELPERS = Path(__file__).resolve().parent / "helpers"
# What every volume of this run is mounted with; a test's own options win.
OF_THE_RUN = [f"placement={os.environ['KEMVI_TEST_PLACEMENT']}"] if "KEMVI_TEST_PLACEMENT" in os.environ else []
SUSPICIOUS = re.compile(r"error|warning|fatal|assert|abort|sanitizer|leak|unexpected|invalid|failed|panic|deadlock|race",
                        re.IGNORECASE)


class PlainVolume:
    """The served tree itself, without any mount: what a local disk does with the same test."""

    is_plain = True

    def __init__(self, workspace):
        self.path = self.backing = workspace / "tree"
        self.backing.mkdir()

    def expect_log(self, *patterns):
        """There is none."""

    def close(self):
        pass


class Volume:
    """A mounted volume with source, served tree, mount point and log of its own. `close` unmounts it and fails on
    whatever it leaves behind."""

    is_plain = False

    def __init__(self, workspace, name="", options=(), control=False, helper=None, backing=None,
                 environment=None):
        self.workspace = Path(workspace)
        self.name = name
        self.source = self.workspace / f"source{name}"
        self.backing = Path(backing) if backing else self.workspace / f"tree{name}"
        self.path = self.workspace / f"mount{name}"
        self.log_file = self.workspace / f"log{name}"
        for folder in (self.source, self.backing, self.path):
            folder.mkdir(exist_ok=True)
        self.options = list(options)
        self.program = Program(workspace)
        self.program.environment.update(environment or {})
        self.helper = None
        if control:
            self.helper = HelperControl(self.workspace / f"control{name}")
            self.program.environment["KEMVI_TEST_CONTROL"] = str(self.helper.folder)
            self.program.environment["KEMVI_TEST_INNER"] = SHIPPED_HELPER
        write_configuration(self.source, helper or (HELPERS / "controlled.mjs" if control else SHIPPED_HELPER), self.backing)
        self.host = None
        self.expected_log = []
        self.checks_descriptors = True
        self.expects_exit = 0
        self._baseline = 0
        self._watchdog = None

    # Life

    def arguments(self):
        options = [*OF_THE_RUN, *self.options]
        more = ["-o", ",".join(options)] if options else []
        return ["mount", str(self.source), str(self.path), *more]

    def open(self, limit=60.0, seconds=20):
        """Mounts in the foreground, as a child. Returns when the kernel answers for the mount point."""
        with open(self.log_file, "ab") as log:
            self.host = self.program.start(*self.arguments(), "-f", stdout=log, stderr=log, start_new_session=True)
        self._watchdog = threading.Timer(limit + 5, self.kill)
        self._watchdog.daemon = True
        self._watchdog.start()
        eventually(lambda: system.mount_points(self.path) or self.host.poll() is not None, seconds, "the mount")
        if self.host.poll() is not None:
            raise AssertionError(f"kemvi mount ended with {self.host.returncode}: {self.log()}")
        os.stat(self.path)
        self._baseline = len(system.descriptors(self.host.pid))
        if self.helper:
            self.helper.forget()
        return self

    def kill(self):
        """Frees a test that hangs: with the host gone the kernel fails everything that waits for it."""
        for pid in system.processes(self.workspace):
            if pid != os.getpid():
                try:
                    os.kill(pid, signal.SIGKILL)
                except OSError:
                    pass

    def unmount(self, limit=30):
        """Ends the mount through the command, as a user does."""
        done = self.program.run("unmount", self.path, limit=limit)
        assert done.returncode == 0, f"kemvi unmount: {done.returncode}: {done.stdout}{done.stderr}"
        return done

    def wait_for_end(self, seconds=20):
        """The exit code of the host, which must be on its way out."""
        try:
            return self.host.wait(seconds)
        except subprocess.TimeoutExpired:
            kept = "".join(f"; {table}" for table in late.other_tables())
            raise Late(f"the host did not end within {seconds} s{kept}; log: {self.log()}") from None

    def close(self):
        """Unmounts and holds the volume to its promise to leave nothing behind."""
        if self.host is None:
            return
        faults = []
        try:
            if self.host.poll() is None:
                faults += self._open_leftovers()
                self.unmount()
            code = self.wait_for_end()
            if self.expects_exit is not None and code != self.expects_exit:
                faults.append(f"the host ended with {code}")
        except (AssertionError, subprocess.TimeoutExpired) as fault:
            faults.append(str(fault))
        finally:
            self._watchdog.cancel()
        try:
            # After the sudden death of a host somebody else takes the mount away, a moment later.
            eventually(lambda: not system.mount_points(self.path), 20)
        except Late:
            faults.append("still mounted")
        faults += self._suspicious_lines()
        assert not faults, "\n".join(faults) + "\nlog:\n" + self.log()

    def _open_leftovers(self):
        """Descriptors of the host beyond those it had when it was mounted, and files the helper still holds open."""
        if not self.checks_descriptors:
            return []
        try:
            eventually(lambda: len(system.descriptors(self.host.pid)) <= self._baseline, 20, "closed descriptors")
            eventually(lambda: not self.helper_files(), 20, "closed files of the helper")
        except Late:
            return [f"open in the host: {system.descriptors(self.host.pid)} (at first {self._baseline}); "
                    f"in the helper: {self.helper_files()}"]
        return []

    def _suspicious_lines(self):
        left = []
        for line in self.log().splitlines():
            if self.helper and any(said in line for said in self.helper.said):
                continue
            if SUSPICIOUS.search(line) and not any(re.search(known, line) for known in self.expected_log):
                left.append(f"in the log: {line}")
        return left

    # What is seen from outside

    def log(self):
        return self.log_file.read_text(errors="replace") if self.log_file.exists() else ""

    def log_lines(self, pattern):
        return [line for line in self.log().splitlines() if re.search(pattern, line)]

    def expect_log(self, *patterns):
        """Lines that match one of these are no fault of this test."""
        self.expected_log += patterns

    def helper_pids(self):
        return [pid for pid in system.processes(self.workspace) if "node" in system.command_of(pid).split(" ")[0]]

    def helper_pid(self):
        """The process that the host speaks to."""
        return next(pid for pid in self.helper_pids() if system.parent_of(pid) == self.host.pid)

    def helper_files(self):
        """Files of the served tree that a helper process holds open."""
        below = str(self.backing) + "/"
        return [target for pid in self.helper_pids() for target in system.descriptors(pid).values()
                if target.startswith(below)]

    def hidden(self, folder=""):
        """Hidden names in a folder of the served tree."""
        return sorted(name for name in os.listdir(self.backing / folder) if name.startswith(".kemvi-hidden-"))
