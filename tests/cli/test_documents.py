"""README, kemvi.1 and the other documents: what they tell a user to type works, and what they name is there."""

import os
import re
import signal
import subprocess
from pathlib import Path

import pytest

from harness import system
from harness.deadline import LIMIT, eventually

TOP = Path(__file__).resolve().parents[2]
README = TOP / "README.md"
MAN_PAGE = TOP / "docs" / "kemvi.1"
MOUNT_HELPER = TOP / "docs" / "mount.kemvi.8"
OPERATING = TOP / "docs" / "operating.md"


def text_of(document):
    text = document.read_text(encoding="utf-8")
    return re.sub(r"\\f[BIR]", "", text).replace("\\-", "-") if document in (MAN_PAGE, MOUNT_HELPER) else text


@pytest.fixture
def home(place):
    """A home with photos in it and an empty ~/mnt, and the command in PATH."""
    (place.folder / "photos").mkdir()
    (place.folder / "photos" / "one.jpg").write_bytes(b"picture")
    (place.folder / "mnt").mkdir()
    (place.folder / "bin").mkdir()
    (place.folder / "bin" / "kemvi").symlink_to(place.program.path)
    yield place
    if system.mount_points(place.folder / "mnt"):
        place.unmount(point=place.folder / "mnt")


def start(home, command, **more):
    environment = home.environment(PATH=f"{home.folder}/bin:{os.environ['PATH']}")
    return subprocess.Popen(["bash", "-c", f"exec {command}"], cwd=home.folder, env=environment, text=True,
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **more)


def type_in(home, command):
    with start(home, command) as process:
        try:
            output = process.communicate(timeout=LIMIT)[0]
        finally:
            process.kill()
    assert process.returncode == 0, f"{command}: {output}"
    return output


def test_the_commands_of_the_readme_mount_a_folder(home):
    """Those that install and build are executed on a fresh machine, by tests/packages."""
    block = re.search(r"^## Use it\n(.*?)^## ", README.read_text(encoding="utf-8"), re.M | re.S)[1]
    commands = [line.strip() for line in re.findall(r"^ {4}(.+)$", block, re.M)
                if not line.startswith(("scripts/", "cmake ", "export "))]
    assert [command.split()[:2] for command in commands] == [
        ["kemvi", "init"], ["kemvi", "check"], ["mkdir", "-p"], ["kemvi", "mount"], ["ls", "~/mnt"], ["kemvi", "unmount"]]
    output = {command.split("#")[0].strip(): type_in(home, command) for command in commands}
    assert output["ls ~/mnt"].split() == ["mount-config.json", "one.jpg"]
    assert not system.mount_points(home.folder / "mnt")


def test_the_mount_of_a_helper_that_is_being_written_watches(home):
    command, = re.findall(r"^(kemvi mount .*)$", OPERATING.read_text(encoding="utf-8"), re.M)
    assert home.run("init", home.folder / "config", "--repo-root", home.tree).returncode == 0
    with start(home, command) as process:
        try:
            eventually(lambda: (home.folder / "mnt" / "a.txt").exists() or process.poll() is not None, 30, command)
            assert process.poll() is None, process.communicate()[0]
            process.send_signal(signal.SIGINT)
            process.communicate(timeout=LIMIT)
        finally:
            process.kill()


@pytest.mark.parametrize("document", [MAN_PAGE, MOUNT_HELPER, OPERATING], ids=lambda path: path.name)
def test_the_options_of_an_fstab_line_are_taken(home, document):
    lines = re.findall(r"^ *(/\S+) +(/\S+) +kemvi +(\S+) +0 0$", text_of(document), re.M)
    assert lines
    for _, _, options in lines:
        # What only root may ask for is left out for others.
        usual = [option for option in options.split(",") if os.geteuid() == 0 or option != "allow_other"]
        home.mount("-o", ",".join(usual))
        home.unmount()


def known_options(place):
    """command -> what its help names."""
    commands = re.findall(r"^  ([a-z]+)", place.run("--help").stdout.split("Subcommands:")[1], re.M)
    return {command: place.run("help", command).stdout for command in commands}


def test_every_command_and_option_that_a_document_names_is_there(place):
    known = known_options(place)
    documents = [README, MAN_PAGE, *sorted((TOP / "docs").glob("*.md"))]
    wrong = []
    for document in documents:
        if document.name == "macos.md":
            continue
        text = re.sub(r"\n {4,}(?=[\[-])", " ", text_of(document))
        for command, rest in re.findall(r"(?:^ *|`)kemvi ([a-z]+)([^`\n#|]*)", text, re.M):
            if document == MAN_PAGE and command not in known:
                continue  # of the page's running text
            if command not in [*known, "help"]:
                wrong.append(f"{document.name}: kemvi {command}")
                continue
            wrong += [f"{document.name}: kemvi {command} {option}" for option in re.findall(r"(?<!\S)\[?(--[a-z-]+)", rest)
                      if command in known and option not in known[command]]
    assert not wrong
