"""The shell completes what the command has: every command, option and mount option, and the mounts that there are."""

import re
import subprocess
from pathlib import Path

import pytest

from harness.deadline import LIMIT

SCRIPT = Path(__file__).resolve().parents[2] / "completions" / "kemvi.bash"
# What readline hands over for "kemvi mount -o a=b,": words end at blanks and "=".
COMPLETE = r"""
source "$1"
shift
COMP_LINE="$*"
COMP_POINT=${#COMP_LINE}
COMP_WORDS=()
for word; do
    while [[ $word == *=* && $word != = ]]; do
        COMP_WORDS+=("${word%%=*}" =)
        word=${word#*=}
    done
    COMP_WORDS+=("$word")
done
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
_kemvi
printf '%s\n' "${COMPREPLY[@]}"
"""


@pytest.fixture
def complete(place):
    def completed(*words):
        done = subprocess.run(["bash", "-c", COMPLETE, "bash", SCRIPT, place.program.path, *map(str, words)],
                              capture_output=True, text=True, timeout=LIMIT, check=True, cwd=place.folder,
                              env=place.environment())
        assert done.stderr == ""
        return done.stdout.split("\n")[:-1] if done.stdout != "\n" else []
    return completed


def commands_of(place):
    text = place.run("--help").stdout.split("Subcommands:")[1]
    return [name for names in re.findall(r"^  ([a-z][a-z, -]*?)  ", text, re.M) for name in names.split(", ")]


def options_of(place, command):
    text = place.run("help", command).stdout
    return [name for names in re.findall(r"^  (-\S+)", text, re.M) for name in names.split(",")]


def test_every_command_is_offered(place, complete):
    commands = commands_of(place)
    assert len(commands) >= 6
    assert sorted(complete("")) == sorted([*commands, "help"])
    assert sorted(complete("help", "")) == sorted(commands)
    assert complete("unm") == ["unmount"]
    assert complete("--ver") == ["--version"]


def test_every_option_of_every_command_is_offered(place, complete):
    for command in commands_of(place):
        options = options_of(place, command)
        assert "--help" in options
        assert sorted(complete(command, "-")) == sorted(options), command
    assert complete("mount", "source", "point", "--log-f") == ["--log-file"]


def test_values_of_options_are_offered(place, complete):
    (place.folder / "log file").write_text("")
    assert complete("mount", "--log-level", "") == ["debug", "info", "warning", "error"]
    assert complete("mount", "--log-level=w") == ["warning"]
    assert complete("mount", "--log-file", "log") == ["log file"]
    assert complete("init", "source", "--repo-root", "tr") == ["tree"]
    assert complete("check", "source", "--op-timeout", "") == []


def test_mount_options_are_offered(complete):
    offered = complete("mount", "-o", "")
    for option in ("ro", "rw", "allow_other", "fmask=", "dmask=", "uid=", "gid=", "quiet", "nonempty", "entry_timeout=",
                   "attr_timeout=", "negative_timeout=", "request_size=", "placement=", "writeback", "close_to_open", "fsname=",
                   "log_file=", "log_level=", "show_private", "nosuid", "noexec", "dirsync"):
        assert option in offered, option
    assert all(re.fullmatch("[a-z_]+=?", option) for option in offered), offered
    assert complete("mount", "-o", "ro,entry") == ["ro,entry_timeout="]
    assert complete("mount", "-o", "entry_timeout=3,wri") == ["3,writeback"]
    assert complete("mount", "-o", "placement=") == ["auto", "off"]
    assert complete("mount", "-o", "ro,log_level=d") == ["debug"]


def test_arguments_are_offered(place, complete):
    assert complete("mount", "so") == ["source"]
    assert complete("mount", "-f", "source", "po") == ["point"]
    assert complete("mount", "--log-file", "x", "source", "po") == ["point"]
    assert complete("init", "so") == ["source"]
    assert complete("check", "--json", "so") == ["source"]


def test_mounts_are_offered_where_one_is_meant(place, complete):
    point = place.folder / "a mount\\here"
    point.mkdir()
    assert place.run("mount", place.source, point).returncode == 0
    try:
        for command in ("unmount", "status", "invalidate"):
            assert complete(command, f"{place.folder}/a") == [str(point)], command
        assert complete("invalidate", point, "") == []
    finally:
        place.unmount(point=point)


def test_a_command_that_does_not_exist_is_offered_nothing(complete):
    assert complete("nonsense", "") == [] and complete("nonsense", "-") == []
