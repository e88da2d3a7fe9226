"""What happens in the served tree is seen within the timeouts; with timeouts of 0, at once."""

import errno
import os

import pytest

from harness.calls import failure
from harness.deadline import eventually

AT_ONCE = ["entry_timeout=0", "attr_timeout=0"]


def put(path, data, mtime=None):
    path.write_bytes(data)
    if mtime is not None:
        os.utime(path, (mtime, mtime))
    return path


def exists(path):
    try:
        os.stat(path)
        return True
    except FileNotFoundError:
        return False


@pytest.fixture(params=["at once", "within the timeouts"])
def seen(request, mount):
    """(volume, check): check(condition) holds the condition to become true as soon as this mount promises it."""
    if request.param == "at once":
        def check(condition):
            assert condition()
        return mount(options=AT_ONCE), check

    def check_soon(condition):
        eventually(condition, 5, "the change made outside")
    return mount(), check_soon


def test_new_file_is_seen(seen):
    volume, check = seen
    assert not exists(volume.path / "file") and os.listdir(volume.path) == []
    put(volume.backing / "file", b"content")
    check(lambda: exists(volume.path / "file"))
    assert (volume.path / "file").read_bytes() == b"content"
    check(lambda: os.listdir(volume.path) == ["file"])


def test_removed_file_is_seen(seen):
    volume, check = seen
    put(volume.backing / "file", b"content")
    assert exists(volume.path / "file")
    os.unlink(volume.backing / "file")
    check(lambda: not exists(volume.path / "file"))
    assert os.listdir(volume.path) == []


def test_grown_file_is_seen(seen):
    volume, check = seen
    put(volume.backing / "file", b"short", 1000)
    assert (volume.path / "file").read_bytes() == b"short"
    put(volume.backing / "file", b"longer content", 2000)
    check(lambda: os.stat(volume.path / "file").st_size == 14)
    check(lambda: (volume.path / "file").read_bytes() == b"longer content")
    assert os.stat(volume.path / "file").st_mtime == 2000


def test_shrunken_file_is_seen(seen):
    volume, check = seen
    put(volume.backing / "file", b"longer content", 1000)
    assert (volume.path / "file").read_bytes() == b"longer content"
    put(volume.backing / "file", b"short", 2000)
    check(lambda: (volume.path / "file").read_bytes() == b"short")


def test_changed_content_of_the_same_size_is_seen(seen):
    volume, check = seen
    put(volume.backing / "file", b"a" * 100_000, 1000)
    assert (volume.path / "file").read_bytes() == b"a" * 100_000
    put(volume.backing / "file", b"b" * 100_000, 2000)
    check(lambda: (volume.path / "file").read_bytes() == b"b" * 100_000)


def test_replaced_file_is_seen(seen):
    volume, check = seen
    put(volume.backing / "file", b"old file", 1000)
    assert (volume.path / "file").read_bytes() == b"old file"
    put(volume.backing / "fresh", b"new file", 2000)
    os.rename(volume.backing / "fresh", volume.backing / "file")
    check(lambda: (volume.path / "file").read_bytes() == b"new file")


def test_file_that_became_a_folder_is_seen(seen):
    volume, check = seen
    put(volume.backing / "name", b"file")
    assert (volume.path / "name").read_bytes() == b"file"
    os.unlink(volume.backing / "name")
    os.mkdir(volume.backing / "name")
    put(volume.backing / "name" / "inner", b"inner")
    check(lambda: (volume.path / "name").is_dir())
    assert (volume.path / "name" / "inner").read_bytes() == b"inner"


def test_folder_that_became_a_file_is_seen(seen):
    volume, check = seen
    os.mkdir(volume.backing / "name")
    put(volume.backing / "name" / "inner", b"inner")
    assert (volume.path / "name" / "inner").read_bytes() == b"inner"
    os.unlink(volume.backing / "name" / "inner")
    os.rmdir(volume.backing / "name")
    put(volume.backing / "name", b"file")
    check(lambda: (volume.path / "name").is_file())
    assert (volume.path / "name").read_bytes() == b"file"


def test_renamed_folder_is_seen(seen):
    volume, check = seen
    os.mkdir(volume.backing / "old")
    put(volume.backing / "old" / "file", b"x")
    assert exists(volume.path / "old" / "file")
    os.rename(volume.backing / "old", volume.backing / "new")
    check(lambda: not exists(volume.path / "old"))
    assert (volume.path / "new" / "file").read_bytes() == b"x"


def test_changed_time_is_seen(seen):
    volume, check = seen
    put(volume.backing / "file", b"x", 1000)
    assert os.stat(volume.path / "file").st_mtime == 1000
    os.utime(volume.backing / "file", (2000, 2000))
    check(lambda: os.stat(volume.path / "file").st_mtime == 2000)


def test_cached_file_is_asked_for_again_after_the_timeouts(mount):
    volume = mount(options=["entry_timeout=0.2", "attr_timeout=0.2"])
    put(volume.backing / "file", b"one", 1000)
    assert (volume.path / "file").read_bytes() == b"one"
    put(volume.backing / "file", b"three", 2000)
    eventually(lambda: (volume.path / "file").read_bytes() == b"three", 3)


def test_long_timeouts_keep_what_was_told(mount):
    volume = mount(options=["entry_timeout=60", "attr_timeout=60"])
    put(volume.backing / "file", b"one", 1000)
    assert os.stat(volume.path / "file").st_size == 3
    put(volume.backing / "file", b"three", 2000)
    assert os.stat(volume.path / "file").st_size == 3


def test_opened_file_shows_growth_made_outside(mount):
    volume = mount(options=AT_ONCE)
    put(volume.backing / "file", b"one\n", 1000)
    descriptor = os.open(volume.path / "file", os.O_RDONLY)
    assert os.read(descriptor, 100) == b"one\n"
    with open(volume.backing / "file", "ab") as file:
        file.write(b"two\n")
    assert os.fstat(descriptor).st_size == 8
    assert os.read(descriptor, 100) == b"two\n"
    os.close(descriptor)


def test_descriptor_of_a_file_removed_outside_fails_or_reads_but_never_hangs(mount):
    volume = mount(options=AT_ONCE)
    put(volume.backing / "file", b"content")
    descriptor = os.open(volume.path / "file", os.O_RDWR)
    os.unlink(volume.backing / "file")
    assert not exists(volume.path / "file")
    assert failure(os.fstat, descriptor) == errno.ESTALE
    assert failure(os.pread, descriptor, 10, 0) == errno.ESTALE
    assert failure(os.ftruncate, descriptor, 2) == errno.ESTALE
    os.close(descriptor)
    assert not exists(volume.path / "file")


def test_using_a_name_that_went_away_outside_is_not_found(mount):
    volume = mount(options=["entry_timeout=60", "attr_timeout=60"])
    for name in ("a", "b", "c", "d"):
        put(volume.backing / name, b"x")
        os.stat(volume.path / name)
        os.unlink(volume.backing / name)
    for call in (lambda: os.open(volume.path / "a", os.O_RDONLY), lambda: os.unlink(volume.path / "b"),
                 lambda: os.rename(volume.path / "c", volume.path / "e"), lambda: os.truncate(volume.path / "d", 5)):
        with pytest.raises(OSError) as caught:
            call()
        assert caught.value.errno == errno.ENOENT
    assert os.listdir(volume.backing) == []


def listed_and_not_looked_at(volume, count=1000):
    """A folder so large that the kernel learns most of its names alone, and one of these names."""
    for number in range(count):
        put(volume.backing / f"file{number}", b"x")
    return os.listdir(volume.path)[-1]


def test_name_that_went_away_after_it_was_listed_is_not_found(mount):
    volume = mount(options=["entry_timeout=60", "attr_timeout=60"])
    name = listed_and_not_looked_at(volume)
    os.unlink(volume.backing / name)
    with pytest.raises(FileNotFoundError):
        os.open(volume.path / name, os.O_RDONLY)


def test_name_that_came_after_a_listing_is_found(mount):
    volume = mount(options=["entry_timeout=60", "attr_timeout=60"])
    listed_and_not_looked_at(volume)
    put(volume.backing / "new", b"content")
    assert (volume.path / "new").read_bytes() == b"content"


def test_what_a_listing_told_is_trusted_no_longer_than_what_was_looked_up(mount):
    volume = mount(options=["entry_timeout=1", "attr_timeout=1"])
    name = listed_and_not_looked_at(volume)
    os.stat(volume.path / name)
    (volume.backing / name).write_bytes(b"longer")
    eventually(lambda: os.stat(volume.path / name).st_size == 6, 5)


def test_with_timeouts_of_zero_a_listing_tells_nothing(mount):
    volume = mount(options=AT_ONCE)
    name = listed_and_not_looked_at(volume)
    (volume.backing / name).write_bytes(b"longer")
    assert os.stat(volume.path / name).st_size == 6


def test_name_listed_and_changed_through_the_volume_shows_the_change(mount):
    volume = mount(options=["entry_timeout=60", "attr_timeout=60"])
    name = listed_and_not_looked_at(volume)
    os.truncate(volume.path / name, 5)
    assert os.stat(volume.path / name).st_size == 5
    os.rename(volume.path / name, volume.path / "moved")
    assert not (volume.path / name).exists() and os.stat(volume.path / "moved").st_size == 5


def test_folder_that_went_away_outside_can_be_left(mount):
    volume = mount(options=AT_ONCE)
    os.mkdir(volume.backing / "folder")
    here = os.open(volume.path / "folder", os.O_RDONLY | os.O_DIRECTORY)
    os.rmdir(volume.backing / "folder")
    with pytest.raises(OSError) as caught:
        os.open("file", os.O_WRONLY | os.O_CREAT, dir_fd=here)
    assert caught.value.errno == errno.ESTALE
    os.close(here)
    assert os.listdir(volume.path) == []


def test_writes_through_the_volume_are_in_the_served_tree_at_once(mount):
    volume = mount()
    descriptor = os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT)
    for step in range(1, 6):
        os.write(descriptor, b"12345")
        assert (volume.backing / "file").read_bytes() == b"12345" * step
    os.close(descriptor)
    os.mkdir(volume.path / "folder")
    assert (volume.backing / "folder").is_dir()
    os.rename(volume.path / "file", volume.path / "folder" / "moved")
    assert (volume.backing / "folder" / "moved").read_bytes() == b"12345" * 5


def test_who_opens_a_file_sees_what_was_closed_before_whatever_is_trusted_where_that_is_asked_for(mount):
    volume = mount(options=["entry_timeout=3600", "attr_timeout=3600", "close_to_open"])
    file = volume.backing / "file"
    for number, text in enumerate((b"short", b"longer than before", b"less", b"other")):
        put(file, text, 1000 + number)
        assert (volume.path / "file").read_bytes() == text
        assert (volume.path / "file").stat().st_size == len(text)
