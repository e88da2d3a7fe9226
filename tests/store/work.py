"""Work whose every step is noted, so that after a disaster it is known what must be there."""

import os

from harness.worker import Worker

SIZES = [0, 10, 5000, 300_000, 0, 10, 5000, 1_300_000]  # the last is of several chunks wherever it lies


def content(number):
    return (b"%08d" % number) * (SIZES[number % len(SIZES)] // 8)


def write(path, data):
    with open(path, "wb", buffering=0) as file:
        if data:
            file.write(data)


def steps(count):
    """(call, names it is about, what it does to a table of names): files are made, some renamed, some removed."""
    for number in range(count):
        name = f"file{number}"
        yield "write", (name,), number
        if number % 3 == 0:
            yield "rename", (name, f"moved{number}"), number
        if number % 4 == 3:
            yield "unlink", (f"file{number - 1}" if (number - 1) % 3 else f"moved{number - 1}",), number


def _work(folder, count, note):
    """Goes on after a failure. Returns the steps that failed, with their errno."""
    os.mkdir(folder)
    failed = []
    with open(note, "wb", buffering=0) as notes:
        for number, (call, names, seed) in enumerate(steps(count)):
            paths = [f"{folder}/{name}" for name in names]
            try:
                if call == "write":
                    write(paths[0], content(seed))
                else:
                    getattr(os, call)(*paths)
            except OSError as error:
                failed.append((number, error.errno))
            notes.write(b".")
    return failed


class Work:
    """Such work of one machine in a folder of its own, done by another process."""

    def __init__(self, machine, count):
        self.name, self.count = f"of{machine.name}", count
        self.note = machine.workspace / f"note{machine.name}"
        self.note.touch()
        self.worker = Worker(_work, str(machine.path / self.name), count, self.note)

    def done(self):
        """Steps that have ended."""
        return self.note.stat().st_size

    def failed(self, seconds=120):
        return self.worker.result(seconds)

    def assert_kept(self, root, failed):
        """All that was acknowledged is there, and nothing else but what a step that failed is about."""
        table, unsure = {}, set()
        numbers = {number for number, _ in failed}
        for number, (call, names, seed) in enumerate(steps(self.count)):
            if number in numbers or not unsure.isdisjoint(names):
                unsure |= set(names)
            elif call == "write":
                table[names[0]] = seed
            elif call == "rename":
                table[names[1]] = table.pop(names[0])
            else:
                del table[names[0]]
        folder = root / self.name
        found = set(os.listdir(folder))
        sure = {name for name in table if name not in unsure}
        assert sure <= found, f"lost: {sorted(sure - found)[:10]}"
        assert found - unsure <= sure, f"back again: {sorted(found - unsure - sure)[:10]}"
        for name in sure:
            assert (folder / name).read_bytes() == content(table[name]), f"{name} is not what was acknowledged"
