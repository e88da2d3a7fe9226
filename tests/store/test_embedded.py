"""A store without a server: PostgreSQL within the helper, for one mount at a time."""

import os

import pytest

from harness import system
from harness.calls import put
from harness.deadline import eventually
from machines import IS_LOCAL
from work import Work

pytestmark = pytest.mark.skipif(IS_LOCAL, reason="is about an engine")


@pytest.fixture
def store(make_store, workspace):
    return make_store(f"pglite:{workspace}/store")


@pytest.mark.limit(240)
def test_what_was_acknowledged_outlives_helper_and_mount(store):
    machine, = store.several(1, ["on_death=restart"])
    machine.expect_log("killed", "ended", "restart", "start")
    machine.checks_descriptors = False
    work = Work(machine, 40)
    eventually(lambda: work.done() > 15, 100, "work")
    machine.kill_helper()
    failed = work.failed(120)
    assert len(failed) <= 5
    work.assert_kept(machine.path, failed)
    machine.close()
    store.machines.clear()
    again = store.machine()
    work.assert_kept(again.path, failed)


@pytest.mark.limit(240)
def test_a_second_mount_of_it_is_refused(store, workspace):
    """Both would lose what the other writes."""
    machine = store.machine()
    put(machine.path / "file")
    with pytest.raises(AssertionError, match="(?s)kemvi mount ended with.*store"):
        store.machine()
    refused = store.machines.pop()
    refused.host = None
    assert not system.mount_points(refused.path)
    assert (machine.path / "file").read_bytes() == b"content" and os.listdir(machine.path) == ["file"]
