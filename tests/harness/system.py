"""What the machine knows of a test: its mounts, its processes and their open descriptors."""

import os
import re
import signal
import subprocess
from pathlib import Path
from typing import NamedTuple

# Put before a command: see there.
OWN_MOUNT_TABLE = str(Path(__file__).resolve().parent / "own_mount_table")

OCTAL = re.compile(r"\\([0-7]{3})")


class Mount(NamedTuple):
    """One line of the kernel's table of mounts."""

    point: str
    minor: int  # of its device; the processes that serve it bear this number
    type: str
    source: str
    options: list
    super_options: list


def _plain(field):
    """A field of the table without the escapes of spaces and the like."""
    return OCTAL.sub(lambda match: chr(int(match.group(1), 8)), field)


def mounts(below):
    """The mounts at or beneath a folder, as the kernel lists them now: of two at one point the upper one comes later."""
    below = str(below)
    found = []
    with open("/proc/self/mountinfo", encoding="utf-8", errors="surrogateescape") as table:
        for line in table:
            first, last = (part.split(" ") for part in line.rstrip("\n").split(" - ", 1))
            point = _plain(first[4])
            if point == below or point.startswith(below + "/"):
                found.append(Mount(point, int(first[2].split(":")[1]), last[0], _plain(last[1]), first[5].split(","),
                                   last[2].split(",")))
    return found


def mount_points(below):
    return [mount.point for mount in mounts(below)]


def mount_at(point):
    """The uppermost mount at a point; None when nothing is mounted there."""
    found = [mount for mount in mounts(point) if mount.point == str(point)]
    return found[-1] if found else None


def processes(marker):
    """Pids of the live processes that carry `marker` in their environment or on their command line, but ours."""
    wanted = os.fsencode(str(marker))
    own = set()
    pid = os.getpid()
    while pid > 1:
        own.add(pid)
        pid = parent_of(pid)
    found = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit() or int(entry) in own or state_of(entry) in ("Z", "X", None):
            continue
        for source in ("environ", "cmdline"):
            try:
                if wanted in Path(f"/proc/{entry}/{source}").read_bytes():
                    found.append(int(entry))
                    break
            except OSError:
                continue
    return found


def _status(pid, index):
    try:
        text = Path(f"/proc/{pid}/stat").read_text(errors="replace")
    except OSError:
        return None
    return text[text.rindex(")") + 2:].split(" ")[index]


def state_of(pid):
    """The one-letter state of a process; None when it is gone."""
    return _status(pid, 0)


def parent_of(pid):
    return int(_status(pid, 1) or 0)


def children(pid):
    """Live children of a process."""
    found = []
    for entry in os.listdir("/proc"):
        if entry.isdigit() and parent_of(entry) == pid and state_of(entry) not in ("Z", "X", None):
            found.append(int(entry))
    return found


def is_alive(pid):
    return state_of(pid) not in ("Z", "X", None)


def name_of(pid):
    """The name that a process has given itself; empty when it is gone."""
    try:
        return Path(f"/proc/{pid}/comm").read_text(errors="replace").strip()
    except OSError:
        return ""


def command_of(pid):
    try:
        return Path(f"/proc/{pid}/cmdline").read_bytes().decode(errors="replace").replace("\0", " ").strip()
    except OSError:
        return "(gone)"


def descriptors(pid):
    """Open descriptors of a process: number -> what it leads to."""
    found = {}
    try:
        numbers = os.listdir(f"/proc/{pid}/fd")
    except OSError:
        return found
    for number in numbers:
        try:
            found[int(number)] = os.readlink(f"/proc/{pid}/fd/{number}")
        except OSError:
            continue
    return found


def is_waiting(pid):
    """Whether some thread of the process waits for the file system (asleep in the kernel's fuse code or in `D`)."""
    try:
        for task in os.listdir(f"/proc/{pid}/task"):
            if _status(f"{pid}/task/{task}", 0) == "D":
                return True
            place = Path(f"/proc/{pid}/task/{task}/wchan").read_text()
            if "fuse" in place or "request_wait" in place or "folio_wait" in place or "inode" in place:
                return True
    except OSError:
        pass
    return False


def clear_away(folder):
    """Ends the processes that belong to a folder and detaches the mounts in it. Returns what there was to clear."""
    cleared = []
    for pid in processes(folder):
        cleared.append(f"process {pid}: {command_of(pid)}")
        try:
            os.kill(pid, signal.SIGKILL)
        except OSError:
            pass
    for point in reversed(mount_points(folder)):
        cleared.append(f"mount {point}")
        command = ["umount", "-l", point] if os.getuid() == 0 else ["fusermount3", "-u", "-z", point]
        subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, timeout=20, check=False)
    return cleared
