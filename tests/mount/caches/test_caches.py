"""How often the helper is asked: no question twice without need, and no answer kept too long."""

import os
import subprocess
import time

import pytest

from harness.deadline import eventually

LONG = ["entry_timeout=60", "attr_timeout=60"]
NONE = ["entry_timeout=0", "attr_timeout=0"]


def put(path, data=b"content", mtime=1_000):
    path.write_bytes(data)
    os.utime(path, (mtime, mtime))
    return path


def test_one_look_up_is_one_request(mount):
    volume = mount(options=LONG, control=True)
    put(volume.backing / "file")
    os.stat(volume.path / "file")
    assert volume.helper.short() == ["getattr /file"]


def test_path_costs_one_request_for_each_of_its_parts(mount):
    volume = mount(options=LONG, control=True)
    (volume.backing / "a" / "b").mkdir(parents=True)
    put(volume.backing / "a" / "b" / "file")
    os.stat(volume.path / "a" / "b" / "file")
    assert volume.helper.short() == ["getattr /a", "getattr /a/b", "getattr /a/b/file"]


def test_known_name_costs_nothing_within_the_timeouts(mount):
    volume = mount(options=LONG, control=True)
    put(volume.backing / "file")
    for _ in range(10):
        os.stat(volume.path / "file")
    assert volume.helper.count() == 1


def test_every_use_asks_again_without_timeouts(mount):
    volume = mount(options=NONE, control=True)
    put(volume.backing / "file")
    for _ in range(5):
        os.stat(volume.path / "file")
    assert volume.helper.count("getattr") >= 5


def test_missing_name_is_asked_for_each_time_by_default(controlled):
    for _ in range(3):
        assert not (controlled.path / "absent").exists()
    assert controlled.helper.count("getattr") == 3


def test_missing_name_is_remembered_when_asked_for(mount):
    volume = mount(options=["negative_timeout=60"], control=True)
    for _ in range(3):
        assert not (volume.path / "absent").exists()
    assert volume.helper.count("getattr") == 1


def test_figures_of_the_volume_cost_no_request(controlled):
    figures = os.statvfs(controlled.path)
    subprocess.run(["df", controlled.path], capture_output=True, check=True, timeout=20)
    assert controlled.helper.count() == 0
    assert figures.f_frsize == 4096 and figures.f_blocks == figures.f_bfree == figures.f_bavail == 1 << 30
    assert figures.f_files == 1_000_000_000 and figures.f_ffree == 999_999_999


def test_listing_costs_one_request(controlled):
    for index in range(300):
        (controlled.backing / f"file{index}").touch()
    assert len(os.listdir(controlled.path)) == 300
    assert controlled.helper.short() == ["readdir /"]


def test_listing_with_attributes_costs_one_request(mount):
    volume = mount(options=LONG, control=True)
    for index in range(300):
        put(volume.backing / f"file{index}", b"x" * index)
    sizes = {entry.name: entry.stat().st_size for entry in os.scandir(volume.path)}
    assert sizes == {f"file{index}": index for index in range(300)}
    assert volume.helper.count("readdir") == 1 and volume.helper.count("getattr") <= 1, volume.helper.short()[:5]


def test_reading_a_small_file_costs_a_look_an_open_a_read_and_a_release(mount):
    volume = mount(options=LONG, control=True)
    put(volume.backing / "file", b"x" * 5000)
    assert len((volume.path / "file").read_bytes()) == 5000
    eventually(lambda: volume.helper.count("release") == 1, 10)
    ops = volume.helper.ops()
    assert ops.count("open") == ops.count("release") == 1
    assert ops.count("getattr") <= 2 and ops.count("read") <= 2, ops


def test_pages_are_kept_across_opens_while_the_file_is_unchanged(mount):
    volume = mount(options=LONG, control=True)
    put(volume.backing / "file", b"x" * 200_000)
    (volume.path / "file").read_bytes()
    volume.helper.forget()
    for _ in range(5):
        assert (volume.path / "file").read_bytes() == b"x" * 200_000
    assert volume.helper.count("read") <= 1  # a block read ahead at first may come late


def test_pages_are_kept_across_opens_with_the_usual_timeouts(controlled):
    put(controlled.backing / "file", b"x" * 200_000)
    (controlled.path / "file").read_bytes()
    controlled.helper.forget()
    end = time.monotonic() + 1.5  # longer than the timeouts, so that the file is looked at again in between
    while time.monotonic() < end:
        assert (controlled.path / "file").read_bytes() == b"x" * 200_000
    assert controlled.helper.count("read") <= 1  # a block read ahead at first may come late


@pytest.mark.parametrize("what", ["time", "size", "both"])
def test_pages_are_dropped_when_size_or_time_changed(mount, what):
    volume = mount(options=NONE, control=True)
    put(volume.backing / "file", b"x" * 200_000)
    (volume.path / "file").read_bytes()
    fresh = b"y" * (200_000 if what == "time" else 199_999)
    put(volume.backing / "file", fresh, mtime=1_000 if what == "size" else 2_000)
    assert (volume.path / "file").read_bytes() == fresh


def test_own_writes_do_not_drop_the_pages_of_a_file(mount):
    volume = mount(options=LONG, control=True)
    (volume.path / "file").write_bytes(b"x" * 200_000)
    (volume.path / "file").read_bytes()
    volume.helper.forget()
    assert (volume.path / "file").read_bytes() == b"x" * 200_000
    assert volume.helper.count("read") == 0


def test_each_write_is_one_request(controlled):
    descriptor = os.open(controlled.path / "file", os.O_WRONLY | os.O_CREAT)
    controlled.helper.forget()
    for _ in range(10):
        os.write(descriptor, b"x" * 100)
    assert [request["size"] for request in controlled.helper.requests("write")] == [100] * 10
    assert controlled.helper.count("open") == 1 and controlled.helper.count() <= 13
    os.close(descriptor)


def test_writeback_gathers_small_writes_and_loses_none(mount):
    volume = mount(options=["writeback"], control=True)
    descriptor = os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT)
    for index in range(2_000):
        os.write(descriptor, b"%04d" % index)
    os.fsync(descriptor)
    os.close(descriptor)
    assert (volume.backing / "file").read_bytes() == b"".join(b"%04d" % index for index in range(2_000))
    assert volume.helper.count("write") < 100


def test_writeback_reads_what_it_has_not_yet_written(mount):
    volume = mount(options=["writeback"])
    (volume.backing / "file").write_bytes(b"o" * 10_000)
    with open(volume.path / "file", "r+b", buffering=0) as file:
        file.seek(5_000)
        file.write(b"NEW")
        file.seek(4_998)
        assert file.read(7) == b"ooNEWoo"
    with open(volume.path / "file", "ab", buffering=0) as file:
        file.write(b"END")
    assert (volume.path / "file").read_bytes()[-5:] == b"ooEND"
    eventually(lambda: (volume.backing / "file").read_bytes()[-5:] == b"ooEND", 10)


def test_attributes_after_own_changes_are_told_without_delay(mount):
    volume = mount(options=LONG)
    path = volume.path / "file"
    path.write_bytes(b"12345")
    assert os.stat(path).st_size == 5
    with open(path, "ab", buffering=0) as file:
        file.write(b"678")
        assert os.stat(path).st_size == 8
    os.truncate(path, 2)
    assert os.stat(path).st_size == 2
    os.utime(path, (5, 5))
    assert os.stat(path).st_mtime == 5
    os.rename(path, volume.path / "other")
    assert not path.exists() and os.stat(volume.path / "other").st_size == 2
    os.unlink(volume.path / "other")
    assert not (volume.path / "other").exists()


def test_tree_walk_with_attributes_costs_one_request_for_each_folder(mount):
    volume = mount(options=LONG, control=True)
    for folder in range(10):
        (volume.backing / f"folder{folder}").mkdir()
        for index in range(20):
            (volume.backing / f"folder{folder}" / f"file{index}").touch()
    subprocess.run(["ls", "-lR", volume.path], capture_output=True, check=True, timeout=30)
    assert volume.helper.count("readdir") == 11
    assert volume.helper.count("getattr") <= 20, volume.helper.short("getattr")[:30]


def resident_kib(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))


@pytest.mark.long
def test_files_that_came_and_went_leave_nothing_in_the_host(mount):
    if "KEMVI_TEST_SANITIZED" in os.environ:
        pytest.skip("sanitizers keep freed memory")
    volume = mount()

    def come_and_go(count):
        for index in range(count):
            path = volume.path / f"{index}-{'x' * 200}"
            path.write_bytes(b"content")
            assert not (volume.path / f"absent{index}").exists()
            path.unlink()
    come_and_go(300)
    before = resident_kib(volume.host.pid)
    come_and_go(1_500)
    grown = resident_kib(volume.host.pid) - before
    assert grown < 500, f"{grown} KiB for 1,500 files"


def test_names_just_listed_are_not_asked_for_one_by_one(mount):
    """In a folder that is too large for the kernel to take everything with its attributes."""
    volume = mount(options=["entry_timeout=60", "attr_timeout=60"], control=True)
    for number in range(1000):
        (volume.backing / f"file{number}").write_bytes(b"x" * number)
    names = os.listdir(volume.path)
    volume.helper.forget()
    assert all(os.stat(volume.path / name).st_size == int(name[4:]) for name in names)
    assert volume.helper.count("getattr") <= 20
    assert len(volume.helper.requests()) == volume.helper.count("getattr")
