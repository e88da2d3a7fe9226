"""No call destroys data that the same call on a local disk would keep."""

import errno
import os
import subprocess

import pytest

from harness import libc
from harness.calls import failure, put
from harness.deadline import eventually, unless_overtaken
from harness.worker import Worker


# Opening and creating

@pytest.mark.parametrize("flags", [os.O_RDONLY, os.O_WRONLY, os.O_RDWR, os.O_WRONLY | os.O_APPEND])
def test_open_with_create_keeps_an_existing_file(volume, flags):
    put(volume.path / "file", b"content")
    os.close(os.open(volume.path / "file", flags | os.O_CREAT))
    assert (volume.path / "file").read_bytes() == b"content"


def test_exclusive_create_refuses_and_keeps_an_existing_file(volume):
    put(volume.path / "file", b"content")
    assert failure(os.open, volume.path / "file", os.O_WRONLY | os.O_CREAT | os.O_EXCL) == errno.EEXIST
    assert (volume.path / "file").read_bytes() == b"content"


def test_exclusive_create_with_truncate_refuses_and_keeps_an_existing_file(volume):
    put(volume.path / "file", b"content")
    flags = os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_TRUNC
    assert failure(os.open, volume.path / "file", flags) == errno.EEXIST
    assert (volume.path / "file").read_bytes() == b"content"


def test_mknod_refuses_and_keeps_an_existing_file(volume):
    put(volume.path / "file", b"content")
    assert failure(os.mknod, volume.path / "file") == errno.EEXIST
    assert (volume.path / "file").read_bytes() == b"content"


@pytest.mark.parametrize("flags", [0, os.O_EXCL])
def test_create_keeps_a_file_that_came_from_outside_while_the_kernel_thought_it_absent(mount, flags):
    volume = mount(options=["negative_timeout=60"])
    assert not (volume.path / "file").exists()
    put(volume.backing / "file", b"content")
    try:
        os.close(os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT | flags))
        assert flags == 0
    except OSError as error:
        assert flags == os.O_EXCL and error.errno == errno.EEXIST
    assert (volume.backing / "file").read_bytes() == b"content"


@pytest.mark.parametrize("call", ["mknod", "mkdir"])
def test_making_a_node_keeps_a_file_that_came_from_outside(mount, call):
    volume = mount(options=["negative_timeout=60"])
    assert not (volume.path / "file").exists()
    put(volume.backing / "file", b"content")
    assert failure(getattr(os, call), volume.path / "file") == errno.EEXIST
    assert (volume.backing / "file").read_bytes() == b"content"


def test_failed_open_for_writing_keeps_the_file(controlled):
    put(controlled.backing / "file", b"content")
    controlled.helper.fail("open", "EACCES")
    assert failure(os.open, controlled.path / "file", os.O_WRONLY) == errno.EACCES
    assert (controlled.backing / "file").read_bytes() == b"content"


def race(path, _index):
    try:
        os.close(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL))
        return True
    except FileExistsError:
        return False


def race_many(folder, names):
    return [race(folder / name, 0) for name in names]


def test_of_two_processes_that_create_a_name_exclusively_one_wins(volume):
    names = [f"file{index}" for index in range(150)]
    workers = [Worker(race_many, volume.path, names) for _ in range(3)]
    results = [worker.result(50) for worker in workers]
    assert [sum(wins) for wins in zip(*results)] == [1] * len(names)


def mkdir_many(folder, names):
    won = []
    for name in names:
        try:
            os.mkdir(folder / name)
            won.append(True)
        except FileExistsError:
            won.append(False)
    return won


def test_of_two_processes_that_make_a_folder_one_wins(volume):
    names = [f"folder{index}" for index in range(100)]
    workers = [Worker(mkdir_many, volume.path, names) for _ in range(2)]
    results = [worker.result(50) for worker in workers]
    assert [sum(wins) for wins in zip(*results)] == [1] * len(names)


# Changing the size

def test_truncating_a_file_that_grew_outside_keeps_its_bytes(mount):
    volume = mount(options=["attr_timeout=60", "entry_timeout=60"])
    put(volume.backing / "file", b"12345")
    assert os.stat(volume.path / "file").st_size == 5
    put(volume.backing / "file", b"1234567890abcdefghij")
    os.truncate(volume.path / "file", 15)
    assert (volume.backing / "file").read_bytes() == b"1234567890abcde"


def test_growing_a_file_that_grew_outside_keeps_its_bytes(mount):
    volume = mount(options=["attr_timeout=60", "entry_timeout=60"])
    put(volume.backing / "file", b"12345")
    assert os.stat(volume.path / "file").st_size == 5
    put(volume.backing / "file", b"1234567890abcdefghij")
    os.truncate(volume.path / "file", 25)
    assert (volume.backing / "file").read_bytes() == b"1234567890abcdefghij" + bytes(5)


def test_truncating_a_file_that_was_empty_when_looked_up_keeps_its_bytes(mount):
    volume = mount(options=["attr_timeout=60", "entry_timeout=60"])
    put(volume.backing / "file", b"")
    assert os.stat(volume.path / "file").st_size == 0
    put(volume.backing / "file", b"1234567890")
    os.truncate(volume.path / "file", 4)
    assert (volume.backing / "file").read_bytes() == b"1234"


def test_truncating_through_a_descriptor_that_wrote_keeps_what_it_wrote(volume):
    descriptor = os.open(volume.path / "file", os.O_RDWR | os.O_CREAT)
    os.write(descriptor, b"0123456789" * 1000)
    os.ftruncate(descriptor, 9999)
    assert os.pread(descriptor, 20000, 0) == (b"0123456789" * 1000)[:9999]
    os.close(descriptor)
    assert (volume.backing / "file").read_bytes() == (b"0123456789" * 1000)[:9999]


def test_failed_truncate_keeps_the_file(controlled):
    put(controlled.backing / "file", b"0123456789")
    controlled.helper.fail("read", "EIO")
    assert failure(os.truncate, controlled.path / "file", 4) == errno.EIO
    assert (controlled.backing / "file").read_bytes() == b"0123456789"


def test_growing_to_a_gibibyte_is_one_small_write(controlled):
    put(controlled.path / "file", b"head")
    os.stat(controlled.path / "file")
    controlled.helper.forget()
    os.truncate(controlled.path / "file", 1 << 30)
    assert [request["size"] for request in controlled.helper.requests("write")] == [1]
    assert controlled.helper.requests("write")[0]["offset"] == (1 << 30) - 1
    assert controlled.helper.count("read") == 0
    held = os.stat(controlled.backing / "file")
    assert held.st_size == 1 << 30 and held.st_blocks * 512 < 1 << 20
    with open(controlled.path / "file", "rb") as file:
        assert file.read(8) == b"head" + bytes(4)


def test_shrinking_a_large_file_keeps_its_head(volume):
    data = os.urandom(5 << 20)
    put(volume.path / "file", data)
    os.truncate(volume.path / "file", 3_333_333)
    assert (volume.path / "file").read_bytes() == data[:3_333_333]
    assert (volume.backing / "file").read_bytes() == data[:3_333_333]


# Writers that share a file

def append(path, writer, count):
    descriptor = os.open(path, os.O_WRONLY | os.O_APPEND | os.O_CREAT)
    for record in range(count):
        line = b"%d:%d:" % (writer, record) + b"x" * (record % 97) + b"\n"
        assert os.write(descriptor, line) == len(line)
    os.close(descriptor)
    return True


def test_appending_processes_lose_no_record(volume):
    (volume.path / "log").touch()
    workers = [Worker(append, volume.path / "log", writer, 400) for writer in range(4)]
    for worker in workers:
        assert worker.result(50)
    records = (volume.path / "log").read_bytes().split(b"\n")[:-1]
    assert len(records) == 1600
    for writer in range(4):
        mine = [line for line in records if line.startswith(b"%d:" % writer)]
        assert mine == [b"%d:%d:" % (writer, record) + b"x" * (record % 97) for record in range(400)]


def append_reopening(path, writer, count):
    for record in range(count):
        with open(path, "ab", buffering=0) as file:
            file.write(b"%d:%d\n" % (writer, record))
    return True


def test_processes_that_reopen_to_append_lose_no_record(volume):
    (volume.path / "log").touch()
    workers = [Worker(append_reopening, volume.path / "log", writer, 150) for writer in range(3)]
    for worker in workers:
        assert worker.result(50)
    records = (volume.path / "log").read_bytes().split(b"\n")[:-1]
    assert sorted(records) == sorted(b"%d:%d" % (w, r) for w in range(3) for r in range(150))


def test_shell_appends_through_inherited_descriptors_lose_no_line(volume):
    loop = 'for w in 1 2 3; do (i=0; while [ $i -lt 100 ]; do echo $w:$i; i=$((i+1)); done) & done >> "$1"; wait'
    subprocess.run(["sh", "-c", loop, "sh", volume.path / "log"], check=True, timeout=50)
    lines = (volume.path / "log").read_text().split()
    assert sorted(lines) == sorted(f"{w}:{i}" for w in (1, 2, 3) for i in range(100))


def write_stripes(path, writer, count):
    descriptor = os.open(path, os.O_WRONLY)
    for block in range(count):
        os.pwrite(descriptor, bytes([65 + writer]) * 1000, (block * 3 + writer) * 1000)
    os.close(descriptor)
    return True


def test_writers_of_interleaved_ranges_lose_nothing(volume):
    (volume.path / "file").touch()
    workers = [Worker(write_stripes, volume.path / "file", writer, 100) for writer in range(3)]
    for worker in workers:
        assert worker.result(50)
    assert (volume.path / "file").read_bytes() == (b"A" * 1000 + b"B" * 1000 + b"C" * 1000) * 100


# Sequences of requests are one step to everybody else

def resize_many(path, count):
    for _ in range(count):
        os.truncate(path, 6000)
        os.truncate(path, 9000)
    return True


def test_nobody_sees_a_file_empty_while_it_is_resized(mount):
    volume = mount(options=["attr_timeout=0", "entry_timeout=0"], control=True)
    put(volume.path / "file", b"h" * 9000)
    volume.helper.rule("delay", "write", milliseconds=3)
    worker = Worker(resize_many, volume.path / "file", 40)
    looks = 0
    while not worker.is_done():
        with open(volume.path / "file", "rb", buffering=0) as file:
            assert file.read(4000) == b"h" * 4000
        assert os.stat(volume.path / "file").st_size in (6000, 9000)
        looks += 1
    assert worker.result() and looks > 10


def poke_many(path, count):
    descriptor = os.open(path, os.O_WRONLY)
    for step in range(count):
        os.pwrite(descriptor, b"%06d" % step, 100)
    os.close(descriptor)
    return True


def test_write_during_resizes_is_not_lost(mount):
    volume = mount(control=True)
    put(volume.path / "file", b"h" * 9000)
    volume.helper.rule("delay", "read", milliseconds=2)
    workers = [Worker(resize_many, volume.path / "file", 40), Worker(poke_many, volume.path / "file", 60)]
    for worker in workers:
        assert worker.result(50)
    data = (volume.backing / "file").read_bytes()
    assert len(data) == 9000 and data[100:106] == b"000059" and data[:100] == b"h" * 100


def replace_many(folder, count):
    for step in range(count):
        put(folder / "fresh", b"version %06d" % step)
        os.rename(folder / "fresh", folder / "file")
    return True


@pytest.mark.parametrize("atomic_helper", [True, False])
def test_replaced_name_is_never_absent(mount, atomic_helper):
    volume = mount(options=["attr_timeout=0", "entry_timeout=0"], control=True)
    if not atomic_helper:
        volume.helper.rule("renameRefusesExisting", "rename")
    volume.helper.rule("delay", "rename", milliseconds=3)
    put(volume.path / "file", b"version 000000")
    worker = Worker(replace_many, volume.path, 40)
    looks = 0
    while not worker.is_done():
        assert len(unless_overtaken((volume.path / "file").read_bytes)) == 14
        looks += 1
    assert worker.result() and looks > 10


# Renaming

def test_rename_over_an_open_file_keeps_both_contents(volume):
    put(volume.path / "a", b"is a")
    put(volume.path / "b", b"is b")
    with open(volume.path / "b", "rb", buffering=0) as old:
        os.rename(volume.path / "a", volume.path / "b")
        assert old.read() == b"is b"
        assert (volume.path / "b").read_bytes() == b"is a"
    eventually(lambda: os.listdir(volume.backing) == ["b"], 10, "the removal of the replaced file")


def test_rename_over_an_open_written_file_keeps_what_is_written_apart(volume):
    put(volume.path / "a", b"is a")
    with open(volume.path / "b", "wb", buffering=0) as old:
        old.write(b"is b")
        os.rename(volume.path / "a", volume.path / "b")
        old.write(b" and more")
    assert (volume.path / "b").read_bytes() == b"is a"


def test_rename_over_a_file_changed_outside_moves_the_whole_new_content(mount):
    volume = mount(options=["attr_timeout=60", "entry_timeout=60"])
    put(volume.path / "a", b"is a")
    put(volume.path / "b", b"is b")
    put(volume.backing / "a", b"a, changed and grown outside")
    put(volume.backing / "b", b"b, changed outside")
    os.rename(volume.path / "a", volume.path / "b")
    assert (volume.backing / "b").read_bytes() == b"a, changed and grown outside"
    assert os.listdir(volume.backing) == ["b"]


def test_rename_without_replacing_refuses_and_keeps_both(volume):
    put(volume.path / "a", b"is a")
    put(volume.path / "b", b"is b")
    assert failure(libc.renameat2, volume.path / "a", volume.path / "b", libc.RENAME_NOREPLACE) == errno.EEXIST
    assert (volume.path / "a").read_bytes() == b"is a"
    assert (volume.path / "b").read_bytes() == b"is b"


def test_rename_without_replacing_sees_a_file_that_came_from_outside(mount):
    volume = mount(options=["negative_timeout=60"])
    put(volume.path / "a", b"is a")
    assert not (volume.path / "b").exists()
    put(volume.backing / "b", b"is b")
    assert failure(libc.renameat2, volume.path / "a", volume.path / "b", libc.RENAME_NOREPLACE) == errno.EEXIST
    assert (volume.backing / "a").read_bytes() == b"is a"
    assert (volume.backing / "b").read_bytes() == b"is b"


def test_rename_without_replacing_to_a_free_name_works(volume):
    put(volume.path / "a", b"is a")
    libc.renameat2(volume.path / "a", volume.path / "b", libc.RENAME_NOREPLACE)
    assert (volume.path / "b").read_bytes() == b"is a" and not (volume.path / "a").exists()


def test_exchange_is_refused_and_keeps_both(mount):
    volume = mount()
    put(volume.path / "a", b"is a")
    put(volume.path / "b", b"is b")
    assert failure(libc.renameat2, volume.path / "a", volume.path / "b", libc.RENAME_EXCHANGE) == errno.EINVAL
    assert (volume.path / "a").read_bytes() == b"is a"
    assert (volume.path / "b").read_bytes() == b"is b"


@pytest.mark.parametrize("code", ["EACCES", "EIO", "EPERM", "ENOENT"])
def test_failed_rename_keeps_source_and_target(controlled, code):
    put(controlled.path / "a", b"is a")
    put(controlled.path / "b", b"is b")
    controlled.helper.fail("rename", code)
    assert failure(os.rename, controlled.path / "a", controlled.path / "b") == getattr(errno, code)
    assert (controlled.backing / "a").read_bytes() == b"is a"
    assert (controlled.backing / "b").read_bytes() == b"is b"
    assert sorted(os.listdir(controlled.path)) == ["a", "b"]


def test_failed_rename_over_an_open_file_keeps_source_and_target(controlled):
    put(controlled.path / "a", b"is a")
    put(controlled.path / "b", b"is b")
    with open(controlled.path / "b", "rb", buffering=0) as target:
        rule = controlled.helper.fail("rename", "EACCES", path="/a")
        assert failure(os.rename, controlled.path / "a", controlled.path / "b") == errno.EACCES
        controlled.helper.drop(rule)
        assert target.read() == b"is b"
        assert (controlled.path / "a").read_bytes() == b"is a"
        assert (controlled.path / "b").read_bytes() == b"is b"
    assert sorted(os.listdir(controlled.backing)) == ["a", "b"]


def test_rename_of_a_folder_over_one_with_entries_keeps_both(volume):
    for name in "ab":
        (volume.path / name).mkdir()
        put(volume.path / name / "file", name.encode())
    assert failure(os.rename, volume.path / "a", volume.path / "b") == errno.ENOTEMPTY
    assert (volume.path / "a" / "file").read_bytes() == b"a"
    assert (volume.path / "b" / "file").read_bytes() == b"b"


def test_rename_of_a_folder_over_an_empty_one_replaces_it(volume):
    for name in "ab":
        (volume.path / name).mkdir()
    put(volume.path / "a" / "file", b"a")
    os.rename(volume.path / "a", volume.path / "b")
    assert (volume.path / "b" / "file").read_bytes() == b"a"
    assert os.listdir(volume.path) == ["b"]


def test_rename_between_file_and_folder_is_refused_and_keeps_both(volume):
    put(volume.path / "file", b"x")
    (volume.path / "folder").mkdir()
    assert failure(os.rename, volume.path / "file", volume.path / "folder") == errno.EISDIR
    assert failure(os.rename, volume.path / "folder", volume.path / "file") == errno.ENOTDIR
    assert (volume.path / "file").read_bytes() == b"x" and (volume.path / "folder").is_dir()


# Removing

def test_rmdir_of_a_folder_with_entries_is_refused(volume):
    (volume.path / "folder").mkdir()
    put(volume.path / "folder" / "file", b"x")
    assert failure(os.rmdir, volume.path / "folder") == errno.ENOTEMPTY
    assert (volume.path / "folder" / "file").read_bytes() == b"x"


def test_rmdir_of_a_file_and_unlink_of_a_folder_are_refused(volume):
    put(volume.path / "file", b"x")
    (volume.path / "folder").mkdir()
    assert failure(os.rmdir, volume.path / "file") == errno.ENOTDIR
    assert failure(os.unlink, volume.path / "folder") == errno.EISDIR
    assert (volume.path / "file").read_bytes() == b"x" and (volume.path / "folder").is_dir()


def test_what_was_synced_survives_the_sudden_end_of_the_host(mount):
    volume = mount()
    volume.checks_descriptors, volume.expects_exit = False, None
    descriptor = os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT)
    os.write(descriptor, b"kept" * 1000)
    os.fsync(descriptor)
    volume.host.kill()
    volume.wait_for_end()
    try:
        os.close(descriptor)
    except OSError:
        pass
    assert (volume.backing / "file").read_bytes() == b"kept" * 1000
