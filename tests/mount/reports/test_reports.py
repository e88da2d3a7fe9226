"""What a sanitizer reports fails the test in which it happened, though the process that it found fault with has neither
terminal nor log."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

from harness.program import KEMVI

RUN = Path(__file__).resolve().parents[2] / "run.py"

REPORT = """
import os
from pathlib import Path

def report(name):
    (Path(os.environ["KEMVI_SANITIZER_LOGS"]) / name).write_text("a race of two threads")
"""


def run_inner(workspace, text, **environment):
    """Runs a file of tests through the runner, which must not be told of the reports of this one."""
    folder = workspace / "inner"
    folder.mkdir()
    (folder / "test_inner.py").write_text(REPORT + text)
    kept = {name: value for name, value in os.environ.items() if not name.endswith("SAN_OPTIONS")}
    kept.pop("KEMVI_SANITIZER_LOGS", None)
    who = [] if os.getuid() == 0 else ["--user"]
    return subprocess.run([sys.executable, RUN, "--binary", KEMVI, "--sdk", os.environ["KEMVI_SDK"],
                           "--tests", folder, *who, "."], env={**kept, **environment}, stdin=subprocess.DEVNULL,
                          capture_output=True, text=True, timeout=60, check=False)


def test_a_run_without_reports_passes(workspace):
    done = run_inner(workspace, "def test_fine():\n    pass\n")
    assert done.returncode == 0, done.stdout + done.stderr


def test_a_report_fails_its_test_and_no_other(workspace):
    done = run_inner(workspace, "def test_bad():\n    report('report.1')\n\ndef test_fine():\n    pass\n")
    assert done.returncode == 1, done.stdout + done.stderr
    assert "a race of two threads" in done.stdout
    assert "ERROR test_inner.py::test_bad" in done.stdout and "2 passed, 1 error" in done.stdout


def test_a_report_made_while_a_test_is_cleared_away_fails_it(workspace):
    done = run_inner(workspace, "import pytest\n\n@pytest.fixture\ndef mounted():\n    yield\n    report('report.1')\n\n"
                               "def test_bad(mounted):\n    pass\n")
    assert done.returncode == 1, done.stdout + done.stderr
    assert "ERROR test_inner.py::test_bad" in done.stdout


def test_a_report_after_the_last_test_fails_the_run(workspace):
    done = run_inner(workspace, "import atexit\n\ndef test_fine():\n    atexit.register(report, 'report.1')\n")
    assert done.returncode == 1, done.stdout + done.stderr
    assert "a race of two threads" in done.stdout and "1 passed" in done.stdout


def test_reports_stay_where_a_folder_was_named(workspace):
    logs = workspace / "logs"
    done = run_inner(workspace, "def test_bad():\n    report('report.1')\n", KEMVI_SANITIZER_LOGS=str(logs))
    assert done.returncode == 1
    assert [report.name for report in logs.iterdir()] == ["report.1"]


@pytest.mark.skipif(not os.environ.get("KEMVI_SANITIZE"), reason="is about a build with sanitizers")
def test_the_command_is_built_with_the_sanitizers_that_the_build_names():
    """A sanitized run proves something only where the sanitizer is in the program."""
    for sanitizer, variable in (("address", "ASAN_OPTIONS"), ("thread", "TSAN_OPTIONS")):
        if sanitizer in os.environ["KEMVI_SANITIZE"].split(","):
            done = subprocess.run([KEMVI, "--version"], env={**os.environ, variable: "help=1"}, capture_output=True,
                                  text=True, timeout=30, check=True)
            assert f"{sanitizer.capitalize()}Sanitizer" in done.stderr
