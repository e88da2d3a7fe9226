#!/usr/bin/env python3
"""Runs folders or files of tests of the real command for CTest: as the caller, or with --user as an ordinary user.

Exit codes are those that CTest knows: 0 passed, 77 skipped (no way to mount here, said on the output), else failed.
Where root runs everything as itself, the run as an ordinary user is a short one (KEMVI_TEST_SHORT). It works on copies
in a folder of that user, so that the tree itself need not be readable to it. A run with --apart, in which no mount is
placed on one processor with its helper, is short too.

What a sanitizer has to say goes to files in the folder that KEMVI_SANITIZER_LOGS names (otherwise to one that goes with
the run), because a mount in the background has no output. A test after which there is a new one fails.
"""

import argparse
import os
import pwd
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
from pathlib import Path

from harness import keeping, system

SKIPPED = 77
HERE = Path(__file__).resolve().parent
PROGRAMS = ("kemvi-local", "kemvi-become.node", "kemvi_test_changing")  # built beside the command; installed under libexec
WATCH = "harness.sanitizer_watch"  # the plugin of pytest that looks at the reports
SEMANTICS = HERE.parent / "docs" / "semantics.md"


def skip(reason):
    print(f"SKIPPED: {reason}")
    sys.exit(SKIPPED)


def parse():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--binary", required=True, help="the kemvi command")
    parser.add_argument("--sdk", required=True, help="the folder of the helper kit, with helpers/local.mjs in it")
    parser.add_argument("--user", action="store_true", help="run as an ordinary user")
    parser.add_argument("--anybody", action="store_true", help="run as whoever calls, where it makes no difference")
    parser.add_argument("--native", action="store_true", help="volumes are served with the shipped helper in C++")
    parser.add_argument("--python", action="store_true", help="volumes are served with `local` of the kit for Python")
    parser.add_argument("--apart", action="store_true", help="with mounts that are not placed; a short run")
    parser.add_argument("--tests", type=Path, default=HERE, help="where the folders are, if not beside this file")
    parser.add_argument("folders", nargs="+", help="folders or files of tests, such as mount/rename")
    arguments, more = parser.parse_known_args()
    arguments.folders += more  # options for pytest
    for name in ("binary", "sdk", "tests"):  # the tests run elsewhere
        setattr(arguments, name, Path(getattr(arguments, name)).absolute())
    return arguments


def check_machine(as_user):
    if not os.path.exists("/dev/fuse"):
        skip("this machine has no /dev/fuse")
    if not shutil.which("node"):
        skip("node is not installed")
    if as_user and not shutil.which("fusermount3"):
        skip("fusermount3 is not installed, an ordinary user cannot mount")
    if subprocess.run([sys.executable, "-c", "import pytest"], check=False, capture_output=True).returncode != 0:
        skip("pytest is not installed for " + sys.executable)


def owned_copy(arguments, user):
    """A folder of the user's with everything that the tests need: the command and its helpers as if installed there, so
    that they are found also where the user may not look into the tree."""
    home = Path(tempfile.mkdtemp(prefix="kemvi-user-"))
    (home / "bin").mkdir()
    shutil.copy2(arguments.binary, home / "bin" / "kemvi")
    (home / "libexec" / "kemvi").mkdir(parents=True)
    for name in PROGRAMS:
        if (built := arguments.binary.with_name(name)).exists():
            shutil.copy2(built, home / "libexec" / "kemvi" / name)
    shutil.copytree(arguments.sdk, home / "share" / "kemvi", ignore=shutil.ignore_patterns("node_modules"),
                    symlinks=True)
    copy_folder(arguments.sdk.parent / "python", home / "share" / "python")
    if any(folder.startswith("store") for folder in arguments.folders):
        copy_store(arguments.sdk.parent / "store", home / "share" / "kemvi")
    shutil.copy2(SEMANTICS, home / "semantics.md")
    for folder in ("docs", "completions", "examples"):  # which some tests read
        copy_folder(HERE.parent / folder, home / folder)
    shutil.copy2(HERE.parent / "README.md", home)
    copy_folder(HERE / "harness", home / "tests" / "harness")
    copy_folder(HERE / "servers", home / "tests" / "servers")
    shutil.copy2(__file__, home / "tests")  # its own tests run it
    for conftest in arguments.tests.glob("conftest.py"):
        shutil.copy2(conftest, home / "tests")
    for name in {folder.split("/")[0] for folder in arguments.folders if (arguments.tests / folder).exists()}:
        copy_folder(arguments.tests / name, home / "tests" / name)
    for folder, folders, files in os.walk(home):
        os.chown(folder, user.pw_uid, user.pw_gid)
        for name in folders + files:
            os.chown(os.path.join(folder, name), user.pw_uid, user.pw_gid, follow_symlinks=False)
    return home


def copy_store(package, kit):
    """With its libraries, of which the kit is a link to where the sources have it."""
    shutil.copytree(package, kit / "store", symlinks=True)
    if (link := kit / "store" / "node_modules" / "kemvi-helper").is_symlink():
        link.unlink()
        link.symlink_to("../..")


def copy_folder(folder, where):
    shutil.copytree(folder, where, ignore=shutil.ignore_patterns("__pycache__", ".pytest_cache"), dirs_exist_ok=True)


def reports_to(folder):
    """The environment in which every sanitizer writes its reports into a folder."""
    told = {"KEMVI_SANITIZER_LOGS": str(folder)}
    for sanitizer in ("ASAN", "TSAN", "UBSAN"):
        name = f"{sanitizer}_OPTIONS"
        options = [os.environ[name]] if os.environ.get(name) else []
        told[name] = ":".join([*options, f"log_path={folder / 'report'}"])
    return told


def native_helper(binary):
    installed = binary.parent.parent / "libexec" / "kemvi" / "kemvi-local"
    return installed if installed.exists() else binary.with_name("kemvi-local")


def served_by(arguments, binary, sdk):
    """The program that serves the volumes, where that is not the shipped helper for node."""
    if arguments.native:
        return native_helper(binary)
    return sdk.parent / "python" / "helpers" / "local" if arguments.python else None


def pytest(binary, sdk, tests, folders, reports, plugins, prefix=(), program=None):
    environment = dict(os.environ, KEMVI_BIN=str(binary), KEMVI_HELPER=str(Path(sdk) / "helpers" / "local.mjs"),
                       KEMVI_SDK=str(sdk), PYTHONDONTWRITEBYTECODE="1", PYTHONPATH=str(plugins), LC_ALL="C.UTF-8",
                       **reports_to(reports))
    if program:
        environment["KEMVI_NATIVE_HELPER"] = str(program)
    for name in ("GIT_DIR", "GIT_WORK_TREE", "GIT_INDEX_FILE"):
        environment.pop(name, None)
    command = [*prefix, sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "-p", WATCH, "-q", "-ra",
               "--tb=short", "--durations=5", "--rootdir", str(tests), *folders]
    return subprocess.run(command, cwd=tests, env=environment, stdin=subprocess.DEVNULL, check=False).returncode


def with_reports(run, parent=None, owner=None):
    """Calls `run` with the folder for reports; what it returns, or 1 where a report came after the last test."""
    named = os.environ.get("KEMVI_SANITIZER_LOGS")
    folder = Path(named) if named else Path(tempfile.mkdtemp(prefix="kemvi-reports-", dir=parent))
    folder = folder.resolve()
    folder.mkdir(parents=True, exist_ok=True)
    if owner:
        os.chown(folder, owner.pw_uid, owner.pw_gid)
    before = set(folder.iterdir())
    try:
        code = run(folder)
        late = sorted(set(folder.iterdir()) - before)
        if late and code == 0:
            for report in late:
                print(report.read_text(errors="replace"))
            print("FAILED: a sanitizer reported after the last test had ended")
            return 1
        return code
    finally:
        if not named:
            shutil.rmtree(folder, ignore_errors=True)


# Everywhere with udev the device is open to all users. On a machine without, such as a small virtual one, the test sees
# it so in a mount namespace of its own, and nobody else does.
OPEN_DEVICE = """
mount -t tmpfs -o mode=755 none "$1" && mknod -m 666 "$1/fuse" c $2 $3 && mount --bind "$1/fuse" /dev/fuse || exit 77
shift 3
exec "$@"
"""


def with_open_device(home):
    """What to put before a command so that an ordinary user may open /dev/fuse in it."""
    device = os.stat("/dev/fuse")
    if stat.S_IMODE(device.st_mode) & 0o006 == 0o006:
        return []
    folder = home / "device"
    folder.mkdir()
    return [system.OWN_MOUNT_TABLE, "sh", "-c", OPEN_DEVICE, "sh", str(folder),
            str(os.major(device.st_rdev)), str(os.minor(device.st_rdev))]


def run_as_user(arguments):
    user = pwd.getpwnam("nobody")
    home = owned_copy(arguments, user)
    os.environ["TMPDIR"] = os.environ["HOME"] = str(home)
    os.environ["KEMVI_TEST_SHORT"] = "1"
    os.environ["KEMVI_SEMANTICS"] = str(home / "semantics.md")
    prefix = with_open_device(home)
    prefix += ["setpriv", f"--reuid={user.pw_uid}", f"--regid={user.pw_gid}", "--clear-groups"]
    command, kit, tests = home / "bin" / "kemvi", home / "share" / "kemvi", home / "tests"
    try:
        return with_reports(lambda reports: pytest(command, kit, tests, arguments.folders, reports, tests, prefix,
                                                   served_by(arguments, command, kit)), home, user)
    finally:
        for left in system.clear_away(home):
            print("cleared away:", left)
        shutil.rmtree(home, ignore_errors=True)


def main():
    # A job in the background of a script, or under nohup, has these ignored, and would pass that on to every command.
    for number in (signal.SIGINT, signal.SIGHUP):
        signal.signal(number, signal.SIG_DFL)
    arguments = parse()
    if arguments.apart:
        os.environ |= {"KEMVI_TEST_PLACEMENT": "off", "KEMVI_TEST_SHORT": "1"}
    check_machine(arguments.user)
    return keeping.kept(lambda: run(arguments))


def run(arguments):
    if arguments.user and os.getuid() == 0:
        return run_as_user(arguments)
    if not (arguments.user or arguments.anybody) and os.getuid() != 0:
        skip("needs root; the .user entry of this name runs as the ordinary user that you are")
    return with_reports(lambda reports: pytest(arguments.binary, arguments.sdk, arguments.tests, arguments.folders,
                                               reports, HERE, program=served_by(arguments, arguments.binary, arguments.sdk)))


if __name__ == "__main__":
    sys.exit(main())
