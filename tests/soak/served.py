"""The mount of a run: its start, its end by every way, and what can be measured of it from outside."""

import contextlib
import os
import re
import signal
import subprocess
from pathlib import Path

from control import wait_for
from worker import die_with_parent

MARKER = "KEMVI_SOAK_FOLDER"
HELPER = Path(__file__).resolve().parent / "helpers" / "unsteady.mjs"
OCTAL = re.compile(r"\\([0-7]{3})")
HIDDEN = ".kemvi-hidden-"


class Fault(Exception):
    """The mount itself does not do what it promises."""


def mounts_below(folder):
    found = []
    for line in Path("/proc/self/mountinfo").read_text(errors="surrogateescape").splitlines():
        point = OCTAL.sub(lambda match: chr(int(match.group(1), 8)), line.split(" ")[4])
        if point == str(folder) or point.startswith(f"{folder}/"):
            found.append(point)
    return found


def processes_of(folder):
    """Hosts and helpers that were started for a folder, by the mark in their environment."""
    wanted = f"{MARKER}={folder}".encode()
    found = []
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                if wanted in Path(f"/proc/{entry}/environ").read_bytes().split(b"\0"):
                    found.append(int(entry))
            except OSError:
                pass
    return found


def hidden_below(folder):
    return [os.path.join(where, name) for where, folders, files in os.walk(folder)
            for name in folders + files if name.startswith(HIDDEN)]


def _memory(pid):
    """Its own memory in KiB, without files that are mapped."""
    return int(re.search(r"RssAnon:\s+(\d+)", Path(f"/proc/{pid}/status").read_text()).group(1))


def _descriptors(pid):
    told = {}
    for number in os.listdir(f"/proc/{pid}/fd"):
        try:
            told[int(number)] = os.readlink(f"/proc/{pid}/fd/{number}")
        except FileNotFoundError:
            pass
    return told


class Served:
    def __init__(self, control, binary, sdk, fault=None):
        self.control, self.binary = control, str(binary)
        self.host = None
        self.log = None
        self._baseline = {}
        self._environment = {**os.environ, MARKER: str(control.folder), "TMPDIR": str(control.temporary),
                             "HOME": str(control.folder), "KEMVI_SOAK_SDK": str(sdk)}
        if fault:
            self._environment["KEMVI_SOAK_FAULT"] = fault
        self._command("init", control.source, "--helper", HELPER, "--repo-root", control.tree, "--home", control.folder)

    def _command(self, *arguments):
        try:
            done = subprocess.run([self.binary, *map(str, arguments)], env=self._environment, stdin=subprocess.DEVNULL,
                                  capture_output=True, text=True, timeout=120, check=False)
        except subprocess.TimeoutExpired as late:
            raise Fault(f"kemvi {arguments[0]} did not end, and said: {late.stdout} {late.stderr}; mounts: "
                        f"{mounts_below(self.control.folder)}; processes: {self._states()}") from None
        if done.returncode:
            raise Fault(f"kemvi {arguments[0]} ended with {done.returncode}: {done.stdout}{done.stderr}")
        return done.stdout + done.stderr

    def _states(self):
        """What each thread of the run's processes waits for in the kernel."""
        told = []
        for pid in processes_of(self.control.folder):
            for place in sorted(Path(f"/proc/{pid}/task").glob("*/wchan")):
                with contextlib.suppress(OSError):
                    told.append(f"{place.parts[2]}/{place.parts[4]} {(place.parent / 'comm').read_text().strip()} "
                                f"{place.read_text()}")
        return told

    def start(self, number, options, seed):
        self.log = self.control.logs / f"host-{number}.log"
        command = [self.binary, "mount", "-f", "--log-file", str(self.log), "--show-private",
                   str(self.control.source), str(self.control.mount)]
        if options:
            command[2:2] = ["-o", ",".join(options)]
        with open(self.control.logs / f"output-{number}.log", "ab") as output:
            self.host = subprocess.Popen(command, env={**self._environment, "KEMVI_SOAK_SEED": str(seed)},
                                         stdin=subprocess.DEVNULL, stdout=output, stderr=output, start_new_session=True,
                                         preexec_fn=lambda: die_with_parent(signal.SIGTERM))
        wait_for(lambda: mounts_below(self.control.mount) or self.host.poll() is not None, 120, "the mount")
        self.check_alive()
        os.listdir(self.control.mount)
        self._baseline = {name: len(_descriptors(pid)) for name, pid in self._pids().items()}

    def check_alive(self):
        if self.host.poll() is not None:
            raise Fault(f"kemvi mount ended with {self.host.returncode}")

    def _pids(self):
        """The helper is the child of the host that runs the script; another child watches over it."""
        for entry in os.listdir("/proc"):
            if entry.isdigit() and self._is_helper(entry):
                return {"host": self.host.pid, "helper": int(entry)}
        raise Fault("the host has no helper")

    def _is_helper(self, pid):
        try:
            told = Path(f"/proc/{pid}/stat").read_text()
            command = Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")
        except OSError:
            return False
        return told[told.rindex(")") + 2:].split(" ")[1] == str(self.host.pid) and os.fsencode(HELPER) in command

    def measure(self):
        """Memory in KiB and descriptors of both processes, when nothing is open on the mount. The descriptors have to come
        back to what they were just after the mount; the host keeps some for a moment."""
        told = {}
        for name, pid in self._pids().items():
            try:
                wait_for(lambda: len(_descriptors(pid)) <= self._baseline[name], 20, "descriptors")
            except TimeoutError:
                raise Fault(f"the {name} had {self._baseline[name]} descriptors at first and keeps "
                            f"{_descriptors(pid)}") from None
            told[name + " memory"] = _memory(pid)
            told[name + " descriptors"] = len(_descriptors(pid))
            told[name + " descriptors at first"] = self._baseline[name]
        return told

    def measure_now(self):
        """The same in one line, whatever is open; empty while there is no mount."""
        try:
            return "  ".join(f"{name} {_memory(pid) // 1024} MiB {len(_descriptors(pid))} fds"
                             for name, pid in self._pids().items())
        except (OSError, Fault, AttributeError):
            return ""

    def live_pids(self):
        try:
            return list(self._pids().values())
        except (Fault, AttributeError):
            return []

    def kill(self, kind):
        """`helper` and `host` by SIGKILL, `order` ends the host by SIGTERM."""
        pids = self._pids()
        os.kill(pids["helper" if kind == "helper" else "host"], signal.SIGTERM if kind == "order" else signal.SIGKILL)

    def end(self, kind):
        """After a kill, or orderly (None): holds the mount to leaving nothing."""
        told = ""
        if kind in (None, "helper"):
            told = self._command("unmount", self.control.mount)
        try:
            code = self.host.wait(120)
        except subprocess.TimeoutExpired:
            # A container that was started meanwhile has a copy of the mount, and keeps it; the command says so.
            raise Fault(f"the host did not end after {kind or 'kemvi unmount'}, which said: {told}") from None
        expected = {None: (0,), "helper": (0, 1), "host": (-signal.SIGKILL,), "order": (0,)}[kind]
        if code not in expected:
            raise Fault(f"the host ended with {code} after {kind or 'kemvi unmount'}")
        try:
            wait_for(lambda: not mounts_below(self.control.folder), 30, "the end of the mount")
            wait_for(lambda: not processes_of(self.control.folder), 30, "the end of its processes")
        except TimeoutError as late:
            raise Fault(f"{late}: {mounts_below(self.control.folder)} {processes_of(self.control.folder)}") from None
        left = list(self.control.temporary.iterdir())
        if left:
            raise Fault(f"temporary files were left: {left}")

    def abandon(self):
        """Leaves nothing, whatever happened."""
        for pid in processes_of(self.control.folder):
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        if self.host:
            self.host.wait(60)
        for point in mounts_below(self.control.folder):
            subprocess.run(["fusermount3", "-u", "-z", point] if os.getuid() else ["umount", "-l", point],
                           stdin=subprocess.DEVNULL, capture_output=True, timeout=60, check=False)
