"""Random sequences of operations by several processes, on the volume and on a plain directory: all results and the trees
left in the end are the same, but for the differences that are listed.

KEMVI_MODEL_SECONDS sets how long to go on (default 100, in a short run 12), KEMVI_MODEL_SEED the first seed. A failure prints its seed and
the shortest sequence found that still fails.
"""

import os
import random
import shutil
import time

import pytest

from harness.deadline import eventually
from harness.length import amount
from model.differences import known
from model.operations import GENERATORS, generate, snapshot
from model.players import Cast

PROCESSES = 3
LENGTH = 400
SECONDS = float(os.environ.get("KEMVI_MODEL_SECONDS", amount(100, 12)))
SHORTENING = 60  # seconds for making a failure shorter
OPTIONS = [[], ["entry_timeout=0", "attr_timeout=0"], ["entry_timeout=60", "attr_timeout=60"], ["request_size=4096"]]


def sequence_of(seed):
    source = random.Random(seed)
    return [generate(source, PROCESSES) for _ in range(LENGTH)]


class Stage:
    """The volume and a plain directory beside it; every run gets a fresh folder in each."""

    def __init__(self, volume):
        self.volume = volume
        self.plain = volume.path.parent / f"plain{volume.path.name}"
        self.plain.mkdir()
        self.runs = 0

    def fault(self, sequence):
        """Runs a sequence. None if all is well, otherwise what differed."""
        self.runs += 1
        name = f"run{self.runs}"
        roots = [self.volume.path / name, self.plain / name]
        for root in roots:
            root.mkdir()
        cast = Cast(PROCESSES, roots)
        try:
            return self._compare(cast, sequence, roots, self.volume.backing / name)
        finally:
            cast.end()
            for root in roots:
                shutil.rmtree(root, ignore_errors=True)

    def _compare(self, cast, sequence, roots, backing):
        for number, operation in enumerate(sequence):
            mount, plain, is_about_removed_folder = cast.play(operation)
            if not known(operation[1], mount, plain, is_about_removed_folder):
                return f"step {number}: {operation}\n  on the volume: {short(mount)}\n  on the disk:   {short(plain)}"
        cast.close_all()
        shown, wanted = snapshot(roots[0]), snapshot(roots[1])
        if shown != wanted:
            return "the trees differ in the end: " + differing(shown, wanted)
        try:
            eventually(lambda: snapshot(backing) == wanted, 10)
        except AssertionError:
            return "the served tree differs in the end: " + differing(snapshot(backing), wanted)
        return None


def short(result):
    text = repr(result)
    return text if len(text) < 300 else f"{text[:300]}... ({len(text)} characters)"


def differing(first, second):
    names = sorted(name for name in first.keys() | second.keys() if first.get(name) != second.get(name))
    return "; ".join(f"{name}: {short(first.get(name))} instead of {short(second.get(name))}" for name in names[:5])


def shortened(stage, sequence):
    """Leaves out ever smaller parts of a failing sequence for as long as it goes on failing."""
    end = time.monotonic() + SHORTENING
    part = len(sequence) // 2
    while part and time.monotonic() < end:
        at = 0
        while at < len(sequence) and time.monotonic() < end:
            without = sequence[:at] + sequence[at + part:]
            if stage.fault(without):
                sequence = without
            else:
                at += part
        part //= 2
    return sequence


def report(stage, seed, fault):
    sequence = shortened(stage, sequence_of(seed))
    steps = "\n".join(f"  {step!r}," for step in sequence)
    pytest.fail(f"seed {seed}: {fault}\nshortest sequence that fails ({len(sequence)} steps), as (process, kind, ...):\n"
                f"[\n{steps}\n]\nwhich ends: {stage.fault(sequence)}", pytrace=False)


def test_model_knows_at_least_thirty_kinds_of_operation():
    assert len(GENERATORS) >= 30


@pytest.mark.limit(SECONDS / 2 + SHORTENING + 60)
@pytest.mark.parametrize("options", OPTIONS, ids=lambda options: ",".join(options) or "default")
def test_volume_and_disk_agree_on_random_sequences(request, mount, options):
    stage = Stage(mount(options=options))
    seed = int(os.environ.get("KEMVI_MODEL_SEED", "0")) or random.SystemRandom().randrange(1, 1 << 32)
    first, end = seed, time.monotonic() + SECONDS / len(OPTIONS)
    while seed == first or time.monotonic() < end:
        fault = stage.fault(sequence_of(seed))
        if fault:
            report(stage, seed, fault)
        seed += 1
    print(f"seeds {first} to {seed - 1}, {LENGTH} operations each")


def test_failing_sequence_is_found_and_shortened(volume, monkeypatch):
    """The test of the test: a disk that loses a byte is noticed, and the report is short."""
    from model import operations

    def lossy(tree, name, seed, size):
        return operations.do_write_file(tree, name, seed, size - 1 if "plain" in tree.root and size == 4097 else size)
    monkeypatch.setitem(operations.PERFORMERS, "writeFile", lossy)
    stage = Stage(volume)
    seed = next(seed for seed in range(1, 200) if stage.fault(sequence_of(seed)))
    sequence = shortened(stage, sequence_of(seed))
    assert len(sequence) <= 5 and any(step[1] == "writeFile" for step in sequence)
