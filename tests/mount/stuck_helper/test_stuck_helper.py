"""A helper that does not answer: whoever waits for it can be ended, and everything goes on when it wakes."""

import mmap
import os
import signal
import subprocess
import sys
import threading
import time

import pytest

from harness import system
from harness.deadline import eventually
from harness.program import KEMVI
from harness.volume import Volume
from harness.worker import Worker, in_child

# A waiting process is gone within a second; twice that on a machine that does other work beside.
AT_ONCE = 2.0
DATA = os.urandom(200_000)


def read_mapped(folder):
    descriptor = os.open(folder / "file", os.O_RDONLY)
    with mmap.mmap(descriptor, 0, access=mmap.ACCESS_READ) as view:
        return view[150_000]


def write_and_close(folder):
    descriptor = os.open(folder / "file", os.O_WRONLY)
    os.write(descriptor, b"written")
    os.close(descriptor)


def write_and_exit(folder):
    descriptor = os.open(folder / "file", os.O_WRONLY)
    os.write(descriptor, b"written")
    os._exit(0)


def read_and_exit(folder):
    descriptor = os.open(folder / "file", os.O_RDONLY)
    os.read(descriptor, 10)
    os._exit(0)


def synchronise(folder):
    descriptor = os.open(folder / "file", os.O_WRONLY)
    os.write(descriptor, b"written")
    os.fsync(descriptor)


def write_many(folder):
    with open(folder / "file", "wb") as file:
        file.write(DATA)


# What waits, and in which request of the helper.
WAITS = {
    "stat": ("getattr", lambda folder: os.stat(folder / "unseen")),
    "open": ("open", lambda folder: (folder / "file").read_bytes()),
    "read": ("read", lambda folder: (folder / "file").read_bytes()),
    "fault of a mapped page": ("read", read_mapped),
    "write": ("write", write_many),
    "close": ("release", write_and_close),
    "exit with a written descriptor": ("release", write_and_exit),
    "exit with a read descriptor": ("release", read_and_exit),
    "fsync": ("flush", synchronise),
    "listing": ("readdir", os.listdir),
    "create": ("open", lambda folder: (folder / "fresh").touch()),
    "mkdir": ("mkdir", lambda folder: os.mkdir(folder / "fresh")),
    "unlink": ("unlink", lambda folder: os.unlink(folder / "file")),
    "rmdir": ("unlink", lambda folder: os.rmdir(folder / "folder")),
    "rename": ("rename", lambda folder: os.rename(folder / "file", folder / "moved")),
    "truncate": ("write", lambda folder: os.truncate(folder / "file", 100)),
    "chmod": ("chmod", lambda folder: os.chmod(folder / "file", 0o600)),
    "utime": ("utimes", lambda folder: os.utime(folder / "file", (1, 1))),
}


@pytest.fixture
def stuck(controlled):
    (controlled.backing / "file").write_bytes(DATA)
    (controlled.backing / "unseen").write_bytes(b"unseen")
    (controlled.backing / "folder").mkdir()
    controlled.expect_log("interrupt", "helper")
    return controlled


@pytest.mark.parametrize("number", [signal.SIGKILL, pytest.param(signal.SIGINT, marks=pytest.mark.long)],
                         ids=["SIGKILL", "SIGINT"])
@pytest.mark.parametrize("what", WAITS)
def test_waiting_process_is_ended_at_once_and_the_mount_goes_on(stuck, what, number):
    op, wait = WAITS[what]
    rule = stuck.helper.block(op)
    worker = Worker(wait, stuck.path)
    # A host may leave to the background what nobody has to wait for; then the process just ends.
    eventually(lambda: stuck.helper.is_blocked() or worker.is_gone(), 20, "the helper being asked")
    if not worker.is_gone():
        worker.kill(number)
    assert worker.is_gone(AT_ONCE), f"still there, waiting in {system.state_of(worker.pid)}"
    stuck.helper.drop(rule)
    assert (stuck.path / "unseen").read_bytes() == b"unseen"
    assert "unseen" in os.listdir(stuck.path)
    assert in_child(lambda: (stuck.path / "after").write_bytes(b"after")) == 5
    assert (stuck.backing / "after").read_bytes() == b"after"


@pytest.mark.parametrize("what", ["stat", "open", "read", "listing", "mkdir", "rename", "utime"])
def test_waiting_process_gets_its_answer_when_the_helper_wakes(stuck, what):
    op, wait = WAITS[what]
    rule = stuck.helper.block(op)
    worker = Worker(lambda: (wait(stuck.path), True)[1])
    stuck.helper.blocked_request()
    assert not worker.is_done()
    stuck.helper.drop(rule)
    assert worker.result(10)


def test_process_that_waits_behind_another_is_ended_at_once(stuck):
    # In a folder of its own: the kernel itself keeps changes of a folder waiting while a name in it is looked up.
    (stuck.backing / "folder" / "unseen").write_bytes(b"unseen")
    os.stat(stuck.path / "folder")
    rule = stuck.helper.block("getattr", "/folder/unseen")
    first = Worker(os.stat, stuck.path / "folder" / "unseen")
    stuck.helper.blocked_request()
    others = [Worker(os.listdir, stuck.path), Worker((stuck.path / "file").read_bytes),
              Worker(os.stat, stuck.path / "absent"), Worker(os.mkdir, stuck.path / "fresh")]
    for other in others:
        eventually(lambda pid=other.pid: system.is_waiting(pid), 10, "a waiting process")
    for other, number in zip(others, [signal.SIGKILL, signal.SIGINT] * 2):
        other.kill(number)
    for other in others:
        assert other.is_gone(AT_ONCE)
    assert not first.is_done()
    stuck.helper.drop(rule)
    assert first.result(10).st_size == 6


def test_many_waiting_processes_are_all_ended(stuck):
    rule = stuck.helper.block()
    workers = [Worker(os.stat, stuck.path / f"name{index}") for index in range(25)]
    stuck.helper.blocked_request()
    for worker in workers:
        eventually(lambda pid=worker.pid: system.is_waiting(pid), 10, "a waiting process")
    for worker in workers:
        worker.kill()
    end = time.monotonic() + AT_ONCE
    for worker in workers:
        assert worker.is_gone(max(0, end - time.monotonic()))
    stuck.helper.drop(rule)
    assert (stuck.path / "file").read_bytes() == DATA


def test_process_killed_in_a_read_can_exit_with_a_written_descriptor(stuck):
    def wait():
        descriptor = os.open(stuck.path / "other", os.O_WRONLY | os.O_CREAT)
        os.write(descriptor, b"written")
        (stuck.path / "file").read_bytes()
    rule = stuck.helper.block("read")
    worker = Worker(wait)
    stuck.helper.blocked_request()
    worker.kill()
    assert worker.is_gone(AT_ONCE)
    stuck.helper.drop(rule)
    assert (stuck.path / "other").read_bytes() == b"written"


def test_process_can_exit_with_a_written_descriptor_while_the_helper_hangs_for_another(stuck):
    """The close at exit cannot be interrupted by any signal, so the host must not let it wait."""
    written = stuck.workspace / "written"

    def wait():
        descriptor = os.open(stuck.path / "other", os.O_WRONLY | os.O_CREAT)
        os.write(descriptor, b"written")
        written.touch()
        signal.pause()
    worker = Worker(wait)
    eventually(written.exists, 10)
    rule = stuck.helper.block("getattr", "/unseen")
    other = Worker(os.stat, stuck.path / "unseen")
    stuck.helper.blocked_request()
    worker.kill()
    assert worker.is_gone(AT_ONCE)
    stuck.helper.drop(rule)
    assert other.result(10).st_size == 6
    assert (stuck.path / "other").read_bytes() == b"written"


def test_programs_die_of_ctrl_c(stuck):
    rule = stuck.helper.block("getattr")
    for command in (["cat", "file"], ["ls", "-l", "unseen"], ["cp", "file", "copy"], ["find", "folder"]):
        command = [command[0], *[word if word.startswith("-") else str(stuck.path / word) for word in command[1:]]]
        with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as waiting:
            eventually(lambda: system.is_waiting(waiting.pid), 10, "a waiting program")
            waiting.send_signal(signal.SIGINT)
            assert waiting.wait(AT_ONCE) != 0
    stuck.helper.drop(rule)
    assert (stuck.path / "file").read_bytes() == DATA


# Signals that a program survives

def create_exclusively(folder):
    os.close(os.open(folder / "fresh", os.O_WRONLY | os.O_CREAT | os.O_EXCL))


# Operations whose work would be done though they fail, and the request that is slow.
CHANGES = {
    "mkdir": ("mkdir", lambda folder: os.mkdir(folder / "fresh")),
    "exclusive create": ("open", create_exclusively),
    "rename": ("rename", lambda folder: os.rename(folder / "file", folder / "fresh")),
    "close": ("release", write_and_close),
}


def with_timer(function, *arguments):
    """Calls a function while a timer sends one signal after the other, as progress displays and profilers do."""
    count = 0

    def handler(_number, _frame):
        nonlocal count
        count += 1
    signal.signal(signal.SIGALRM, handler)
    signal.siginterrupt(signal.SIGALRM, False)
    signal.setitimer(signal.ITIMER_REAL, 0.1, 0.1)
    try:
        function(*arguments)
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
    return count


@pytest.mark.parametrize("what", CHANGES)
def test_operation_of_a_slow_helper_is_not_broken_by_a_timer(stuck, what):
    op, change = CHANGES[what]
    stuck.helper.rule("delay", op, milliseconds=800)
    assert in_child(with_timer, change, stuck.path) > 0
    assert (stuck.path / ("file" if what == "close" else "fresh")).exists()


def test_git_clones_with_its_progress_shown_from_a_slow_helper(stuck):
    def git(*words):
        subprocess.run(["git", "-c", "user.name=n", "-c", "user.email=e@x", *map(str, words)], check=True,
                       capture_output=True, timeout=20)
    origin, clone = stuck.workspace / "origin", stuck.path / "clone"
    (origin / "sub").mkdir(parents=True)
    (origin / "sub" / "file").write_bytes(DATA)
    git("init", "-q", origin)
    git("-C", origin, "add", "-A")
    git("-C", origin, "commit", "-q", "-m", "first")
    for op, path in (("mkdir", "/clone/sub"), ("open", "/clone/sub/file")):
        stuck.helper.rule("delay", op, path, milliseconds=1200)
    git("clone", "--progress", "--no-local", origin, clone)
    assert (stuck.backing / "clone" / "sub" / "file").read_bytes() == DATA


def test_handled_signal_lets_the_wait_go_on_and_a_deadly_one_after_it_ends_it(stuck):
    """The kernel tells the host of the first signal alone."""
    ready = stuck.workspace / "ready"

    def wait():
        signal.signal(signal.SIGINT, lambda *_: None)
        ready.touch()
        os.mkdir(stuck.path / "fresh")
    for deadly in (signal.SIGTERM, signal.SIGKILL):
        ready.unlink(missing_ok=True)
        rule = stuck.helper.block("mkdir")
        worker = Worker(wait)
        eventually(ready.exists, 10)
        stuck.helper.blocked_request()
        worker.kill(signal.SIGINT)
        assert not worker.is_gone(1), "a signal that is handled has ended the wait"
        worker.kill(deadly)
        assert worker.is_gone(AT_ONCE)
        stuck.helper.drop(rule)
        eventually((stuck.path / "fresh").is_dir, 10, "the folder")
        os.rmdir(stuck.path / "fresh")


def test_signals_that_are_ignored_or_blocked_end_no_wait(stuck):
    ready = stuck.workspace / "ready"

    def wait():
        signal.signal(signal.SIGHUP, signal.SIG_IGN)
        signal.signal(signal.SIGUSR1, lambda *_: None)
        signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])
        ready.touch()
        os.mkdir(stuck.path / "fresh")
        return True
    rule = stuck.helper.block("mkdir")
    worker = Worker(wait)
    eventually(ready.exists, 10)
    stuck.helper.blocked_request()
    for number in (signal.SIGHUP, signal.SIGTERM, signal.SIGUSR1):
        worker.kill(number)
    assert not worker.is_gone(1)
    stuck.helper.drop(rule)
    assert worker.result(10)


def test_thread_that_waits_goes_with_its_process(stuck):
    """A signal ends all threads, whichever of them takes it."""
    def wait():
        threading.Thread(target=os.stat, args=(stuck.path / "unseen",), daemon=True).start()
        signal.pause()
    for number in (signal.SIGTERM, signal.SIGQUIT):
        rule = stuck.helper.block("getattr", "/unseen")
        worker = Worker(wait)
        stuck.helper.blocked_request()
        worker.kill(number)
        assert worker.is_gone(AT_ONCE)
        stuck.helper.drop(rule)
        eventually(lambda: not stuck.helper.is_blocked(), 10)


# Callers that the host cannot see

# Without the right to look into processes even root sees no others there.
HIDING = """
mount -t proc -o hidepid=2,gid=65534 proc /proc
setpriv --bounding-set=-sys_ptrace --inh-caps=-sys_ptrace "$@" -o allow_other,umask=0
"$PYTHON" -c "$CLOSE" "$FILE"
exec "$1" unmount "$POINT"
"""
CLOSE = """
import os, sys
os.setgroups([]); os.setgid(65533); os.setuid(65533)
descriptor = os.open(sys.argv[1], os.O_WRONLY)
os.write(descriptor, b"written")
os.close(descriptor)
"""


@pytest.mark.root_only
def test_close_of_a_process_that_proc_hides_from_the_host_waits_for_the_helper(workspace):
    volume = Volume(workspace, control=True)
    for folder in (workspace, volume.path):
        os.chmod(folder, 0o755)
    (volume.backing / "file").touch()
    volume.helper.rule("delay", "release", milliseconds=900)
    told = {"PYTHON": sys.executable, "CLOSE": CLOSE, "FILE": str(volume.path / "file"), "POINT": str(volume.path)}
    command = [system.OWN_MOUNT_TABLE, "sh", "-ec", HIDING, "sh", KEMVI, *volume.arguments()]
    done = subprocess.run(command, env={**volume.program.environment, **told}, capture_output=True, text=True,
                          timeout=30, check=False)
    assert done.returncode == 0, done.stderr
    assert (volume.backing / "file").read_bytes() == b"written"


def test_interrupted_change_is_finished_in_the_background(stuck):
    rule = stuck.helper.block("mkdir")
    worker = Worker(os.mkdir, stuck.path / "fresh")
    stuck.helper.blocked_request()
    worker.kill()
    assert worker.is_gone(AT_ONCE)
    stuck.helper.drop(rule)
    eventually((stuck.backing / "fresh").is_dir, 10, "the folder")
    eventually((stuck.path / "fresh").is_dir, 10, "the folder in the mount")


def test_interrupted_rename_is_whole_in_the_end(stuck):
    (stuck.backing / "target").write_bytes(b"target")
    rule = stuck.helper.block("rename")
    worker = Worker(os.rename, stuck.path / "file", stuck.path / "target")
    stuck.helper.blocked_request()
    worker.kill()
    assert worker.is_gone(AT_ONCE)
    stuck.helper.drop(rule)
    eventually(lambda: not (stuck.backing / "file").exists(), 10, "the rename")
    eventually(lambda: not (stuck.path / "file").exists(), 10, "the rename in the mount")
    assert (stuck.path / "target").read_bytes() == DATA


def test_interrupted_resize_is_whole_in_the_end(stuck):
    rule = stuck.helper.block("write")
    worker = Worker(os.truncate, stuck.path / "file", 100_000)
    stuck.helper.blocked_request()
    worker.kill()
    assert worker.is_gone(AT_ONCE)
    stuck.helper.drop(rule)
    eventually(lambda: (stuck.backing / "file").stat().st_size == 100_000, 10, "the resize")
    eventually(lambda: (stuck.path / "file").read_bytes() == DATA[:100_000], 10, "the resize in the mount")
    eventually(lambda: not stuck.helper_files(), 10, "handles given back")


def test_interrupting_over_and_over_leaks_nothing(stuck):
    for turn in range(15):
        (stuck.backing / f"file{turn}").write_bytes(DATA)
        rule = stuck.helper.block("read")
        worker = Worker((stuck.path / f"file{turn}").read_bytes)
        stuck.helper.blocked_request()
        worker.kill(signal.SIGKILL if turn % 2 else signal.SIGINT)
        assert worker.is_gone(AT_ONCE)
        stuck.helper.drop(rule)
        eventually(lambda: not stuck.helper.is_blocked(), 10)
        assert (stuck.path / f"file{turn}").read_bytes() == DATA
    assert len(os.listdir(f"/proc/{stuck.host.pid}/task")) < 12


# Ending the mount


def test_plain_unmount_says_what_it_waits_for_and_ends_when_the_helper_wakes(stuck):
    stuck.checks_descriptors = False
    stuck.expect_log("")
    rule = stuck.helper.block("getattr")
    worker = Worker(os.stat, stuck.path / "unseen")
    stuck.helper.blocked_request()
    worker.kill()
    assert worker.is_gone(AT_ONCE)
    said = stuck.workspace / "said"
    with open(said, "wb") as output, stuck.program.start("unmount", stuck.path, stdout=output, stderr=output) as ending:
        eventually(lambda: str(stuck.host.pid) in said.read_text(), 20, "a line with the process that is waited for")
        assert ending.poll() is None
        stuck.helper.drop(rule)
        assert ending.wait(20) == 0
    assert stuck.wait_for_end(10) == 0


def test_waiting_processes_fail_when_the_host_is_killed(stuck):
    stuck.checks_descriptors, stuck.expects_exit = False, None
    rule = stuck.helper.block("getattr")
    worker = Worker(os.stat, stuck.path / "unseen")
    stuck.helper.blocked_request()
    stuck.host.kill()
    stuck.wait_for_end()
    with pytest.raises(OSError):
        worker.result(5)
    eventually(lambda: not system.mount_points(stuck.path), 10, "the unmount")
    # The helper sleeps on, but nobody waits for it. It ends with its input once it wakes.
    stuck.helper.drop(rule)
    eventually(lambda: not stuck.helper_pids(), 10, "the end of the helper")
