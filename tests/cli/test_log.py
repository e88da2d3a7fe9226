"""Where the log goes, what its lines look like, and what a failed start says."""

import os
import re
import resource
import shutil
import signal
import subprocess

import pytest

from harness.deadline import LIMIT, eventually
from harness.place import assert_fails

LINE = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} kemvi: "


def lines_of(file):
    return file.read_text().splitlines() if file.exists() else []


def end(place):
    assert place.run("unmount", place.point).returncode == 0


def test_a_log_file_gets_every_line_with_time_and_mount_point(place):
    log = place.folder / "log"
    place.use_helper("talks.mjs")
    place.mount("--log-file", "log")
    os.listdir(place.point)
    end(place)
    lines = lines_of(log)
    assert any(line.endswith("Helper: talks.mjs: listing") for line in lines)
    assert any(line.endswith("Volume: unmount") for line in lines)
    for line in lines:
        assert re.match(LINE + re.escape(f"{place.point}: "), line), line
    assert log.stat().st_mode & 0o777 in (0o640, 0o600)


def test_a_log_file_is_appended_to_and_made_anew_after_a_rotation(place):
    log, old = place.folder / "log", place.folder / "log.1"
    log.write_text("kept\n")
    place.use_helper("talks.mjs")
    place.mount("--log-file", log)
    os.listdir(place.point)
    eventually(lambda: "listing" in log.read_text(), 30, "the helper's words")
    log.rename(old)
    end(place)
    assert lines_of(old)[0] == "kept" and any("Volume: unmount" in line for line in lines_of(log))


def test_the_foreground_logs_to_a_file_too(place):
    log = place.folder / "log"
    place.use_helper("talks.mjs")
    process = place.start_foreground("--log-file", log, "--log-level", "info")
    os.listdir(place.point)
    process.send_signal(signal.SIGTERM)
    _, errors = process.communicate(timeout=LIMIT)
    assert errors == "talks.mjs: starting\n"
    assert any("Helper: talks.mjs: listing" in line for line in lines_of(log))


def test_fstab_can_say_where_and_how_much_is_logged(place):
    log = place.folder / "log"
    place.mount("-o", f"log_file={log},log_level=info,show_private")
    end(place)
    assert any(f"loadResource: FSPathURLResource {place.source}" in line for line in lines_of(log))


def test_the_level_leaves_lesser_lines_out(place):
    log = place.folder / "log"
    place.use_helper("talks.mjs")
    place.mount("--log-file", log, "--log-level", "warning")
    os.listdir(place.point)
    end(place)
    assert lines_of(log) and all(": Helper: " in line for line in lines_of(log))


@pytest.mark.parametrize("arguments,words", [(["--log-file", "none/log"], ["none/log", "cannot be written", "No such file"]),
                                             (["--log-level", "loud"], ["loud", "debug, info, warning or error"]),
                                             (["-o", "log_level=loud"], ["log_level", "debug, info, warning or error"]),
                                             (["-o", "log_file="], ["log_file"])])
@pytest.mark.parametrize("foreground", [[], ["-f"]])
def test_a_log_that_cannot_be_is_said_at_once(place, arguments, words, foreground):
    assert_fails(place.run("mount", *foreground, place.source, place.point, *arguments), 2, *words)
    place.assert_nothing_left()


def test_a_log_on_the_mount_itself_is_refused(place):
    assert_fails(place.run("mount", place.source, place.point, "--log-file", place.point / "log"), 2, place.point / "log")
    place.assert_nothing_left()


@pytest.mark.skipif(os.path.exists("/dev/log"), reason="this machine has a system log")
def test_who_mounts_is_told_where_there_is_no_system_log(place):
    assert "--log-file" in place.mount().stderr
    end(place)
    assert place.mount("--log-file", place.folder / "log").stderr == ""
    end(place)


def test_what_the_helper_says_comes_line_by_line_without_control_characters(place):
    log = place.folder / "log"
    place.use_helper("oddTalk.mjs")
    place.mount("--log-file", log)
    os.listdir(place.point)
    end(place)
    told = [line.split(": Helper: ")[1] for line in lines_of(log) if ": Helper: " in line]
    assert told == ["odd \\x1b[31mred\\x1b[0m", "half a line"]


def test_a_name_with_control_characters_is_never_shown_as_it_is(place):
    log = place.folder / "log"
    place.use_helper("refuses.mjs")
    place.mount("--log-file", log, "--show-private")
    with pytest.raises(OSError):
        os.stat(place.point / "a\x1b]0;title\x07\nb")
    end(place)
    text = log.read_text()
    assert "a\\x1b]0;title\\x07\\nb" in text and "\x1b" not in text


# What a failed start says

def test_a_start_without_enough_descriptors_says_so(place):
    """Whichever descriptor is the first that cannot be had."""
    said = set()
    for most in range(7, 30):
        result = place.run("mount", place.source, place.point, "--log-file", place.folder / "log",
                           preexec_fn=lambda most=most: resource.setrlimit(resource.RLIMIT_NOFILE, (most, most)))
        if result.returncode == 0:
            end(place)
            continue
        assert result.returncode > 0, (most, result.stderr)
        assert "not a line of the protocol" not in result.stderr, (most, result.stderr)
        assert "NSPOSIXErrorDomain" not in result.stderr, (most, result.stderr)
        said.update(line for line in result.stderr.splitlines() if "the helper could not be started" in line)
        place.assert_nothing_left()
    assert said and all("Too many open files" in line and "ulimit -n" in line for line in said), said


def test_a_start_with_too_large_an_environment_says_so(place):
    place.configure(driveId="x" * 200_000)
    result = place.run("mount", place.source, place.point)
    assert_fails(result, 5, "could not be started", "Argument list too long", "environment")


def test_a_start_whose_node_has_no_interpreter_says_so(place):
    folder = place.folder / "bin"
    folder.mkdir()
    if fusermount := shutil.which("fusermount3"):
        (folder / "fusermount3").symlink_to(fusermount)
    (folder / "node").write_text("#!/nonexistent/interpreter\n")
    (folder / "node").chmod(0o755)
    result = place.run("mount", place.source, place.point, environment=place.environment(PATH=folder))
    assert_fails(result, 5, "node could not be run")
    place.assert_nothing_left()


def test_a_helper_that_ends_later_is_told_with_its_status_and_the_request(place):
    log = place.folder / "log"
    place.use_helper("exitsLater.mjs")
    place.mount("--log-file", log, "--log-level", "error")
    for _ in range(3):
        with pytest.raises(OSError):
            os.listdir(place.point)
    end(place)
    line, = lines_of(log)
    assert re.match(LINE + re.escape(f"{place.point}: Mount: readdir of <private> failed: helper closed stdout (request 2); "
                                     "the helper (pid ") + r"\d+\) exited with status 3; operations fail", line), line


def test_a_helper_that_ends_at_once_is_told_with_its_status(place):
    place.use_helper("exits.mjs")
    assert_fails(place.run("mount", place.source, place.point), 5, "it exited with status")


# kemvi log

def kept(place, *more):
    result = place.run("log", place.point, *more)
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout.splitlines()


def test_the_mount_itself_shows_its_last_lines_wherever_its_log_goes(place):
    place.use_helper("talks.mjs")
    place.mount("--log-file", "log")
    os.listdir(place.point)
    eventually(lambda: any(line.endswith(" Helper: talks.mjs: listing") for line in kept(place)), 30, "the helper's words")
    lines = kept(place)
    for line in lines:
        assert re.match(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \S+: ", line), line
    assert kept(place, "-n", "1") == kept(place)[-1:] and kept(place, "-n", "0") == []
    assert kept(place, "--lines", "100000") == kept(place)
    end(place)


def test_no_more_than_a_thousand_lines_are_kept(place):
    place.use_helper("talks.mjs")
    place.mount("--log-file", "log")
    for _ in range(1100):
        os.listdir(place.point)
    eventually(lambda: len(lines_of(place.folder / "log")) > 1100, 60, "the helper's words")
    assert len(kept(place)) == 1000
    end(place)


def test_followed_log_goes_on_until_the_mount_ends(place):
    place.use_helper("talks.mjs")
    place.mount("--log-file", "log")
    follower = place.start("log", place.point, "--follow")
    first = follower.stdout.readline()
    assert first
    os.listdir(place.point)
    line = ""
    while "talks.mjs: listing" not in line:
        line = follower.stdout.readline()
        assert line, "the helper's words are missing"
    end(place)
    rest, errors = follower.communicate(timeout=LIMIT)
    assert (follower.returncode, errors) == (0, "")
    assert "Volume: unmount" in rest


def test_log_is_shown_while_the_helper_hangs_and_nothing_is_mounted_is_code_9(place):
    place.use_helper("hangsOnReaddir.mjs")
    place.mount("--log-file", "log")
    caller = subprocess.Popen(["ls", place.point], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              env=place.environment())
    eventually(lambda: "State:\tS" in open(f"/proc/{caller.pid}/status", encoding="utf-8").read(), 20, "a caller that waits")
    assert kept(place)
    assert place.run("unmount", "--force", place.point).returncode == 0
    caller.wait(LIMIT)
    assert_fails(place.run("log", place.point), 9, "nothing is mounted")
