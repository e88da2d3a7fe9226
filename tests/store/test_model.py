"""Any sequence of operations, each by another machine, leaves and shows what it leaves and shows in a plain directory.

KEMVI_TEST_STEPS is how many operations there are.

The machines are told each other's changes a moment after them, so what is kept of names is compared once that has come: an
operation is done by one machine, then the next by another, with what is promised at once between them (a file that was
closed is opened) and, for the rest, that the plain directory's answer comes within the time in which changes are seen.
"""

import errno
import os
import random
import shutil
import stat

import pytest

from harness.deadline import Late, eventually
from harness.length import amount

NAMES = ["a", "b", "c", "d e", "\u00e4"]
SIZES = [0, 1, 100, 4097, 70_000, 262_144, 300_000, 700_001, 1_300_000]


def some_path(source):
    return "/".join(source.choice(NAMES) for _ in range(source.choice([1, 1, 2, 2, 3])))


def content(seed, size):
    return (b"%08x" % seed * (size // 8 + 1))[:size]


def write(path, seed, size):
    with open(path, "wb") as file:
        file.write(content(seed, size))


def append(path, seed, size):
    with open(path, "ab") as file:
        file.write(content(seed, size))


def patch(path, seed, size, offset):
    with open(path, "r+b") as file:
        file.seek(offset)
        file.write(content(seed, size))


OPERATIONS = {
    "write": (8, write, lambda r: (r.getrandbits(30), r.choice(SIZES))),
    "append": (4, append, lambda r: (r.getrandbits(30), r.choice(SIZES[:4]))),
    "patch": (4, patch, lambda r: (r.getrandbits(30), r.choice(SIZES[:5]), r.choice(SIZES))),
    "truncate": (3, os.truncate, lambda r: (r.choice(SIZES),)),
    "read": (6, lambda path: open(path, "rb").read(), lambda r: ()),  # pylint: disable=consider-using-with
    "unlink": (4, os.unlink, lambda r: ()),
    "mkdir": (7, os.mkdir, lambda r: ()),
    "rmdir": (3, os.rmdir, lambda r: ()),
    "list": (4, lambda path: sorted(os.listdir(path)), lambda r: ()),
    "size": (4, lambda path: os.path.isdir(path) or os.stat(path).st_size, lambda r: ()),
    "chmod": (1, os.chmod, lambda r: (r.choice([0o700, 0o755]),)),
    "utime": (1, lambda path, when: os.utime(path, (when, when)), lambda r: (r.randrange(1, 2_000_000_000),)),
}
RENAME = 6
STEPS = int(os.environ.get("KEMVI_TEST_STEPS", amount(500, 250)))


def performed(call, *arguments):
    try:
        return ("did", call(*arguments))
    except OSError as error:
        return ("failed", errno.EEXIST if error.errno == errno.ENOTEMPTY else error.errno)


def whole(root):
    """All there is, by path: folders, and the bytes of files."""
    told = {}
    for place, folders, files in os.walk(root):
        for name in folders:
            told[os.path.relpath(os.path.join(place, name), root)] = None
        for name in files:
            path = os.path.join(place, name)
            with open(path, "rb") as file:
                told[os.path.relpath(path, root)] = file.read()
    return told


def has_caught_up(machine, plain, paths):
    """Whether a machine has heard of what others have done to the names that an operation is about."""
    def told(root, path):
        try:
            seen = os.stat(f"{root}/{path}")
        except OSError as error:
            return os.strerror(error.errno)
        return "folder" if stat.S_ISDIR(seen.st_mode) else seen.st_size
    for path in paths:
        parts = path.split("/")
        for depth in range(1, len(parts) + 1):
            at = "/".join(parts[:depth])
            if told(machine, at) != told(plain, at):
                return False
        if os.path.isdir(f"{plain}/{path}") and sorted(os.listdir(f"{machine}/{path}")) != sorted(os.listdir(f"{plain}/{path}")):
            return False
    return True


@pytest.mark.limit(400)
@pytest.mark.parametrize("count", [2, pytest.param(8, marks=pytest.mark.long)])
def test_operations_spread_over_machines_are_those_of_one_directory(store, workspace, count):
    machines = store.several(count)
    plain = workspace / "plain"
    plain.mkdir()
    source = random.Random(count)
    kinds = list(OPERATIONS)
    weights = [OPERATIONS[kind][0] for kind in kinds]
    done = []
    for step in range(STEPS):
        machine = source.choice(machines).path
        if source.random() < RENAME / 50:
            paths, arguments, call, kind = [some_path(source), some_path(source)], (), os.rename, "rename"
        else:
            kind = source.choices(kinds, weights)[0]
            _, call, more = OPERATIONS[kind]
            paths, arguments = [some_path(source)], more(source)
        done.append((step, machine.name, kind, *paths, *arguments))
        try:
            eventually(lambda: has_caught_up(machine, plain, paths), 5, "what others have done")  # pylint: disable=cell-var-from-loop
        except Late as late:
            raise AssertionError(f"{late}: {done[-12:]}") from None
        got, right = (performed(call, *(f"{root}/{path}" for path in paths), *arguments) for root in (machine, plain))
        assert got == right, done[-12:]
        if step % 100 == 99:
            assert all(whole(each.path) == whole(plain) for each in machines), done[-12:]
    shutil.rmtree(machines[0].path / "a", ignore_errors=True)
