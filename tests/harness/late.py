"""What a test's processes are at when something is late: all that the machine tells of them, before they are ended."""

import json
import os
import shutil
import socket
import subprocess
from pathlib import Path

from . import system

STACK_LIMIT = 15  # seconds, for the debugger
STACKS_OF = 4     # processes at most
ANSWER_LIMIT = 2  # seconds, for a mount's word


def look(folder, also=()):
    """Text about every process that belongs to a folder, and those in `also`; takes a minute at most."""
    pids = _with_children([*also, *system.processes(folder)])
    told = ["mounted: " + line for line in _lines(folder)] or ["nothing is mounted"]
    told += other_tables()
    stacks = STACKS_OF if shutil.which("gdb") else 0
    for pid in pids:
        told += _process(pid)
        if _is_ours(pid) and stacks > 0:
            stacks -= 1
            told += _user_stacks(pid)
        if system.name_of(pid).startswith("kemvi-"):
            told.append("  its status: " + _status(pid))
    return "\n".join(told)


def _with_children(pids):
    found = []
    while pids:
        pid = pids.pop(0)
        if pid not in found:
            found.append(pid)
            pids += system.children(pid)
    return found


def _is_ours(pid):
    return system.name_of(pid).startswith("kemvi") or "kemvi" in system.command_of(pid).split(" ")[0]


def _lines(folder):
    with open("/proc/self/mountinfo", encoding="utf-8", errors="replace") as table:
        return [line.rstrip("\n") for line in table if str(folder) in line]


def _read(path):
    try:
        return Path(path).read_text(encoding="utf-8", errors="replace").strip() or "-"
    except OSError as error:
        return f"({error.strerror})"


def _link(path):
    try:
        return os.readlink(path)
    except OSError as error:
        return f"({error.strerror})"


def other_tables():
    """A process with a mount table of its own may keep a mount alive that was taken away here."""
    own = _link("/proc/self/ns/mnt")
    tables = {}
    for entry in filter(str.isdigit, os.listdir("/proc")):
        table = _link(f"/proc/{entry}/ns/mnt")
        if table != own and table.startswith("mnt:"):
            tables.setdefault(table, []).append(int(entry))
    return [f"another mount table: of process {pids[0]} ({system.name_of(pids[0])}), {len(pids)} in all"
            for pids in tables.values()]


def _process(pid):
    told = [f"process {pid} ({system.name_of(pid)}), {system.state_of(pid)}, child of {system.parent_of(pid)}: "
            + system.command_of(pid)]
    try:
        threads = sorted(os.listdir(f"/proc/{pid}/task"), key=int)
    except OSError:
        return [*told, "  (gone)"]
    for thread in threads:
        place = f"/proc/{pid}/task/{thread}"
        told.append(f"  thread {thread} ({_read(place + '/comm')}), {system.state_of(f'{pid}/task/{thread}')}, waits in "
                    f"{_read(place + '/wchan')}, system call {_read(place + '/syscall')}")
        told += [f"    {line}" for line in _read(place + "/stack").splitlines()]
    told += [f"  descriptor {number}: {target}{_held(pid, number)}"
             for number, target in sorted(system.descriptors(pid).items())]
    return told


def _held(pid, number):
    """What a descriptor of a process holds, and each of its threads that has not ended."""
    lines = _read(f"/proc/{pid}/fdinfo/{number}").splitlines()
    held = next((line.split()[1] for line in lines if line.startswith("Pid:")), None)
    if held is None:
        return ""
    try:
        threads = os.listdir(f"/proc/{held}/task")
    except OSError:
        return f" of {held}, which is gone"
    states = [f"{thread} {system.state_of(f'{held}/task/{thread}')} in {_read(f'/proc/{held}/task/{thread}/wchan')}" for thread in threads]
    return f" of {held} ({system.name_of(int(held))}): " + ", ".join(states)


def _user_stacks(pid):
    command = ["gdb", "-nx", "-batch", "-p", str(pid), "-ex", "set print frame-arguments none", "-ex", "thread apply all bt 16"]
    try:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace",
                              timeout=STACK_LIMIT, check=False)
    except subprocess.TimeoutExpired:
        return ["  (the debugger took too long)"]
    return [f"  {line}" for line in done.stdout.splitlines() if line.startswith(("Thread", "#"))] or ["  (no stacks)"]


def _status(pid):
    """What the process that serves a mount says, also where the mount is gone already."""
    folders = ["/run/kemvi", os.environ.get("XDG_RUNTIME_DIR", "/run") + "/kemvi", f"/tmp/kemvi-{os.getuid()}"]
    for path in (f"{folder}/{pid}.sock" for folder in folders):
        try:
            with socket.socket(socket.AF_UNIX) as channel:
                channel.settimeout(ANSWER_LIMIT)
                channel.connect(path)
                channel.sendall(json.dumps({"op": "status"}).encode() + b"\n")
                stream = channel.makefile(encoding="utf-8", errors="replace")
                stream.readline()  # the greeting
                return stream.readline().strip() or "(no answer)"
        except FileNotFoundError:
            continue
        except OSError as error:
            return f"(no answer: {error})"
    return "(no channel)"
