"""kemvi check --write removes what it made and nothing else, however wrong the helper is and however the check ends."""

import json
import os
import signal
from pathlib import Path

import pytest

from harness import system
from harness.deadline import LIMIT, eventually

pytestmark = pytest.mark.limit(240)

DISK = Path(__file__).resolve().parent / "broken" / "disk.mjs"
# A check may wait for a helper that hangs: for the answer that is under way, and for one when cleaning up.
BOUND = 10 + LIMIT


def configure(place, fault, **changes):
    (place.tree / "folder").mkdir()
    (place.tree / "folder" / "b.txt").write_text("b\n")
    place.configure(DISK, kemviHome=fault, **changes)


def check(place, *options):
    result = place.run("check", place.source, "--json", "--op-timeout", "10", *options, limit=4 * LIMIT)
    return result, json.loads(result.stdout)


def errors(report):
    return {found["name"]: finding for found in report["checks"] for finding in found["findings"]
            if finding["severity"] == "error"}


def statuses(report, name):
    return {found["status"] for found in report["checks"] if name in found["name"]}


def reached(place):
    return [note for note in place.notes() if note.startswith("reached for")]


def scratch(place):
    return [name for name in os.listdir(place.tree) if name.startswith("kemvi-check-")]


def assert_kept(place):
    """What was there before is there, and nobody tried to change it."""
    assert reached(place) == []
    assert (place.tree / "a.txt").read_text() == "hello\n"
    assert (place.tree / "folder" / "b.txt").read_text() == "b\n"
    assert sorted(set(os.listdir(place.tree)) - set(scratch(place))) == ["a.txt", "folder"]


def assert_clean(place):
    assert_kept(place)
    assert scratch(place) == []


def helpers(place):
    return [int(note.split()[1]) for note in place.notes() if note.startswith("started")]


@pytest.mark.parametrize("fault", ["dots", "normalises", "slash"])
def test_nothing_is_written_where_names_were_found_wrong(place, fault):
    configure(place, fault)
    result, report = check(place, "--write", "/")
    assert result.returncode == 12
    assert statuses(report, "what was written is read back") == {"skip"}
    assert_clean(place)


@pytest.mark.parametrize("fault", ["dots inside", "climbs inside", "root inside"])
def test_a_new_folder_that_lists_what_was_not_made_is_not_written_to(place, fault):
    configure(place, fault)
    result, report = check(place, "--write", "/")
    assert result.returncode == 12
    assert any("not empty" in finding["problem"] for finding in errors(report).values()), errors(report)
    assert_kept(place)


def test_a_name_that_is_there_before_it_was_made_is_left_alone(place):
    place.configure(DISK, kemviHome="flat")
    (place.tree / "file").write_text("precious")
    result, report = check(place, "--write", "/")
    assert result.returncode == 12
    assert any("before it was made" in finding["problem"] for finding in errors(report).values()), errors(report)
    assert reached(place) == []
    assert (place.tree / "file").read_text() == "precious"
    assert scratch(place) == []


def test_what_a_listing_conceals_is_removed_all_the_same(place):
    configure(place, "hides inside")
    assert check(place, "--write", "/")[0].returncode == 12
    assert_clean(place)


def test_a_folder_is_removed_that_was_made_with_an_error(place):
    configure(place, "takes and fails")
    assert check(place, "--write", "/")[0].returncode == 12
    assert_clean(place)


def test_a_folder_stays_that_holds_what_somebody_else_put_there(place):
    configure(place, "removes whole folders")
    result, report = check(place, "--write", "/")
    [left] = scratch(place)
    assert os.listdir(place.tree / left) == ["precious"]
    assert left in json.dumps(errors(report))
    assert f"/{left} stays" in result.stderr
    assert_kept(place)


@pytest.mark.parametrize("fault", ["removes nothing", "refuses to remove"])
def test_the_folder_that_could_not_be_removed_is_named(place, fault):
    configure(place, fault)
    result, report = check(place, "--write", "/folder")
    assert result.returncode == 12
    [left] = [name for name in os.listdir(place.tree / "folder") if name.startswith("kemvi-check-")]
    assert f"/folder/{left} stays" in result.stderr
    assert any(f"/folder/{left}" in finding["problem"] for finding in errors(report).values())


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_what_was_made_is_removed_after_a_signal(place, number):
    configure(place, "")
    process = place.start("check", place.source, "--write", "/")
    eventually(lambda: list(place.tree.glob("kemvi-check-*/many/100")), 30, "the making of many files")
    process.send_signal(number)
    output, told = process.communicate(timeout=BOUND)
    assert process.returncode == 13, told
    assert output.splitlines()[-1].startswith("interrupted"), output
    assert_clean(place)
    assert not any(system.is_alive(pid) for pid in helpers(place))


def test_what_was_made_is_removed_by_a_new_helper_after_a_signal_where_the_old_one_hangs(place):
    configure(place, "hangs once at write")
    process = place.start("check", place.source, "--write", "/", "--op-timeout", "3600")
    eventually(lambda: "hangs at write" in place.notes(), 30, "the helper that hangs")
    assert len(scratch(place)) == 1
    process.send_signal(signal.SIGINT)
    _, told = process.communicate(timeout=BOUND)
    assert process.returncode == 13, told
    assert_clean(place)
    assert len(helpers(place)) == 2 and not any(system.is_alive(pid) for pid in helpers(place))


def test_an_interrupted_check_ends_and_names_its_folder_where_the_helper_always_hangs(place):
    configure(place, "hangs at unlink")
    process = place.start("check", place.source, "--write", "/", "--op-timeout", "3600")
    eventually(lambda: "hangs at unlink" in place.notes(), 30, "the helper that hangs")
    process.send_signal(signal.SIGINT)
    _, told = process.communicate(timeout=BOUND)
    [left] = scratch(place)
    assert process.returncode == 13
    assert f"/{left} stays" in told
    assert_kept(place)
    assert not any(system.is_alive(pid) for pid in helpers(place))


def test_a_second_signal_leaves_the_folder_and_says_so(place):
    configure(place, "hangs at unlink")
    process = place.start("check", place.source, "--write", "/", "--op-timeout", "3600")
    eventually(lambda: "hangs at unlink" in place.notes(), 30, "the helper that hangs")
    process.send_signal(signal.SIGINT)
    assert any("again" in line for line in iter(process.stderr.readline, ""))
    process.send_signal(signal.SIGINT)
    _, told = process.communicate(timeout=BOUND)
    assert process.returncode == 13
    assert f"/{scratch(place)[0]} stays" in told


@pytest.mark.parametrize("directory", ["/folder/..", "/./folder", "/folder/../..", "//folder"])
def test_write_takes_a_plain_path(place, directory):
    configure(place, "")
    result = place.run("check", place.source, "--write", directory)
    assert (result.returncode, result.stdout) == (2, "")
    assert "--write" in result.stderr
    assert_clean(place)


def test_write_takes_a_slash_at_the_end(place):
    configure(place, "takes and fails")  # it makes a folder and no more
    result, _ = check(place, "--write", "/folder/")
    assert "/folder/kemvi-check-" in result.stderr and "//" not in result.stderr


def test_write_says_beforehand_what_it_will_make(place):
    configure(place, "takes and fails")
    result, _ = check(place, "--write", "/")
    [line] = [line for line in result.stderr.splitlines() if "making the folder" in line]
    assert "/kemvi-check-" in line and "10,000 files" in line and "13 MB" in line


def test_write_into_a_folder_that_is_not_served_makes_nothing(place):
    configure(place, "")
    result, report = check(place, "--write", "/folder/b.txt")
    assert result.returncode == 12
    assert "/folder/b.txt" in json.dumps(errors(report))
    assert_clean(place)
