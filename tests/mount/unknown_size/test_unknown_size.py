"""A file whose helper does not know its size (-1) shows as empty and is read to its end all the same."""

import errno
import os
import subprocess

import pytest

DATA = bytes(range(256)) * 1000 + b"the end"  # 256,007 bytes: more than one request


@pytest.fixture
def generated(controlled):
    """The path of such a file of DATA, for a program that knows it of a listing."""
    (controlled.backing / "generated").write_bytes(DATA)
    for operation in ("getattr", "readdir"):
        controlled.helper.rule("hidesSize", operation, of="/generated")
    return controlled.path / "generated"


def test_it_shows_as_empty(generated):
    assert generated.stat().st_size == 0


def test_it_is_read_to_its_end(generated):
    assert generated.read_bytes() == DATA


def test_it_is_read_to_its_end_where_only_a_listing_told_of_it(generated):
    assert [entry.name for entry in os.scandir(generated.parent)] == ["generated"]
    assert os.stat(generated).st_size == 0
    assert generated.read_bytes() == DATA


@pytest.mark.parametrize("most", [100, 4096])
def test_short_answers_are_no_end(generated, controlled, most):
    (controlled.backing / "generated").write_bytes(DATA[:50 * most])
    controlled.helper.rule("shortReads", "read", most=most)
    with open(generated, "rb", buffering=0) as file:
        assert file.read(20 * most + 1) == DATA[:20 * most + 1]
        assert file.read(100 * most) == DATA[20 * most + 1:50 * most]
        assert file.read(1) == b""


def test_programs_read_it(generated, tmp_path):
    assert subprocess.run(["cat", generated], capture_output=True, check=True).stdout == DATA
    subprocess.run(["cp", generated, tmp_path / "copy"], check=True)
    assert (tmp_path / "copy").read_bytes() == DATA
    assert subprocess.run(["grep", "-c", "the end", generated], capture_output=True, check=True).stdout == b"1\n"


def test_what_has_changed_is_read_at_the_next_open(generated, controlled):
    assert generated.read_bytes() == DATA
    (controlled.backing / "generated").write_bytes(b"anew")
    assert generated.read_bytes() == b"anew"


def test_it_can_be_replaced_and_written_in_place(generated, controlled):
    with open(generated, "r+b", buffering=0) as file:
        assert file.read(5) == DATA[:5]
        file.seek(1)
        file.write(b"XY")
    assert (controlled.backing / "generated").read_bytes() == DATA[:1] + b"XY" + DATA[3:]
    generated.write_bytes(b"replaced")
    assert (controlled.backing / "generated").read_bytes() == b"replaced"


def test_nothing_that_needs_its_size_is_done_to_it(generated, controlled):
    with pytest.raises(OSError) as appended:
        os.open(generated, os.O_WRONLY | os.O_APPEND)
    with pytest.raises(OSError) as resized:
        os.truncate(generated, 10)
    assert (appended.value.errno, resized.value.errno) == (errno.EOPNOTSUPP, errno.EOPNOTSUPP)
    assert (controlled.backing / "generated").read_bytes() == DATA


def test_a_file_that_is_empty_is_opened_for_what_another_is(controlled):
    (controlled.backing / "empty").touch()
    assert (controlled.path / "empty").stat().st_size == 0
    before = len(controlled.helper.requests("getattr"))
    with open(controlled.path / "empty", "rb") as file:
        assert len(controlled.helper.requests("getattr")) == before
        assert file.read() == b""
    with open(controlled.path / "empty", "ab") as file:
        file.write(b"more")
    assert (controlled.backing / "empty").read_bytes() == b"more"
