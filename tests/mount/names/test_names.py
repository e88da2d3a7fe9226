"""Whatever text a name is made of, it comes back as it went in; what cannot be a name is refused."""

import errno
import os
import subprocess

import pytest

from harness.calls import failure, put

NAMES = [
    "plain", "with space", " leading and trailing ", "'single' \"double\" `back`", "back\\slash", "line\nbreak", "tab\there",
    "return\r", "\x01\x02\x1f\x7f", "semi;colon&amp|pipe<>*?$(x)", "-dash", "--help", "...", "..hidden", ".dot", "dot.", "a\\/b".replace("/", ""),
    "\u00e4\u00f6\u00fc\u00df", "e\u0301 decomposed", "\u00e9 composed", "\u65e5\u672c\u8a9e", "\U0001f600 smile", "\u200bzero width",
    "\u202eright to left", "\ufeffmark", "\u2028separator", "\ufffd", "\U0010ffff", "\u0080\u009f", "{\"json\":true}", "%00%2f", "null", "true", "0", "~", "C:", "NUL",
    "x" * 255, "\u00e4" * 127 + "x", "\u65e5" * 85, "\U0001f600" * 63 + "abc",
]


def identify(name):
    return ascii(name[:20])


@pytest.mark.parametrize("name", NAMES, ids=identify)
def test_name_serves_as_file_and_as_folder_in_every_operation(volume, name):
    path = volume.path / name
    path.write_bytes(b"content")
    assert os.listdir(volume.path) == [name] == os.listdir(volume.backing)
    assert path.read_bytes() == b"content" and path.stat().st_size == 7
    os.rename(path, volume.path / "other")
    os.rename(volume.path / "other", path)
    os.truncate(path, 3)
    os.utime(path, (7, 7))
    assert path.stat().st_mtime == 7 and (volume.backing / name).read_bytes() == b"con"
    os.unlink(path)
    os.mkdir(path)
    (path / name).write_bytes(b"inner")
    assert os.listdir(path) == [name]
    (path / name).unlink()
    os.rmdir(path)
    assert os.listdir(volume.path) == []


def test_names_made_outside_are_shown_and_found(mount):
    volume = mount()
    for name in NAMES:
        (volume.backing / name).write_bytes(name.encode())
    assert sorted(os.listdir(volume.path)) == sorted(NAMES)
    for name in NAMES:
        assert (volume.path / name).read_bytes() == name.encode()


def test_composed_and_decomposed_letters_are_different_names(volume):
    (volume.path / "\u00e9").write_bytes(b"composed")
    (volume.path / "e\u0301").write_bytes(b"decomposed")
    assert (volume.path / "\u00e9").read_bytes() == b"composed"
    assert (volume.path / "e\u0301").read_bytes() == b"decomposed"


def test_upper_and_lower_case_are_different_names(volume):
    (volume.path / "Name").write_bytes(b"upper")
    (volume.path / "name").write_bytes(b"lower")
    assert sorted(os.listdir(volume.path)) == ["Name", "name"]
    assert (volume.path / "Name").read_bytes() == b"upper"


NOT_UTF8 = [b"\xff", b"abc\x80", b"\xc3", b"\xed\xa0\x80", b"\xc0\xaf", b"\xf4\x90\x80\x80", b"caf\xe9"]


@pytest.mark.parametrize("name", NOT_UTF8)
def test_name_that_is_not_utf8_is_refused_as_invalid_by_every_operation(mount, name):
    volume = mount()
    bad = os.path.join(os.fsencode(volume.path), name)
    good = volume.path / "good"
    good.write_bytes(b"good")
    assert failure(os.stat, bad) == errno.EINVAL
    assert failure(os.open, bad, os.O_RDONLY) == errno.EINVAL
    assert failure(os.open, bad, os.O_WRONLY | os.O_CREAT) == errno.EINVAL
    assert failure(os.mkdir, bad) == errno.EINVAL
    assert failure(os.mknod, bad) == errno.EINVAL
    assert failure(os.rename, good, bad) == errno.EINVAL
    assert failure(os.unlink, bad) == errno.EINVAL
    assert failure(os.rmdir, bad) == errno.EINVAL
    assert os.listdir(volume.backing) == ["good"] and good.read_bytes() == b"good"


@pytest.mark.parametrize("name", ["x" * 256, "\u00e4" * 128, "\u65e5" * 86, "x" * 1000])
def test_name_longer_than_255_bytes_is_refused_by_every_operation(volume, name):
    bad = volume.path / name
    good = volume.path / "good"
    good.write_bytes(b"good")
    assert failure(os.stat, bad) == errno.ENAMETOOLONG
    assert failure(os.open, bad, os.O_WRONLY | os.O_CREAT) == errno.ENAMETOOLONG
    assert failure(os.mkdir, bad) == errno.ENAMETOOLONG
    assert failure(os.rename, good, bad) == errno.ENAMETOOLONG
    assert failure(os.unlink, bad) == errno.ENAMETOOLONG
    assert os.listdir(volume.path) == ["good"]


def test_longest_name_is_told_to_programs(volume):
    assert os.statvfs(volume.path).f_namemax == 255
    assert os.pathconf(volume.path, "PC_NAME_MAX") == 255


def test_path_of_four_thousand_bytes_works(volume):
    """Made step by step, as the whole path with the mount point before it would be too long for one call."""
    here = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    length = 0
    while length < 4_000 - 200:
        os.mkdir("d" * 199, dir_fd=here)
        deeper = os.open("d" * 199, os.O_RDONLY | os.O_DIRECTORY, dir_fd=here)
        os.close(here)
        here, length = deeper, length + 200
    descriptor = os.open("f" * 199, os.O_RDWR | os.O_CREAT, dir_fd=here)
    os.write(descriptor, b"deep")
    os.close(descriptor)
    assert os.listdir(here) == ["f" * 199]
    assert os.stat("f" * 199, dir_fd=here).st_size == 4
    os.rename("f" * 199, "g" * 199, src_dir_fd=here, dst_dir_fd=here)
    descriptor = os.open("g" * 199, os.O_RDONLY, dir_fd=here)
    assert os.read(descriptor, 10) == b"deep"
    os.close(descriptor)
    os.close(here)


def test_deep_tree_of_short_names_works(volume):
    path = volume.path
    for _ in range(100):
        path = path / "d"
        os.mkdir(path)
    (path / "file").write_bytes(b"deep")
    os.rename(volume.path / "d", volume.path / "e")
    assert volume.path.joinpath("e", *["d"] * 99, "file").read_bytes() == b"deep"


def test_trailing_slash_means_a_folder(volume):
    (volume.path / "file").touch()
    (volume.path / "folder").mkdir()
    assert failure(os.stat, str(volume.path / "file") + "/") == errno.ENOTDIR
    os.stat(str(volume.path / "folder") + "/")


def test_path_through_a_file_is_refused(volume):
    (volume.path / "file").touch()
    assert failure(os.stat, volume.path / "file" / "inner") == errno.ENOTDIR
    assert failure(os.open, volume.path / "file" / "inner", os.O_CREAT | os.O_WRONLY) == errno.ENOTDIR


def test_dot_and_dot_dot_lead_where_they_should(volume):
    (volume.path / "a" / "b").mkdir(parents=True)
    (volume.path / "file").write_bytes(b"x")
    assert os.stat(volume.path / "a" / "b" / ".." / ".." / "file").st_size == 1
    assert os.path.samefile(volume.path / "a" / ".", volume.path / "a")
    assert os.path.samefile(volume.path / "..", volume.path.parent)
    here = os.open(volume.path / "a" / "b", os.O_RDONLY | os.O_DIRECTORY)
    up = os.open("..", os.O_RDONLY | os.O_DIRECTORY, dir_fd=here)
    assert os.listdir(up) == ["b"]
    os.close(here)
    os.close(up)


def test_working_folder_is_told_after_the_kernel_forgot_it(volume):
    """getcwd and `..` out of a deep folder, with the caches as empty as they get."""
    path = volume.path / "a" / "b" / "c"
    path.mkdir(parents=True)
    here = os.open(path, os.O_RDONLY | os.O_DIRECTORY)
    os.rename(volume.path / "a", volume.path / "z")
    assert os.readlink(f"/proc/self/fd/{here}") == str(volume.path / "z" / "b" / "c")
    os.close(here)


def test_helper_that_ignores_case_serves_one_file_under_both_spellings(controlled):
    controlled.helper.rule("ignoresCase")
    path, other = controlled.path / "NAME", controlled.path / "name"
    path.write_bytes(b"content")
    assert os.listdir(controlled.backing) == os.listdir(controlled.path) == ["name"]
    with open(path, "r+b", buffering=0) as file:
        assert other.read_bytes() == b"content"
        file.write(b"C")
        assert os.stat(path).st_ino == os.stat(other).st_ino == os.fstat(file.fileno()).st_ino
    assert other.read_bytes() == b"Content"
    os.unlink(other)
    assert not other.exists() and os.listdir(controlled.backing) == []


def test_helper_that_ignores_case_keeps_an_open_file_through_removal_by_the_other_spelling(controlled):
    controlled.helper.rule("ignoresCase")
    (controlled.path / "name").write_bytes(b"content")
    with open(controlled.path / "name", "rb", buffering=0) as file:
        os.unlink(controlled.path / "NAME")
        assert file.read() == b"content"
    assert os.listdir(controlled.path) == []


def test_helper_that_ignores_case_renames_between_spellings(controlled):
    controlled.helper.rule("ignoresCase")
    (controlled.path / "name").write_bytes(b"content")
    os.rename(controlled.path / "name", controlled.path / "NAME")
    assert (controlled.path / "name").read_bytes() == b"content"
    assert os.listdir(controlled.backing) == ["name"]


def test_after_a_long_listing_requests_name_the_paths_that_the_helper_reports(mount):
    volume = mount(control=True, options=["attr_timeout=60", "entry_timeout=60"])
    for name in ("removed", "moved", "written"):
        put(volume.backing / name, b"else")
        put(volume.backing / f"{name}.kept", b"text")
    volume.helper.rule("reportsPaths", paths={f"/{name}": f"/{name}.kept" for name in ("removed", "moved", "written")})
    subprocess.run(["ls", "-l", volume.path], check=True, capture_output=True, timeout=50)
    (volume.path / "removed").unlink()
    (volume.path / "moved").rename(volume.path / "target")
    with open(volume.path / "written", "ab") as file:
        file.write(b"!")
    left = {name: (volume.backing / name).read_bytes() for name in os.listdir(volume.backing)}
    assert left == {"removed": b"else", "moved": b"else", "written": b"else", "target": b"text",
                    "written.kept": b"text!"}
