"""What becomes of a mount whose helper ends: it ends too, or the helper is started anew and all goes on."""

import contextlib
import errno
import math
import os
import signal
import sqlite3
import subprocess
import time

import pytest

from harness import system
from harness.deadline import SLOWNESS, eventually
from harness.worker import Worker

HELPER_ENDED = 14
HELPER_KEEPS_ENDING = 15
DATA = bytes(range(256)) * 1000


@pytest.fixture
def restarting(mount):
    """A volume whose helper is started anew, with a file and a folder."""
    volume = mount(control=True, options=["on_death=restart"])
    volume.expect_log("helper")
    (volume.backing / "file").write_bytes(DATA)
    (volume.backing / "folder").mkdir()
    for number in range(20):
        (volume.backing / "folder" / f"{number:02}").write_bytes(b"%d" % number)
    return volume


def kill(pid):
    with contextlib.suppress(ProcessLookupError):
        os.kill(pid, signal.SIGKILL)


def restarts(volume):
    return len(volume.log_lines("was started anew"))


def kill_helper(volume):
    """Kills it and waits for the next one."""
    before = restarts(volume)
    kill(volume.helper_pid())
    eventually(lambda: restarts(volume) > before, 20, "a new helper")


def die_once(volume, op, path=None):
    """The helper dies in the next such request; the one after it is well."""
    before = restarts(volume)
    rule = volume.helper.rule("dieOnce", op, path)

    def over():
        eventually(lambda: restarts(volume) > before, 20, "a new helper")
        volume.helper.drop(rule)
    return over


# on_death=exit

def test_with_exit_the_mount_ends_with_its_helper(mount):
    volume = mount(control=True, options=["on_death=exit"])
    volume.expect_log("helper")
    volume.expects_exit = HELPER_ENDED
    kill(volume.helper_pid())
    assert volume.wait_for_end(20) == HELPER_ENDED
    assert not system.mount_points(volume.path)
    assert volume.log_lines(r"the helper \(pid \d+\) was killed by signal 9")
    assert volume.log_lines("on_death=exit")


def test_with_exit_whoever_waits_fails_and_no_mount_stays(mount):
    volume = mount(control=True, options=["on_death=exit"])
    volume.expect_log("helper")
    volume.expects_exit = HELPER_ENDED
    volume.checks_descriptors = False
    (volume.backing / "file").write_bytes(DATA)
    volume.helper.rule("die", "read")
    with open(volume.path / "file", "rb", buffering=0) as file:
        with pytest.raises(OSError) as caught:
            file.read(10)
        # The kernel may ask once more before it gives up, and then finds nobody.
        assert caught.value.errno in (errno.EIO, errno.ENOTCONN, errno.ECONNABORTED)
        assert volume.wait_for_end(20) == HELPER_ENDED
    assert not system.mount_points(volume.path)


def test_with_exit_a_helper_that_lives_but_closed_its_output_is_ended(mount):
    volume = mount(control=True, options=["on_death=exit"])
    volume.expect_log("helper")
    volume.expects_exit = HELPER_ENDED
    volume.helper.rule("closeOutput", "getattr", "/first")
    with pytest.raises(OSError):
        os.stat(volume.path / "first")
    assert volume.wait_for_end(20) == HELPER_ENDED


def test_with_exit_a_helper_whose_answers_are_out_of_step_is_ended(mount):
    volume = mount(control=True, options=["on_death=exit"])
    volume.expect_log("helper")
    volume.expects_exit = HELPER_ENDED
    volume.helper.rule("extraLine", "getattr", "/first")
    with pytest.raises(OSError):
        os.stat(volume.path / "first")
    assert volume.wait_for_end(20) == HELPER_ENDED
    assert volume.log_lines(r"the helper \(pid \d+\) was ended: answers are out of step since request \d+ \(getattr\)")


def test_with_exit_a_death_that_nobody_waits_for_ends_the_mount_too(mount):
    """The helper lives on after it has closed its output, in what is done while the mount is idle."""
    volume = mount(control=True, options=["on_death=exit"])
    volume.expect_log("helper")
    volume.expects_exit = HELPER_ENDED
    (volume.backing / "file").write_bytes(DATA)
    volume.helper.rule("closeOutput", "release")
    assert (volume.path / "file").read_bytes() == DATA
    assert volume.wait_for_end(20) == HELPER_ENDED


# on_death=restart

def test_an_idle_mount_gets_a_new_helper_at_once(restarting):
    first = restarting.helper_pid()
    kill_helper(restarting)
    assert restarting.helper_pid() != first
    (restarting.path / "made").write_bytes(b"made")  # no change fails for the death before it
    assert (restarting.path / "file").read_bytes() == DATA


@pytest.mark.parametrize("op, look", [
    ("getattr", lambda path: os.stat(path / "file").st_size == len(DATA)),
    ("read", lambda path: (path / "file").read_bytes() == DATA),
    ("open", lambda path: (path / "file").read_bytes() == DATA),
    ("readdir", lambda path: len(os.listdir(path / "folder")) == 20),
])
def test_what_only_looks_does_not_notice_a_death(restarting, op, look):
    over = die_once(restarting, op)
    assert look(restarting.path)
    over()


@pytest.mark.parametrize("op, look", [
    ("getattr", lambda path: os.stat(path / "file").st_size == len(DATA)),
    ("read", lambda path: (path / "file").read_bytes() == DATA),
    ("readdir", lambda path: len(os.listdir(path / "folder")) == 20),
    ("release", lambda path: (path / "file").read_bytes() == DATA),
])
def test_what_only_looks_does_not_notice_that_answers_were_out_of_step(restarting, op, look):
    first = restarting.helper_pid()
    rule = restarting.helper.rule("extraLineOnce", op)
    assert look(restarting.path)
    eventually(lambda: restarts(restarting) == 1, 20, "a new helper")
    restarting.helper.drop(rule)
    assert not system.is_alive(first)
    assert len(restarting.log_lines("answers are out of step since request")) == 1
    assert (restarting.path / "file").read_bytes() == DATA and restarts(restarting) == 1


def test_a_helper_that_is_out_of_step_from_its_first_answer_counts_as_one_that_failed_to_start(restarting):
    restarting.expect_log("loadResource failed")
    rule = restarting.helper.rule("extraLineOnce", "ping")
    kill(restarting.helper_pid())
    eventually(lambda: restarts(restarting) == 1, 20, "a new helper")
    restarting.helper.drop(rule)
    assert restarting.log_lines("could not be started anew: .*did not match request id 1")
    assert (restarting.path / "file").read_bytes() == DATA


@pytest.mark.parametrize("op, change", [
    ("mkdir", lambda path: os.mkdir(path / "new")),
    ("unlink", lambda path: os.unlink(path / "file")),
    ("rename", lambda path: os.rename(path / "file", path / "moved")),
    ("chmod", lambda path: os.chmod(path / "file", 0o600)),
    ("write", lambda path: os.truncate(path / "file", len(DATA) + 1)),
])
def test_a_change_that_may_have_been_done_fails_with_eio(restarting, op, change):
    over = die_once(restarting, op)
    with pytest.raises(OSError) as caught:
        change(restarting.path)
    assert caught.value.errno == errno.EIO
    over()
    assert len(os.listdir(restarting.path / "folder")) == 20
    (restarting.path / "after").write_bytes(b"after")


def test_open_descriptors_go_on(restarting):
    reader = os.open(restarting.path / "file", os.O_RDONLY)
    writer = os.open(restarting.path / "made", os.O_RDWR | os.O_CREAT)
    os.fsync(writer)  # or that it was made would be told as not safe
    removed = os.open(restarting.path / "removed", os.O_RDWR | os.O_CREAT)
    os.write(removed, b"removed")
    os.fsync(removed)
    os.unlink(restarting.path / "removed")
    assert os.pread(reader, 10, 0) == DATA[:10]
    kill_helper(restarting)
    assert os.pread(reader, 100, 70_000) == DATA[70_000:70_100]
    os.write(writer, b"written")
    os.fsync(writer)
    assert os.pread(removed, 10, 0) == b"removed"
    assert len(restarting.hidden()) == 1 and "removed" not in os.listdir(restarting.path)
    for descriptor in (reader, writer, removed):
        os.close(descriptor)
    assert (restarting.backing / "made").read_bytes() == b"written"
    eventually(lambda: not restarting.hidden(), 5, "the removal of the hidden file")


def test_an_open_file_whose_name_is_gone_is_stale_for_its_descriptor_alone(restarting):
    gone = os.open(restarting.path / "folder" / "01", os.O_RDONLY)
    there = os.open(restarting.path / "folder" / "02", os.O_RDONLY)
    os.unlink(restarting.backing / "folder" / "01")
    kill_helper(restarting)
    with pytest.raises(OSError) as caught:
        os.pread(gone, 10, 0)
    assert caught.value.errno == errno.ESTALE
    assert os.pread(there, 10, 0) == b"2"
    os.close(gone)
    os.close(there)


@pytest.mark.parametrize("tell", [os.fsync, os.close])
def test_what_was_written_and_not_safe_is_told_as_lost(restarting, tell):
    descriptor = os.open(restarting.path / "made", os.O_WRONLY | os.O_CREAT)
    os.write(descriptor, b"accepted")
    kill_helper(restarting)
    with pytest.raises(OSError) as caught:
        tell(descriptor)
    assert caught.value.errno == errno.EIO
    if tell is os.fsync:
        os.fsync(descriptor)
        os.close(descriptor)


def test_what_was_made_safe_is_not_told_as_lost(restarting):
    descriptor = os.open(restarting.path / "made", os.O_WRONLY | os.O_CREAT)
    os.write(descriptor, b"accepted")
    os.fsync(descriptor)
    kill_helper(restarting)
    os.fsync(descriptor)
    os.close(descriptor)


def test_a_listing_under_way_goes_on(restarting):
    with os.scandir(restarting.path / "folder") as entries:
        names = [next(entries).name]
        kill_helper(restarting)
        names += [entry.name for entry in entries]
    assert sorted(names) == [f"{number:02}" for number in range(20)]


def test_who_works_in_a_folder_stays_there(restarting):
    worker = subprocess.Popen(["sh", "-c", "read line; pwd -P; ls | wc -l; cat 05"], cwd=restarting.path / "folder",
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    kill_helper(restarting)
    told, _ = worker.communicate("go\n", timeout=20)
    assert told.split() == [str(restarting.path / "folder"), "20", "5"]


def test_requests_wait_for_the_restart_and_can_be_killed(restarting):
    """The second start is held up; who waits can be ended meanwhile."""
    descriptor = os.open(restarting.path / "file", os.O_RDONLY)
    rule = restarting.helper.block("ping")
    kill(restarting.helper_pid())
    restarting.helper.blocked_request()
    waiting = Worker(os.pread, descriptor, 10, 0)
    dying = Worker(os.stat, restarting.path / "unseen")
    for worker in (waiting, dying):
        eventually(lambda pid=worker.pid: system.is_waiting(pid), 10, "a waiting process")
    dying.kill()
    assert dying.is_gone(3.0)
    restarting.helper.drop(rule)
    assert waiting.result(20) == DATA[:10]
    os.close(descriptor)


def test_a_helper_that_ends_at_once_each_time_ends_the_mount(mount):
    volume = mount(control=True, options=["on_death=restart"])
    volume.expect_log("helper")
    volume.expects_exit = HELPER_KEEPS_ENDING
    volume.helper.rule("die", "ping")
    kill(volume.helper_pid())
    # 0.1 s, doubled up to 10 s: 32.7 s of pauses, and nine starts
    assert volume.wait_for_end(120) == HELPER_KEEPS_ENDING
    assert len(volume.log_lines("it is started anew in")) == 9
    assert not system.mount_points(volume.path)


def test_unmounting_works_between_two_starts(mount):
    volume = mount(control=True, options=["on_death=restart"])
    volume.expect_log("helper")
    volume.helper.rule("die", "ping")
    kill(volume.helper_pid())
    eventually(lambda: len(volume.log_lines("it is started anew in")) >= 5, 20, "a long pause")
    volume.unmount()
    assert volume.wait_for_end(10) == 0


# At the end of the mount

@pytest.fixture
def holding(mount):
    """A volume of which the kernel holds what was written to two open files."""
    volume = mount(control=True, options=["on_death=restart", "writeback"])
    volume.expect_log("helper", "not everything")
    volume.checks_descriptors = False
    made = [os.open(volume.path / name, os.O_RDWR | os.O_CREAT) for name in ("one", "two")]
    for descriptor in made:
        os.fsync(descriptor)
        os.write(descriptor, DATA)
    yield volume
    for descriptor in made:
        with contextlib.suppress(OSError):
            os.close(descriptor)


def test_a_death_in_the_last_writing_is_followed_by_a_restart(holding):
    holding.expects_exit = 1  # what was in the request that met the death may be lost
    holding.helper.rule("dieOnce", "write")
    holding.host.send_signal(signal.SIGTERM)
    assert holding.wait_for_end(30) == 1
    assert restarts(holding) == 1
    assert holding.log_lines("not everything that programs have changed is safe")
    whole = [(holding.backing / name).read_bytes() == DATA for name in ("one", "two")]
    assert sum(whole) == 1, "one of them met the death"


def test_a_death_before_the_last_writing_loses_nothing(holding):
    holding.expect_log("loadResource failed")
    rule = holding.helper.rule("die", "ping")
    kill(holding.helper_pid())
    eventually(lambda: len(holding.log_lines("it is started anew in")) >= 4, 30, "a long pause")
    holding.host.send_signal(signal.SIGTERM)
    holding.helper.drop(rule)
    assert holding.wait_for_end(30) == 0
    assert restarts(holding) == 1
    assert all((holding.backing / name).read_bytes() == DATA for name in ("one", "two"))


def test_a_helper_that_keeps_ending_does_not_keep_the_mount_from_ending(holding):
    holding.expects_exit = None
    rule = holding.helper.rule("die", "write")
    holding.host.send_signal(signal.SIGTERM)
    eventually(lambda: len(holding.log_lines("it is started anew in")) >= 4, 30, "a long pause")
    holding.host.send_signal(signal.SIGTERM)
    assert holding.wait_for_end(10) != 0
    holding.helper.drop(rule)


# op_timeout

def test_a_helper_that_hangs_is_ended_and_started_anew(mount):
    limit = math.ceil(4 * SLOWNESS)  # the next helper has to have started within that time, too
    volume = mount(control=True, options=["on_death=restart", f"op_timeout={limit}"])
    volume.expect_log("helper")
    (volume.backing / "file").write_bytes(b"content")
    rule = volume.helper.rule("hangOnce", "getattr", "/file")
    begin = time.monotonic()
    assert os.stat(volume.path / "file").st_size == 7  # by the next helper
    assert time.monotonic() - begin >= limit
    assert volume.log_lines(rf"has not answered for {limit} s \(op_timeout\), and is killed")
    volume.helper.drop(rule)


def test_a_helper_that_hangs_counts_as_dead(mount):
    volume = mount(control=True, options=["op_timeout=0.5"])
    volume.expect_log("helper")
    volume.helper.block("getattr", "/file")
    with pytest.raises(OSError) as caught:
        os.stat(volume.path / "file")
    assert caught.value.errno == errno.EIO
    with pytest.raises(OSError) as caught:
        os.mkdir(volume.path / "folder")
    assert caught.value.errno == errno.EIO


def test_while_it_restarts_requests_wait_no_longer_than_the_helper_would_be_waited_for(mount):
    volume = mount(control=True, options=["on_death=restart", "op_timeout=1"])
    volume.expect_log("helper")
    volume.helper.rule("die", "ping")
    kill(volume.helper_pid())
    eventually(lambda: volume.log_lines("it is started anew in 3.2 s"), 20, "a long pause")
    begin = time.monotonic()
    with pytest.raises(OSError) as caught:
        os.stat(volume.path / "file")
    assert caught.value.errno == errno.EIO
    assert time.monotonic() - begin < 3.0


def test_a_request_that_waits_long_is_told_and_its_end_too(controlled):
    controlled.expect_log("waiting for the helper", "is over")
    rule = controlled.helper.block("getattr", "/file")
    worker = Worker(failing_stat, controlled.path / "file")
    eventually(lambda: controlled.log_lines(r"a request \(lookup\) of <private> for process \d+ has been waiting for the helper "
                                            r"for [5-9] s"), 20, "a warning")
    controlled.helper.drop(rule)
    assert worker.result(10) == errno.ENOENT
    eventually(lambda: controlled.log_lines(r"a request \(lookup\) of <private> .* is over after \d+ s"), 10, "its end")


def failing_stat(path):
    try:
        return os.stat(path)
    except OSError as error:
        return error.errno


# kemvi restart

def restart(volume, *more):
    done = volume.program.run("restart", volume.path, *more, limit=60)
    assert done.returncode == 0 and done.stdout == done.stderr == "", done


def test_a_restart_on_demand_loses_nothing(controlled):
    controlled.expect_log("helper")
    descriptor = os.open(controlled.path / "file", os.O_RDWR | os.O_CREAT)
    os.write(descriptor, b"accepted")
    first = controlled.helper_pid()
    restart(controlled)
    assert controlled.helper_pid() != first and not system.is_alive(first)
    os.write(descriptor, b" and more")
    os.fsync(descriptor)
    os.close(descriptor)
    assert (controlled.backing / "file").read_bytes() == b"accepted and more"
    assert controlled.helper.count("flush") >= 1


def test_a_restart_on_demand_shows_what_the_next_helper_serves(mount):
    volume = mount(control=True, options=["entry_timeout=3600", "attr_timeout=3600"])
    volume.expect_log("helper")
    (volume.backing / "file").write_bytes(b"before")
    assert os.stat(volume.path / "file").st_size == 6
    (volume.backing / "file").write_bytes(b"afterwards")
    assert os.stat(volume.path / "file").st_size == 6
    restart(volume)
    eventually(lambda: (volume.path / "file").read_bytes() == b"afterwards", 10, "what is there now")


def test_a_restart_on_demand_may_keep_what_the_kernel_has_cached(mount):
    volume = mount(control=True, options=["entry_timeout=3600", "attr_timeout=3600"])
    volume.expect_log("helper")
    (volume.backing / "file").write_bytes(b"before")
    assert os.stat(volume.path / "file").st_size == 6
    volume.helper.forget()
    restart(volume, "--keep-caches")
    assert os.stat(volume.path / "file").st_size == 6
    assert volume.helper.count("getattr") == 0


def test_a_restart_on_demand_brings_a_dead_helper_back(controlled):
    controlled.expect_log("helper")
    kill(controlled.helper_pid())
    with pytest.raises(OSError):
        os.listdir(controlled.path)
    restart(controlled)
    assert os.listdir(controlled.path) == []


def test_a_restart_on_demand_ends_a_helper_that_hangs(controlled):
    controlled.expect_log("helper")
    rule = controlled.helper.block("getattr", "/file")
    worker = Worker(failing_stat, controlled.path / "file")
    controlled.helper.blocked_request()
    restarting = controlled.program.start("restart", controlled.path)
    assert worker.result(20) == errno.EIO
    controlled.helper.drop(rule)
    assert restarting.wait(20) == 0
    assert os.listdir(controlled.path) == []


def test_a_restart_on_demand_that_fails_says_why_and_can_be_tried_again(controlled):
    controlled.expect_log("helper", "operations fail")
    rule = controlled.helper.rule("die", "ping")
    done = controlled.program.run("restart", controlled.path, limit=60)
    assert done.returncode == 1 and "could not be started anew" in done.stderr, done
    with pytest.raises(OSError) as caught:
        os.listdir(controlled.path)
    assert caught.value.errno == errno.EIO
    controlled.helper.drop(rule)
    restart(controlled)
    assert os.listdir(controlled.path) == []


def test_a_restart_on_demand_forgets_the_failures_before(mount):
    """Somebody looks after it: the pauses begin anew, and the tenth failure is far again."""
    volume = mount(control=True, options=["on_death=restart"])
    volume.expect_log("helper")
    rule = volume.helper.rule("die", "ping")
    kill(volume.helper_pid())
    eventually(lambda: volume.log_lines("it is started anew in 0.8 s"), 20, "some failures")
    restarting = volume.program.start("restart", volume.path)
    eventually(lambda: len(volume.log_lines("it is started anew in 0.1 s")) == 2, 20, "the shortest pause again")
    volume.helper.drop(rule)
    assert restarting.wait(20 * SLOWNESS) == 0
    assert os.listdir(volume.path) == []


def resident(pid):
    """Kilobytes."""
    with open(f"/proc/{pid}/status", encoding="ascii") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))


@pytest.mark.long
@pytest.mark.limit(300)
def test_two_hundred_restarts_leave_nothing_behind(restarting):
    """Every tenth by a death; memory of host and watch, and descriptors, are flat."""
    watch = next(pid for pid in system.processes(restarting.workspace) if system.command_of(pid).startswith("kemvi-watch")
                 or "--watch" in system.command_of(pid))
    reader = os.open(restarting.path / "file", os.O_RDONLY)

    def use():
        assert os.pread(reader, 10, 100_000) == DATA[100_000:100_010]
        assert len(os.listdir(restarting.path / "folder")) == 20
        (restarting.path / "made").write_bytes(b"made")
        os.unlink(restarting.path / "made")
    sizes = []
    for number in range(200):
        use()
        if number % 10 == 9:
            kill_helper(restarting)
        else:
            restart(restarting)
        if number in (50, 199):
            sizes.append((resident(restarting.host.pid), len(system.descriptors(restarting.host.pid)),
                          len(system.descriptors(watch))))
    use()
    os.close(reader)
    (early, open_then, watched_then), (late, open_now, watched_now) = sizes
    assert open_now <= open_then and watched_now <= watched_then, sizes
    assert late < early + 2000, sizes


# Programs

def copy_in_the_middle_of_deaths(volume, command, check):
    """Runs the command until it has succeeded once with at least three deaths before or in it. A failure must be that of
    a death, and what it has left is removed."""
    deadline = time.monotonic() + 120
    deaths = 0
    while time.monotonic() < deadline:
        running = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                                   env=dict(os.environ, LC_ALL="C"))
        if deaths < 3:
            before = volume.helper.count()
            eventually(lambda: volume.helper.count() > before + 30 or running.poll() is not None, 20, "some requests")
            kill_helper(volume)
            deaths += 1
        _, said = running.communicate(timeout=60)
        if running.returncode == 0:
            check()
            if deaths >= 3:
                return
        else:
            assert "Input/output error" in said or "fsync error" in said or "error" in said, said
        subprocess.run(["rm", "-rf", command[-1]], check=True)
    raise AssertionError(f"never done; {deaths} deaths")


def test_cp_copies_whole_or_fails(restarting, tmp_path):
    tree = tmp_path / "tree"
    tree.mkdir()
    for number in range(60):
        (tree / f"{number}").write_bytes(os.urandom(50_000))
    target = restarting.path / "copy"
    copy_in_the_middle_of_deaths(
        restarting, ["cp", "-r", str(tree), str(target)],
        lambda: subprocess.run(["diff", "-r", str(tree), str(restarting.backing / "copy")], check=True))


def test_git_clones_whole_or_fails(restarting, tmp_path):
    origin = tmp_path / "origin"
    git = ["git", "-c", "user.name=t", "-c", "user.email=t@t", "-C", str(origin)]
    subprocess.run(["git", "init", "-q", str(origin)], check=True)
    for number in range(40):
        (origin / f"{number}").write_bytes(os.urandom(5_000))
    subprocess.run([*git, "add", "."], check=True)
    subprocess.run([*git, "commit", "-q", "-m", "all"], check=True)
    target = restarting.path / "clone"

    def check():
        subprocess.run(["git", "-c", "safe.directory=*", "-C", str(target), "fsck", "--strict"], check=True,
                       capture_output=True)
        subprocess.run(["diff", "-r", "-x", ".git", str(origin), str(restarting.backing / "clone")], check=True)
    copy_in_the_middle_of_deaths(restarting, ["git", "clone", "-q", "--no-local", str(origin), str(target)], check)


def test_sqlite_loses_nothing_that_it_has_committed(restarting):
    path = restarting.path / "base"
    committed = set()
    base = sqlite3.connect(path)
    base.execute("create table t (n integer)")
    base.commit()
    deaths = 0
    for number in range(60):
        if number % 12 == 5:
            kill_helper(restarting) if number % 24 == 5 else kill(restarting.helper_pid())
            deaths += 1
        try:
            base.execute("insert into t values (?)", (number,))
            base.commit()
            committed.add(number)
        except sqlite3.OperationalError as failure:
            assert "disk I/O error" in str(failure) or "unable to open" in str(failure), failure
            base.close()
            base = sqlite3.connect(path)
    there = {row[0] for row in base.execute("select n from t")}
    assert base.execute("pragma integrity_check").fetchone() == ("ok",)
    base.close()
    assert committed <= there, f"lost: {committed - there}"
    assert deaths == 5 and len(committed) >= 50
