"""The control channel of a mount, kemvi list and kemvi status: told whatever state the mount is in, to its owner and root alone,
and never felt by the mount."""

import json
import os
import pwd
import re
import signal
import socket
import stat
import subprocess
import sys
import threading
import time
from pathlib import Path

import pytest

from harness import system
from harness.deadline import SLOWNESS, eventually
from harness.place import assert_fails

OTHER_USER = pwd.getpwnam("nobody")


@pytest.fixture(name="place")
def place_unmounted_at_the_end(place):
    yield place
    for point in system.mount_points(place.folder):
        place.unmount(point=point)


def status(place, point=None):
    result = place.run("status", "--json", point or place.point)
    assert result.returncode == 0, result.stderr
    return json.loads(result.stdout)


def listed(place, **more):
    """What `list` says of the mounts of this test."""
    result = place.run("list", "--json", **more)
    assert (result.returncode, result.stderr) == (0, "")
    return [mount for mount in json.loads(result.stdout) if mount["mountPoint"].startswith(str(place.folder))]


def environment_of(pid):
    entries = Path(f"/proc/{pid}/environ").read_bytes().split(b"\0")
    return dict(entry.decode().split("=", 1) for entry in entries if b"=" in entry)


def socket_of(place):
    return Path(environment_of(place.helper())["KEMVI_CONTROL"])


class Peer:
    """A program that speaks the channel's lines itself."""

    def __init__(self, path):
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.settimeout(20 * SLOWNESS)
        self._socket.connect(str(path))
        self._lines = self._socket.makefile("r", encoding="utf-8")
        self.greeting = self.next()

    def next(self):
        return json.loads(self._lines.readline())

    def say(self, text):
        self._socket.sendall(text.encode() + b"\n")

    def ask(self, **members):
        self.say(json.dumps(members))
        return self.next()

    def close(self):
        self._lines.close()
        self._socket.close()


# What a mount says of itself

def test_status_tells_what_the_mount_is(place):
    place.mount("-o", "ro,entry_timeout=2.5,fmask=022,noatime")
    told = status(place)
    assert told["mountPoint"] == str(place.point) and told["source"] == str(place.source)
    assert told["host"]["pid"] == place.host() and told["helper"]["pid"] == place.helper()
    assert told["owner"] == os.getuid()
    assert told["state"] == "serving" and told["helper"]["answers"] is True
    assert 0 <= told["seconds"] < 60 * SLOWNESS and told["since"].endswith("Z")
    for option in ("ro", "entry_timeout=2.5", "attr_timeout=1", "fmask=022", "noatime", "placement=auto"):
        assert option in told["options"]
    same, = listed(place)
    for changing in ("seconds", "requests", "current"):
        same.pop(changing, None)
        told.pop(changing, None)
    assert same == told


def test_status_and_list_are_told_in_words(place):
    place.mount()
    text = place.run("status", place.point).stdout
    assert text.startswith(f"{place.point}\n")
    for words in (f"state     serving\n", f"pid {place.host()} of {pwd.getpwuid(os.getuid()).pw_name}", f"pid {place.helper()}, "):
        assert words in text
    head, *rows = place.run("list").stdout.splitlines()
    assert head.split() == ["MOUNTPOINT", "SOURCE", "OWNER", "PID", "STATE"]
    row, = [row.split() for row in rows if str(place.folder) in row]
    assert row == [str(place.point), str(place.source), pwd.getpwuid(os.getuid()).pw_name, str(place.host()), "serving"]


def test_names_do_nothing_to_the_terminal(place):
    point = place.folder / "a\x1b[31m\nb"
    point.mkdir()
    assert place.run("mount", place.source, point).returncode == 0
    for command in (["list"], ["status", point]):
        text = place.run(*command).stdout
        assert "\x1b" not in text and "a\\x1b[31m\\nb" in text, command
    assert [mount["mountPoint"] for mount in listed(place)] == [str(point)]
    place.unmount(point=point)


def test_where_nothing_of_ours_is_mounted_status_is_code_9(place):
    assert_fails(place.run("status", place.point), 9, place.point, "nothing is mounted here")
    assert_fails(place.run("status", "/proc"), 9, "type proc")
    assert listed(place) == []


# Whatever state it is in

def test_a_mount_whose_helper_hangs_answers(place):
    place.use_helper("hangsOnReaddir.mjs")
    place.mount()
    listing = place.start_listing()
    peer = Peer(socket_of(place))
    begin = time.monotonic()
    for _ in range(20):
        assert peer.ask(op="status")["ok"]
    assert time.monotonic() - begin < 20 * 0.05 * SLOWNESS, "50 ms for each"
    peer.close()
    told = eventually(lambda: (now := status(place))["state"] == "waiting" and now, 30, "a second of waiting")
    assert told["current"]["op"] in ("opendir", "readdir", "readdirplus") and told["current"]["path"] == "/"
    assert (told["current"]["pid"], told["current"]["process"]) == (listing.pid, "ls")
    assert told["current"]["seconds"] > 1
    assert listed(place)[0]["state"] == "waiting"
    words = place.run("status", place.point).stdout
    assert re.search(rf"state     waiting since \d+ s for {told['current']['op']} of / on behalf of ls \(pid {listing.pid}\)\n", words)
    place.unmount("--force")
    listing.wait(10 * SLOWNESS)


def test_requests_are_counted(place):
    place.mount()
    before = status(place)["requests"]
    (place.point / "a.txt").read_text()
    assert status(place)["requests"] > before


def test_a_mount_that_is_busy_is_not_one_that_waits(place):
    place.mount()
    for _ in range(20):
        (place.point / "a.txt").read_text()
        assert status(place)["state"] == "serving"


def test_a_dead_helper_is_told_with_how_it_ended(place):
    place.mount()
    helper = place.helper()
    os.kill(helper, signal.SIGKILL)
    with pytest.raises(OSError):
        (place.point / "b.txt").stat()
    told = eventually(lambda: (now := status(place))["helper"].get("end", "").startswith("was killed") and now, 30, "its exit status")
    assert told["state"] == "helperDead" and told["helper"]["answers"] is False
    assert told["helper"]["end"] == "was killed by signal 9 (Killed)"
    assert "helper dead: it was killed by signal 9 (Killed)\n" in place.run("status", place.point).stdout


def test_a_dead_helper_is_told_before_any_request_meets_its_end(place):
    place.mount("-o", "on_death=fail")
    helper = place.helper()
    os.kill(helper, signal.SIGKILL)
    eventually(lambda: not system.is_alive(helper), 30, "the end of the helper")
    told = status(place)
    assert told["state"] == "helperDead" and told["helper"]["answers"] is False
    assert told["helper"]["end"] == "was killed by signal 9 (Killed)"


def test_a_mount_in_the_making_is_listed(place):
    place.use_helper("hangs.mjs")
    process = place.start("mount", "-f", place.source, place.point)
    assert process.stderr.readline() == "hangs.mjs: started\n"
    told, = listed(place)
    assert (told["mountPoint"], told["state"], told["host"]["pid"]) == (str(place.point), "starting", process.pid)
    assert status(place)["state"] == "starting"
    assert_fails(place.run("unmount", place.point), 9, "nothing is mounted here", str(process.pid))
    process.terminate()
    process.communicate(timeout=20 * SLOWNESS)


def test_an_end_that_waits_for_the_helper_is_listed(place):
    place.use_helper("neverEnds.mjs")
    place.mount()
    host = place.host()
    unmount = place.start("unmount", place.point)
    eventually(lambda: [mount["state"] for mount in listed(place)] == ["ending"], 30, "the end in the list")
    assert listed(place)[0]["host"]["pid"] == host
    place.unmount("--force")
    unmount.communicate(timeout=20 * SLOWNESS)
    assert listed(place) == []


def test_a_host_that_is_stopped_is_told_as_silent(place):
    place.mount()
    host = place.host()
    os.kill(host, signal.SIGSTOP)
    try:
        told, = listed(place)
        assert told == {"mountPoint": str(place.point), "source": str(place.source), "state": "silent",
                        "host": {"pid": host}, "owner": os.getuid()}
        assert_fails(place.run("status", place.point), 1, place.point, "gives no answer", "stopped")
    finally:
        os.kill(host, signal.SIGCONT)
    assert status(place)["state"] == "serving"


def test_what_a_killed_host_leaves_is_told_and_cleared(place):
    place.mount()
    dead = socket_of(place)
    watcher, host = place.watcher(), place.host()
    os.kill(watcher, signal.SIGKILL)
    os.kill(host, signal.SIGKILL)
    eventually(lambda: not system.is_alive(host), 30, "the end of the host")
    told, = listed(place)
    assert told["state"] == "unseen" and "host" not in told
    assert not dead.exists()
    assert_fails(place.run("status", place.point), 1, "has ended", f"kemvi unmount {place.point}")
    place.unmount()


# Who may ask

def test_the_socket_is_its_owners_alone(place):
    place.mount()
    path = socket_of(place)
    for checked, kind, mode in ((path, stat.S_ISSOCK, 0o600), (path.parent, stat.S_ISDIR, 0o700)):
        about = checked.lstat()
        assert kind(about.st_mode) and stat.S_IMODE(about.st_mode) == mode and about.st_uid == os.getuid()
    assert path.name == f"{place.host()}.sock"
    place.unmount()
    assert not path.exists()


@pytest.mark.user_only
def test_a_folder_that_is_a_link_is_not_followed(place):
    runtime, elsewhere = place.folder / "runtime", place.folder / "elsewhere"
    runtime.mkdir()
    elsewhere.mkdir()
    (runtime / "kemvi").symlink_to(elsewhere)
    place.mount(environment={"XDG_RUNTIME_DIR": str(runtime)})
    assert socket_of(place).parent == Path(f"/tmp/kemvi-{os.getuid()}")
    assert list(elsewhere.iterdir()) == []
    assert status(place)["state"] == "serving"


@pytest.mark.user_only
def test_the_socket_lies_in_the_runtime_directory(place):
    runtime = place.folder / "runtime"
    runtime.mkdir()
    place.mount(environment={"XDG_RUNTIME_DIR": str(runtime)})
    assert socket_of(place).parent == runtime / "kemvi"
    assert status(place)["state"] == "serving", "found by who has another runtime directory, too"


@pytest.mark.user_only
def test_a_runtime_directory_that_cannot_be_used_is_done_without(place):
    place.mount(environment={"XDG_RUNTIME_DIR": str(place.folder / ("x" * 120))})
    assert socket_of(place).parent == Path(f"/tmp/kemvi-{os.getuid()}")


def as_other_user(place, *arguments):
    """Runs the command as another user, for whom a copy of it is put where they may go."""
    for folder in (place.folder, *place.folder.parents):
        if folder.stat().st_uid == os.getuid() and folder != Path("/"):
            folder.chmod(folder.stat().st_mode | 0o011)
    return subprocess.run(["setpriv", f"--reuid={OTHER_USER.pw_uid}", f"--regid={OTHER_USER.pw_gid}", "--clear-groups",
                           place.program.path, *map(str, arguments)], cwd="/", env=place.environment(HOME="/"), text=True,
                          capture_output=True, stdin=subprocess.DEVNULL, timeout=30 * SLOWNESS, check=False)


@pytest.mark.root_only
def test_another_user_learns_no_more_than_the_kernel_tells_everybody(place):
    place.program.path = str(place.folder / "kemvi")
    subprocess.run(["cp", os.environ["KEMVI_BIN"], place.program.path], check=True)
    place.mount()
    result = as_other_user(place, "list", "--json")
    told, = [mount for mount in json.loads(result.stdout) if mount["mountPoint"] == str(place.point)]
    assert told == {"mountPoint": str(place.point), "source": str(place.source), "state": "foreign", "owner": 0}
    assert_fails(as_other_user(place, "status", place.point), 1, "user 0", "only they and root may ask")


@pytest.mark.root_only
def test_another_user_is_turned_away_at_the_socket_itself(place):
    place.mount()
    path = socket_of(place)
    opened = os.open(path.parent, os.O_PATH)
    os.chmod(path, 0o666)
    script = ("import os, socket, sys; os.fchdir(int(sys.argv[2])); os.setuid(int(sys.argv[1]));"
              "s = socket.socket(socket.AF_UNIX); s.connect(sys.argv[3]); print(s.makefile().read())")
    os.chmod(path.parent, 0o711)
    try:
        asked = subprocess.run([sys.executable, "-c", script, str(OTHER_USER.pw_uid), str(opened), path.name],
                               pass_fds=[opened], capture_output=True, text=True, timeout=30 * SLOWNESS, check=False)
    finally:
        os.chmod(path.parent, 0o700)
        os.close(opened)
    assert asked.returncode == 0, asked.stderr
    assert json.loads(asked.stdout) == {"ok": False, "error": {"message": "only the owner of the mount and root may ask",
                                                       "code": "denied"}}


# Two versions that meet

def test_what_is_not_known_is_refused_by_name_and_the_rest_goes_on(place):
    place.mount()
    peer = Peer(socket_of(place))
    assert peer.greeting["channel"] == 1 and peer.greeting["mountPoint"] == str(place.point) and peer.greeting["kemvi"]
    refusal = peer.ask(op="levitate")
    assert refusal["ok"] is False and refusal["error"]["code"] == "unknownOperation"
    assert '"levitate"' in refusal["error"]["message"] and "status" in refusal["error"]["message"]
    refusal = peer.ask(op="status", height=3)
    assert refusal["error"]["code"] == "unknownMember" and '"height"' in refusal["error"]["message"]
    peer.say("no JSON")
    assert peer.next()["error"]["code"] == "badRequest"
    assert peer.ask(op="status")["state"] == "serving"
    peer.close()


# What peers cannot do

def test_sixteen_programs_that_say_nothing_keep_neither_the_mount_nor_its_end(place):
    place.mount()
    peers = [Peer(socket_of(place)) for _ in range(16)]
    assert_fails(place.run("status", place.point), 1, "16 programs are connected already")
    assert listed(place)[0]["state"] == "noAnswer"
    assert (place.point / "a.txt").read_text() == "hello\n"
    peers.pop().close()
    eventually(lambda: place.run("status", place.point).returncode == 0, 30, "a place")
    peers.append(Peer(socket_of(place)))
    place.unmount()
    for peer in peers:
        peer.close()


def test_a_program_that_asks_and_never_reads_is_let_go(place):
    place.mount()
    peer = Peer(socket_of(place))
    talker = threading.Thread(target=ask_without_reading, args=[peer])
    talker.start()
    assert status(place)["state"] == "serving"
    assert (place.point / "a.txt").read_text() == "hello\n"
    talker.join(60 * SLOWNESS)
    assert not talker.is_alive(), "it was not let go"
    place.unmount()


def ask_without_reading(peer):
    try:
        while True:
            peer.say('{"op":"status"}')
    except OSError:
        peer.close()


# The end of a mount, asked for over the channel

@pytest.mark.user_only
def test_the_mounts_own_process_takes_it_away(place):
    """The one who asks needs no fusermount3 then."""
    place.mount()
    empty = place.folder / "empty"
    empty.mkdir()
    result = place.run("unmount", place.point, environment={"PATH": str(empty)})
    assert (result.returncode, result.stderr) == (0, "")
    place.assert_nothing_left()


def test_a_mount_whose_socket_is_gone_is_unmounted_all_the_same(place):
    place.mount()
    socket_of(place).unlink()
    assert_fails(place.run("status", place.point), 1, "cannot be used", "No such file")
    assert listed(place)[0]["state"] == "noAnswer"
    place.unmount()
    place.assert_nothing_left()


def test_an_end_that_was_asked_for_on_the_channel_is_answered_when_it_is_done(place):
    place.mount()
    peer = Peer(socket_of(place))
    with open(place.point / "a.txt", encoding="utf-8"):
        refusal = peer.ask(op="unmount")
        assert refusal["error"]["code"] == "busy"
        assert place.is_mounted()
    peer.say('{"op":"unmount"}')
    answer = peer.next()
    assert answer["ok"] or answer["error"]["code"] == "ending", "the process may end before it has said so"
    eventually(lambda: not place.is_mounted(), 30, "the end of the mount")
    peer.close()
    eventually(lambda: not system.processes(place.folder), 30, "the end of the host")


# What the helper is told

def test_the_helper_is_told_of_its_own_mounts_socket_not_of_another(place):
    place.mount(environment={"KEMVI_CONTROL": "/somebody/elses.sock"})
    assert socket_of(place).name == f"{place.host()}.sock"
    place.unmount()
