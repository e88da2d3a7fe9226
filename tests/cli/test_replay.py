"""kemvi replay: the same requests to another helper, and what its answers differ in."""

import json
import subprocess

import pytest

from harness.program import SHIPPED_HELPER

HEADER = {"recording": 1, "kemvi": "0.1.0", "started": "2026-11-22T12:00:00.000000Z", "mountPoint": "/mnt",
          "payloads": "full", "names": "plain"}
OK = {"ok": True}
OPEN = {"op": "open", "path": "/a.txt", "flags": ["read"]}
READING = [({"op": "ping"}, OK), (OPEN, {"ok": True, "result": {"handle": 40}}),
           ({"op": "read", "handle": 40, "offset": 0, "length": 100}, {"ok": True, "dataBase64": "aGVsbG8K"}),
           ({"op": "release", "handle": 40}, OK)]


def write(place, exchanges, header=HEADER, cut=False):
    lines = [json.dumps(header)]
    for number, (request, answer) in enumerate(exchanges):
        name = str(number + 1)
        lines.append(json.dumps({"t": number, "d": 1, "q": {"id": name} | request, "a": {"id": name} | answer}))
    file = place.folder / "made.kemvi-record"
    file.write_text("\n".join([*lines, '{"t":9,"q":{"op":' if cut else '{"end":{}}\n']))
    return file


def replay(place, file, *options):
    result = place.run("replay", file, "--helper", "local", "--repo-root", place.tree, "--json", *options)
    return result.returncode, json.loads(result.stdout)


def test_the_same_answers_differ_in_nothing(place):
    code, report = replay(place, write(place, READING))
    assert (code, report["differences"], report["asked"], report["cut"]) == (0, [], 4, False)


def test_one_byte_that_differs_is_found_and_named(place):
    (place.tree / "a.txt").write_text("hallo\n")
    code, report = replay(place, write(place, READING))
    assert (code, report["different"]) == (12, 1)
    assert report["differences"] == [{"line": 4, "request": "read /a.txt 0+100", "member": "data",
                                      "recorded": "byte 1 is 101", "now": "byte 1 is 97"}]


def test_people_are_told_line_by_line(place):
    (place.tree / "a.txt").write_text("")
    result = place.run("replay", write(place, READING), "--source", place.source)
    assert result.returncode == 12
    assert "line 4: read /a.txt 0+100\n    data: recorded 6 bytes, now 0 bytes\n" in result.stdout
    assert "4 of 4 requests asked, 1 answer differs" in result.stdout


def test_changes_are_asked_only_on_demand(place):
    file = write(place, [*READING, ({"op": "unlink", "path": "/a.txt"}, OK)])
    result = place.run("replay", file, "--source", place.source)
    assert result.returncode == 2 and "--write" in result.stderr
    assert (place.tree / "a.txt").exists()
    code, report = replay(place, file, "--write")
    assert (code, report["differences"]) == (0, [])
    assert not (place.tree / "a.txt").exists()


def test_a_recording_that_was_cut_off_is_replayed_up_to_there(place):
    code, report = replay(place, write(place, READING, cut=True))
    assert (code, report["asked"], report["cut"]) == (0, 4, True)
    assert "breaks off after line 5" in place.run("replay", write(place, READING, cut=True), "--source", place.source).stdout


def test_a_compressed_recording_is_read(place):
    file = write(place, READING)
    subprocess.run(["zstd", "-q", file], check=True)
    assert replay(place, file.with_suffix(".kemvi-record.zst"))[0] == 0


@pytest.mark.parametrize("header,says", [
    ("hello", "is no recording"), (json.dumps(HEADER | {"recording": 7}), "format 7"), ("", "is empty"),
    (json.dumps(HEADER | {"payloads": "odd"}), '"payloads" is none of full, hash, none')])
def test_what_is_no_recording_is_refused(place, header, says):
    file = place.folder / "odd.kemvi-record"
    file.write_text(header and header + "\n")
    result = place.run("replay", file, "--source", place.source)
    assert result.returncode == 16
    assert result.stderr.startswith(f"kemvi: {file}: ") and says in result.stderr


def test_a_file_that_is_not_there_and_a_missing_helper_are_named(place):
    result = place.run("replay", place.folder / "none", "--source", place.source)
    assert result.returncode == 16 and "none: cannot be read: No such file" in result.stderr
    result = place.run("replay", write(place, READING))
    assert result.returncode == 2 and "--helper" in result.stderr
    result = place.run("replay", write(place, READING), "--helper", "nonsense")
    assert result.returncode == 4 and "nonsense" in result.stderr


def test_a_helper_that_ends_is_told(place):
    result = place.run("replay", write(place, READING), "--helper", SHIPPED_HELPER)  # which needs --repo-root
    assert result.returncode == 12
    assert "recorded an answer, now the helper has ended" in result.stdout


def test_a_helper_that_answers_from_the_recording_differs_in_nothing(place):
    file = write(place, [*READING, ({"op": "rename", "oldPath": "/a.txt", "newPath": "/b.txt"}, OK)])
    result = place.run("replay", file, "--write", "--helper", "replay", "--repo-root", file)
    assert result.returncode == 0, result.stdout
