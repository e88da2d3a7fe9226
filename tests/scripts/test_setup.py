"""scripts/setup: quiet when all goes well, and apt's own words when it does not."""

import os
import shutil
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

    def run(apt, *arguments):
        stand_in("apt-get", f"echo \"$1\" >>{tmp_path}/asked\n" + apt)
        return subprocess.run([SETUP, *arguments], env=dict(os.environ, PATH=f"{programs}:{os.environ['PATH']}"), check=False,
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


def test_a_package_of_several_groups_is_installed_once(setup):
    named = setup("exit 100", "--test").stdout.removeprefix("Installing: ").split()
    assert "git" in named and "postgresql" in named
    assert len(named) == len(set(named)), named


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


@pytest.fixture
def store(tmp_path):
    """Runs `setup --test` of a copy of the tree's scripts where every package is installed and npm is replaced."""
    top, programs = tmp_path / "tree", tmp_path / "bin"
    for made in (top / "scripts", top / "sdk/store", programs):
        made.mkdir(parents=True)
    for name in ("setup", "packages"):
        shutil.copy2(SETUP.with_name(name), top / "scripts")
    (top / "sdk/store/package-lock.json").write_text("{}")

    def stand_in(name, script):
        (programs / name).write_text("#!/bin/sh\n" + script)
        (programs / name).chmod(0o755)

    def run(npm):
        stand_in("npm", f'echo "$@" >>{tmp_path}/asked\nmkdir -p "$2/node_modules"\n' + npm)
        return subprocess.run([top / "scripts/setup", "--test"], env=dict(os.environ, PATH=f"{programs}:{os.environ['PATH']}"),
                              check=False, capture_output=True, text=True, timeout=60)

    stand_in("dpkg-query", "case $3 in npm) exit 1 ;; *) printf installed ;; esac")
    stand_in("apt-get", f"echo apt-get >>{tmp_path}/asked")
    stand_in("stat", "echo 666")
    run.lock = top / "sdk/store/package-lock.json"
    run.asked = lambda: (tmp_path / "asked").read_text().splitlines() if (tmp_path / "asked").exists() else []
    return run


def test_libraries_are_installed_once_and_again_when_others_are_named(store):
    first, second = store("echo added 100 packages"), store("exit 1")
    assert (first.returncode, first.stdout, first.stderr) == (0, "Installing: the libraries of sdk/store\n", "")
    assert (second.returncode, second.stdout, second.stderr) == (0, "", "")
    store.lock.write_text('{"other": 1}')
    assert store("exit 0").returncode == 0
    assert len(store.asked()) == 2 and all(" ci " in asked for asked in store.asked()), "nor is a package missing: npm is there"


def test_libraries_that_cannot_be_installed_are_told_and_sought_again(store):
    done = store("echo 'npm ERR! network'; exit 7")
    assert done.returncode != 0
    assert "npm ERR! network\n" in done.stderr and "scripts/setup: failed" in done.stderr.splitlines()[-1]
    assert store("exit 0").stdout == "Installing: the libraries of sdk/store\n"
