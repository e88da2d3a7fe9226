"""Servers, helpers and hosts die in the middle of work: what was acknowledged is there, what failed was told, and it goes on.

KEMVI_TEST_STEPS is how many files each machine makes meanwhile.
"""

import errno
import os
import time

import pytest

from harness.calls import failure, put
from harness.deadline import SLOWNESS, eventually
from harness.length import amount
from harness.worker import Worker
from machines import IS_LOCAL
from work import Work

COUNT = int(os.environ.get("KEMVI_TEST_STEPS", amount(250, 80)))  # files of each machine; about 1.6 steps for each
LOST = ["lost", "connection", "ECONN", "server", "terminat", "EIO", "again"]  # what a helper may say of an engine that is gone


def plain(url):
    return "" if IS_LOCAL else url.replace("postgresql:", "postgres:")


def start(store, count, **settings):
    machines = store.several(count, **settings)
    for machine in machines:
        machine.expect_log(*LOST)
    return machines, [Work(machine, COUNT) for machine in machines]


def until_in_the_middle(works, part):
    for work in works:
        eventually(lambda work=work: work.done() > COUNT * part, 200, "work")


@pytest.mark.limit(400)
def test_a_server_that_is_killed_and_started_anew_costs_nothing(make_store, own_postgres):
    """It is away for a moment: nothing fails, nothing is lost, nothing is done twice."""
    store = make_store(plain(own_postgres.url()))
    machines, works = start(store, amount(4, 2))
    for part in amount([0.2, 0.5, 0.8], [0.4]):
        until_in_the_middle(works, part)
        own_postgres.kill()
        own_postgres.start()
    failed = [work.failed(300) for work in works]
    assert failed == [[]] * len(works)
    for work in works:
        for machine in (machines[0], machines[-1]):
            work.assert_kept(machine.path, [])
    store.check()


@pytest.mark.long
@pytest.mark.limit(300)
def test_a_server_that_stays_away_is_an_error_in_time_and_is_forgotten_when_it_is_back(make_store, own_postgres):
    store = make_store(plain(own_postgres.url()))
    machine, = store.several(1, reconnect=2)
    machine.expect_log(*LOST)
    put(machine.path / "before", b"kept")
    own_postgres.kill()
    begin = time.monotonic()
    assert failure(os.mkdir, machine.path / "folder") == errno.EIO
    assert 1.5 < time.monotonic() - begin < 2 + 5 * SLOWNESS
    own_postgres.start()
    os.mkdir(machine.path / "folder")
    assert (machine.path / "before").read_bytes() == b"kept"


class Holder:
    """A program that has written a file. A file of its own: whoever is forked and closes what it inherited commits it."""

    def __init__(self, folder, name, data, calls):
        self.told = folder / f"told {name}"
        self.worker = Worker(self._work, self.told, folder / "mount0" / name, data, calls)
        self.until("wrote")

    @staticmethod
    def _work(told, path, data, calls):
        """Does each call when a file of its number appears; what each failed with."""
        descriptor = os.open(path, os.O_WRONLY | os.O_CREAT)
        os.write(descriptor, data)
        told.with_name(told.name + " wrote").touch()
        errors = []
        for number, call in enumerate(calls):
            while not told.with_name(told.name + str(number)).exists():
                time.sleep(0.01)
            try:
                call(descriptor)
                errors.append(0)
            except OSError as error:
                errors.append(error.errno)
            told.with_name(told.name + f" done{number}").touch()
        return errors

    def until(self, what):
        eventually(self.told.with_name(f"{self.told.name} {what}").exists, 60, f"{self.told.name}: {what}")

    def do(self, number):
        self.told.with_name(self.told.name + str(number)).touch()
        self.until(f"done{number}")


@pytest.mark.limit(300)
def test_what_could_not_be_committed_is_told_and_kept_until_the_server_is_back(make_store, own_postgres, workspace):
    """At fsync and at close; and in the log, with what a program that has died left behind."""
    store = make_store(plain(own_postgres.url()))
    machine, other = store.several(2, reconnect=1)
    machine.expect_log(*LOST, "not committed", "after all")
    asking = Holder(workspace, "asks again", bytes(600_000), [os.fsync, os.fsync, os.close])
    closing = Holder(workspace, "closed", b"new", [os.close])
    dying = Holder(workspace, "of the dying", bytes(1_300_000), [os.fsync])
    own_postgres.kill()
    asking.do(0)
    closing.do(0)
    dying.worker.kill()
    assert dying.worker.is_gone(20)
    kept = "not committed, and tried again until this helper ends: "
    for line in ("of the dying: " + kept + "1300000 bytes", "closed: " + kept + "3 bytes"):
        eventually(lambda line=line: IS_LOCAL or machine.log_lines(line), 20, line)
    own_postgres.start()
    asking.do(1)
    assert (other.path / "asks again").read_bytes() == bytes(600_000)
    asking.do(2)
    assert asking.worker.result() == [errno.EIO, 0, 0]
    assert closing.worker.result() == [errno.EIO]
    eventually(lambda: (other.path / "of the dying").read_bytes() == bytes(1_300_000), 20, "what the dead program wrote")
    eventually(lambda: (other.path / "closed").read_bytes() == b"new", 20, "what close did not acknowledge")

    lost = Holder(workspace, "lost", b"new", [os.close])
    own_postgres.kill()
    lost.do(0)
    assert lost.worker.result() == [errno.EIO]
    machine.close()
    assert IS_LOCAL or machine.log_lines("/lost: not committed, and lost: 3 bytes: this helper ends")
    own_postgres.start()


@pytest.mark.limit(300)
def test_a_helper_that_is_killed_is_started_anew_and_nothing_acknowledged_is_lost(store):
    machines = store.several(2, ["on_death=restart"])
    for machine in machines:
        machine.expect_log(*LOST, "killed", "ended", "restart", "start")
        machine.checks_descriptors = False
    works = [Work(machine, COUNT) for machine in machines]
    until_in_the_middle(works, 0.3)
    machines[0].kill_helper()
    failed = [work.failed(200) for work in works]
    assert len(failed[0]) <= 5 and failed[1] == []
    for work, lacking in zip(works, failed):
        for machine in machines:
            work.assert_kept(machine.path, lacking)


@pytest.mark.limit(300)
def test_a_machine_that_dies_leaves_what_it_acknowledged_to_the_others(store):
    dying, other = store.several(2)
    work = Work(dying, COUNT)
    until_in_the_middle([work], 0.5)
    dying.kill_host()
    dying.expect_log("killed", "gone", "ended")
    failed = work.failed(60)
    assert failed
    work.assert_kept(other.path, failed)
    put(other.path / work.name / "goes on")
    again = store.machine()
    assert sorted(os.listdir(again.path / work.name)) == sorted(os.listdir(other.path / work.name))


@pytest.mark.long
@pytest.mark.limit(400)
def test_an_s3_server_that_is_killed_and_started_anew_costs_nothing(make_store, postgres, own_s3):
    store = make_store(plain(postgres.url()), s3=own_s3)
    machines, works = start(store, 2)
    until_in_the_middle(works, 0.1)
    own_s3.kill()
    own_s3.start()
    assert [work.failed(300) for work in works] == [[], []]
    for work in works:
        for machine in machines:
            work.assert_kept(machine.path, [])
    store.check()
    store.close()
    store.check_objects(postgres)


@pytest.mark.long
@pytest.mark.limit(400)
def test_a_standby_that_takes_over_has_all_that_was_acknowledged(make_store, own_pair):
    url = "" if IS_LOCAL else plain(own_pair.without_password("both"))
    secrets = {} if IS_LOCAL else {"PGPASSWORD": own_pair.password()}
    store = make_store(url, secrets=secrets)
    machines, works = start(store, 2)
    until_in_the_middle(works, 0.4)
    own_pair.kill()
    own_pair.promote()
    assert [work.failed(300) for work in works] == [[], []]
    for work in works:
        for machine in machines:
            work.assert_kept(machine.path, [])
    store.check()
