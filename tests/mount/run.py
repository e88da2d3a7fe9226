#!/usr/bin/env python3
"""Runs folders of mount tests for CTest: as the caller, or with --user as an ordinary user.

Exit codes are those that CTest knows: 0 passed, 77 skipped (no way to mount here, said on the output), else failed.
A run as an ordinary user works on copies in a folder of that user, so that the tree itself need not be readable to it.
"""

import argparse
import os
import stat
import pwd
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

SKIPPED = 77
HERE = Path(__file__).resolve().parent
SEMANTICS = HERE.parents[1] / "docs" / "semantics.md"


def skip(reason):
    print(f"SKIPPED: {reason}")
    sys.exit(SKIPPED)


def parse():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--binary", required=True, help="the kemvi command")
    parser.add_argument("--sdk", required=True, help="the folder of the helper kit, with helpers/local.mjs in it")
    parser.add_argument("--user", action="store_true", help="run as an ordinary user")
    parser.add_argument("--tests", type=Path, default=HERE, help="where the folders are, if not beside this file")
    parser.add_argument("folders", nargs="+", help="folders or files of tests")
    arguments, more = parser.parse_known_args()
    arguments.folders += more  # options for pytest
    return arguments


def checkMachine(asUser):
    if not os.path.exists("/dev/fuse"):
        skip("this machine has no /dev/fuse")
    if not shutil.which("node"):
        skip("node is not installed")
    if asUser and not shutil.which("fusermount3"):
        skip("fusermount3 is not installed, an ordinary user cannot mount")
    if subprocess.run([sys.executable, "-c", "import pytest"], check=False, capture_output=True).returncode != 0:
        skip("pytest is not installed for " + sys.executable)


def ownedCopy(arguments, user):
    """A folder of the user's with everything that the tests need."""
    home = Path(tempfile.mkdtemp(prefix="kemvi-user-"))
    shutil.copy2(arguments.binary, home / "kemvi")
    shutil.copytree(arguments.sdk, home / "sdk", ignore=shutil.ignore_patterns("node_modules"), symlinks=True)
    shutil.copy2(SEMANTICS, home / "semantics.md")
    shutil.copytree(arguments.tests, home / "mount", ignore=shutil.ignore_patterns("__pycache__", ".pytest_cache"))
    for folder, folders, files in os.walk(home):
        os.chown(folder, user.pw_uid, user.pw_gid)
        for name in folders + files:
            os.chown(os.path.join(folder, name), user.pw_uid, user.pw_gid, follow_symlinks=False)
    return home


def pytest(binary, sdk, tests, folders, prefix=()):
    environment = dict(os.environ, KEMVI_BIN=str(binary), KEMVI_HELPER=str(Path(sdk) / "helpers" / "local.mjs"),
                       KEMVI_SDK=str(sdk), PYTHONDONTWRITEBYTECODE="1", LC_ALL="C.UTF-8")
    for name in ("GIT_DIR", "GIT_WORK_TREE", "GIT_INDEX_FILE"):
        environment.pop(name, None)
    command = [*prefix, sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "-q", "-ra", "--tb=short",
               "--durations=5", "--rootdir", str(tests), *folders]
    return subprocess.run(command, cwd=tests, env=environment, stdin=subprocess.DEVNULL, check=False).returncode


# Everywhere with udev the device is open to all users. On a machine without, such as a small virtual one, the test sees
# it so in a mount namespace of its own, and nobody else does.
OPEN_DEVICE = """
mount -t tmpfs -o mode=755 none "$1" && mknod -m 666 "$1/fuse" c $2 $3 && mount --bind "$1/fuse" /dev/fuse || exit 77
shift 3
exec "$@"
"""


def withOpenDevice(home):
    """What to put before a command so that an ordinary user may open /dev/fuse in it."""
    device = os.stat("/dev/fuse")
    if stat.S_IMODE(device.st_mode) & 0o006 == 0o006:
        return []
    folder = home / "device"
    folder.mkdir()
    return ["unshare", "--mount", "--propagation", "private", "sh", "-c", OPEN_DEVICE, "sh", str(folder),
            str(os.major(device.st_rdev)), str(os.minor(device.st_rdev))]


def runAsUser(arguments):
    user = pwd.getpwnam("nobody")
    home = ownedCopy(arguments, user)
    os.environ["TMPDIR"] = os.environ["HOME"] = str(home)
    os.environ["KEMVI_SEMANTICS"] = str(home / "semantics.md")
    prefix = withOpenDevice(home)
    prefix += ["setpriv", f"--reuid={user.pw_uid}", f"--regid={user.pw_gid}", "--clear-groups"]
    try:
        return pytest(home / "kemvi", home / "sdk", home / "mount", arguments.folders, prefix)
    finally:
        sys.path.insert(0, str(HERE))
        from harness import system  # pylint: disable=import-outside-toplevel
        for left in system.clearAway(home):
            print("cleared away:", left)
        shutil.rmtree(home, ignore_errors=True)


def main():
    arguments = parse()
    checkMachine(arguments.user)
    if arguments.user and os.getuid() == 0:
        return runAsUser(arguments)
    if not arguments.user and os.getuid() != 0:
        skip("needs root; the mount.user entry of this name runs as the ordinary user that you are")
    return pytest(arguments.binary, arguments.sdk, arguments.tests, arguments.folders)


if __name__ == "__main__":
    sys.exit(main())
