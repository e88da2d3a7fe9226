"""Recording a mount, from its start or while it lives, and what can be done with it: all over again, without a difference."""

import json
import os
import re
import resource
import shutil
import signal
import subprocess

import pytest

from harness.deadline import LIMIT, eventually

pytestmark = pytest.mark.limit(240)

GIT = ["git", "-c", "user.name=t", "-c", "user.email=t@localhost", "-c", "init.defaultBranch=main", "-c", "gc.auto=0"]


@pytest.fixture
def repository(place):
    made = place.folder / "repository"
    made.mkdir()
    for number in range(40):
        (made / f"folder{number % 5}").mkdir(exist_ok=True)
        (made / f"folder{number % 5}" / f"private-{number}.txt").write_text(f"secret text {number}\n" * number)
    for command in (["init", "-q"], ["add", "."], ["commit", "-qm", "first"]):
        subprocess.run([*GIT, "-C", made, *command], check=True, timeout=LIMIT)
    return made


def clone(place, repository):
    subprocess.run([*GIT, "clone", "-q", "--no-hardlinks", repository, place.point / "clone"], check=True, timeout=2 * LIMIT)
    assert subprocess.run([*GIT, "-C", place.point / "clone", "status", "--porcelain"], check=True, timeout=LIMIT,
                          capture_output=True).stdout == b""


def copy_of_the_tree(place):
    return shutil.copytree(place.tree, place.folder / "before", symlinks=True)


def replay(place, file, tree):
    result = place.run("replay", file, "--source", place.source, "--repo-root", tree, "--write", "--json", limit=4 * LIMIT)
    return result.returncode, json.loads(result.stdout)


def lines_of(file):
    return [json.loads(line) for line in file.read_text().splitlines()]


def test_a_clone_is_replayed_without_a_difference_and_one_altered_answer_is_found(place, repository):
    tree = copy_of_the_tree(place)
    again = shutil.copytree(tree, place.folder / "again")
    file = place.folder / "clone.kemvi-record"
    place.mount("--record", file)
    clone(place, repository)
    place.unmount()
    lines = lines_of(file)
    assert {"k" in line for line in lines[1:-1]} == {True, False} and lines[-1]["end"]["lines"] == len(lines) - 2
    code, report = replay(place, file, tree)
    assert (code, report["differences"]) == (0, [])
    assert report["asked"] == report["requests"] > 500 and report["withoutFile"] == 0

    number, altered = next((number, line) for number, line in enumerate(lines)
                           if line.get("q", {}).get("op") == "getattr" and line["a"]["ok"] and line["q"]["path"] != "/")
    altered["a"]["result"]["size"] += 1
    file.write_text("".join(json.dumps(line) + "\n" for line in lines))
    code, report = replay(place, file, again)
    assert code == 12
    assert [(each["line"], each["member"]) for each in report["differences"]] == [(number + 1, "result.size")]


def use(place):
    """Reads, looks and changes; the same whenever it is called."""
    seen = [sorted(os.listdir(place.point)), (place.point / "a.txt").read_text(), (place.point / "made").exists()]
    (place.point / "made").mkdir()
    for number in range(20):
        (place.point / "made" / f"file{number}").write_text(f"{number}\n" * 1000)
    os.rename(place.point / "made" / "file3", place.point / "made" / "moved")
    os.unlink(place.point / "made" / "file4")
    with open(place.point / "made" / "file5") as open_file:
        os.unlink(place.point / "made" / "file5")
        seen.append(open_file.read())
    seen += [sorted(os.listdir(place.point / "made")), (place.point / "made" / "moved").read_text(),
             (place.point / "made" / "file3").exists(), (place.point / "made" / "file6").stat().st_size]
    return seen


def test_a_mount_is_repeated_from_its_recording_alone(place):
    file = place.folder / "use.kemvi-record.zst"
    place.mount("--record", file)
    expected = use(place)
    place.unmount()
    shutil.rmtree(place.tree)
    for _ in range(2):
        assert place.run("init", place.source, "--helper", "replay", "--repo-root", file, "--force").returncode == 0
        place.mount()
        assert use(place) == expected
        with pytest.raises(OSError, match="Read-only"):
            (place.point / "never done").mkdir()
        place.unmount()
    assert not place.tree.exists()


def recording(place, file, *options):
    process = place.start("record", place.point, "-o", file, *options)

    def has_begun():
        assert process.poll() is None, process.stderr.read()
        return file.exists() and file.stat().st_size > 0
    eventually(has_begun, 30, "the beginning of a recording")
    return process


def end(process):
    process.send_signal(signal.SIGINT)
    output, errors = process.communicate(timeout=LIMIT)
    assert process.returncode == 0, errors
    return errors


def test_a_mount_is_recorded_while_it_lives(place):
    place.mount()
    assert (place.point / "a.txt").read_text() == "hello\n"
    file = place.folder / "live.kemvi-record"
    process = recording(place, file)
    (place.point / "new.txt").write_text("new\n")
    os.listdir(place.point)
    assert "Recorded" in end(process)
    (place.point / "later.txt").write_text("later\n")
    place.unmount()
    lines = lines_of(file)
    assert lines[0]["mountPoint"] == str(place.point) and lines[-1]["end"]["lines"] == len(lines) - 2
    asked = [line["q"] for line in lines if "q" in line]
    assert {"open", "write", "readdir"} <= {request["op"] for request in asked}
    assert "later" not in file.read_text()
    assert any(line["k"]["op"] == "create" and line["k"]["path"] == "/new.txt" for line in lines if "k" in line)


@pytest.mark.user_only
def test_a_recording_that_cannot_begin_is_told_and_not_waited_for(place):
    place.mount()
    host = place.host()
    most = resource.prlimit(host, resource.RLIMIT_NPROC)
    resource.prlimit(host, resource.RLIMIT_NPROC, (1, most[1]))
    result = place.run("record", place.point, "-o", place.folder / "none.kemvi-record")
    resource.prlimit(host, resource.RLIMIT_NPROC, most)
    assert result.returncode == 1 and "cannot begin to record: Resource temporarily unavailable" in result.stderr, result.stderr
    assert (place.point / "a.txt").read_text() == "hello\n"
    place.unmount()


def test_a_recording_ends_with_its_time_or_with_the_mount(place):
    place.mount()
    file = place.folder / "short.kemvi-record"
    result = place.run("record", place.point, "-o", file, "--duration", "0.2")
    assert result.returncode == 0 and "end" in lines_of(file)[-1]
    other = place.folder / "other.kemvi-record"
    process = recording(place, other)
    place.unmount()
    assert process.wait(timeout=LIMIT) == 0
    assert "ended with the mount" in process.stderr.read()
    assert "end" in lines_of(other)[-1]


def test_a_scrambled_recording_shares_no_name_with_the_tree(place, repository):
    plain, scrambled = (place.folder / f"{name}.kemvi-record" for name in ("plain", "scrambled"))
    place.mount("--record", plain)
    process = recording(place, scrambled, "--scramble")
    clone(place, repository)
    end(process)
    place.unmount()
    text = scrambled.read_text()
    # All but what are numbers too: two letters of a hash.
    names = {part for line in lines_of(plain) if "q" in line for path in (line["q"].get("path", ""), line["q"].get("newPath", ""))
             for part in path.split("/") if part and not part.isdigit()}
    assert len(names) > 60
    words = set(re.findall(r"[^/\"]+", text))
    assert names & words == set()
    for word in ("private", "secret", "clone", "folder", "repository", str(place.point)):
        assert word not in text
    lines = lines_of(scrambled)
    assert (lines[0]["names"], lines[0]["payloads"]) == ("scrambled", "none")
    codes = [line["a"]["error"]["code"] for line in lines if line.get("a", {}).get("error")]
    assert "ENOENT" in codes and "dataBase64" not in text
    result = place.run("replay", scrambled, "--helper", "replay", "--repo-root", scrambled, "--write", "--json", limit=4 * LIMIT)
    assert json.loads(result.stdout)["different"] == 0, result.stdout[:2000]


def test_contents_are_kept_as_hashes_and_compared_by_them(place):
    tree = copy_of_the_tree(place)
    file = place.folder / "hash.kemvi-record"
    place.mount("--record", file, "--record-payloads", "hash")
    assert (place.point / "a.txt").read_text() == "hello\n"
    place.unmount()
    assert "dataSHA256" in file.read_text() and "dataBase64" not in file.read_text()
    assert replay(place, file, tree)[0] == 0
    (tree / "a.txt").write_text("hallo\n")
    code, report = replay(place, file, tree)
    assert code == 12 and {each["member"] for each in report["differences"]} == {"data"}


def test_a_mount_goes_on_when_its_recording_cannot(place):
    if os.getuid() != 0:
        pytest.skip("a full disk is made by root alone")
    full = place.folder / "full"
    full.mkdir()
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "none", full], check=True, timeout=LIMIT)
    try:
        log = place.folder / "log"
        place.mount("--record", full / "a.kemvi-record", "--log-file", log)
        (place.point / "large").write_bytes(os.urandom(1 << 20))
        eventually(lambda: "the recording ends here" in log.read_text())
        assert "No space left on device" in log.read_text()
        assert len((place.point / "large").read_bytes()) == 1 << 20
        place.unmount()
        assert place.run("report", full / "a.kemvi-record", "--json").returncode == 0
    finally:
        subprocess.run(["umount", full], check=True, timeout=LIMIT)


@pytest.mark.parametrize("options,code,says", [
    (["--record", "{point}/x"], 2, "cannot lie on the mount"), (["--record", "{folder}/none/x"], 16, "No such file"),
    (["--record", "{tree}/a.txt"], 16, "exists already"),
    (["--record", "{folder}/x", "--record-payloads", "some"], 2, "expected full, hash or none"),
    (["--record", "{folder}/x", "--record-scramble", "--record-payloads", "full"], 2, "use none, or hash")])
def test_what_cannot_be_recorded_is_refused_before_there_is_a_mount(place, options, code, says):
    values = {"point": place.point, "folder": place.folder, "tree": place.tree}
    result = place.run("mount", place.source, place.point, *(option.format(**values) for option in options))
    assert result.returncode == code and says in result.stderr, result.stderr
    assert (place.tree / "a.txt").read_text() == "hello\n"


def test_what_is_no_mount_cannot_be_recorded(place):
    result = place.run("record", place.point, "-o", place.folder / "x")
    assert result.returncode == 9 and not (place.folder / "x").exists()
    place.mount()
    result = place.run("record", place.point, "-o", place.tree / "a.txt")
    assert result.returncode == 16 and "exists already" in result.stderr
    place.unmount()
