"""scripts/setup: quiet when all goes well, and apt's own words when it does not."""

import os
import subprocess
from pathlib import Path

import pytest

SETUP = Path(__file__).resolve().parents[2] / "scripts" / "setup"


@pytest.fixture
def setup(tmp_path):
    """Runs the script on a machine that lacks every package, where apt-get and what else would change it is replaced."""
    programs = tmp_path / "bin"
    programs.mkdir()

    def stand_in(name, script):
        (programs / name).write_text("#!/bin/sh\n" + script)
        (programs / name).chmod(0o755)

    def run(apt):
        stand_in("apt-get", f"echo \"$1\" >>{tmp_path}/asked\n" + apt)
        return subprocess.run([SETUP], env=dict(os.environ, PATH=f"{programs}:{os.environ['PATH']}"), check=False,
                              capture_output=True, text=True, timeout=60)

    stand_in("dpkg-query", "exit 1")
    stand_in("sudo", 'exec "$@"')
    stand_in("stat", "echo 666")
    stand_in("modprobe", "exit 0")
    stand_in("ln", "exit 0")
    run.asked = lambda: (tmp_path / "asked").read_text().split()
    return run


def test_an_installation_that_works_says_only_what_it_installs(setup):
    done = setup("echo Reading package lists; echo 'debconf: delaying' >&2")
    assert done.returncode == 0
    assert done.stdout.startswith("Installing: ") and "g++" in done.stdout and len(done.stdout.splitlines()) == 1
    assert "Reading" not in done.stderr and "debconf" not in done.stderr
    assert setup.asked() == ["update", "install"]


@pytest.mark.parametrize("stream", ["1", "2"])
def test_an_installation_that_fails_shows_the_words_of_apt(setup, stream):
    done = setup(f"[ $1 = update ] && exit 0; echo 'E: Unable to locate package g++' >&{stream}; exit 100")
    assert done.returncode != 0
    assert "E: Unable to locate package g++\n" in done.stderr
    assert "scripts/setup: failed" in done.stderr.splitlines()[-1] and "apt-get install" in done.stderr


def test_an_update_that_fails_is_shown_and_nothing_is_installed(setup):
    done = setup("echo 'E: The repository has no Release file'; exit 100")
    assert done.returncode != 0
    assert "E: The repository has no Release file\n" in done.stderr
    assert setup.asked() == ["update"]


def test_what_the_update_warned_of_stands_with_the_failure_that_it_caused(setup):
    done = setup("[ $1 = update ] && echo 'W: Failed to fetch http://deb' && exit 0; echo 'E: Unable to locate'; exit 100")
    assert done.returncode != 0
    assert done.stderr.index("W: Failed to fetch") < done.stderr.index("E: Unable to locate")
