"""Mounts as services of a real systemd, and from fstab: readiness, state, crashes, automount, stop."""

import json
import os
import shutil
import subprocess
import time
from pathlib import Path

import pytest

SLOWNESS = float(os.environ.get("KEMVI_TEST_SLOWNESS", "1"))
MACHINE = Path(__file__).with_name("machine.sh")
HELPERS = Path(__file__).resolve().parents[1] / "cli" / "helpers"
BUILD = os.environ["KEMVI_BUILD"]


class Machine:
    def __init__(self, folder):
        self.folder = folder
        self.root = folder / "root"

    def call(self, verb, *arguments, **more):
        return subprocess.run([MACHINE, verb, self.folder, *arguments], text=True, timeout=120 * SLOWNESS,
                              stdin=subprocess.DEVNULL, capture_output=True, check=False, **more)

    def run(self, script):
        """Runs a script inside; whatever it ends with."""
        return self.call("exec", "sh", "-c", script)

    def say(self, script):
        """The output of a script that succeeds."""
        result = self.run(script)
        assert result.returncode == 0, result.stdout + result.stderr
        return result.stdout.strip()

    def eventually(self, script, seconds=20):
        """Waits until a script succeeds; its output."""
        end = time.monotonic() + seconds * SLOWNESS
        while (result := self.run(script)).returncode != 0:
            assert time.monotonic() < end, f"{script}\n{result.stdout}{result.stderr}\n{self.run('journalctl -n 40').stdout}"
            time.sleep(0.1)
        return result.stdout.strip()

    def show(self, unit, property_):
        return self.say(f"systemctl show -P {property_} '{unit}'")

    # Before it is booted

    def volume(self, name, user="root", helper=None):
        """A source directory, a served folder with one file, and an empty mount point, all of a user's."""
        for made in (f"srv/{name}/tree", f"mnt/{name}"):
            (self.root / made).mkdir(parents=True)
        (self.root / f"srv/{name}/tree/a.txt").write_text("hello\n")
        chosen = f"/opt/helpers/{helper}" if helper else "/usr/share/kemvi/helpers/local.mjs"
        (self.root / f"srv/{name}/mount-config.json").write_text(json.dumps(
            {"driveId": name, "kemviHome": f"/srv/{name}", "repoRoot": f"/srv/{name}/tree", "helperPath": chosen}))
        subprocess.run(["chroot", self.root, "chown", "-R", f"{user}:", f"/srv/{name}", f"/mnt/{name}"], check=True,
                       capture_output=True, timeout=60)

    def service(self, name, options="rw", user=None, more=""):
        self.volume(name, user or "kemvi")
        self.configure(name, options, user, more)

    def configure(self, name, options="rw", user=None, more=""):
        conf = self.root / f"etc/kemvi/{name}.conf"
        conf.parent.mkdir(exist_ok=True)
        conf.write_text(f"SOURCE=/srv/{name}\nMOUNTPOINT=/mnt/{name}\nOPTIONS={options}\n")
        dropin = self.root / f"etc/systemd/system/kemvi@{name}.service.d/test.conf"
        dropin.parent.mkdir(parents=True)
        dropin.write_text("[Service]\n" + (f"User={user}\n" if user else "") + more + "\n")


@pytest.fixture(scope="module")
def machine(tmp_path_factory):
    machine = Machine(tmp_path_factory.mktemp("machine"))
    made = machine.call("make")
    try:
        assert made.returncode == 0, made.stderr
        subprocess.run(["cmake", "--install", BUILD, "--prefix", "/usr"], env=os.environ | {"DESTDIR": str(machine.root)}, check=True,
                       capture_output=True, timeout=120 * SLOWNESS)
        shutil.copytree(HELPERS, machine.root / "opt/helpers")
        for user in ("--system kemvi", "alice"):
            subprocess.run(["chroot", machine.root, "sh", "-c", f"useradd {user}"], check=True, capture_output=True, timeout=60)
        furnish(machine)
        booted = machine.call("boot")
        assert booted.returncode == 0, booted.stderr + (machine.folder / "boot.log").read_text(errors="replace")
        yield machine
    finally:
        machine.call("stop")


def furnish(machine):
    """What the tests find on the machine."""
    machine.volume("boot")
    machine.volume("auto")
    (machine.root / "etc/fstab").write_text(
        "/srv/boot /mnt/boot kemvi nofail,ro 0 0\n"
        "/srv/auto /mnt/auto kemvi noauto,nofail,x-systemd.automount 0 0\n")
    machine.service("notes")
    machine.service("hers", user="alice")
    machine.service("hurt", user="root")
    machine.service("killed", user="alice")
    machine.service("open", user="root")
    machine.service("watched", user="root", more="WatchdogSec=2")
    machine.service("byhand", user="root")
    machine.service("wrong", user="root", options="levitate", more="Restart=no")
    machine.volume("hung", helper="hangsOnReaddir.mjs")
    machine.configure("hung", user="root", more="WatchdogSec=2\nTimeoutStopSec=2\nEnvironment=KEMVI_TEST_WORKSPACE=/srv/hung")


# From fstab

def test_a_line_of_fstab_mounts_at_boot(machine):
    assert machine.eventually("cat /mnt/boot/a.txt") == "hello"
    assert machine.say("findmnt -no FSTYPE,SOURCE /mnt/boot").split() == ["fuse.kemvi", "/srv/boot"]
    assert machine.say("systemctl is-active mnt-boot.mount") == "active"


def test_an_automount_waits_for_the_first_look(machine):
    if not os.path.exists("/dev/autofs"):
        pytest.skip("this machine's kernel has no automounts")
    assert machine.say("findmnt -no FSTYPE /mnt/auto") == "autofs"
    assert machine.say("cat /mnt/auto/a.txt") == "hello"
    assert "fuse.kemvi" in machine.say("findmnt -no FSTYPE /mnt/auto")
    machine.say("systemctl stop mnt-auto.mount")
    assert machine.say("findmnt -no FSTYPE /mnt/auto") == "autofs"
    assert machine.say("cat /mnt/auto/a.txt") == "hello"
    machine.say("kill -9 $(kemvi status --json /mnt/auto | grep -o '\"host\":{\"pid\":[0-9]*' | grep -o '[0-9]*$')")
    machine.eventually("test $(findmnt -no FSTYPE /mnt/auto) = autofs")
    assert machine.say("cat /mnt/auto/a.txt") == "hello", "what was killed is mounted again at the next look"


# As a service

@pytest.mark.parametrize("name, user", [("notes", "kemvi"), ("hers", "alice")])
def test_a_service_is_started_when_it_is_served(machine, name, user):
    unit = f"kemvi@{name}.service"
    assert machine.say(f"systemctl start {unit} && runuser -u {user} -- cat /mnt/{name}/a.txt") == "hello"
    assert machine.say(f"ps -o user= -p $(systemctl show -P MainPID {unit})") == user
    machine.eventually(f"systemctl status {unit} | grep -F 'Status: \"/mnt/{name}: serving\"'")
    told = machine.say(f"runuser -u {user} -- kemvi status /mnt/{name}")
    assert "serving" in told
    assert "serving" in machine.say(f"kemvi status /mnt/{name}"), "root finds it too"
    assert machine.say(f"stat -c %a:%U /run/kemvi-{name}/kemvi") == f"700:{user}"
    assert machine.run(f"runuser -u {user} -- sh -c 'echo new >/mnt/{name}/b.txt'").returncode == 0
    machine.say(f"systemctl stop {unit}")
    assert machine.say(f"cat /srv/{name}/tree/b.txt") == "new"
    assert machine.show(unit, "Result") == "success"
    assert machine.run(f"mountpoint -q /mnt/{name}").returncode != 0


def test_the_helper_speaks_not_in_the_services_name(machine):
    machine.say("systemctl start kemvi@notes")
    told = machine.say("tr '\\0' '\\n' </proc/$(pgrep -P $(systemctl show -P MainPID kemvi@notes) node)/environ")
    assert "NOTIFY_SOCKET" not in told and "WATCHDOG_USEC" not in told and "KEMVI_CONTROL=/run/kemvi-notes/" in told
    machine.say("systemctl stop kemvi@notes")


def test_a_start_that_fails_is_told_in_the_journal(machine):
    assert machine.run("systemctl start kemvi@wrong").returncode != 0
    assert machine.show("kemvi@wrong", "ExecMainStatus") == "2"
    machine.eventually("journalctl -u kemvi@wrong | grep -F 'option \"levitate\" is not known'")


def test_a_host_that_was_killed_is_started_anew(machine):
    unit = "kemvi@hurt.service"
    machine.say(f"systemctl start {unit} && kill -9 $(systemctl show -P MainPID {unit})")
    machine.eventually(f"test $(systemctl show -P NRestarts {unit}) = 1 && systemctl is-active {unit} && cat /mnt/hurt/a.txt")
    machine.eventually(f"journalctl -u {unit} | grep -F 'status=9/KILL'")
    assert machine.say("findmnt -no TARGET /mnt/hurt").split() == ["/mnt/hurt"], "one mount, none stale beneath it"
    machine.say(f"systemctl stop {unit}")


def test_a_service_all_of_which_was_killed_is_started_anew(machine):
    """Nobody is left who could have cleared the mount away."""
    unit = "kemvi@killed.service"
    machine.say(f"systemctl start {unit} && systemctl kill --kill-whom=all --signal=KILL {unit}")
    machine.eventually(f"test $(systemctl show -P NRestarts {unit}) = 1 && systemctl is-active {unit} &&"
                       "runuser -u alice -- cat /mnt/killed/a.txt")
    machine.say(f"systemctl stop {unit}")
    assert machine.run("findmnt /mnt/killed").stdout == ""


def test_a_dead_helper_shows_in_the_status(machine):
    unit = "kemvi@notes.service"
    machine.say(f"systemctl start {unit} && kill -9 $(pgrep -P $(systemctl show -P MainPID {unit}) node)")
    assert machine.run("runuser -u kemvi -- cat /mnt/notes/none").returncode != 0
    machine.eventually(f"systemctl status {unit} | grep -F 'helper dead: it was killed by signal 9 (Killed)'")
    machine.eventually(f"journalctl -u {unit} | grep -F 'killed by signal 9'")
    machine.say(f"systemctl restart {unit}")
    assert machine.say("runuser -u kemvi -- cat /mnt/notes/a.txt") == "hello"
    machine.say(f"systemctl stop {unit}")


def test_a_stop_does_not_wait_for_an_open_file(machine):
    unit = "kemvi@open.service"
    machine.say(f"systemctl start {unit}; systemd-run --unit=reader --property=Type=exec sh -c 'exec sleep 1000 </mnt/open/a.txt'")
    machine.eventually("ls -l /proc/$(systemctl show -P MainPID reader)/fd | grep /mnt/open/a.txt")
    machine.say(f"systemctl stop {unit}")
    assert machine.show(unit, "Result") == "success"
    assert machine.run("mountpoint -q /mnt/open").returncode != 0
    assert machine.say("systemctl is-active reader") == "active"
    machine.say("systemctl stop reader")


def test_a_host_that_is_stuck_is_started_anew_by_the_watchdog(machine):
    unit = "kemvi@watched.service"
    machine.say(f"systemctl start {unit} && kill -STOP $(systemctl show -P MainPID {unit})")
    machine.eventually(f"test $(systemctl show -P NRestarts {unit}) = 1 && systemctl is-active {unit} && cat /mnt/watched/a.txt", 40)
    machine.eventually(f"journalctl -u {unit} | grep -iF 'watchdog timeout'")
    machine.say(f"systemctl stop {unit}")


def test_a_helper_that_hangs_is_told_and_no_case_for_the_watchdog(machine):
    """Whoever ends it by force gets a new one."""
    unit = "kemvi@hung.service"
    machine.say(f"systemctl start {unit}; systemd-run --unit=lister --property=Type=exec ls /mnt/hung")
    machine.eventually(f"systemctl status {unit} | grep -E 'waiting since [3-9] s for .* of / on behalf of ls'")
    assert machine.show(unit, "NRestarts") == "0" and machine.show(unit, "ActiveState") == "active"
    machine.say("kemvi unmount --force /mnt/hung")
    machine.eventually(f"test $(systemctl show -P NRestarts {unit}) = 1 && systemctl is-active {unit}")
    machine.say(f"systemctl stop {unit}")


def test_an_end_by_hand_is_an_end(machine):
    unit = "kemvi@byhand.service"
    machine.say(f"systemctl start {unit} && kemvi unmount /mnt/byhand")
    machine.eventually(f"systemctl is-active {unit} | grep -x inactive")
    assert (machine.show(unit, "Result"), machine.show(unit, "NRestarts")) == ("success", "0")
