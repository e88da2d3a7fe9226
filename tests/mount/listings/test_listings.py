"""A listing tells every entry once, whatever the buffer, and costs one request."""

import ctypes
import errno
import os
import stat
import subprocess

import pytest

from harness import libc
from harness.calls import failure
from harness.worker import Worker


def fill(folder, count):
    for index in range(count):
        (folder / f"entry{index:05d}").touch()
    return {f"entry{index:05d}" for index in range(count)}


def test_empty_folder_lists_itself_and_its_parent(volume):
    descriptor = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    assert sorted(name for name, *_ in libc.whole_directory(descriptor)) == [".", ".."]
    os.close(descriptor)


@pytest.mark.long
@pytest.mark.limit(240)
def test_fifty_thousand_entries_are_each_listed_once_in_one_request(mount):
    volume = mount(control=True)
    wanted = fill(volume.backing, 50_000)
    listed = os.listdir(volume.path)
    assert len(listed) == len(wanted) and set(listed) == wanted
    assert volume.helper.short("readdir") == ["readdir /"]
    assert volume.helper.count("getattr") == 0


def test_long_listing_needs_no_request_per_entry(mount):
    volume = mount(control=True, options=["attr_timeout=60", "entry_timeout=60"])
    fill(volume.backing, 2_000)
    done = subprocess.run(["ls", "-l", volume.path], capture_output=True, text=True, check=True, timeout=50)
    assert len(done.stdout.splitlines()) == 2_001
    assert volume.helper.count("readdir") == 1
    assert volume.helper.count() <= 3, volume.helper.short()


def test_listing_tells_size_and_time_as_stat_does(mount):
    volume = mount(control=True)
    (volume.backing / "file").write_bytes(b"x" * 12345)
    os.utime(volume.backing / "file", (1_600_000_000, 1_600_000_000))
    entry = next(os.scandir(volume.path))
    assert entry.is_file() and entry.stat().st_size == 12345 and entry.stat().st_mtime == 1_600_000_000


def test_listing_tells_the_kind_of_each_entry(volume):
    (volume.path / "file").touch()
    (volume.path / "folder").mkdir()
    descriptor = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    kinds = {name: kind for name, _, _, kind in libc.whole_directory(descriptor)}
    os.close(descriptor)
    assert kinds == {".": 4, "..": 4, "file": 8, "folder": 4}


def test_each_opened_listing_asks_once_and_each_rewind_again(controlled):
    wanted = fill(controlled.backing, 100)
    descriptor = os.open(controlled.path, os.O_RDONLY | os.O_DIRECTORY)
    for turn in (1, 2, 3):
        os.lseek(descriptor, 0, os.SEEK_SET)
        names = {name for name, *_ in libc.whole_directory(descriptor, 200)}
        assert names == wanted | {".", ".."}
        assert controlled.helper.count("readdir") == turn
    os.close(descriptor)


@pytest.mark.parametrize("size", [48, 100, 512, 4096, 1 << 20])
def test_every_buffer_size_gives_each_entry_once(volume, size):
    wanted = fill(volume.path, 500)
    descriptor = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    names = [name for name, *_ in libc.whole_directory(descriptor, size)]
    os.close(descriptor)
    assert len(names) == 502 and set(names) == wanted | {".", ".."}


def test_rewind_shows_what_came_and_went(volume):
    fill(volume.path, 10)
    descriptor = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    libc.whole_directory(descriptor)
    (volume.path / "fresh").touch()
    (volume.path / "entry00003").unlink()
    os.lseek(descriptor, 0, os.SEEK_SET)
    names = {name for name, *_ in libc.whole_directory(descriptor)}
    os.close(descriptor)
    assert "fresh" in names and "entry00003" not in names and len(names) == 12


def test_place_in_a_listing_can_be_kept_and_found_again(volume):
    fill(volume.path, 200)
    descriptor = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    whole = libc.whole_directory(descriptor, 300)
    for place in (0, 1, 2, 57, 150, 200):
        os.lseek(descriptor, whole[place][2], os.SEEK_SET)
        rest = [name for name, *_ in libc.whole_directory(descriptor, 300)]
        assert rest == [name for name, *_ in whole[place + 1:]]
    os.close(descriptor)


def test_entries_removed_while_listing_neither_skip_nor_loop(volume):
    wanted = fill(volume.path, 1_500)
    descriptor = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    seen = []
    while part := libc.raw_directory(descriptor, 400):
        for name, *_ in part:
            if name not in (".", ".."):
                seen.append(name)
                os.unlink(volume.path / name)
    os.close(descriptor)
    assert len(seen) == len(wanted) and set(seen) == wanted
    assert os.listdir(volume.path) == []


def test_entries_added_while_listing_do_not_hide_or_double_the_others(volume):
    wanted = fill(volume.path, 300)
    descriptor = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    seen, step = [], 0
    while part := libc.raw_directory(descriptor, 300):
        seen += [name for name, *_ in part if name.startswith("entry")]
        (volume.path / f"added{step}").touch()
        step += 1
        assert step < 5_000
    os.close(descriptor)
    assert len(seen) == len(wanted) and set(seen) == wanted


def test_entries_renamed_while_listing_keep_the_others_complete(volume):
    wanted = fill(volume.path, 300)
    descriptor = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    seen = []
    while part := libc.raw_directory(descriptor, 300):
        for name, *_ in part:
            if name.startswith("entry"):
                seen.append(name)
                if int(name[5:]) % 3 == 0:
                    os.rename(volume.path / name, volume.path / name.replace("entry", "other"))
    os.close(descriptor)
    assert len(seen) == len(set(seen)) and {name for name in wanted if int(name[5:]) % 3} <= set(seen)


@pytest.mark.long
@pytest.mark.limit(120)
def test_rm_r_removes_a_large_tree(volume):
    for folder in range(20):
        (volume.path / "top" / f"folder{folder}").mkdir(parents=True)
        fill(volume.path / "top" / f"folder{folder}", 100)
    subprocess.run(["rm", "-r", volume.path / "top"], check=True, timeout=110)
    assert os.listdir(volume.backing) == []


def test_find_meets_every_file_of_a_tree_once(volume):
    wanted = set()
    for folder in range(12):
        place = volume.path / f"folder{folder}" / "sub"
        place.mkdir(parents=True)
        wanted |= {str(place / name) for name in fill(place, 25)}
    done = subprocess.run(["find", volume.path, "-type", "f"], capture_output=True, text=True, check=True, timeout=50)
    assert sorted(done.stdout.split()) == sorted(wanted)


def list_many(folder, count):
    return [len(os.listdir(folder)) for _ in range(count)]


def test_many_processes_list_at_once(volume):
    fill(volume.path, 400)
    workers = [Worker(list_many, volume.path, 15) for _ in range(4)]
    for worker in workers:
        assert worker.result(50) == [400] * 15


def test_two_open_listings_of_a_folder_do_not_disturb_each_other(volume):
    wanted = fill(volume.path, 200) | {".", ".."}
    first = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    second = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    seen = {first: [], second: []}
    for _ in range(1_000):
        for descriptor, size in ((first, 200), (second, 700)):
            seen[descriptor] += [name for name, *_ in libc.raw_directory(descriptor, size)]
    os.close(first)
    os.close(second)
    assert all(len(names) == len(wanted) and set(names) == wanted for names in seen.values())


def test_listing_of_a_missing_folder_is_refused(volume):
    assert failure(os.listdir, volume.path / "absent") == errno.ENOENT


def test_listing_of_a_file_is_refused(volume):
    (volume.path / "file").touch()
    assert failure(os.listdir, volume.path / "file") == errno.ENOTDIR


@pytest.mark.parametrize("code", ["EACCES", "EIO", "EPERM"])
def test_error_of_a_listing_is_told_and_passes(controlled, code):
    (controlled.path / "folder").mkdir()
    (controlled.path / "folder" / "file").touch()
    rule = controlled.helper.fail("readdir", code)
    assert failure(os.listdir, controlled.path / "folder") == getattr(errno, code)
    controlled.helper.drop(rule)
    assert os.listdir(controlled.path / "folder") == ["file"]


ODD = ["", ".", "..", "a/b", "/", "nul\0inside", "x" * 256, "\u00e4" * 128]


def test_entries_with_impossible_names_are_left_out_and_told_in_one_line(controlled):
    (controlled.path / "good").touch()
    controlled.helper.rule("oddNames", "readdir", names=ODD)
    controlled.expect_log("")
    descriptor = os.open(controlled.path, os.O_RDONLY | os.O_DIRECTORY)
    names = sorted(name for name, *_ in libc.whole_directory(descriptor))
    os.close(descriptor)
    assert names == [".", "..", "good"]
    line, = controlled.log().splitlines()
    assert f"{len(ODD)} entries whose names no kernel accepts" in line


def test_longest_names_of_a_helper_are_listed(controlled):
    controlled.helper.rule("oddNames", "readdir", names=["x" * 255, "\u20ac" * 85])
    assert sorted(os.listdir(controlled.path)) == sorted(["x" * 255, "\u20ac" * 85])


def test_entry_learned_from_a_listing_can_be_used_in_every_way(mount):
    volume = mount(options=["attr_timeout=60", "entry_timeout=60"])
    for name in ("read", "write", "rename", "remove", "truncate", "times"):
        (volume.backing / name).write_bytes(b"content")
    (volume.backing / "folder").mkdir()
    (volume.backing / "folder" / "inner").write_bytes(b"inner")
    subprocess.run(["ls", "-l", volume.path, volume.path / "folder"], capture_output=True, check=True, timeout=20)
    assert (volume.path / "read").read_bytes() == b"content"
    with open(volume.path / "write", "r+b") as file:
        file.write(b"C")
    os.rename(volume.path / "rename", volume.path / "renamed")
    os.unlink(volume.path / "remove")
    os.truncate(volume.path / "truncate", 3)
    os.utime(volume.path / "times", (9, 9))
    assert (volume.path / "folder" / "inner").read_bytes() == b"inner"
    os.rename(volume.path / "folder", volume.path / "moved")
    assert (volume.path / "moved" / "inner").read_bytes() == b"inner"
    assert sorted(os.listdir(volume.backing)) == ["moved", "read", "renamed", "times", "truncate", "write"]
    assert (volume.backing / "write").read_bytes() == b"Content"
    assert (volume.backing / "truncate").read_bytes() == b"con"
    assert os.stat(volume.backing / "times").st_mtime == 9


def test_open_folder_that_was_removed_is_not_found(volume):
    (volume.path / "folder").mkdir()
    descriptor = os.open(volume.path / "folder", os.O_RDONLY | os.O_DIRECTORY)
    os.rmdir(volume.path / "folder")
    assert failure(libc.whole_directory, descriptor) == errno.ENOENT
    os.close(descriptor)


def test_library_functions_of_c_walk_a_folder(volume):
    """opendir, telldir, seekdir, rewinddir as programs in C use them."""
    wanted = fill(volume.path, 120)
    library = libc.library
    for name in ("opendir", "readdir"):
        getattr(library, name).restype = ctypes.c_void_p
    library.telldir.restype = ctypes.c_long
    stream = ctypes.c_void_p(library.opendir(os.fsencode(volume.path)))

    def step():
        entry = library.readdir(stream)
        return os.fsdecode(ctypes.string_at(entry + 19)) if entry else None
    head = [step() for _ in range(40)]
    place = library.telldir(stream)
    rest = list(iter(step, None))
    library.seekdir(stream, ctypes.c_long(place))
    assert list(iter(step, None)) == rest
    library.rewinddir(stream)
    assert list(iter(step, None)) == head + rest
    library.closedir(stream)
    assert set(head + rest) == wanted | {".", ".."}


def test_modes_in_a_listing_are_those_of_stat(mount):
    volume = mount(options=["fmask=027", "dmask=077"])
    (volume.path / "file").touch()
    (volume.path / "folder").mkdir()
    modes = {entry.name: stat.S_IMODE(entry.stat().st_mode) for entry in os.scandir(volume.path)}
    assert modes == {"file": 0o750, "folder": 0o700}
