"""What the tests of the command line share: a private place per test, and the proof that nothing is left of it."""

import json
import os
import shutil
import signal
import subprocess
import time
from pathlib import Path

import pytest

KEMVI = os.environ["KEMVI_BIN"]
SHIPPED_HELPER = os.environ["KEMVI_HELPER"]
HELPERS = Path(__file__).resolve().parent / "helpers"
SLOWNESS = int(os.environ.get("KEMVI_TEST_SLOWNESS", "1"))
LIMIT = 30 * SLOWNESS  # seconds; nothing here takes a tenth of that on an idle machine


def wait_for(condition, what, limit=LIMIT):
    """Waits until the condition holds and returns its value."""
    end = time.monotonic() + limit
    while True:
        value = condition()
        if value:
            return value
        assert time.monotonic() < end, f"waited in vain: {what}"
        time.sleep(0.01)


def unescaped(field):
    return field.encode().decode("unicode_escape").encode("latin-1").decode(errors="surrogateescape")


def mounts_under(folder):
    """The mount points in or below a folder with their device minors, types and sources."""
    found = []
    for line in Path("/proc/self/mountinfo").read_text(encoding="utf-8", errors="surrogateescape").splitlines():
        fields = line.split(" ")
        point = unescaped(fields[4])
        if point == str(folder) or point.startswith(str(folder) + "/"):
            dash = fields.index("-")
            found.append({"point": point, "minor": int(fields[2].split(":")[1]), "type": fields[dash + 1],
                          "source": unescaped(fields[dash + 2])})
    return found


def is_alive(pid):
    """Whether a process runs; one that has ended but was not waited for does not."""
    try:
        stat = Path(f"/proc/{pid}/stat").read_text(encoding="utf-8", errors="replace")
    except OSError:
        return False
    return stat[stat.rindex(")") + 2] not in "ZX"


def processes():
    return [int(name) for name in os.listdir("/proc") if name.isdigit()]


def processes_about(folder):
    """The processes whose command line or environment names the folder, less this test run itself."""
    found = []
    for pid in processes():
        try:
            words = Path(f"/proc/{pid}/cmdline").read_bytes() + b"\0" + Path(f"/proc/{pid}/environ").read_bytes()
        except OSError:
            continue
        if os.fsencode(str(folder)) in words and pid != os.getpid() and is_alive(pid):
            found.append(pid)
    return found


def children_of(pid):
    found = []
    for other in processes():
        try:
            stat = Path(f"/proc/{other}/stat").read_text(encoding="utf-8", errors="replace")
        except OSError:
            continue
        if int(stat[stat.rindex(")") + 2:].split()[1]) == pid and is_alive(other):
            found.append(other)
    return found


def name_of(pid):
    return Path(f"/proc/{pid}/comm").read_text(encoding="utf-8").strip()


class Place:
    """A folder with a source directory, an empty mount point, and the command to use on them."""

    def __init__(self, folder):
        self.folder = folder
        self.source = folder / "source"
        self.tree = folder / "tree"
        self.point = folder / "point"
        for made in (self.source, self.tree, self.point):
            made.mkdir()
        (self.tree / "a.txt").write_text("hello\n")
        self.configure()

    def configuration(self, helper=SHIPPED_HELPER):
        return {"driveId": "d", "kemviHome": str(self.folder / "home"), "repoRoot": str(self.tree),
                "helperPath": str(helper)}

    def configure(self, helper=SHIPPED_HELPER, **changes):
        self.write_configuration(json.dumps(self.configuration(helper) | changes))

    def write_configuration(self, text):
        (self.source / "mount-config.json").write_text(text, encoding="utf-8")

    def use_helper(self, name):
        """Configures one of the helpers beside this file."""
        self.configure(HELPERS / name)

    def environment(self, **changes):
        environment = dict(os.environ, HOME=str(self.folder), KEMVI_TEST_FOLDER=str(self.folder))
        environment.update({name: str(value) for name, value in changes.items()})
        return environment

    def run(self, *arguments, cwd=None, environment=None, timeout=LIMIT, program=KEMVI, **options):
        return subprocess.run([program, *map(str, arguments)], cwd=cwd or self.folder, check=False,
                              env=environment or self.environment(), stdin=subprocess.DEVNULL, text=True,
                              capture_output=True, timeout=timeout, errors="surrogateescape", **options)

    def start(self, *arguments, environment=None, **options):
        options = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE} | options
        return subprocess.Popen([KEMVI, *map(str, arguments)], cwd=self.folder,
                                env=environment or self.environment(), text=True, **options)

    def mount(self, *arguments, **options):
        result = self.run("mount", self.source, self.point, *arguments, **options)
        assert result.returncode == 0, result.stderr
        return result

    def start_foreground(self, *arguments, **options):
        process = self.start("mount", "-f", self.source, self.point, *arguments, **options)
        wait_for(lambda: self.is_mounted() or process.poll() is not None, "the mount")
        assert process.poll() is None, process.communicate()
        wait_for(lambda: (self.point / "a.txt").exists(), "the first answer")
        return process

    def is_mounted(self, point=None):
        return any(mount["point"] == str(point or self.point) for mount in mounts_under(self.folder))

    def host(self, point=None):
        """The process that serves a mount, by the name that it gives itself."""
        minors = [mount["minor"] for mount in mounts_under(self.folder) if mount["point"] == str(point or self.point)]
        found = [pid for pid in processes_about(self.folder) if name_of(pid) == f"kemvi-{minors[-1]}"]
        assert len(found) == 1
        return found[0]

    def helper(self, point=None):
        found = [pid for pid in children_of(self.host(point)) if name_of(pid) == "node"]
        assert len(found) == 1
        return found[0]

    def watcher(self):
        return [pid for pid in children_of(self.host()) if name_of(pid) == "kemvi-watch"][0]

    def assert_nothing_left(self):
        assert mounts_under(self.folder) == []
        wait_for(lambda: not processes_about(self.folder), "the end of every process", limit=5 * SLOWNESS)

    def notes(self):
        """What the helper has noted."""
        path = self.folder / "notes"
        return path.read_text().splitlines() if path.exists() else []

    def start_listing(self):
        """A process that waits for a helper that hangs in a listing."""
        listing = subprocess.Popen(["ls", self.point], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_for(lambda: "listing" in self.notes(), "the request for a listing")
        return listing

    def clear(self):
        """Ends what is left. Returns what that was."""
        left = [mount["point"] for mount in mounts_under(self.folder)]
        for point in left:
            subprocess.run(["fusermount3", "-uz", point], check=False, capture_output=True)
        for pid in processes_about(self.folder):
            left.append(f"{pid} {name_of(pid)}")
            try:
                os.kill(pid, signal.SIGKILL)
            except OSError:
                pass
        return left


@pytest.fixture
def place(tmp_path):
    made = Place(tmp_path)
    yield made
    try:
        made.assert_nothing_left()
    finally:
        made.clear()
        shutil.rmtree(tmp_path, ignore_errors=True)


def assert_fails(result, code, *words):
    """It ended with the code and said why in one line of its own that holds all the words."""
    own = [line for line in result.stderr.splitlines() if line.startswith("kemvi: ")]
    assert result.returncode == code, result.stderr
    assert len(own) == 1, result.stderr
    for word in words:
        assert str(word) in own[0]
    assert result.stdout == ""


root_only = pytest.mark.skipif(os.getuid() != 0, reason="only root can arrange this")
user_only = pytest.mark.skipif(os.getuid() == 0, reason="concerns ordinary users")
