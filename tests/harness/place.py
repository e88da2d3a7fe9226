"""A place for tests of the command: a source directory, a served tree, an empty mount point and the command itself."""

import json
import subprocess
from pathlib import Path

from . import system
from .deadline import eventually
from .program import SHIPPED_HELPER, Program

# Helpers that misbehave, each in one way.
HELPERS = Path(__file__).resolve().parents[1] / "cli" / "helpers"


class Place:
    def __init__(self, folder):
        self.folder = folder
        self.program = Program(folder)
        self.source = folder / "source"
        self.tree = folder / "tree"
        self.point = folder / "point"
        for made in (self.source, self.tree, self.point):
            made.mkdir()
        (self.tree / "a.txt").write_text("hello\n")
        self.configure()

    # The configuration

    def configuration(self, helper=SHIPPED_HELPER):
        return {"driveId": "d", "kemviHome": str(self.folder / "home"), "repoRoot": str(self.tree),
                "helperPath": str(helper)}

    def configure(self, helper=SHIPPED_HELPER, **changes):
        self.write_configuration(json.dumps(self.configuration(helper) | changes))

    def write_configuration(self, text):
        (self.source / "mount-config.json").write_text(text, encoding="utf-8")

    def use_helper(self, name):
        """Configures one of the helpers that misbehave."""
        self.configure(HELPERS / name)

    # The command

    def environment(self, **changes):
        return self.program.environment | {name: str(value) for name, value in changes.items()}

    def run(self, *arguments, **more):
        return self.program.run(*arguments, **more)

    def start(self, *arguments, **more):
        return self.program.start(*arguments, **{"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True} | more)

    def mount(self, *arguments, **more):
        result = self.run("mount", self.source, self.point, *arguments, **more)
        assert result.returncode == 0, result.stderr
        return result

    def unmount(self, *arguments, point=None):
        result = self.run("unmount", *arguments, point or self.point)
        assert result.returncode == 0, result.stderr
        return result

    def start_foreground(self, *arguments, **more):
        process = self.start("mount", "-f", self.source, self.point, *arguments, **more)
        eventually(lambda: self.is_mounted() or process.poll() is not None, 30, "the mount")
        assert process.poll() is None, process.communicate()
        eventually((self.point / "a.txt").exists, 30, "the first answer")
        return process

    # What there is of a mount

    def is_mounted(self, point=None):
        return system.mount_at(point or self.point) is not None

    def host(self, point=None):
        """The process that serves a mount, by the name that it gives itself."""
        name = f"kemvi-{system.mount_at(point or self.point).minor}"
        found, = [pid for pid in system.processes(self.folder) if system.name_of(pid) == name]
        return found

    def helper(self, point=None):
        found, = [pid for pid in system.children(self.host(point)) if system.name_of(pid) == "node"]
        return found

    def watcher(self):
        found, = [pid for pid in system.children(self.host()) if system.name_of(pid) == "kemvi-watch"]
        return found

    def assert_nothing_left(self):
        assert system.mounts(self.folder) == []
        eventually(lambda: not system.processes(self.folder), 20, "the end of every process")

    def notes(self):
        """What the helper has noted."""
        path = self.folder / "notes"
        return path.read_text().splitlines() if path.exists() else []

    def start_listing(self):
        """A process that waits for a helper that hangs in a listing."""
        listing = subprocess.Popen(["ls", self.point], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        eventually(lambda: "listing" in self.notes(), 30, "the request for a listing")
        return listing

    def clear(self):
        """Ends what is left, where a test leaves something on purpose."""
        system.clear_away(self.folder)


def assert_fails(result, code, *words):
    """It ended with the code and said why in one line of its own that holds all the words."""
    own = [line for line in result.stderr.splitlines() if line.startswith("kemvi: ")]
    assert result.returncode == code, result.stderr
    assert len(own) == 1, result.stderr
    for word in words:
        assert str(word) in own[0]
    assert result.stdout == ""
