"""kemvi check: clean on the shipped helpers, and each thing that can be wrong with a helper is found and told."""

import json
import os
import subprocess
from pathlib import Path

import pytest

from harness.deadline import LIMIT
from harness.place import HELPERS
from harness.program import SHIPPED_HELPER

pytestmark = pytest.mark.limit(240)

BROKEN = Path(__file__).resolve().parent / "broken" / "broken.mjs"
KIT = BROKEN.parent / "kit.mjs"


def check(place, *options):
    # A whole examination, with lines of 16 MiB and the waiting for a helper that does not end.
    result = place.run("check", place.source, "--json", "--op-timeout", "5", *options, limit=4 * LIMIT)
    return result.returncode, json.loads(result.stdout)


def broken(place, fault, *options):
    place.configure(BROKEN, kemviHome=fault)
    return check(place, *options)


def findings(report, severity="error"):
    return [(found["name"], finding["problem"], finding["consequence"]) for found in report["checks"]
            for finding in found["findings"] if finding["severity"] == severity]


@pytest.mark.parametrize("name,changes", [("local", True), pytest.param("memory", True, marks=pytest.mark.long), ("hello", False), ("clock", False)])
def test_a_shipped_helper_is_clean(place, name, changes):
    place.configure(Path(SHIPPED_HELPER).parent / f"{name}.mjs")
    code, report = check(place, *(["--write", "/"] if changes else []))
    warnings = [found for found in findings(report, "warning") if "it took" not in found[1]]  # a machine may be busy
    assert (code, findings(report), warnings) == (0, [], [])
    assert os.listdir(place.tree) == ["a.txt"]


def test_the_git_helper_is_clean(place):
    git = ["git", "-C", place.tree, "-c", "user.name=t", "-c", "user.email=t@localhost"]
    subprocess.run([*git, "init", "-q", "-b", "main"], check=True)
    subprocess.run([*git, "add", "."], check=True)
    subprocess.run([*git, "commit", "-q", "-m", "first"], check=True)
    place.configure(Path(SHIPPED_HELPER).parent / "git.mjs")
    code, report = check(place)
    assert (code, findings(report)) == (0, [])


@pytest.mark.long
def test_the_helper_to_be_broken_is_right_as_it_is(place):
    code, report = broken(place, "", "--write", "/")
    assert (code, findings(report), findings(report, "warning")) == (0, [], [])


READING = [
    ("ping fails", "answers a ping", 5), ("number as id", "JSON object of the protocol", 5), ("own id", "request's id", 12),
    ("talks", "nothing but answers", 12), ("greets", "nothing but answers", 12),
    ("answers twice", "nothing but answers", 12), ("no error record", "every error has a message", 12),
    ("wrong code", "ENOENT", 12), ("unknown is fine", "unknown operation", 12),
    ("depends on order", "any order", 12), ("refuses long lines", "16 MiB", 12), ("hangs", "in time", 12),
    ("dies", "in time", 12), ("statfs text", "statfs", 12), ("object as listing", "folders are listed", 12),
    ("relative path", "path of an entry", 12), ("dot", "names are such", 12), ("twice", "stands twice", 12),
    ("other size in listing", "agree", 12), ("number as boolean", "its type", 12), ("number as name", "its type", 12),
    ("text as size", "its type", 12), ("fractional size", "sizes are whole", 12), ("negative size", "sizes are whole", 12),
    ("huge size", "sizes are whole", 12), ("wrong size", "as many bytes", 12), ("no fraction", "times", 12),
    ("number as time", "times", 12), ("text as handle", "handle", 12), ("one handle", "two handles", 12),
    ("data in result", "dataBase64", 12), ("line breaks", "dataBase64", 12), ("endless", "past the end", 12),
    ("wrong offset", "odd offsets", 12), ("use after release", "given back", 12), ("stays", "ends within", 12),
]

# Each makes 10,000 files: a short run is content with one.
WRITING = [("rename copies", "rename")] + [pytest.param(*fault, marks=pytest.mark.long) for fault in [
    ("create empties", "create keeps"), ("truncate keeps", "create keeps"), ("append only", "read back"),
    ("flush fails", "read back"), ("mkdir twice", "made once"), ("recursive unlink", "not empty is refused"),
    ("nothing removed", "unlink"), ("chmod fails", "chmod"), ("whole seconds", "utimes"),
]]


@pytest.mark.parametrize("fault,name,code", READING)
def test_a_fault_in_reading_is_found(place, fault, name, code):
    limit = ["--op-timeout", "3"] if fault == "hangs" else []
    place.configure(BROKEN, kemviHome=fault)
    result = place.run("check", place.source, "--json", *limit)
    report = json.loads(result.stdout)
    assert result.returncode == code, result.stdout
    assert any(name in found for found, _, _ in findings(report)), findings(report)


@pytest.mark.parametrize("fault,name", WRITING)
def test_a_fault_in_writing_is_found(place, fault, name):
    code, report = broken(place, fault, "--write", "/")
    assert code == 12
    assert any(name in found for found, _, _ in findings(report)), findings(report)


def kit(place, fault, *options):
    place.configure(KIT, kemviHome=fault)
    return place.run("check", place.source, "--op-timeout", "5", *options, limit=4 * LIMIT)


def test_a_right_file_system_made_with_the_kit_is_clean(place):
    result = kit(place, "")
    assert (result.returncode, result.stdout.splitlines()[-1]) == (0, "0 errors, 0 warnings"), result.stdout


@pytest.mark.parametrize("fault,name", [("text", "read answers"), ("slash", "folders are listed"),
                                        ("folder fails", "folders are listed"), ("throws anything", "POSIX code"),
                                        ("code of its own", "POSIX code")])
def test_a_mistake_in_a_file_system_made_with_the_kit_is_an_error(place, fault, name):
    result = kit(place, fault, "--json")
    report = json.loads(result.stdout)
    assert result.returncode == 12, result.stdout
    assert any(name in found for found, _, _ in findings(report)), findings(report)


@pytest.mark.parametrize("form", [[], ["--json"], ["--tap"]])
def test_a_long_line_of_a_probe_does_not_reach_the_terminal(place, form):
    result = kit(place, "throws anything", *form)  # it prints the path that it was asked for, also one of 16 MiB
    assert max(map(len, result.stderr.splitlines())) < 1000
    assert max(map(len, result.stdout.splitlines())) < (1000 if form != ["--json"] else 20000)
    assert "bytes)" in result.stderr


def test_unasked_output_without_end_is_told_in_short(place):
    code, report = broken(place, "floods")
    assert code == 5
    assert any("without a line break" in problem for _, problem, _ in findings(report)), findings(report)
    assert len(json.dumps(report)) < 20000


def test_control_characters_that_a_helper_prints_do_not_reach_the_terminal(place):
    result = kit(place, "escapes")
    assert "helper: \\x1b]0;title\\x07 \\u009b31m red" in result.stderr, result.stderr
    assert not any(ord(c) < 32 and c != "\n" or 127 <= ord(c) < 160 for c in result.stderr)


def test_a_missing_root_is_called_that(place):
    place.configure(BROKEN.parent / "disk.mjs", repoRoot=str(place.folder / "none"))
    code, report = check(place)
    assert code == 12
    assert [problem for _, problem, _ in findings(report)] == ['the root "/" does not exist']


def test_a_size_that_is_not_known_is_no_fault(place):
    code, report = broken(place, "unknown size")
    assert (code, findings(report)) == (0, [])


def test_a_wrong_size_is_shown(place):
    _, report = broken(place, "fractional size")
    assert "the size is 12.5" in [problem for _, problem, _ in findings(report)]


def test_a_check_that_lasts_says_how_far_it_is(place):
    place.configure(BROKEN, kemviHome="hangs")
    result = place.run("check", place.source, "--op-timeout", "3")
    assert "s, " in result.stderr and "now: statfs" in result.stderr, result.stderr


def test_what_was_not_reached_does_not_count_as_passed(place):
    place.use_helper("exits.mjs")
    _, report = check(place)
    assert {found["status"] for found in report["checks"] if "ENOENT" in found["name"]} <= {"skip"}
    place.configure(BROKEN, kemviHome="mkdir fails")
    code, report = check(place, "--write", "/")
    assert code == 12
    assert [found["status"] for found in report["checks"] if "chmod" in found["name"]] == ["skip"]


def test_missing_times_and_messages_are_warnings(place):
    for fault in ("no time", "no message"):
        code, report = broken(place, fault)
        assert (code, findings(report)) == (0, [])
        assert len(findings(report, "warning")) >= 1


def test_a_finding_is_told_with_request_answer_and_consequence(place):
    place.configure(BROKEN, kemviHome="no fraction")
    result = place.run("check", place.source)
    assert result.returncode == 12
    for text in ('"op":"readdir"', '"modifiedAt":"2024-05-01T12:34:56Z"', "has no fractional seconds",
                 "every file will show 1970-01-01", "1 errors"):
        assert text in result.stdout, result.stdout


def test_tap(place):
    place.configure(BROKEN, kemviHome="twice")
    lines = place.run("check", place.source, "--tap").stdout.splitlines()
    assert lines[0] == "TAP version 13"
    points = [line for line in lines if line.startswith(("ok ", "not ok "))]
    assert lines[1] == f"1..{len(points)}"
    assert sum(line.startswith("not ok ") for line in points) == 1


def test_configuration_problems_keep_their_exit_codes(place):
    place.configure(place.folder / "none.mjs")
    assert check(place)[0] == 4
    place.write_configuration("{")
    assert check(place)[0] == 3
    place.use_helper("exits.mjs")
    assert check(place)[0] == 5


def test_write_takes_a_path_of_the_served_tree(place):
    assert place.run("check", place.source, "--write", "here").returncode == 2


def test_a_helper_that_prints_garbage_is_told(place):
    place.configure(HELPERS / "garbage.mjs")
    code, report = check(place)
    assert code == 5
    assert any("JSON object" in name for name, _, _ in findings(report))
