"""Hours of mixed programs on one mount whose helper is slow, killed and restarted at random; see CONTRIBUTING.md."""

import argparse
import contextlib
import json
import os
import random
import resource
import shutil
import signal
import sys
import tempfile
import time
from pathlib import Path

import programs
import recovery
import worker
from control import Control, wait_for
from pair import pending
from served import Fault, Served, hidden_below

HANG = 300  # seconds without an operation begun or ended
GROWTH = {"host memory": 8 * 1024, "helper memory": 64 * 1024}  # KiB from the first rest of a phase to its last
OPTIONS = [(), (), ("writeback",), ("request_size=1m",), ("entry_timeout=0", "attr_timeout=0")]
KILLS = ["helper", "helper", "host", "order"]
INTERRUPTED = 130


class Phase:
    def __init__(self, seconds, kill, options, rest_every):
        self.seconds, self.kill, self.options, self.rest_every = seconds, kill, options, rest_every


def short_phase(lots):
    return Phase(lots.uniform(4, 45), lots.choice(KILLS), lots.choice(OPTIONS), float("inf"))


def plan(seconds, lots, only_kills):
    """One phase is long and ends in order, some are of middle length, and many are short and end with a kill. There is no
    end of the short ones."""
    phases = []
    if not only_kills:
        middle = max(12.0, min(480.0, seconds / 15))
        phases += [Phase(middle, lots.choice([None, *KILLS]), lots.choice(OPTIONS), max(middle / 4, 4))
                   for _ in range(int(seconds * 0.4 / middle))]
        recovery_seconds = 12
        phases += [short_phase(lots) for _ in range(int(seconds * 0.2 / (25 + recovery_seconds)))]
        lots.shuffle(phases)
        phases.insert(len(phases) // 2, Phase(seconds / 3, None, (), max(seconds / 3 / 8, 4)))
    yield from phases
    while True:
        yield short_phase(lots)


class Soak:
    def __init__(self, arguments, folder):
        self.seed, self.load = arguments.seed, arguments.load
        self.lots = random.Random(arguments.seed)
        self.only_kills = arguments.only_kills
        self.control = Control(folder)
        self.control.make()
        self.served = Served(self.control, arguments.binary, arguments.sdk, arguments.fault)
        self.names = arguments.programs.split(",") if arguments.programs else list(programs.ALL)
        self.workers = {}  # pid -> name
        self.counts = {"phases": 0, "kills": {}, "rests": 0, "files compared": 0, "hidden taken up": 0,
                       "longest recovery": 0}
        self.done = {}  # operations of the phases before
        self.figures = []  # one line for each phase with more than one rest
        self.number, self.phase = 0, None
        self.began = time.monotonic()
        self.next_line = self.began + 60
        for name in self.names:
            (self.control.tree / "work" / name).mkdir()
            (self.control.plain / name).mkdir()

    def run(self, seconds):
        end = self.began + seconds
        for phase in plan(seconds, self.lots, self.only_kills):
            left = end - time.monotonic()
            if left < 4:
                break
            phase.seconds = min(phase.seconds, left)
            self.one(phase)

    # One phase

    def one(self, phase):
        self.number += 1
        self.phase = phase
        self.counts["phases"] += 1
        self.control.lower_flags()
        self.served.start(self.number, phase.options, self.lots.getrandbits(31))
        for name in self.names:
            pid = worker.start(self.control, name, self.lots.getrandbits(64), self.log_of(name), self.load)
            self.workers[pid] = name
        end = time.monotonic() + phase.seconds
        measured = []
        while time.monotonic() < end:
            self.watch(min(phase.rest_every, end - time.monotonic()))
            if phase.rest_every < phase.seconds:
                measured.append(self.rest())
        if measured:
            self.check_growth(phase, measured)
        if phase.kill:
            self.end_by_kill(phase)
        else:
            self.end_quietly()
        self.add_counts()
        self.control.lower_flags()
        for log in self.control.logs.iterdir():
            log.unlink()

    def log_of(self, name):
        return self.control.logs / f"{self.number}-{name}.jsonl"

    def watch(self, seconds):
        """Lets the programs work, and looks after them."""
        end = time.monotonic() + max(seconds, 0.1)
        while time.monotonic() < end:
            self.look(())
            time.sleep(0.25)

    def look(self, expected):
        """Fails when a worker ended in another way than those expected, hangs, or the host is gone."""
        for pid, name in list(self.workers.items()):
            ended, status = os.waitpid(pid, os.WNOHANG)
            if ended:
                del self.workers[pid]
                found = self.control.told(f"found-{name}")
                if found or os.waitstatus_to_exitcode(status) not in expected:
                    raise Fault(f"program {name} ended with {os.waitstatus_to_exitcode(status)}:\n{found}")
            elif time.time() - self.last_sign(name) > HANG:
                raise Fault(f"program {name} hangs in {pending(self.log_of(name))}")
        if not expected:
            self.served.check_alive()
        if time.monotonic() > self.next_line:
            self.next_line += 60
            self.say(self.line())

    def last_sign(self, name):
        try:
            return max(self.log_of(name).stat().st_mtime, self.control.notes.stat().st_mtime)
        except FileNotFoundError:
            return time.time()

    def rest(self):
        """Everybody closes what is open, all is compared, then everything is removed and what is left is measured."""
        self.control.raise_flag("pause")
        self.wait(lambda: all(self.control.is_raised(f"resting-{name}") for name in self.names), "a rest")
        self.check_nothing_hidden()
        self.counts["files compared"] += recovery.compare_alive(self.control, self.names)
        self.control.raise_flag("sweep")
        self.wait(lambda: all(self.control.is_raised(f"swept-{name}") for name in self.names), "the sweep")
        measured = self.served.measure()
        self.check_nothing_hidden()
        self.counts["rests"] += 1
        for name in self.names:
            self.control.lower(f"resting-{name}")
            self.control.lower(f"swept-{name}")
        self.control.lower("sweep")
        self.control.lower("pause")
        return measured

    def wait(self, condition, what):
        def ask():
            self.look(())
            return condition()
        wait_for(ask, HANG, what)

    def check_nothing_hidden(self):
        left = hidden_below(self.control.tree)
        if left:
            raise Fault(f"hidden files although nothing is open: {left}")

    def check_growth(self, phase, measured):
        first, last = measured[0], measured[-1]
        self.figures.append({"phase": self.number, "seconds": round(phase.seconds), "options": ",".join(phase.options),
                             "rests": len(measured), "memory of the host": [one["host memory"] for one in measured],
                             "memory of the helper": [one["helper memory"] for one in measured],
                             "descriptors first and last": [first["host descriptors"], last["host descriptors"],
                                                            first["helper descriptors"], last["helper descriptors"]]})
        for what, bound in GROWTH.items():
            if last[what] - first[what] > bound:
                raise Fault(f"{what} grew from {first[what]} to {last[what]} KiB between {len(measured)} rests: {measured}")

    def end_quietly(self):
        self.control.raise_flag("stop")
        self.reap((worker.DONE,))
        self.served.end(None)
        self.check_nothing_hidden()

    def reap(self, expected):
        def ask():
            self.look(expected)
            return not self.workers
        wait_for(ask, HANG, "the end of the programs")

    # Kills

    def end_by_kill(self, phase):
        self.counts["kills"][phase.kill] = self.counts["kills"].get(phase.kill, 0) + 1
        self.control.raise_flag("killed")
        began = time.monotonic()
        may_lose = "writeback" in phase.options
        if may_lose and phase.kill == "order":
            self.note_all_safe()
        self.served.kill(phase.kill)
        # A program that uses a shared map of a file that is gone gets SIGBUS.
        self.reap((worker.INTERRUPTED, worker.DONE, -signal.SIGBUS))
        self.served.end(phase.kill)
        self.counts["hidden taken up"] += recovery.take_up_hidden(self.control.tree)
        folders = [recovery.Afterwards(self.control, name, pending(self.log_of(name)), may_lose) for name in self.names]
        for folder in folders:
            folder.prepare()
            folder.check_tree()
        self.control.lower_flags_but_counts()
        self.served.start(f"{self.number}-after", (), self.lots.getrandbits(31))
        faults = recovery.differences(recovery.tree_of(self.control.mount / "work"),
                                      recovery.tree_of(self.control.tree / "work"))
        if faults:
            raise Fault("the new mount differs from what it serves:\n" + "\n".join(faults[:20]))
        for folder in folders:
            folder.check_mounted()
            folder.adopt()
        self.served.end(None)
        self.counts["longest recovery"] = max(self.counts["longest recovery"], round(time.monotonic() - began, 1))

    def note_all_safe(self):
        """The orderly end writes what was changed before it began. What programs write to open files meanwhile, it need
        not find."""
        for name in self.names:
            if name == "kept":
                for file in (self.control.plain / name).iterdir():
                    (self.control.safe / name).mkdir(exist_ok=True)
                    with contextlib.suppress(FileNotFoundError):  # removed meanwhile
                        shutil.copyfile(file, self.control.safe / name / file.name)

    # What is told

    def add_counts(self):
        for name in self.names:
            for what, number in (self.control.told(f"counts-{name}") or {}).items():
                self.done[what] = self.done.get(what, 0) + number

    def operations(self):
        """Of all phases, the running one included."""
        total = dict(self.done)
        for name in self.names:
            for what, number in (self.control.told(f"counts-{name}") or {}).items():
                total[what] = total.get(what, 0) + number
        return total

    def line(self):
        total = self.operations()
        number = sum(value for what, value in total.items() if not what.startswith("bytes"))
        measured = self.served.measure_now()
        return (f"{(time.monotonic() - self.began) / 60:6.1f} min  phase {self.number}  operations {number}  "
                f"MB written {total.get('bytes written', 0) // 1000000}  read {total.get('bytes read', 0) // 1000000}  "
                f"kills {sum(self.counts['kills'].values())}  rests {self.counts['rests']}  {measured}  "
                f"cpu {self.share():.0%}")

    def share(self):
        """Of the time of one processor, what all processes used: those that have ended and those that run."""
        used = sum(sum(resource.getrusage(who)[:2]) for who in (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN))
        used += sum(map(processor_seconds, [*self.workers, *self.served.live_pids()]))
        return used / (time.monotonic() - self.began)

    def summary(self):
        total = self.done
        number = sum(value for what, value in total.items() if not what.startswith("bytes"))
        lines = [f"seed {self.seed}, {(time.monotonic() - self.began) / 60:.1f} minutes, {number} operations, "
                 f"{self.share():.0%} of one processor",
                 "operations: " + json.dumps(dict(sorted(total.items()))),
                 "counts: " + json.dumps(self.counts)]
        lines += ["rests of a phase, KiB: " + json.dumps(figure) for figure in self.figures]
        return "\n".join(lines)

    @staticmethod
    def say(text):
        print(text, flush=True)

    def failed(self, reason):
        self.say(f"FAILED after {(time.monotonic() - self.began) / 60:.1f} minutes: seed {self.seed}, phase {self.number} "
                 f"{vars(self.phase) if self.phase else ''}: {reason}")
        for name in self.names:
            log = self.log_of(name)
            if log.exists():
                self.say(f"-- last operations of {name}: {log}")
                self.say("".join(log.read_text().splitlines(keepends=True)[-6:]))
        if self.served.log and self.served.log.exists():
            self.say(f"-- log of the host: {self.served.log}")
            self.say("\n".join(self.served.log.read_text(errors="replace").splitlines()[-40:]))
        self.say(f"kept: {self.control.folder}")

    def clear(self):
        """Ends what still runs; in any order and state."""
        for pid in self.workers:
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        self.served.abandon()
        for pid in self.workers:
            os.waitpid(pid, 0)
        self.workers.clear()


def parse():
    parser = argparse.ArgumentParser(prog="scripts/soak", description=__doc__)
    parser.add_argument("hours", type=float)
    parser.add_argument("--binary", type=Path, required=True)
    parser.add_argument("--sdk", type=Path, required=True, help="the folder of the helper kit")
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--folder", type=Path, help="where the run's own folder is made")
    parser.add_argument("--load", type=float, default=14, help="how many times as long as it works each program rests")
    parser.add_argument("--programs", help="only these: " + ",".join(programs.ALL))
    parser.add_argument("--only-kills", action="store_true", help="no long phases")
    parser.add_argument("--fault", choices=("wrong", "lost"), help="a helper that has this fault, to see it found")
    arguments = parser.parse_args()
    if arguments.hours <= 0:
        parser.error("HOURS must be more than 0")
    for name in ("binary", "sdk"):
        setattr(arguments, name, getattr(arguments, name).resolve())
        if not getattr(arguments, name).exists():
            parser.error(f"{getattr(arguments, name)}: is not there; build first: cmake --build --preset release")
    return arguments


def processor_seconds(pid):
    """Its own and that of its children that have ended."""
    try:
        told = Path(f"/proc/{pid}/stat").read_text()
    except OSError:
        return 0
    return sum(map(int, told[told.rindex(")") + 2:].split(" ")[11:15])) / os.sysconf("SC_CLK_TCK")


def interrupt(_number, _frame):
    raise KeyboardInterrupt


def main():
    arguments = parse()
    os.umask(0o022)
    signal.signal(signal.SIGTERM, interrupt)
    signal.signal(signal.SIGINT, interrupt)
    folder = Path(tempfile.mkdtemp(prefix="kemvi-soak-", dir=arguments.folder)).resolve()
    soak = Soak(arguments, folder)
    soak.say(f"seed {arguments.seed}, folder {folder}")
    code = 0
    try:
        soak.run(arguments.hours * 3600)
    except KeyboardInterrupt:
        soak.say("interrupted")
        code = INTERRUPTED
    except Exception as found:  # each is a discrepancy until it is understood
        soak.failed(f"{type(found).__name__}: {found}")
        code = 1
    finally:
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        soak.clear()
    soak.say(soak.summary())
    if code != 1:
        shutil.rmtree(folder)
    soak.say({0: "clean", 1: "FAILED"}.get(code, "interrupted"))
    return code


if __name__ == "__main__":
    sys.exit(main())
