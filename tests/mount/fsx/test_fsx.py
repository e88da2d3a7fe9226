"""One file, many random reads, writes, resizes and maps: every byte is compared with a copy in memory.

KEMVI_FSX_OPERATIONS sets how many (default 100,000, in a short run 12,000), KEMVI_FSX_SEED the seed. A failure tells the seed and the last steps.
"""

import mmap
import os
import random

import pytest

from harness.length import amount

OPERATIONS = int(os.environ.get("KEMVI_FSX_OPERATIONS", amount(100_000, 12_000)))
LARGEST = 200_000
LONGEST = 20_000
OPTIONS = {"default": [], "small requests": ["request_size=4096"], "writeback": ["writeback"],
           "no timeouts": ["entry_timeout=0", "attr_timeout=0"]}


class Exerciser:
    """The file, its copy in memory, and the steps so far."""

    def __init__(self, path, seed):
        self.path = str(path)
        self.random = random.Random(seed)
        self.copy = bytearray()
        self.steps = []
        self.descriptor = os.open(self.path, os.O_RDWR | os.O_CREAT | os.O_TRUNC)

    def place(self):
        return self.random.randrange(0, len(self.copy) + 1) if self.copy else 0

    def data(self, length):
        return self.random.randbytes(length)

    def check(self, got, start, length):
        wanted = bytes(self.copy[start:start + length])
        if got != wanted:
            at = next((index for index in range(min(len(got), len(wanted))) if got[index] != wanted[index]),
                      min(len(got), len(wanted)))
            raise AssertionError(f"{len(got)} bytes instead of {len(wanted)} from {start}; the first wrong one is "
                                 f"byte {start + at}; size {len(self.copy)}")

    def read(self):
        start, length = self.place(), self.random.randrange(1, LONGEST)
        self.steps.append(("read", start, length))
        self.check(os.pread(self.descriptor, length, start), start, length)

    def put(self, start, data):
        if start > len(self.copy):
            self.copy.extend(bytes(start - len(self.copy)))
        self.copy[start:start + len(data)] = data

    def write(self):
        start = self.place() if self.random.random() < 0.9 else self.random.randrange(LARGEST - LONGEST)
        data = self.data(self.random.randrange(1, LONGEST) if self.random.random() < 0.5 else self.random.randrange(1, 200))
        start = min(start, LARGEST - len(data))
        self.steps.append(("write", start, len(data)))
        assert os.pwrite(self.descriptor, data, start) == len(data)
        self.put(start, data)

    def append(self):
        if len(self.copy) > LARGEST - 300:
            return
        data = self.data(self.random.randrange(1, 300))
        self.steps.append(("append", len(data)))
        descriptor = os.open(self.path, os.O_WRONLY | os.O_APPEND)
        os.write(descriptor, data)
        os.close(descriptor)
        self.put(len(self.copy), data)

    def truncate(self):
        size = self.random.choice([0, self.place(), self.place(), self.random.randrange(LARGEST)])
        self.steps.append(("truncate", size))
        if self.random.random() < 0.5:
            os.ftruncate(self.descriptor, size)
        else:
            os.truncate(self.path, size)
        del self.copy[size:]
        self.copy.extend(bytes(size - len(self.copy)))

    def map_read(self):
        if not self.copy:
            return
        start = self.place()
        length = min(self.random.randrange(1, LONGEST), len(self.copy) - start)
        self.steps.append(("map_read", start, length))
        with mmap.mmap(self.descriptor, 0, access=mmap.ACCESS_READ) as view:
            self.check(view[start:start + length], start, length)

    def map_write(self):
        if not self.copy:
            return
        start = self.place()
        data = self.data(min(self.random.randrange(1, LONGEST), len(self.copy) - start))
        self.steps.append(("map_write", start, len(data)))
        with mmap.mmap(self.descriptor, 0) as view:
            view[start:start + len(data)] = data
            if self.random.random() < 0.3:
                view.flush()
        self.put(start, data)

    def reopen(self):
        self.steps.append(("reopen",))
        os.close(self.descriptor)
        self.descriptor = os.open(self.path, os.O_RDWR)

    def synchronise(self):
        self.steps.append(("fsync",))
        os.fsync(self.descriptor)

    def size(self):
        self.steps.append(("size",))
        assert os.fstat(self.descriptor).st_size == len(self.copy) == os.stat(self.path).st_size

    def drop_pages(self):
        """What is read next comes from the helper, not out of the page cache."""
        self.steps.append(("drop_pages",))
        os.fdatasync(self.descriptor)
        os.posix_fadvise(self.descriptor, 0, 0, os.POSIX_FADV_DONTNEED)

    def rename(self):
        self.steps.append(("rename",))
        os.rename(self.path, self.path + "~")
        os.rename(self.path + "~", self.path)

    def whole(self):
        self.steps.append(("whole",))
        with open(self.path, "rb", buffering=0) as file:
            self.check(file.read(), 0, LARGEST)

    KINDS = [(read, 30), (write, 26), (append, 3), (truncate, 6), (map_read, 12), (map_write, 8), (reopen, 3),
             (synchronise, 0.5), (size, 8), (drop_pages, 2), (rename, 0.5), (whole, 1)]

    def run(self, count):
        kinds, weights = zip(*self.KINDS)
        for kind in self.random.choices(kinds, weights, k=count):
            kind(self)
            del self.steps[:-40]
        self.whole()
        os.close(self.descriptor)


@pytest.mark.limit(60 + OPERATIONS / 400)
@pytest.mark.parametrize("options", OPTIONS)
def test_file_keeps_every_byte(request, options):
    is_plain = request.config.getoption("--plain")
    volume = request.getfixturevalue("volume") if is_plain else request.getfixturevalue("mount")(options=OPTIONS[options])
    seed = int(os.environ.get("KEMVI_FSX_SEED", "0")) or random.SystemRandom().randrange(1, 1 << 32)
    exerciser = Exerciser(volume.path / "file", seed)
    try:
        exerciser.run(OPERATIONS // len(OPTIONS))
    except AssertionError as fault:
        steps = "\n".join(f"  {step}" for step in exerciser.steps)
        pytest.fail(f"KEMVI_FSX_SEED={seed}: {fault}\nlast steps:\n{steps}", pytrace=False)
    assert (volume.backing / "file").read_bytes() == exerciser.copy
