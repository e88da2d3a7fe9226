"""Where the parts of a run lie, and what its processes tell each other: by files, so that none waits for one that was
killed."""

import json
import os
import time
from pathlib import Path


class Control:
    def __init__(self, folder):
        self.folder = Path(folder)
        names = ("source", "tree", "mount", "plain", "safe", "temporary", "notes", "logs")
        (self.source, self.tree, self.mount, self.plain, self.safe, self.temporary, self.notes,
         self.logs) = self._folders = [self.folder / name for name in names]

    def make(self):
        for folder in (*self._folders, self.tree / "work"):
            folder.mkdir(exist_ok=True)

    def raise_flag(self, name):
        (self.notes / name).touch()

    def lower_flags(self):
        for note in self.notes.iterdir():
            note.unlink()

    def lower_flags_but_counts(self):
        for note in self.notes.iterdir():
            if not note.name.startswith("counts-"):
                note.unlink()

    def lower(self, name):
        (self.notes / name).unlink(missing_ok=True)

    def is_raised(self, name):
        return os.path.exists(self.notes / name)

    def is_killed(self):
        return self.is_raised("killed")

    def tell(self, name, value):
        fresh = self.notes / f"{name}.new"
        fresh.write_text(json.dumps(value))
        os.replace(fresh, self.notes / name)

    def told(self, name):
        try:
            return json.loads((self.notes / name).read_text())
        except FileNotFoundError:
            return None


def wait_for(condition, seconds, what):
    """Asks again until the condition holds; TimeoutError when it does not in time."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise TimeoutError(f"{what}: not within {seconds} s")
        time.sleep(0.05)
