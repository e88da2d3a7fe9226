"""A helper may be any program with arguments, and is told what its users set for it."""

import json
import os
import shutil

import pytest

from harness.deadline import eventually
from harness.place import HELPERS, assert_fails
from harness.program import SHIPPED_HELPER, Program

PYTHON = "/usr/bin/python3"


@pytest.fixture
def script(place):
    return shutil.copy2(HELPERS / "tree.py", place.folder / "tree.py")


@pytest.fixture
def drive(place):
    """A source directory of its own, whose helper serves another."""
    return place.folder / "drive"


def configuration(source):
    return json.loads((source / "mount-config.json").read_text())


def init(place, drive, command, *more):
    return place.run("init", drive, "--force", "--repo-root", place.tree, "--command", command, *more)


def note(place):
    return json.loads((place.folder / "note").read_text())


def mounted(place, drive, *more, **environment):
    """What the helper says of its start. The mount is gone again."""
    result = place.run("mount", drive, place.point, *more, environment=place.environment(**environment))
    assert result.returncode == 0, result.stderr
    assert os.listdir(place.point) == ["a.txt"]
    place.unmount()
    return note(place)


# --command

def test_a_program_with_arguments_is_mounted(place, drive, script):
    result = init(place, drive, f"python3 tree.py {place.folder}/note 'two words' --flag \"it's\"")
    assert result.returncode == 0, result.stderr
    assert configuration(drive)["helperPath"].endswith("/helpers/program.mjs")
    program, *arguments = configuration(drive)["helperCommand"]
    assert os.path.isabs(program) and os.access(program, os.X_OK)
    assert arguments == [str(script), f"{place.folder}/note", "two words", "--flag", "it's"]
    assert f"which runs  {program}" in result.stdout
    told = mounted(place, drive)
    assert told["arguments"] == ["two words", "--flag", "it's"] and told["script"] == str(script)
    assert told["environment"]["KEMVI_SOURCE"] == str(drive)


def test_the_program_is_the_helpers_process_itself(place, drive, script):
    assert init(place, drive, f"{PYTHON} {script} {place.folder}/note").returncode == 0
    assert place.run("mount", drive, place.point).returncode == 0
    told = note(place)
    assert told["parent"] == place.host(), "nothing stays in between"
    place.unmount()
    eventually(lambda: not os.path.exists(f"/proc/{told['pid']}"), 10, "its end")


@pytest.mark.parametrize("command, problem", [
    ("python3 'tree.py", "single quote"), ('python3 "tree.py', "double quote"), ("python3 tree.py\\", "backslash"),
    (" ", "names no program")])
def test_a_command_that_cannot_be_read(place, drive, command, problem):
    assert_fails(init(place, drive, command), 2, "--command", problem)
    assert not drive.exists()


@pytest.mark.parametrize("command, subject, problem", [
    ("nosuchprogram tree.py", "nosuchprogram", "is not in PATH"), ("./nothing", "./nothing", "no such program"),
    ("python3 tre.py", "tre.py", "no such script"),
    ("./tree.py note", "./tree.py", "use --command 'python3 ./tree.py'")])
def test_a_command_of_which_something_is_not_there(place, drive, script, command, subject, problem):
    os.chmod(script, 0o644)
    assert_fails(init(place, drive, command), 4, subject, problem)
    assert not drive.exists()


def test_only_one_way_to_name_the_helper(place, drive):
    for other in (["--helper", "local"], ["--native"]):
        assert init(place, drive, "python3 tree.py", *other).returncode == 2


@pytest.mark.parametrize("foreground", [[], ["-f"]])
def test_a_program_that_fails_is_named_by_itself(place, drive, foreground):
    failing = place.folder / "my tree.py"
    failing.write_text("import sys\nsys.exit('cannot read my settings')\n")
    assert init(place, drive, "python3 'my tree.py'").returncode == 0
    result = place.run("mount", *foreground, drive, place.point)
    last = result.stderr.splitlines()[-1]
    assert result.returncode == 5 and "cannot read my settings" in result.stderr
    assert last.startswith(f"kemvi: {shutil.which('python3')} \"{failing}\": the helper ended") and "status 1" in last
    assert "program.mjs" not in last


def test_a_program_that_has_gone_since(place, drive):
    program = shutil.copy2("/bin/true", place.folder / "program")  # which is no other program's name here
    assert init(place, drive, str(program)).returncode == 0
    os.unlink(program)
    assert_fails(place.run("mount", drive, place.point), 4, program, "no such program", "helperCommand")


@pytest.mark.parametrize("command", ["python3", [], [5], ["python3", 5], [""]])
def test_a_command_in_the_configuration_that_is_none(place, drive, script, command):
    assert init(place, drive, f"python3 {script} note").returncode == 0
    (drive / "mount-config.json").write_text(json.dumps(configuration(drive) | {"helperCommand": command}))
    assert_fails(place.run("mount", drive, place.point), 3, "mount-config.json", "helperCommand must be an array")


def test_the_status_tells_the_command_and_the_names_of_the_settings(place, drive, script):
    assert init(place, drive, f"{PYTHON} {script} {place.folder}/note 'two words'", "--env", "COLOR=red").returncode == 0
    (drive / "mount-secrets.env").write_text("TOKEN=hidden\nCOLOR=blue\n")
    os.chmod(drive / "mount-secrets.env", 0o600)
    assert place.run("mount", drive, place.point, "-o", "helper_env=SIZE=5").returncode == 0
    status, told = place.run("status", place.point), json.loads(place.run("status", "--json", place.point).stdout)
    place.unmount()
    assert status.returncode == 0, status.stderr
    text = status.stdout
    assert told["helper"]["command"] == [PYTHON, str(script), f"{place.folder}/note", "two words"]
    assert told["helper"]["settings"] == ["COLOR", "SIZE", "TOKEN"]
    assert f'  helper    pid {told["helper"]["pid"]}, {PYTHON} {script} {place.folder}/note "two words"\n' in text
    assert "  settings  COLOR, SIZE, TOKEN\n" in text
    assert not [each for each in ("hidden", "blue", "SIZE=") if each in text + json.dumps(told)]


def test_the_status_of_a_script_for_node_tells_no_command(place):
    place.mount()
    told = json.loads(place.run("status", "--json", place.point).stdout)["helper"]
    place.unmount()
    assert "command" not in told and "settings" not in told and told["path"] == SHIPPED_HELPER


# --helper with what node does not run

def test_a_script_for_another_language_says_what_to_do(place, drive, script):
    os.chmod(script, 0o644)
    result = place.run("init", drive, "--helper", "tree.py")
    assert_fails(result, 2, "--helper tree.py", "use --command 'python3 tree.py'")
    plain = place.folder / "plain"
    plain.write_text("#!/usr/bin/env -S ruby -w\n")
    assert_fails(place.run("init", drive, "--helper", plain), 2, f"use --command 'ruby {plain}'")
    assert not drive.exists()


def test_a_script_that_can_be_executed_is_a_program(place, drive):
    script = place.folder / "tree.py"
    script.write_text(f"#!{PYTHON}\n" + (HELPERS / "tree.py").read_text().replace("sys.argv[1]", f"'{place.folder}/note'"))
    script.chmod(0o755)
    assert place.run("init", drive, "--helper", "tree.py", "--repo-root", place.tree).returncode == 0
    assert configuration(drive)["helperCommand"] == [str(script)]
    assert mounted(place, drive)["script"] == str(script)


def test_a_script_for_another_language_in_the_configuration_says_what_to_do(place, script):
    place.configure(script)
    result = place.run("mount", place.source, place.point)
    assert_fails(result, 3, "helperPath", "no script for node, but for python3", f"--command 'python3 {script}'")


# Settings

def test_settings_reach_the_helper_and_the_last_word_counts(place, drive, script):
    result = init(place, drive, f"python3 {script} {place.folder}/note", "--env", "COLOR=dark red", "--env", "SIZE=3",
                  "--env", "PLACE=a,b=c", "--env", "ODD=\"\\\n")
    assert result.returncode == 0 and "told        COLOR=dark red" in result.stdout, result
    assert configuration(drive)["helperEnvironment"] == {"COLOR": "dark red", "SIZE": "3", "PLACE": "a,b=c", "ODD": '"\\\n'}
    (drive / "mount-secrets.env").write_text("# the token of the week\n\nTOKEN= a=b \"c\"\nSIZE=4\n")
    os.chmod(drive / "mount-secrets.env", 0o600)
    told = mounted(place, drive, "-o", "ro,helper_env=SHAPE=round", "-o", "helper_env=SIZE=5,quiet",
                   COLOR="of the caller", OTHER="kept")["environment"]
    expected = {"COLOR": "dark red", "PLACE": "a,b=c", "ODD": '"\\\n', "TOKEN": ' a=b "c"', "SHAPE": "round", "SIZE": "5",
                "OTHER": "kept"}
    assert {name: told.get(name) for name in expected} == expected
    result = place.run("check", drive)
    assert result.returncode in (0, 12), result.stderr
    assert note(place)["environment"]["SIZE"] == "4"


def test_settings_come_from_fstab_too(place, drive, script):
    assert init(place, drive, f"python3 {script} {place.folder}/note").returncode == 0
    link = place.folder / "mount.kemvi"
    link.symlink_to(place.program.path)
    result = Program(place.folder, link).run(drive, place.point, "-o", r"rw,helper_env=COLOR=dark red,noauto,helper_env=LIST=a\,b\040c")
    assert result.returncode == 0, result.stderr
    place.unmount()
    told = note(place)["environment"]
    assert (told["COLOR"], told["LIST"]) == ("dark red", "a,b c")


def test_a_shipped_helper_is_told_how_much_it_may_hold(place):
    memory, packed = place.folder / "memory", ("-o", "helper_env=KEMVI_MEMORY_LIMIT=2K")
    assert place.run("init", memory, "--helper", "memory", "--env", "KEMVI_MEMORY_LIMIT=64K").returncode == 0
    for options, fits in (((), 60_000), (packed, 1_500)):
        assert place.run("mount", memory, place.point, *options).returncode == 0
        (place.point / "much").write_bytes(bytes(fits))
        with pytest.raises(OSError):
            (place.point / "more").write_bytes(bytes(10_000))
        place.unmount()


def test_the_replaying_helper_is_told_its_recording(place):
    replay, recording = place.folder / "replay", place.folder / "a.kemvi-record"
    place.mount("--record", recording)
    assert (place.point / "a.txt").read_text() == "hello\n"
    place.unmount()
    assert place.run("init", replay, "--helper", "replay", "--env", f"KEMVI_RECORDING={recording}").returncode == 0
    assert place.run("mount", replay, place.point).returncode == 0
    assert (place.point / "a.txt").read_text() == "hello\n"
    place.unmount()


@pytest.mark.parametrize("setting", ["COLOR", "=red", "1A=b", "A B=c", "KEMVI_HOME=/", "KEMVI_RECORDINGS=/", "KEMVI_STORES=/"])
def test_a_setting_that_is_none(place, drive, setting):
    assert_fails(place.run("init", drive, "--env", setting), 2, f"--env {setting}")
    assert not drive.exists()
    assert_fails(place.run("mount", place.source, place.point, "-o", f"helper_env={setting}"), 2, f"-o helper_env={setting}")


@pytest.mark.parametrize("settings", ["COLOR=red", ["COLOR"], {"COLOR": 5}, {"A B": "c"}])
def test_settings_in_the_configuration_that_are_none(place, settings):
    place.configure(helperEnvironment=settings)
    result = place.run("mount", place.source, place.point)
    assert_fails(result, 3, "mount-config.json", "helperEnvironment")


@pytest.mark.parametrize("mode", [0o640, 0o604, 0o620, 0o644])
def test_secrets_that_others_may_read_are_refused(place, mode):
    secrets = place.source / "mount-secrets.env"
    secrets.write_text("TOKEN=a\n")
    os.chmod(secrets, mode)
    assert_fails(place.run("mount", place.source, place.point), 3, secrets, f"chmod 600 {secrets}")
    os.chmod(secrets, 0o600)
    place.mount()
    place.unmount()


def test_secrets_that_the_mount_would_show_are_refused(place):
    (place.source / "mount-secrets.env").write_text("TOKEN=a\n")
    os.chmod(place.source / "mount-secrets.env", 0o600)
    place.configure(repoRoot=str(place.source))
    assert_fails(place.run("mount", place.source, place.point), 3, "mount-secrets.env", "repoRoot", "--repo-root DIR")


@pytest.mark.parametrize("line", ["TOKEN", "A B=c", "KEMVI_HOME=/", "export A=b"])
def test_a_line_of_secrets_that_is_none_is_told_by_its_number_alone(place, line):
    secrets = place.source / "mount-secrets.env"
    secrets.write_text(f"# all right\n{line}\n")
    os.chmod(secrets, 0o600)
    result = place.run("mount", place.source, place.point)
    assert_fails(result, 3, f"{secrets}: line 2", "expected NAME=VALUE")
    assert line not in result.stderr
