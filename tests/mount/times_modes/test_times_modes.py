"""Times have milliseconds and are one; modes are the volume's unless the mount asks for others."""

import os
import stat
import subprocess
import time

import pytest

from harness.calls import put

MILLI = 1_000_000
UTIME_NOW, UTIME_OMIT = (1 << 30) - 1, (1 << 30) - 2


def set_times(path, access, modify):
    """utimensat with the raw nanosecond fields, so that the two special values can be given."""
    import ctypes

    from harness import libc
    fields = (ctypes.c_long * 4)(*access, *modify)
    if libc.library.utimensat(libc.AT_FDCWD, os.fsencode(path), fields, 0) != 0:
        number = ctypes.get_errno()
        raise OSError(number, os.strerror(number))


def is_about(nanoseconds, wanted):
    return abs(nanoseconds - wanted) <= MILLI


@pytest.mark.parametrize("when", [0, 1, 1_000_000_000, 1_700_000_000, 4_000_000_000, 7_500_000_000])
def test_modification_time_is_set_and_shown(volume, when):
    put(volume.path / "file")
    os.utime(volume.path / "file", (when, when))
    assert os.stat(volume.path / "file").st_mtime_ns == when * 1_000_000_000
    assert os.stat(volume.backing / "file").st_mtime_ns == when * 1_000_000_000


@pytest.mark.parametrize("fraction", [0, 1, 123, 500, 789, 999])
def test_milliseconds_are_kept(mount, fraction):
    volume = mount()
    put(volume.path / "file")
    wanted = 1_600_000_000_000 * MILLI + fraction * MILLI
    os.utime(volume.path / "file", ns=(wanted, wanted))
    assert abs(os.stat(volume.path / "file").st_mtime_ns - wanted) < 1_000
    assert abs(os.stat(volume.backing / "file").st_mtime_ns - wanted) < 1_000


def test_what_is_finer_than_a_millisecond_is_lost(mount):
    volume = mount()
    put(volume.path / "file")
    wanted = 1_600_000_000_000 * MILLI + 123_456_789
    os.utime(volume.path / "file", ns=(wanted, wanted))
    assert is_about(os.stat(volume.path / "file").st_mtime_ns, wanted)


def test_time_before_1970_is_set_and_shown(volume):
    put(volume.path / "file")
    os.utime(volume.path / "file", (-1_000, -1_000))
    assert os.stat(volume.path / "file").st_mtime == -1_000


def test_all_times_shown_are_the_modification_time(mount):
    volume = mount()
    put(volume.path / "file")
    os.utime(volume.path / "file", (50, 1_000))
    seen = os.stat(volume.path / "file")
    assert seen.st_mtime == seen.st_atime == seen.st_ctime == 1_000


def test_setting_only_the_access_time_changes_nothing_and_succeeds(controlled):
    put(controlled.path / "file")
    os.utime(controlled.path / "file", (1_000, 1_000))
    controlled.helper.forget()
    set_times(controlled.path / "file", (5, 0), (0, UTIME_OMIT))
    set_times(controlled.path / "file", (0, UTIME_NOW), (0, UTIME_OMIT))
    assert controlled.helper.count("utimes") == 0
    assert os.stat(controlled.path / "file").st_mtime == 1_000


def test_setting_only_the_modification_time_sets_it(volume):
    put(volume.path / "file")
    set_times(volume.path / "file", (0, UTIME_OMIT), (1_234, 0))
    assert os.stat(volume.path / "file").st_mtime == 1_234


def test_omitting_both_times_changes_nothing(controlled):
    put(controlled.path / "file")
    os.utime(controlled.path / "file", (1_000, 1_000))
    controlled.helper.forget()
    set_times(controlled.path / "file", (0, UTIME_OMIT), (0, UTIME_OMIT))
    assert controlled.helper.count("utimes") == 0
    assert os.stat(controlled.path / "file").st_mtime == 1_000


@pytest.mark.parametrize("how", ["now", "both now"])
def test_now_is_now(volume, how):
    put(volume.path / "file")
    os.utime(volume.path / "file", (1_000, 1_000))
    before = time.time_ns()
    if how == "now":
        os.utime(volume.path / "file")
    else:
        set_times(volume.path / "file", (0, UTIME_NOW), (0, UTIME_NOW))
    shown = os.stat(volume.path / "file").st_mtime_ns
    assert before - 20 * MILLI <= shown <= time.time_ns() + 20 * MILLI


def test_touch_sets_the_time_and_makes_files(volume):
    subprocess.run(["touch", "-d", "2001-02-03 04:05:06 UTC", volume.path / "file"], check=True, timeout=20)
    assert os.stat(volume.path / "file").st_mtime == 981_173_106
    subprocess.run(["touch", volume.path / "file"], check=True, timeout=20)
    assert os.stat(volume.path / "file").st_mtime > 1_600_000_000
    subprocess.run(["touch", "-a", volume.path / "file"], check=True, timeout=20)
    subprocess.run(["touch", "-r", volume.path / "file", volume.path / "other"], check=True, timeout=20)
    assert abs(os.stat(volume.path / "file").st_mtime - os.stat(volume.path / "other").st_mtime) < 0.002


def test_writing_moves_the_modification_time(volume):
    put(volume.path / "file")
    os.utime(volume.path / "file", (1_000, 1_000))
    with open(volume.path / "file", "ab", buffering=0) as file:
        file.write(b"x")
        assert os.fstat(file.fileno()).st_mtime > 1_000
    assert os.stat(volume.path / "file").st_mtime > 1_000


def test_truncating_moves_the_modification_time(volume):
    for size in (3, 20, 0):
        put(volume.path / "file")
        os.utime(volume.path / "file", (1_000, 1_000))
        os.truncate(volume.path / "file", size)
        assert os.stat(volume.path / "file").st_mtime > 1_000


def test_reading_does_not_move_the_modification_time(volume):
    put(volume.path / "file")
    os.utime(volume.path / "file", (1_000, 1_000))
    (volume.path / "file").read_bytes()
    assert os.stat(volume.path / "file").st_mtime == 1_000


def test_time_set_after_a_write_and_before_the_close_stays(volume):
    """As tar and cp -p do: write, set the time through the descriptor, close."""
    descriptor = os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT)
    os.write(descriptor, b"content")
    os.utime(descriptor, (1_000, 1_000))
    os.close(descriptor)
    assert os.stat(volume.path / "file").st_mtime == 1_000
    assert os.stat(volume.backing / "file").st_mtime == 1_000


def test_time_set_survives_with_the_writeback_cache(mount):
    volume = mount(options=["writeback"])
    descriptor = os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT)
    os.write(descriptor, b"content")
    os.utime(descriptor, (1_000, 1_000))
    os.close(descriptor)
    assert os.stat(volume.path / "file").st_mtime == 1_000
    assert (volume.backing / "file").read_bytes() == b"content"


def test_time_of_a_folder_can_be_set(volume):
    (volume.path / "folder").mkdir()
    os.utime(volume.path / "folder", (1_000, 1_000))
    assert os.stat(volume.path / "folder").st_mtime == 1_000


def test_time_of_a_folder_moves_with_its_entries(volume):
    (volume.path / "folder").mkdir()
    changes = [lambda: put(volume.path / "folder" / "file"), lambda: os.mkdir(volume.path / "folder" / "sub"),
               lambda: os.rename(volume.path / "folder" / "file", volume.path / "folder" / "other"),
               lambda: os.unlink(volume.path / "folder" / "other"), lambda: os.rmdir(volume.path / "folder" / "sub")]
    for change in changes:
        os.utime(volume.path / "folder", (1_000, 1_000))
        assert os.stat(volume.path / "folder").st_mtime == 1_000
        change()
        assert os.stat(volume.path / "folder").st_mtime > 1_000


def test_root_shows_no_time_and_no_size(mount):
    volume = mount()
    put(volume.path / "file")
    seen = os.stat(volume.path)
    assert seen.st_mtime == seen.st_ctime == 0 and seen.st_size == 0 and stat.S_ISDIR(seen.st_mode)


def test_modes_are_shown_as_one_for_files_and_one_for_folders(mount):
    volume = mount()
    for name, mode in (("a", 0o600), ("b", 0o777), ("c", 0o400)):
        put(volume.backing / name)
        os.chmod(volume.backing / name, mode)
    (volume.backing / "folder").mkdir(mode=0o700)
    for name in "abc":
        assert stat.S_IMODE(os.stat(volume.path / name).st_mode) == 0o644
    assert stat.S_IMODE(os.stat(volume.path / "folder").st_mode) == 0o755
    assert stat.S_IMODE(os.stat(volume.path).st_mode) == 0o755


@pytest.mark.parametrize("options,file_mode,folder_mode", [(["fmask=022"], 0o755, 0o755), (["dmask=077"], 0o644, 0o700),
                                                           (["fmask=0177", "dmask=0077"], 0o600, 0o700), (["fmask=0"], 0o777, 0o755),
                                                           (["umask=027"], 0o750, 0o750)])
def test_masks_take_bits_from_full_permission(mount, options, file_mode, folder_mode):
    volume = mount(options=options)
    put(volume.path / "file")
    (volume.path / "folder").mkdir()
    assert stat.S_IMODE(os.stat(volume.path / "file").st_mode) == file_mode
    assert stat.S_IMODE(os.stat(volume.path / "folder").st_mode) == folder_mode
    assert stat.S_IMODE(os.stat(volume.path).st_mode) == folder_mode
