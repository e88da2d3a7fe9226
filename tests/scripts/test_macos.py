"""scripts/macos, with stand-ins for a Mac's programs: all is well, and each thing that is not well fails."""

import os
import shutil
import subprocess
from pathlib import Path

import pytest

SCRIPT = Path(__file__).resolve().parents[2] / "scripts" / "macos"
# The command that was built prepares source directories, and says how to mount one.
COMMAND = """
case $1 in
init) mkdir -p "$2" && echo {} >"$2/mount-config.json" ;;
mount) echo "kemvi: mount it with: mount -F -t kemvifs $2 $3" >&2; exit 2 ;;
esac
"""
WELL = {
    "uname": "echo Darwin",
    "cmake": "echo built",
    "nm": "echo '0000 S _OBJC_CLASS_$_KemviUnaryFileSystem'",
    "otool": "echo 'binary:'; echo '\t/usr/lib/libSystem.B.dylib (compatibility version 1.0.0)'",
    "codesign": "exit 0",
    "plutil": "case $1 in -extract) echo KemviUnaryFileSystem ;;"
              " -convert) echo '{\"com.apple.developer.fskit.fsmodule\":true,\"com.apple.security.app-sandbox\":true}' ;; esac",
}


@pytest.fixture
def check(tmp_path):
    def run(built_command=COMMAND, **changes):
        (tmp_path / "bin").mkdir()
        for name, script in (WELL | changes).items():
            (tmp_path / "bin" / name).write_text("#!/bin/sh\n" + script + "\n")
            (tmp_path / "bin" / name).chmod(0o755)
        (tmp_path / "tree" / "scripts").mkdir(parents=True)
        shutil.copy2(SCRIPT, tmp_path / "tree" / "scripts")
        command = tmp_path / "tree/build/macos/bin/Kemvi.app/Contents/Helpers/kemvi"
        command.parent.mkdir(parents=True)
        command.write_text("#!/bin/sh\n" + built_command + "\n")
        command.chmod(0o755)
        return subprocess.run([tmp_path / "tree" / "scripts" / "macos"], check=False, capture_output=True, text=True,
                              timeout=60, env=dict(os.environ, PATH=f"{tmp_path}/bin:{os.environ['PATH']}"))
    return run


def test_a_good_build_passes_every_check(check):
    done = check()
    assert done.returncode == 0, done.stdout + done.stderr
    assert done.stdout.count("ok    ") == 12 and "FAIL" not in done.stdout


@pytest.mark.parametrize("changes, told", [
    ({"cmake": "echo 'a.mm:1: warning: unused'"}, "without a warning"),
    ({"nm": "echo nothing"}, "the class is there"),
    ({"otool": "echo 'binary:'; echo '\t/opt/homebrew/lib/libsimdjson.dylib (x)'"}, "no library but"),
    ({"codesign": "exit 1"}, "the signature is valid"),
    ({"plutil": "case $1 in -extract) echo Other ;; -convert) echo '{}' ;; esac"}, "entitled to the sandbox"),
    ({"built_command": "exit 126"}, "the command runs"),
    ({"built_command": COMMAND.replace("mkdir", "false")}, "prepares a source directory"),
    ({"built_command": COMMAND.replace("-t kemvifs", "")}, "says how to mount it"),
], ids=["warning", "class", "library", "signature", "entitlements", "command", "init", "mount"])
def test_what_is_wrong_is_named_and_fails(check, changes, told):
    done = check(**changes)
    assert done.returncode == 1, done.stdout + done.stderr
    assert any(line.startswith("FAIL") and told in line for line in done.stdout.splitlines()), done.stdout


def test_a_build_that_fails_is_a_failure(check):
    assert check(cmake="exit 3").returncode == 3


def test_elsewhere_it_says_so(check):
    done = check(uname="echo Linux")
    assert done.returncode == 2 and "no Mac" in done.stderr
