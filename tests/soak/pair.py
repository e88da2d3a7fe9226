"""Two folders that must look alike: one on the mount, one plain. Every operation is done on both, and what it returned
is compared. An operation is named in a log before it begins and after it has ended, so that it is known which one a kill
met."""

import contextlib
import errno
import json
import os
import shutil
import sqlite3
import subprocess

import operations


class Discrepancy(Exception):
    """The mount does what the plain folder does not."""


class Interrupted(Exception):
    """The mount was ended on purpose while the operation was under way."""


def attempt(operation, root, arguments, memory):
    """What an operation returned, or how it failed, as something to compare. The second is true for a failure."""
    try:
        return operation(root, memory, *arguments), False
    except OSError as error:
        return ["error", errno.errorcode.get(error.errno, str(error.errno))], True
    except sqlite3.Error as error:
        return ["sqlite", str(error)], True
    except subprocess.CalledProcessError as error:
        return ["exit", error.returncode, (error.stderr or "")[-2000:]], True


class Pair:
    def __init__(self, control, name, log, counts):
        self.mounted = str(control.mount / "work" / name)
        self.plain = str(control.plain / name)
        self.counts = counts
        self._safe = str(control.safe / name)
        self._control = control
        self._log = open(log, "a", encoding="utf-8", buffering=1)
        self._number = 0
        self._memories = {}  # root -> what operations keep open: descriptors, connections

    def do(self, name, *arguments):
        """Both do it; returns what both returned. Failures that both have alike are results too."""
        self._number += 1
        self._log.write(json.dumps({"begin": self._number, "op": name, "arguments": arguments}) + "\n")
        operation = getattr(operations, name)
        here, failed = attempt(operation, self.mounted, arguments, self.memory(self.mounted))
        if failed and self._control.is_killed():
            raise Interrupted(f"{name} {arguments}: {here}")
        there, _ = attempt(operation, self.plain, arguments, self.memory(self.plain))
        if here != there:
            raise Discrepancy(f"operation {self._number}: {name} {arguments}\n"
                              f"  on the mount: {here}\n  plain:        {there}")
        self._log.write(json.dumps({"end": self._number}) + "\n")
        self.counts[name] = self.counts.get(name, 0) + 1
        for kind in ("written", "read"):
            self.counts["bytes " + kind] = self.counts.get("bytes " + kind, 0) + self.memory(self.mounted).pop(kind, 0)
        return here

    def memory(self, root):
        return self._memories.setdefault(root, {})

    def note_safe(self, name):
        """What a file that stays open has now was asked to be made safe, and must survive a kill."""
        os.makedirs(self._safe, exist_ok=True)
        shutil.copyfile(f"{self.plain}/{name}", f"{self._safe}/{name}.new")
        os.replace(f"{self._safe}/{name}.new", f"{self._safe}/{name}")

    def note_gone(self, name):
        """What will have this name is another file."""
        with contextlib.suppress(FileNotFoundError):
            os.unlink(f"{self._safe}/{name}")

    def close_all(self):
        """Lets go of whatever operations have kept open, on both sides alike."""
        self.do("let_go")


def pending(log):
    """The operation that a log names as begun and not ended; None when there is none."""
    last = None
    if os.path.exists(log):
        with open(log, encoding="utf-8") as lines:
            for line in lines:
                if not line.endswith("\n"):
                    break
                told = json.loads(line)
                last = told if "begin" in told else None
    return last
