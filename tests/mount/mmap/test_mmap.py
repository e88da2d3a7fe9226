"""Files mapped into memory, programs and libraries run from the volume."""

import ctypes
import errno
import mmap
import os
import shutil
import signal
import subprocess

import pytest

from harness.calls import failure, put
from harness.deadline import eventually
from harness.worker import Worker, in_child, script

PAGE = mmap.PAGESIZE


def mapped(path, access=mmap.ACCESS_WRITE, length=0):
    descriptor = os.open(path, os.O_RDONLY if access == mmap.ACCESS_READ else os.O_RDWR)
    try:
        return mmap.mmap(descriptor, length, access=access)
    finally:
        os.close(descriptor)


def test_shared_reading_map_shows_the_file(volume):
    data = os.urandom(10 * PAGE + 123)
    put(volume.path / "file", data)
    with mapped(volume.path / "file", mmap.ACCESS_READ) as view:
        assert view[:] == data


def test_map_of_a_file_made_outside_shows_it(mount):
    volume = mount()
    data = os.urandom(300_000)
    put(volume.backing / "file", data)
    with mapped(volume.path / "file", mmap.ACCESS_READ) as view:
        assert view[200_000:] == data[200_000:]
        assert view[:] == data


def test_private_map_changes_nothing(volume):
    put(volume.path / "file", b"content" + bytes(PAGE))
    with mapped(volume.path / "file", mmap.ACCESS_COPY) as view:
        view[:7] = b"CHANGED"
        assert view[:7] == b"CHANGED"
    assert (volume.path / "file").read_bytes()[:7] == b"content"


def test_shared_writing_map_reaches_the_file_with_msync(volume):
    put(volume.path / "file", bytes(4 * PAGE))
    with mapped(volume.path / "file") as view:
        view[10:15] = b"hello"
        view[3 * PAGE:3 * PAGE + 5] = b"world"
        view.flush()
        assert (volume.backing / "file").read_bytes()[10:15] == b"hello"
        assert (volume.backing / "file").read_bytes()[3 * PAGE:3 * PAGE + 5] == b"world"


def test_shared_writing_map_reaches_the_file_without_msync_when_it_is_let_go(volume):
    put(volume.path / "file", bytes(2 * PAGE))
    with mapped(volume.path / "file") as view:
        view[PAGE:PAGE + 5] = b"hello"
    with open(volume.path / "file", "rb") as file:
        os.fsync(file.fileno())
        assert file.read()[PAGE:PAGE + 5] == b"hello"
    eventually(lambda: (volume.backing / "file").read_bytes()[PAGE:PAGE + 5] == b"hello", 10, "the written page")


def test_map_works_after_every_descriptor_was_closed(volume):
    put(volume.path / "file", b"a" * 3 * PAGE)
    with mapped(volume.path / "file") as view:
        assert view[2 * PAGE] == ord("a")
        view[2 * PAGE] = ord("b")
        view.flush()
    assert (volume.backing / "file").read_bytes() == b"a" * 2 * PAGE + b"b" + b"a" * (PAGE - 1)


def test_map_works_after_its_file_was_renamed(volume):
    put(volume.path / "file", b"a" * 3 * PAGE)
    with mapped(volume.path / "file") as view:
        os.rename(volume.path / "file", volume.path / "moved")
        assert view[2 * PAGE] == ord("a")
        view[PAGE] = ord("b")
        view.flush()
    assert (volume.backing / "moved").read_bytes()[PAGE] == ord("b")


def test_map_works_after_its_file_was_unlinked(volume):
    data = os.urandom(64 * PAGE)
    put(volume.path / "file", data)
    view = mapped(volume.path / "file")
    os.unlink(volume.path / "file")
    assert view[:] == data
    view[0:4] = b"more"
    view.flush()
    assert view[:4] == b"more"
    view.close()
    assert os.listdir(volume.path) == []
    eventually(lambda: os.listdir(volume.backing) == [], 10, "the removal of the hidden file")


def test_map_of_an_unread_file_works_after_it_was_replaced(mount):
    volume = mount()
    data = os.urandom(64 * PAGE)
    put(volume.backing / "file", data)
    put(volume.backing / "fresh", b"fresh")
    view = mapped(volume.path / "file", mmap.ACCESS_READ)
    os.rename(volume.path / "fresh", volume.path / "file")
    assert view[:] == data
    view.close()
    assert (volume.path / "file").read_bytes() == b"fresh"


def test_write_and_map_of_a_file_agree(volume):
    put(volume.path / "file", bytes(2 * PAGE))
    descriptor = os.open(volume.path / "file", os.O_RDWR)
    with mmap.mmap(descriptor, 0) as view:
        os.pwrite(descriptor, b"written", 100)
        assert view[100:107] == b"written"
        view[200:206] = b"mapped"
        assert os.pread(descriptor, 6, 200) == b"mapped"
    os.close(descriptor)


def test_two_processes_share_a_map(volume):
    put(volume.path / "file", bytes(PAGE))

    def child():
        with mapped(volume.path / "file") as view:
            view[0] = 1
            eventually(lambda: view[1] == 2, 20)
            view[2] = 3
        return True
    with mapped(volume.path / "file") as view:
        worker = Worker(child)
        eventually(lambda: view[0] == 1, 20)
        view[1] = 2
        eventually(lambda: view[2] == 3, 20)
        assert worker.result()


def test_bytes_behind_the_end_in_the_last_page_are_zero_and_stay_out_of_the_file(volume):
    put(volume.path / "file", b"x" * PAGE)
    descriptor = os.open(volume.path / "file", os.O_RDWR)
    with mmap.mmap(descriptor, PAGE) as view:
        assert view[0] == ord("x")
        os.ftruncate(descriptor, 100)
        assert view[:] == b"x" * 100 + bytes(PAGE - 100)
        view[50] = ord("y")
        view.flush()
    os.close(descriptor)
    assert (volume.backing / "file").read_bytes() == b"x" * 50 + b"y" + b"x" * 49


def test_touching_a_page_behind_the_end_is_a_bus_error(volume):
    put(volume.path / "file", b"x" * 3 * PAGE)
    child = script("import mmap,os,sys; f=os.open(sys.argv[1],os.O_RDWR); v=mmap.mmap(f,3*mmap.PAGESIZE); "
                   "v[0]; os.ftruncate(f,1); v[2*mmap.PAGESIZE]", volume.path / "file")
    assert child.wait(20) == -signal.SIGBUS


def test_map_shows_growth_and_shrinking_by_truncate(volume):
    put(volume.path / "file", b"x" * 2 * PAGE)
    descriptor = os.open(volume.path / "file", os.O_RDWR)
    with mmap.mmap(descriptor, 2 * PAGE) as view:
        os.ftruncate(descriptor, PAGE)
        os.ftruncate(descriptor, 2 * PAGE)
        assert view[:] == b"x" * PAGE + bytes(PAGE)
        view[PAGE] = 7
        os.ftruncate(descriptor, PAGE + 10)
        assert view[PAGE] == 7
        os.ftruncate(descriptor, 10)
        os.ftruncate(descriptor, 2 * PAGE)
        assert view[:10] == b"x" * 10 and view[10:] == bytes(2 * PAGE - 10)
    os.close(descriptor)


def test_random_writes_through_a_map_are_all_in_the_file(volume):
    put(volume.path / "file", bytes(64 * PAGE))
    wanted = bytearray(64 * PAGE)
    with mapped(volume.path / "file") as view:
        for step in range(2_000):
            place = step * 7919 % (64 * PAGE - 3)
            view[place:place + 3] = wanted[place:place + 3] = bytes([step % 255 + 1] * 3)
        view.flush()
    assert (volume.backing / "file").read_bytes() == wanted
    assert (volume.path / "file").read_bytes() == wanted


def test_file_error_under_a_map_is_a_bus_error_and_not_zeros(mount):
    volume = mount(control=True)
    put(volume.backing / "file", b"x" * 4 * PAGE)
    volume.helper.fail("read", "EIO")
    child = script("import mmap,os,sys; f=os.open(sys.argv[1],os.O_RDONLY); v=mmap.mmap(f,0,access=mmap.ACCESS_READ); "
                   "print(v[5])", volume.path / "file", stdout=subprocess.PIPE)
    assert child.communicate(timeout=20)[0] == b"" and child.returncode == -signal.SIGBUS


# Pages that cannot be written back

def full_disk(volume, offset):
    """From now on the helper refuses to write behind an offset."""
    volume.checks_descriptors = False
    return volume.helper.rule("failWritesFrom", "write", offset=offset, code="ENOSPC", message="no room")


@pytest.mark.parametrize("options", [[], ["writeback"]])
def test_page_that_cannot_be_written_is_an_error_of_msync(mount, options):
    volume = mount(options=options, control=True)
    put(volume.backing / "file", bytes(64 * PAGE))
    descriptor = os.open(volume.path / "file", os.O_RDWR)
    view = mmap.mmap(descriptor, 0)
    rule = full_disk(volume, 32 * PAGE)
    view[:] = b"x" * 64 * PAGE
    assert failure(view.flush) == errno.EIO
    volume.helper.drop(rule)
    view.close()
    os.close(descriptor)
    assert (volume.backing / "file").read_bytes()[:32 * PAGE] == b"x" * 32 * PAGE


def test_page_that_cannot_be_written_when_the_map_ends_is_an_error_of_the_next_close(controlled):
    put(controlled.backing / "file", bytes(64 * PAGE))
    descriptor = os.open(controlled.path / "file", os.O_RDWR)
    view = mmap.mmap(descriptor, 0)
    view[:] = b"x" * 64 * PAGE
    rule = full_disk(controlled, 32 * PAGE)
    view.close()
    controlled.helper.drop(rule)
    assert failure(os.close, descriptor) == errno.EIO


@pytest.mark.parametrize("last", ["fsync", "close"])
def test_gathered_writes_that_cannot_be_written_are_an_error(mount, last):
    volume = mount(options=["writeback"], control=True)
    descriptor = os.open(volume.path / "file", os.O_RDWR | os.O_CREAT)
    rule = full_disk(volume, 32 * PAGE)
    os.write(descriptor, b"x" * 64 * PAGE)
    assert failure(os.fsync if last == "fsync" else os.close, descriptor) == errno.EIO
    volume.helper.drop(rule)
    if last == "fsync":
        assert failure(os.close, descriptor) == errno.EIO, "whoever asks next is told, too"


# Programs and libraries

def test_program_runs_from_a_volume_that_shows_files_as_executable(mount):
    volume = mount(options=["fmask=022"])
    shutil.copy(shutil.which("true"), volume.path / "program")
    assert subprocess.run([volume.path / "program"], check=False, timeout=20).returncode == 0
    put(volume.path / "script", b"#!/bin/sh\necho from the volume\n")
    done = subprocess.run([volume.path / "script"], check=True, capture_output=True, timeout=20)
    assert done.stdout == b"from the volume\n"


def test_program_is_refused_where_files_are_shown_as_not_executable(mount):
    volume = mount()
    shutil.copy(shutil.which("true"), volume.path / "program")
    with pytest.raises(PermissionError):
        subprocess.run([volume.path / "program"], check=False, timeout=20)


def library_file():
    with open("/proc/self/maps", encoding="ascii") as maps:
        return next(line.split()[-1] for line in maps if "/libm.so" in line or "/libz.so" in line)


@pytest.mark.parametrize("options", [[], ["fmask=022"]])
def test_shared_library_is_loaded_from_the_volume(mount, options):
    volume = mount(options=options)
    shutil.copy(library_file(), volume.path / "library.so")

    def load():
        library = ctypes.CDLL(str(volume.path / "library.so"))
        return bool(getattr(library, "cos", None) or getattr(library, "zlibVersion", None))
    assert in_child(load)


def test_running_program_can_be_replaced(mount):
    volume = mount(options=["fmask=022"])
    shutil.copy(shutil.which("sleep"), volume.path / "program")
    with subprocess.Popen([volume.path / "program", "60"]) as running:
        shutil.copy(shutil.which("true"), volume.path / "fresh")
        os.rename(volume.path / "fresh", volume.path / "program")
        assert subprocess.run([volume.path / "program"], check=False, timeout=20).returncode == 0
        assert running.poll() is None
        running.kill()
