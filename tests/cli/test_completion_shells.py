"""fish and zsh complete as bash does: every command, option and mount option, and the mounts that there are."""

import re
import shutil
import subprocess
from pathlib import Path

import pytest

from harness.deadline import LIMIT

SCRIPTS = Path(__file__).resolve().parents[2] / "completions"
FISH = "source $argv[1]; complete -C (string join ' ' -- $argv[2..])"
# Outside of its line editor zsh has no completion; these stand in for what the functions hand their candidates to.
ZSH = r"""
compadd() {
    while (( $# )); do
        case $1 in
        -a) print -rl -- ${(P)2}; return ;;
        -S) shift 2 ;;
        -f) shift ;;
        --) shift; break ;;
        *) break ;;
        esac
    done
    print -rl -- "$@"
}
_describe() { print -rl -- ${${(P)@[-1]}%%:*} }
_files() { print files $* }
_message() { : }
compset() {
    [[ ${words[CURRENT]} == ${~2}* ]] || return 1
    words[CURRENT]=${words[CURRENT]##${~2}}
}
script=$1
shift
words=("$@")
CURRENT=$#words
set --
source $script
"""


@pytest.fixture(params=["fish", "zsh"])
def complete(request, place):
    shell = request.param
    if shutil.which(shell) is None:
        pytest.skip(f"{shell} is not installed")

    def completed(*words):
        command = {"fish": ["fish", "--no-config", "-c", FISH], "zsh": ["zsh", "-f", "-c", ZSH, "zsh"]}[shell]
        done = subprocess.run([*command, SCRIPTS / f"kemvi.{shell}", place.program.path, *map(str, words)], text=True,
                              capture_output=True, timeout=LIMIT, check=True, cwd=place.folder,
                              env={**place.environment(), "HOME": str(place.folder)})
        assert done.stderr == ""
        offered = [line.split("\t")[0] for line in done.stdout.splitlines()]
        # zsh itself leaves out what does not begin as the word does.
        begun = re.sub(".*[,=]", "", str(words[-1]))
        return {name for name in offered if shell == "fish" or name.startswith(begun)}
    return completed


def test_commands_are_offered(complete):
    assert {"mount", "unmount", "umount", "status", "help"} <= complete("")
    assert complete("unm") == {"unmount"}
    assert complete("help", "tr") == {"trace"}
    assert complete("--ver") == {"--version"}


def test_options_are_offered(complete):
    assert complete("mount", "--fore") == {"--foreground"}
    assert {"--json", "--watch"} <= complete("stats", "--")
    assert complete("nonsense", "-") == set()


def test_values_of_options_are_offered(complete):
    assert complete("mount", "--log-level", "") == {"debug", "info", "warning", "error"}
    assert {"ro", "on_death=", "entry_timeout=", "writeback"} <= complete("mount", "-o", "")
    offered = complete("mount", "-o", "ro,on_death=")
    assert {name.removeprefix("ro,on_death=") for name in offered} == {"fail", "exit", "restart"}


def test_mounts_are_offered_where_one_is_meant(place, complete):
    point = place.folder / "a mount\\here"
    point.mkdir()
    assert place.run("mount", place.source, point).returncode == 0
    try:
        for command in ("unmount", "status", "invalidate"):
            offered = complete(command, "")
            assert str(point) in offered or str(point).replace("\\", "\\\\").replace(" ", "\\ ") in offered, offered
    finally:
        place.unmount(point=point)
