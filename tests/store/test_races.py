"""All machines want the same at once: exactly one gets it, and what is left is what one order of them leaves."""

import errno
import os
import threading

import pytest

from harness.calls import put
from harness.length import amount


def at_once(machines, call):
    """Calls `call(machine)` for all at the same moment; what each got: a value or the errno of an OSError."""
    gate = threading.Barrier(len(machines))
    got = [None] * len(machines)

    def one(number):
        gate.wait(30)
        try:
            got[number] = ("did", call(machines[number]))
        except OSError as error:
            got[number] = ("failed", error.errno)

    threads = [threading.Thread(target=one, args=(number,)) for number in range(len(machines))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
    return got


def winners(got):
    return [number for number, (outcome, _) in enumerate(got) if outcome == "did"]


@pytest.fixture
def machines(store):
    return store.several(amount(8, 4))


TURNS = amount(10, 6)


@pytest.mark.limit(180)
def test_mkdir_succeeds_for_exactly_one(machines):
    for turn in range(TURNS):
        got = at_once(machines, lambda machine: os.mkdir(machine.path / f"lock{turn}"))
        assert len(winners(got)) == 1, got
        assert {error for outcome, error in got if outcome == "failed"} == {errno.EEXIST}
    names = sorted(f"lock{turn}" for turn in range(TURNS))
    assert [sorted(os.listdir(machine.path)) for machine in machines] == [names] * len(machines)


@pytest.mark.limit(180)
def test_rmdir_succeeds_for_exactly_one(machines):
    for turn in range(TURNS):
        os.mkdir(machines[0].path / "lock")
        got = at_once(machines, lambda machine: os.rmdir(machine.path / "lock"))
        assert len(winners(got)) == 1, (turn, got)
        assert {error for outcome, error in got if outcome == "failed"} == {errno.ENOENT}


@pytest.mark.limit(180)
def test_unlink_succeeds_for_exactly_one(machines):
    for turn in range(TURNS):
        put(machines[turn % len(machines)].path / "file")
        got = at_once(machines, lambda machine: os.unlink(machine.path / "file"))
        assert len(winners(got)) == 1, (turn, got)
        assert {error for outcome, error in got if outcome == "failed"} == {errno.ENOENT}


@pytest.mark.limit(180)
def test_a_file_is_taken_by_exactly_one_who_renames_it(machines):
    for turn in range(TURNS):
        put(machines[turn % len(machines)].path / "task", b"work")
        got = at_once(machines, lambda machine: os.rename(machine.path / "task", machine.path / f"taken{machine.name}"))
        winner, = winners(got)
        assert {error for outcome, error in got if outcome == "failed"} == {errno.ENOENT}
        for machine in machines:
            assert os.listdir(machine.path) == [f"taken{machines[winner].name}"]
        os.unlink(machines[0].path / f"taken{machines[winner].name}")


@pytest.mark.limit(180)
def test_of_renames_onto_one_name_the_last_stays_whole(machines):
    for turn in range(TURNS):
        for machine in machines:
            put(machine.path / f"from{machine.name}", machine.name.encode() * 1000)
        got = at_once(machines, lambda machine: os.rename(machine.path / f"from{machine.name}", machine.path / "target"))
        assert len(winners(got)) == len(machines), (turn, got)
        read = {(machine.path / "target").read_bytes() for machine in machines}
        assert len(read) == 1 and len(read.pop()) == 1000
        assert os.listdir(machines[0].path) == ["target"]


@pytest.mark.limit(180)
def test_folders_that_are_moved_into_each_other_make_no_circle(machines):
    one, other = machines[:2]
    for turn in range(TURNS):
        os.makedirs(one.path / "a")
        os.makedirs(one.path / "b")
        for machine in (one, other):
            assert sorted(os.listdir(machine.path)) == ["a", "b"]
        got = at_once([one, other], lambda machine: os.rename(*(machine.path / name for name in (
            ("a", "b/a") if machine is one else ("b", "a/b")))))
        assert len(winners(got)) == 1, (turn, got)
        found = [os.path.join(place, name) for place, folders, _ in os.walk(one.path) for name in folders]
        assert len(found) == 2, "both are still there"
        for path in sorted(found, key=len, reverse=True):
            os.rmdir(path)


@pytest.mark.limit(180)
def test_a_folder_is_not_removed_under_what_another_makes_in_it(machines):
    """Either the folder goes and nothing can be made in it, or what was made stays."""
    one, other = machines[:2]
    for turn in range(TURNS):
        os.mkdir(one.path / "folder")
        assert os.listdir(other.path / "folder") == []
        got = at_once([one, other], lambda machine: os.rmdir(one.path / "folder") if machine is one else os.mkdir(other.path / "folder/in"))
        assert len(winners(got)) == 1, (turn, got)
        if winners(got) == [1]:
            assert got[0] == ("failed", errno.ENOTEMPTY)
            assert os.listdir(one.path / "folder") == ["in"]
            os.rmdir(one.path / "folder/in")
            os.rmdir(other.path / "folder")
        else:
            assert got[1] == ("failed", errno.ENOENT)
