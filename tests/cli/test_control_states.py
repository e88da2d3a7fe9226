"""Every command that asks a mount, against every state of its helper, by everybody who may ask and by one who may not. What takes long
is held up until the test lets it go on, so whatever is answered before was answered without waiting for the helper."""

import json
import os
import pwd
import re
import shutil
import signal
import subprocess
import urllib.request
from pathlib import Path

import pytest

from harness import system
from harness.control import HelperControl
from harness.deadline import LIMIT, eventually
from harness.place import assert_fails
from harness.program import SHIPPED_HELPER
from harness.volume import HELPERS

NOBODY = pwd.getpwnam("nobody")
BUSY = 10

# state -> the word for it in list and status
STATES = {"serving": "serving", "slow": "waiting", "hung": "waiting", "dead": "helperDead", "restarting": "restarting"}
HELD_UP = ("slow", "restarting")  # until the test lets the helper go on

# Whose mount it is and who asks; for the last two the test runs as root.
ASKERS = [pytest.param((None, None), id="owner"),
          pytest.param((NOBODY, None), id="root", marks=pytest.mark.root_only)]
STRANGER = (None, NOBODY)


class Mount:
    """A mount of `owner`, brought into a state; `run` and `start` ask it as `asker`. None: whoever runs the test."""

    def __init__(self, place, owner, asker):
        self.place, self.owner, self.asker = place, owner, asker
        self.point = place.point
        self.helper = HelperControl(place.folder / "control")
        self.held = self.waiting = None
        self.started = []
        if owner or asker:
            place.program.path = str(place.folder / "kemvi")
            shutil.copy(os.environ["KEMVI_BIN"], place.program.path)
        helpers, inner = place.folder / "helpers", place.folder / "sdk"  # where any user may read them
        shutil.copytree(HELPERS, helpers)
        shutil.copytree(Path(SHIPPED_HELPER).parents[1], inner, ignore=shutil.ignore_patterns("node_modules"))
        place.program.environment.update(KEMVI_TEST_CONTROL=str(self.helper.folder),
                                         KEMVI_TEST_INNER=str(inner / "helpers" / "local.mjs"))
        place.configure(helpers / "controlled.mjs")
        if os.getuid() == 0:
            for folder in (place.folder, *place.folder.rglob("*")):
                if owner:
                    os.chown(folder, owner.pw_uid, owner.pw_gid)
                folder.chmod(folder.stat().st_mode | (0o055 if folder.is_dir() else 0o044))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in self.started:
            process.kill()
            process.communicate(timeout=LIMIT)
        if self.waiting:
            self.waiting.kill()
        self.let_go_on()
        if self.place.is_mounted():
            self.place.run("unmount", "--force", self.point)
        if self.waiting:
            self.waiting.wait(LIMIT)

    # Doing something as somebody

    def _prefixed(self, user, arguments):
        prefix = ["setpriv", f"--reuid={user.pw_uid}", f"--regid={user.pw_gid}", "--clear-groups"] if user else []
        return [*prefix, *map(str, arguments)]

    def start_as(self, user, *arguments):
        return subprocess.Popen(self._prefixed(user, arguments), cwd="/", env=self.place.environment(), text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def run(self, *arguments):
        return subprocess.run(self._prefixed(self.asker, [self.place.program.path, *arguments]), cwd="/", text=True,
                              env=self.place.environment(), stdin=subprocess.DEVNULL, capture_output=True, timeout=LIMIT,
                              check=False)

    def start(self, *arguments):
        process = self.start_as(self.asker, self.place.program.path, *arguments)
        self.started.append(process)
        return process

    def use(self):
        """A request of the kernel that reaches the helper, if there is one. Whether it succeeds does not matter."""
        self.start_as(self.owner, "stat", self.point / f"missing-{os.urandom(4).hex()}").communicate(timeout=LIMIT)

    # States

    def bring_into(self, state):
        options = ["-o", "on_death=restart"] if state == "restarting" else []
        mounting = self.start_as(self.owner, self.place.program.path, "mount", self.place.source, self.point, *options)
        _, said = mounting.communicate(timeout=LIMIT)
        assert mounting.returncode == 0, said
        if state in ("slow", "hung"):
            self.held = self.helper.block("getattr", "/held")
            self.waiting = self.start_as(self.owner, "stat", self.point / "held")
            self.helper.blocked_request()
        if state == "restarting":
            self.held = self.helper.block("ping")
        if state in ("dead", "restarting"):
            os.kill(self.place.helper(), signal.SIGKILL)
        if state == "dead":
            self.use()
        if state == "restarting":
            self.helper.blocked_request()
        return self

    def let_go_on(self):
        if self.held:
            self.helper.drop(self.held)
            self.held = None

    def status(self):
        result = self.run("status", "--json", self.point)
        assert result.returncode == 0, result.stderr
        return json.loads(result.stdout)

    def await_state(self, word):
        eventually(lambda: self.status()["state"] == word, 30, word)


@pytest.fixture(name="mounted")
def mounted_fixture(place):
    """mounted(owner and asker, state)"""
    open_mounts = []

    def mounted(who, state):
        mount = Mount(place, *who)
        open_mounts.append(mount)
        return mount.bring_into(state)
    yield mounted
    for mount in open_mounts:
        with mount:
            pass


def test_a_helper_that_is_out_of_step_is_dead_too(mounted):
    mount = mounted((None, None), "serving")
    rule = mount.helper.rule("extraLine", "getattr", "/first")
    for name in ("first", "second"):
        mount.start_as(None, "stat", mount.point / name).communicate(timeout=LIMIT)
    mount.helper.drop(rule)
    helper = mount.status()["helper"]
    assert mount.status()["state"] == "helperDead" and helper["answers"] is False
    assert re.fullmatch(r"is not believed any more: answers are out of step since request \d+ \(getattr\)", helper["end"])
    assert "  state     helper dead: it is not believed any more: answers are" in mount.run("status", mount.point).stdout
    assert not json.loads(mount.run("stats", "--json", mount.point).stdout)["gauges"]["helperUp"]
    assert mount.run("restart", mount.point).returncode == 0
    assert mount.status()["state"] == "serving" and mount.status()["helper"]["pid"] != helper["pid"]


# Commands that look

def looks_like(mount, state):
    """`status` tells the state, after a second of waiting where it is that."""
    mount.await_state(STATES[state])
    assert f"state     {'helper dead' if state == 'dead' else STATES[state]}" in mount.run("status", mount.point).stdout


def is_listed(mount, state):
    result = mount.run("list", "--json")
    assert result.returncode == 0, result.stderr
    told, = [one for one in json.loads(result.stdout) if one["mountPoint"] == str(mount.point)]
    assert told["state"] == STATES[state]


def has_figures(mount, state):
    result = mount.run("stats", "--json", mount.point)
    assert result.returncode == 0, result.stderr
    assert json.loads(result.stdout)["gauges"]["helperUp"] == (state not in ("dead", "restarting")), state


def page_of(mount):
    server = mount.start("metrics", "--listen", "127.0.0.1:0")
    url = re.fullmatch(r"kemvi: serving (\S+)\n", server.stderr.readline()).group(1)
    return urllib.request.urlopen(url, timeout=LIMIT).read().decode()


def is_served_to_prometheus(mount, _state):
    assert f'kemvi_up{{mountpoint="{mount.point}"}} 1\n' in page_of(mount)


def has_a_log(mount, _state):
    result = mount.run("log", mount.point)
    assert result.returncode == 0 and "Volume: " in result.stdout, result


def can_be_recorded(mount, state):
    file = Path(f"/tmp/kemvi-record-{os.getpid()}-{state}")
    file.unlink(missing_ok=True)
    recording = mount.start("record", mount.point, "-o", file)
    assert "Recording into" in recording.stderr.readline()
    recording.send_signal(signal.SIGINT)
    _, said = recording.communicate(timeout=LIMIT)
    assert recording.returncode == 0 and "Recorded" in said, said
    head, *_, end = file.read_text().splitlines()
    assert json.loads(head)["recording"] == 1 and "end" in json.loads(end)
    file.unlink()


LOOKS = [looks_like, is_listed, has_figures, is_served_to_prometheus, has_a_log, can_be_recorded]


@pytest.mark.parametrize("who", ASKERS)
@pytest.mark.parametrize("state", STATES)
def test_every_look_is_answered_whatever_the_helper_does(mounted, who, state):
    mount = mounted(who, state)
    sockets = lambda: sum("socket:" in where for where in system.descriptors(mount.place.host()).values())
    before = sockets()
    trace = mount.start("trace", "--json", mount.point)
    eventually(lambda: sockets() > before, 30, "a connection")
    for look in LOOKS:
        look(mount, state)
    if state == "hung":
        assert mount.run("unmount", "--force", mount.point).returncode == 0
        _, said = trace.communicate(timeout=LIMIT)
        assert trace.returncode == 0 and "ended with the mount" in said
        return
    mount.let_go_on()
    os.set_blocking(trace.stdout.fileno(), False)
    line = eventually(lambda: mount.use() or trace.stdout.readline(), 30, "a line of the trace")
    assert json.loads(line)["op"]


# Commands that do something

def invalidate_at_once(mount):
    result = mount.run("invalidate", mount.point, "/a.txt")
    assert (result.returncode, result.stderr) == (0, "")


def restart_at_once(mount):
    result = mount.run("restart", mount.point)
    assert (result.returncode, result.stderr) == (0, "")
    mount.await_state("serving")


def unmount_at_once(mount):
    result = mount.run("unmount", mount.point)
    assert (result.returncode, result.stderr) == (0, "")
    assert not mount.place.is_mounted()


def unmount_is_refused_at_once(mount):
    assert_fails(mount.run("unmount", mount.point), BUSY, mount.point)
    assert mount.place.is_mounted()


def unmount_by_force(mount):
    assert mount.run("unmount", "--force", mount.point).returncode == 0
    assert not mount.place.is_mounted()


def invalidate_waits_and_says_so(mount):
    invalidating = mount.start("invalidate", mount.point, "/a.txt")
    assert "waits until the helper has answered" in invalidating.stderr.readline()
    assert invalidating.poll() is None
    return invalidating, 0


def restart_waits(mount):
    return mount.start("restart", mount.point), 0


def let_go_on(mount):
    mount.let_go_on()


def await_serving(mount):
    mount.await_state("serving")


# What is done in each state, one after the other. What returns a process and its exit code is to end at the next
# ALL_ENDED.
ALL_ENDED = object()
ACTS = {
    "serving": [invalidate_at_once, restart_at_once, unmount_at_once],
    "slow": [unmount_is_refused_at_once, invalidate_waits_and_says_so, restart_waits, let_go_on, ALL_ENDED, await_serving,
             unmount_at_once],
    "hung": [unmount_is_refused_at_once, invalidate_waits_and_says_so, restart_at_once, ALL_ENDED, unmount_at_once],
    "dead": [invalidate_at_once, restart_at_once, unmount_at_once],
    "restarting": [invalidate_waits_and_says_so, restart_waits, let_go_on, ALL_ENDED, await_serving, unmount_at_once],
}


def do_all(mount, acts):
    under_way = []
    for act in acts:
        if act is not ALL_ENDED:
            started = act(mount)
            under_way += [started] if started else []
            continue
        for process, code in under_way:
            _, said = process.communicate(timeout=LIMIT)
            assert process.returncode == code, said


@pytest.mark.parametrize("who", ASKERS)
@pytest.mark.parametrize("state", STATES)
def test_every_change_does_what_the_state_allows(mounted, who, state):
    do_all(mounted(who, state), ACTS[state])


@pytest.mark.parametrize("who", ASKERS)
@pytest.mark.parametrize("state, acts", [("hung", [unmount_by_force]), ("dead", [unmount_by_force]), ("dead", [unmount_at_once]),
                                         ("restarting", [unmount_by_force])])
def test_whatever_the_helper_does_a_mount_can_be_taken_away(mounted, who, state, acts):
    do_all(mounted(who, state), acts)


@pytest.mark.parametrize("who", ASKERS)
def test_what_waits_for_a_helper_that_hangs_ends_with_the_mount(mounted, who):
    mount = mounted(who, "hung")
    invalidating, _ = invalidate_waits_and_says_so(mount)
    unmount_by_force(mount)
    _, said = invalidating.communicate(timeout=LIMIT)
    assert invalidating.returncode == 1 and str(mount.point) in said


# One who may not

@pytest.mark.root_only
@pytest.mark.parametrize("state", STATES)
def test_another_user_is_refused_everything_whatever_the_helper_does(mounted, state):
    mount = mounted(STRANGER, state)
    for command in (["status"], ["status", "--json"], ["stats"], ["log"], ["trace"], ["restart"], ["record", "-o", "/tmp/none"],
                    ["invalidate", "--all"]):
        assert_fails(mount.run(*command, mount.point), 1, mount.point, "only they and root may ask")
    for command in (["unmount"], ["unmount", "--force"]):
        result = mount.run(*command, mount.point)
        assert result.returncode not in (0, -signal.SIGKILL) and str(mount.point) in result.stderr, command
    told, = [one for one in json.loads(mount.run("list", "--json").stdout) if one["mountPoint"] == str(mount.point)]
    assert told["state"] == "foreign" and "host" not in told
    assert str(mount.point) not in page_of(mount)
    assert mount.place.is_mounted() and system.is_alive(mount.place.host()) and not Path("/tmp/none").exists()
