"""docs/operating.md: its commands are executed as they stand there, in their order, on a mount as it describes."""

import os
import pty
import re
import signal
import subprocess
from pathlib import Path

import pytest

from harness import system
from harness.deadline import LIMIT, eventually

DOCUMENT = Path(__file__).resolve().parents[2] / "docs" / "operating.md"
ENDLESS = "# until Ctrl-C"


def sections():
    """(heading, commands) of each section with commands: its indented lines that begin with one."""
    text = re.sub(r"^```.*?^```$", "", DOCUMENT.read_text(encoding="utf-8"), flags=re.M | re.S)
    found = []
    for part in re.split(r"^#+ ", text, flags=re.M):
        heading, _, body = part.partition("\n")
        commands = re.findall(r"^ {4,}(kemvi .*)$", body, re.M)
        if commands:
            found.append((heading, commands))
    return found


@pytest.fixture
def home(place):
    """A home as the document has it: the mount on ~/mnt, its configuration in ~/config, the served tree elsewhere."""
    (place.folder / "mnt").mkdir()
    assert place.run("init", place.folder / "config", "--repo-root", place.tree).returncode == 0
    (place.tree / "notes").mkdir()
    (place.tree / "notes" / "todo.txt").write_text("buy milk\n")
    bin_folder = place.folder / "bin"
    bin_folder.mkdir()
    (bin_folder / "kemvi").symlink_to(place.program.path)
    yield place
    if system.mount_points(place.folder / "mnt"):
        place.unmount(point=place.folder / "mnt")


def make_sure_of_the_mount(home):
    if not system.mount_points(home.folder / "mnt"):
        assert home.run("mount", home.folder / "config", home.folder / "mnt").returncode == 0


def started(home, command, output):
    command = command.replace(":9469", ":0")  # others may be testing on this machine
    environment = home.environment(PATH=f"{home.folder}/bin:{os.environ['PATH']}", TERM="xterm")
    return subprocess.Popen(["bash", "-c", f"exec {command}"], cwd=home.folder, env=environment,
                            stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT, start_new_session=True)


def execute(home, command):
    """The exit code and all that it wrote."""
    if ENDLESS in command:
        return execute_until_interrupted(home, command)
    process = started(home, command, subprocess.PIPE)
    try:
        output = process.communicate(timeout=LIMIT)[0]
    finally:
        process.kill()
        process.wait()
    return process.returncode, output


def execute_until_interrupted(home, command):
    """On a terminal, while the mount is used; with a Ctrl-C when it has said something."""
    mine, its = pty.openpty()
    process = started(home, command, its)
    os.close(its)
    os.set_blocking(mine, False)
    written = b""

    def waits_for_more():
        nonlocal written
        subprocess.run(["cat", home.folder / "mnt" / "notes" / "todo.txt"], check=True, capture_output=True,
                       timeout=LIMIT)
        try:
            written += os.read(mine, 1 << 16)
        except OSError:
            pass
        return awaits_signals(process) or process.poll() is not None
    try:
        eventually(waits_for_more, 20, command)
        process.send_signal(signal.SIGINT)
        process.wait(LIMIT)
    finally:
        process.kill()
        process.wait()
        os.close(mine)
    return process.returncode, written


def awaits_signals(process):
    """True once the command itself runs (not the shell before it) and sleeps, as it does when it waits."""
    try:
        with open(f"/proc/{process.pid}/stat", encoding="utf-8") as stat:
            name, state = re.match(r"\d+ \((.*)\) (\S)", stat.read()).groups()
        return name.startswith("kemvi") and state == "S"
    except (OSError, AttributeError):
        return False


@pytest.mark.parametrize("heading, commands", sections(), ids=[heading for heading, _ in sections()])
def test_commands_do_what_they_say(home, heading, commands):
    for command in commands:
        make_sure_of_the_mount(home)
        code, output = execute(home, command)
        ended_by_us = ENDLESS in command and code in (-signal.SIGINT, 128 + signal.SIGINT)
        assert code == 0 or ended_by_us, f"{heading}: {command}: {code}: {output}"


def test_every_command_that_it_names_exists(place):
    known = set(re.findall(r"^  ([a-z]+)", place.run("--help").stdout.split("Subcommands:")[1], re.M)) | {"help"}
    named = set(re.findall(r"`kemvi ([a-z]+)|^ {4,}kemvi ([a-z]+)", DOCUMENT.read_text(encoding="utf-8"), re.M))
    missing = {one or other for one, other in named} - known
    assert not missing, f"{DOCUMENT}: there is no {missing}"


def test_every_command_and_option_is_in_the_man_page(place):
    page = (DOCUMENT.parent / "kemvi.1").read_text(encoding="utf-8").replace("\\-", "-")
    missing = []
    for command in re.findall(r"^  ([a-z]+)", place.run("--help").stdout.split("Subcommands:")[1], re.M):
        if f".SS kemvi {command}\n" not in page:
            missing.append(command)
            continue
        section = re.split(r"^\.S[SH] ", page.split(f".SS kemvi {command}\n")[1], flags=re.M)[0]
        options = re.findall(r"^  (?:-\w,)?(--[a-z-]+)", place.run("help", command).stdout, re.M)
        missing += [f"{command} {option}" for option in options if option != "--help" and option not in section]
    assert not missing, f"not in kemvi(1): {missing}"
