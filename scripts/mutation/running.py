"""Runs tests with one mutant on at a time. What a mutant does is unknown, so this happens in namespaces of its own (see
`enter`): no other process can be signalled, no other mount taken away, and no file written but those in `room`."""

import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

# A mutant is first tried by what takes no longer than this together.
QUICK = 0.5


# Every mount but that of the room, "$1": /tmp, for one, may be a file system of its own. With the options that it has, which
# an ordinary user may not take away. What cannot be changed and can be written to ends the sandbox. What lay below /proc is
# covered by a new one.
ALL_READ_ONLY = r'''awk '$3 != "proc" && $2 !~ "^/proc/" { print $2, $4 }' /proc/self/mounts | while read -r at options; do
  at=$(printf %b "$at"); [ "$at" != "$1" ] || continue
  kept=$(printf %s "$options" | tr , '\n' | grep -xE 'nosuid|nodev|noexec|noatime|nodiratime|relatime' | tr '\n' ,)
  mount -o "remount,bind,${kept}ro" "$at" 2>/dev/null || ! [ -w "$at" ] || { echo "$at stays writable" >&2; exit 1; }
done; '''


def command_inside(arguments, room):
    """The command that runs `arguments` (this module's main) in a sandbox in which only `room` can be written."""
    unshare = ["unshare", "--mount", "--propagation", "slave", "--pid", "--fork", "--kill-child", "--mount-proc"]
    if os.geteuid() != 0:
        unshare += ["--user", "--map-root-user"]
    # Mounts of user-space file systems go: a copy of one would keep it alive when it is unmounted outside. A tree in /tmp
    # would be hidden by another /tmp; there are tests that need one.
    script = ('set -e; awk \'$3 ~ /^fuse/ { print $2 }\' /proc/self/mounts | while read -r at; do umount -l "$at" || true; done; '
              'mount --bind "$1" "$1"; ' + ALL_READ_ONLY + 'mount -t tmpfs tmpfs "$1/tmp"; '
              'case $1 in /tmp/*) ;; *) mount --bind "$1/tmp" /tmp ;; esac; shift; exec "$@"')
    return [*unshare, "sh", "-c", script, "sh", str(room), "/usr/bin/python3", str(Path(__file__)), *map(str, arguments)]


def main(plan_file):
    if os.getpid() != 1:
        raise SystemExit("scripts/mutate: mutants run in a sandbox only")
    plan = json.loads(Path(plan_file).read_text())
    room = Path(plan["room"])
    os.environ.update(TMPDIR=str(room / "tmp"), HOME=str(room / "tmp"))
    for task in plan["tasks"]:
        done = survey(task, room) if plan["kind"] == "survey" else judge(task, room)
        # Line by line, at the end of what others wrote: who is interrupted goes on where it was.
        with open(plan["results"], "a", encoding="utf-8") as results:
            results.write(json.dumps(done) + "\n")


def survey(test, room):
    """Which mutants one test reaches and which of them would make a difference there, with none on."""
    seen = room / "tmp" / "seen"
    seen.write_bytes(bytes(test["mutants"]))
    begin = time.monotonic()
    result, _ = run(test["program"], {test["test"]: 10}, {"KEMVI_MUTANTS_SEEN": str(seen)})
    noted = seen.read_bytes()
    return {"program": test["program"], "test": test["test"], "passed": result == "passed",
            "seconds": round(time.monotonic() - begin, 3),
            "reached": [number for number, byte in enumerate(noted) if byte == 1],
            "differs": [number for number, byte in enumerate(noted) if byte == 2]}


def judge(task, room):
    """Runs the tests of one mutant, the quick ones first, until one fails."""
    begin = time.monotonic()
    tests = sorted(task["tests"], key=lambda test: test["seconds"])
    quick = []
    while tests and sum(test["seconds"] for test in quick) < QUICK:
        quick.append(tests.pop(0))
    mutant = {"KEMVI_MUTANT": str(task["number"])}
    result, by = "survived", ""
    for batch in (quick, tests):
        for program in dict.fromkeys(test["program"] for test in batch):
            own = {test["test"]: test["seconds"] for test in batch if test["program"] == program}
            while own and result == "survived":
                outcome, by = run(program, own, mutant)
                if outcome == "passed":
                    break
                # On a busy machine a test may fail by itself: only what fails again was failed by the mutant.
                again = {by: own[by]} if by in own else own
                if outcome == "hung" or run(program, again, mutant)[0] != "passed":
                    result = outcome
                elif by in own:
                    del own[by]
                else:
                    break
    return {"id": task["id"], "result": result, "by": by, "seconds": round(time.monotonic() - begin, 2)}


def run(program, tests, environment):
    """Runs `tests` (seconds that each takes, by its name): passed, failed (one said so), crashed or hung; and the test that
    failed, if it was told."""
    room = Path(os.environ["TMPDIR"])
    said = room / "said"
    with open(said, "wb") as output:
        process = subprocess.Popen([program, "--gtest_fail_fast", "--gtest_filter=" + ":".join(tests)],
                                   cwd=room, env=dict(os.environ, **environment),
                                   stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        status = wait(process, said, 5 + 8 * max(tests.values()), 30 + 8 * sum(tests.values()))
    told = re.search(r"^\[  FAILED  \] ([^\s,]+)", said.read_text(errors="replace"), re.MULTILINE)
    clear(room)
    if status is None:
        process.wait()
        return "hung", ""
    result = "passed" if status == 0 else "failed" if status > 0 else "crashed"
    return result, told[1] if told else ""


def wait(process, said, patience, limit):
    """The status of a process; none if it has said nothing for `patience` seconds or lives on after `limit`."""
    begin = latest = time.monotonic()
    size = 0
    while time.monotonic() - begin < limit and time.monotonic() - latest < patience:
        try:
            return process.wait(0.2)
        except subprocess.TimeoutExpired:
            if said.stat().st_size != size:
                size = said.stat().st_size
                latest = time.monotonic()
    return None


def clear(room):
    """Ends what a run left behind, all of it in our namespace and so descended from us, and empties its folder."""
    for entry in os.listdir("/proc"):
        if entry.isdigit() and int(entry) != os.getpid():
            try:
                os.kill(int(entry), signal.SIGKILL)
            except ProcessLookupError:
                pass
    for path in room.iterdir():
        if path.name != "seen":
            shutil.rmtree(path, ignore_errors=True) if path.is_dir() else path.unlink()
    try:
        while os.waitpid(-1, os.WNOHANG)[0] > 0:
            pass
    except ChildProcessError:
        pass


if __name__ == "__main__":
    main(sys.argv[1])
