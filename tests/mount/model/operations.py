"""The operations of the model test. Each is made of plain values, so that a failing sequence can be printed and replayed.

An operation is a tuple (process, kind, argument, ...). `generate` invents one; `perform` carries it out in one tree and
returns what a program would see of it. Names of files are paths within the tree; descriptors are numbers of slots, of
which every process has its own.
"""

import errno
import mmap
import os
import stat

from harness import libc

NAMES = ["a", "b", "c", "d", "n\u00e4me", "with space", "x" * 255]
SLOTS = 4
SIZES = [0, 1, 7, 100, 4095, 4096, 4097, 10_000, 70_000]
OPEN_FLAGS = [os.O_RDONLY, os.O_WRONLY, os.O_RDWR, os.O_WRONLY | os.O_APPEND, os.O_RDWR | os.O_APPEND]
CREATE_FLAGS = [0, os.O_EXCL, os.O_TRUNC, os.O_EXCL | os.O_TRUNC]


def random_path(random):
    return "/".join(random.choice(NAMES[:3] if level else NAMES) for level in range(random.choice([1, 1, 1, 2, 2, 3])))


def content(seed, size):
    """Bytes that tell where they came from."""
    return (b"%08x" % (seed & 0xFFFFFFFF)) * (size // 8 + 1)


# The owner keeps access: an ordinary user's disk would refuse what a mode of the served file refuses behind the mount.
MODES = [0o700, 0o744, 0o755]

GENERATORS = {
    # kind: (weight, arguments)
    "open": (8, lambda r: (r.randrange(SLOTS), random_path(r), r.choice(OPEN_FLAGS))),
    "create": (14, lambda r: (r.randrange(SLOTS), random_path(r), r.choice(OPEN_FLAGS), r.choice(CREATE_FLAGS))),
    "close": (8, lambda r: (r.randrange(SLOTS),)),
    "dup": (2, lambda r: (r.randrange(SLOTS), r.randrange(SLOTS))),
    "read": (6, lambda r: (r.randrange(SLOTS), r.choice(SIZES))),
    "pread": (8, lambda r: (r.randrange(SLOTS), r.choice(SIZES), r.choice(SIZES))),
    "write": (8, lambda r: (r.randrange(SLOTS), r.getrandbits(32), r.choice(SIZES))),
    "pwrite": (8, lambda r: (r.randrange(SLOTS), r.getrandbits(32), r.choice(SIZES), r.choice(SIZES))),
    "seek": (3, lambda r: (r.randrange(SLOTS), r.choice(SIZES), r.choice([os.SEEK_SET, os.SEEK_CUR, os.SEEK_END]))),
    "ftruncate": (5, lambda r: (r.randrange(SLOTS), r.choice(SIZES))),
    "fstat": (6, lambda r: (r.randrange(SLOTS),)),
    "fsync": (1, lambda r: (r.randrange(SLOTS),)),
    "fdatasync": (1, lambda r: (r.randrange(SLOTS),)),
    "futimens": (2, lambda r: (r.randrange(SLOTS), r.randrange(1, 2_000_000_000))),
    "fchmod": (1, lambda r: (r.randrange(SLOTS), r.choice(MODES))),
    "map_read": (3, lambda r: (r.randrange(SLOTS),)),
    "map_write": (3, lambda r: (r.randrange(SLOTS), r.getrandbits(32), r.choice(SIZES))),
    "stat": (8, lambda r: (random_path(r),)),
    "access": (2, lambda r: (random_path(r), r.choice([os.F_OK, os.R_OK, os.W_OK]))),
    "truncate": (4, lambda r: (random_path(r), r.choice(SIZES))),
    "utimens": (3, lambda r: (random_path(r), r.randrange(1, 2_000_000_000))),
    "chmod": (2, lambda r: (random_path(r), r.choice(MODES))),
    "chownSelf": (1, lambda r: (random_path(r),)),
    "unlink": (8, lambda r: (random_path(r),)),
    "mkdir": (10, lambda r: (random_path(r),)),
    "rmdir": (5, lambda r: (random_path(r),)),
    "rename": (10, lambda r: (random_path(r), random_path(r))),
    "renameNew": (3, lambda r: (random_path(r), random_path(r))),
    "list": (5, lambda r: (r.choice(["", "", random_path(r)]),)),
    "listWithKinds": (3, lambda r: (r.choice(["", random_path(r)]),)),
    "listSlowly": (2, lambda r: (r.choice(["", random_path(r)]), random_path(r))),
    "mknod": (3, lambda r: (random_path(r),)),
    "readFile": (6, lambda r: (random_path(r),)),
    "writeFile": (6, lambda r: (random_path(r), r.getrandbits(32), r.choice(SIZES))),
    "appendFile": (4, lambda r: (random_path(r), r.getrandbits(32), r.choice(SIZES))),
    "saveFile": (3, lambda r: (random_path(r), r.getrandbits(32), r.choice(SIZES))),
    "chdirAndBack": (1, lambda r: (random_path(r),)),
    "readlink": (1, lambda r: (random_path(r),)),
    "emptyTree": (1, lambda r: (random_path(r),)),
    "copyRange": (2, lambda r: (r.randrange(SLOTS), r.randrange(SLOTS), r.choice(SIZES))),
}

_KINDS = list(GENERATORS)
_WEIGHTS = [GENERATORS[kind][0] for kind in _KINDS]


def generate(random, processes):
    kind = random.choices(_KINDS, _WEIGHTS)[0]
    return (random.randrange(processes), kind, *GENERATORS[kind][1](random))


class Tree:
    """One process's view of one tree: the tree's root and the descriptors that the process has open in it."""

    def __init__(self, root):
        self.root = str(root)
        self.slots = {}

    def path(self, name):
        return self.root + "/" + name if name else self.root

    def descriptor(self, slot):
        if slot not in self.slots:
            raise OSError(errno.EBADF, "no descriptor in this slot")
        return self.slots[slot]

    def put(self, slot, descriptor):
        if slot in self.slots:
            os.close(self.slots.pop(slot))
        self.slots[slot] = descriptor

    def close_all(self):
        for descriptor in self.slots.values():
            os.close(descriptor)
        self.slots.clear()


def described(seen):
    """What of a stat result is the same on every disk."""
    if stat.S_ISDIR(seen.st_mode):
        return ("folder",)
    return ("file", seen.st_size)


def do_open(tree, slot, name, flags):
    tree.put(slot, os.open(tree.path(name), flags))


def do_create(tree, slot, name, flags, more):
    tree.put(slot, os.open(tree.path(name), flags | more | os.O_CREAT, 0o644))


def do_close(tree, slot):
    descriptor = tree.descriptor(slot)
    del tree.slots[slot]
    os.close(descriptor)


def do_dup(tree, slot, into):
    if slot != into:
        tree.put(into, os.dup(tree.descriptor(slot)))


def do_write(tree, slot, seed, size):
    return os.write(tree.descriptor(slot), content(seed, size)[:size])


def do_pwrite(tree, slot, seed, size, offset):
    return os.pwrite(tree.descriptor(slot), content(seed, size)[:size], offset)


def do_futimens(tree, slot, when):
    os.utime(tree.descriptor(slot), (when, when))
    return os.fstat(tree.descriptor(slot)).st_mtime


def size_of_file(descriptor):
    """Folders are refused here, since sizes and places in them differ from disk to disk."""
    seen = os.fstat(descriptor)
    if stat.S_ISDIR(seen.st_mode):
        raise OSError(errno.EISDIR, "not done to folders")
    return seen.st_size


def do_seek(tree, slot, offset, whence):
    size_of_file(tree.descriptor(slot))
    return os.lseek(tree.descriptor(slot), offset, whence)


def do_map_read(tree, slot):
    descriptor = tree.descriptor(slot)
    if size_of_file(descriptor) == 0:
        return b""
    with mmap.mmap(descriptor, 0, access=mmap.ACCESS_READ) as view:
        return view[:]


def do_map_write(tree, slot, seed, offset):
    descriptor = tree.descriptor(slot)
    size = size_of_file(descriptor)
    if offset >= size:
        return None
    with mmap.mmap(descriptor, 0) as view:
        data = content(seed, 100)[:min(100, size - offset)]
        view[offset:offset + len(data)] = data
        view.flush()
        return len(data)


def do_utimens(tree, name, when):
    os.utime(tree.path(name), (when, when))
    return os.stat(tree.path(name)).st_mtime


def do_list_with_kinds(tree, name):
    with os.scandir(tree.path(name)) as entries:
        return sorted((entry.name, *described(entry.stat())) for entry in entries)


def do_list_slowly(tree, name, removed):
    """A listing in small pieces with a removal in between: what was there throughout is told once."""
    descriptor = os.open(tree.path(name), os.O_RDONLY | os.O_DIRECTORY)
    try:
        before = set(os.listdir(tree.path(name)))
        found = [entry[0] for entry in libc.raw_directory(descriptor, 600)]
        try:
            os.unlink(tree.path(removed))
        except OSError:
            pass
        found += [entry[0] for entry in libc.whole_directory(descriptor, 600)]
        after = set(os.listdir(tree.path(name)))
        doubled = sorted(entry for entry in set(found) if found.count(entry) > 1)
        return sorted(after), sorted((before & after) - set(found)), doubled
    finally:
        os.close(descriptor)


def do_read_file(tree, name):
    with open(tree.path(name), "rb", buffering=0) as file:
        return file.read()


def do_write_file(tree, name, seed, size):
    with open(tree.path(name), "wb", buffering=0) as file:
        return file.write(content(seed, size)[:size])


def do_append_file(tree, name, seed, size):
    with open(tree.path(name), "ab", buffering=0) as file:
        file.write(content(seed, size)[:size])
        return os.fstat(file.fileno()).st_size


def do_save_file(tree, name, seed, size):
    """As an editor saves: write beside, synchronise, rename over."""
    beside = tree.path(name)[:-1] + "~" if len(tree.path(name).rsplit("/", 1)[1]) > 250 else tree.path(name) + "~"
    with open(beside, "xb", buffering=0) as file:
        file.write(content(seed, size)[:size])
        os.fsync(file.fileno())
    try:
        os.rename(beside, tree.path(name))
    except OSError:
        os.unlink(beside)
        raise


def do_chdir_and_back(tree, name):
    os.chdir(tree.path(name))
    try:
        return sorted(os.listdir("."))
    finally:
        os.chdir("/")


def do_empty_tree(tree, name):
    """As rm -r does."""
    for folder, folders, files in os.walk(tree.path(name), topdown=False):
        for file in files:
            os.unlink(os.path.join(folder, file))
        for inner in folders:
            os.rmdir(os.path.join(folder, inner))
    os.rmdir(tree.path(name))


def do_copy_range(tree, source, target, size):
    first, second = tree.descriptor(source), tree.descriptor(target)
    data = os.pread(first, size, 0)
    return os.write(second, data)


PERFORMERS = {
    "open": do_open,
    "create": do_create,
    "close": do_close,
    "dup": do_dup,
    "read": lambda tree, slot, size: os.read(tree.descriptor(slot), size),
    "pread": lambda tree, slot, size, offset: os.pread(tree.descriptor(slot), size, offset),
    "write": do_write,
    "pwrite": do_pwrite,
    "seek": do_seek,
    "ftruncate": lambda tree, slot, size: os.ftruncate(tree.descriptor(slot), size),
    "fstat": lambda tree, slot: described(os.fstat(tree.descriptor(slot))),
    "fsync": lambda tree, slot: os.fsync(tree.descriptor(slot)),
    "fdatasync": lambda tree, slot: os.fdatasync(tree.descriptor(slot)),
    "futimens": do_futimens,
    "fchmod": lambda tree, slot, mode: os.fchmod(tree.descriptor(slot), mode),
    "map_read": do_map_read,
    "map_write": do_map_write,
    "stat": lambda tree, name: described(os.stat(tree.path(name))),
    "access": lambda tree, name, how: os.access(tree.path(name), how),
    "truncate": lambda tree, name, size: os.truncate(tree.path(name), size),
    "utimens": do_utimens,
    "chmod": lambda tree, name, mode: os.chmod(tree.path(name), mode),
    "chownSelf": lambda tree, name: os.chown(tree.path(name), os.getuid(), os.getgid()),
    "unlink": lambda tree, name: os.unlink(tree.path(name)),
    "mkdir": lambda tree, name: os.mkdir(tree.path(name)),
    "rmdir": lambda tree, name: os.rmdir(tree.path(name)),
    "rename": lambda tree, old, new: os.rename(tree.path(old), tree.path(new)),
    "renameNew": lambda tree, old, new: libc.renameat2(tree.path(old), tree.path(new), libc.RENAME_NOREPLACE),
    "list": lambda tree, name: sorted(os.listdir(tree.path(name))),
    "listWithKinds": do_list_with_kinds,
    "listSlowly": do_list_slowly,
    "mknod": lambda tree, name: os.mknod(tree.path(name), stat.S_IFREG | 0o644),
    "readFile": do_read_file,
    "writeFile": do_write_file,
    "appendFile": do_append_file,
    "saveFile": do_save_file,
    "chdirAndBack": do_chdir_and_back,
    "readlink": lambda tree, name: os.readlink(tree.path(name)),
    "emptyTree": do_empty_tree,
    "copyRange": do_copy_range,
}

assert set(PERFORMERS) == set(GENERATORS)


def perform(tree, kind, arguments):
    """("value", what was seen) or ("error", name of the errno)."""
    try:
        return ("value", PERFORMERS[kind](tree, *arguments))
    except OSError as error:
        return ("error", errno.errorcode.get(error.errno, str(error.errno)))


def uses_removed_folder(tree, arguments):
    """Whether an operation is about the descriptor of a folder that was removed; only a disk can tell."""
    for slot in arguments[:2]:
        if slot in tree.slots:
            seen = os.fstat(tree.slots[slot])
            if stat.S_ISDIR(seen.st_mode) and seen.st_nlink == 0:
                return True
    return False


def snapshot(root):
    """A whole tree: path -> folder or content."""
    told = {}
    for folder, folders, files in os.walk(root):
        for name in folders:
            told[os.path.relpath(os.path.join(folder, name), root)] = "folder"
        for name in files:
            path = os.path.join(folder, name)
            with open(path, "rb") as file:
                told[os.path.relpath(path, root)] = file.read()
    return told
