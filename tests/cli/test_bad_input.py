"""What is wrong is said in one line before anything is started; nothing is mounted and no process is left."""

import json
import os
import shutil
import subprocess
from pathlib import Path

import pytest

from harness import system
from harness.place import HELPERS, assert_fails
from harness.program import KEMVI, SHIPPED_HELPER

KEYS = ["driveId", "kemviHome", "repoRoot", "helperPath"]


def fails(place, code, *words, options=(), **more):
    result = place.run("mount", place.source, place.point, *options, **more)
    assert_fails(result, code, *words)
    place.assert_nothing_left()
    return result


# The command line

@pytest.mark.parametrize("arguments", [[], ["mount"], ["mount", "a"], ["mount", "a", "b", "c"], ["unmount"], ["init"],
                                       ["check"], ["frobnicate"], ["mount", "--frobnicate", "a", "b"]])
def test_wrong_usage_is_code_2_and_points_to_the_help(place, arguments):
    assert_fails(place.run(*arguments), 2, "--help")


@pytest.mark.parametrize("arguments", [["--help"], ["mount", "--help"], ["unmount", "--help"], ["init", "--help"],
                                       ["check", "--help"], ["--version"], ["-V"], ["help"], ["help", "mount"],
                                       ["umount", "--help"], ["help", "umount"]])
def test_help_and_version_succeed(place, arguments):
    result = place.run(*arguments)
    assert result.returncode == 0
    assert "kemvi" in result.stdout.lower()
    assert result.stderr == ""


def test_help_as_a_command_says_what_the_option_says(place):
    assert place.run("help").stdout == place.run("--help").stdout
    assert place.run("help", "mount").stdout == place.run("mount", "--help").stdout
    assert place.run("-V").stdout == place.run("--version").stdout
    assert_fails(place.run("help", "frobnicate"), 2, "frobnicate", "no such command")


def test_no_command_at_all_names_the_commands(place):
    result = place.run()
    assert_fails(result, 2, "mount, unmount, list, status, init, check or another", "kemvi --help")
    assert result.stderr.startswith("kemvi: a command is missing: ")


@pytest.mark.parametrize("typed,meant", [("mout", "mount"), ("mounts", "mount"), ("moutn", "mount"), ("unmout", "unmount"),
                                         ("umonut", "umount"), ("chek", "check"), ("inti", "init"), ("hlep", "help")])
def test_a_misspelt_command_is_guessed(place, typed, meant):
    assert_fails(place.run(typed, place.source, place.point), 2, typed, "no such command", f"did you mean kemvi {meant}?")


@pytest.mark.parametrize("typed", ["frobnicate", "", "x" * 5000, "mount me", "MNT"])
def test_a_command_that_is_like_none_is_not_guessed(place, typed):
    result = place.run(typed)
    assert_fails(result, 2, "no such command", "kemvi --help")
    assert "did you mean" not in result.stderr


def test_mount_help_lists_the_mount_options(place):
    assert "attr_timeout=SECONDS" in place.run("mount", "--help").stdout


@pytest.mark.parametrize("option,word", [("frobnicate", "frobnicate"), ("attr_timeout=soon", "attr_timeout"),
                                         ("attr_timeout=-1", "attr_timeout"), ("entry_timeout=soon", "entry_timeout"),
                                         ("fmask=9", "fmask"), ("fmask=1777", "fmask"), ("dmask", "dmask"),
                                         ("uid", "uid"), ("ro=1", "ro"), ("request_size=5000", "request_size"),
                                         ("request_size=5", "request_size"), ("uid=nobody by this name", "uid"),
                                         ("remount", "unmount it and mount it again"),
                                         ("allow_root", "allow_other,fmask=177,dmask=077")])
def test_a_bad_mount_option_is_code_2_and_named(place, option, word):
    fails(place, 2, word, options=["-o", "ro," + option])


# SOURCE and its configuration

def test_missing_source_directory(place):
    assert_fails(place.run("mount", place.folder / "none", place.point), 3, place.folder / "none")


def test_source_that_is_a_file(place):
    file = place.folder / "file"
    file.write_text("")
    assert_fails(place.run("mount", file, place.point), 3, file, "not a directory")


@pytest.mark.parametrize("foreground", [[], ["-f"]])
def test_missing_configuration_tells_how_to_write_one(place, foreground):
    (place.source / "mount-config.json").unlink()
    fails(place, 3, place.source / "mount-config.json", "does not exist", "kemvi init", options=foreground)


def test_configuration_that_is_a_folder(place):
    (place.source / "mount-config.json").unlink()
    (place.source / "mount-config.json").mkdir()
    fails(place, 3, "mount-config.json", "not a file")


@pytest.mark.user_only
def test_configuration_that_cannot_be_read(place):
    (place.source / "mount-config.json").chmod(0)
    fails(place, 3, "mount-config.json", "permission")


@pytest.mark.parametrize("text", ["", "{", "[]", "null", '"text"', '{"driveId": "d"} x', '{"driveId": "d",}', '{"driveId": "\xff', "\xff"])
def test_configuration_that_is_no_json_object(place, text):
    (place.source / "mount-config.json").write_bytes(text.encode("latin-1"))
    fails(place, 3, place.source / "mount-config.json", "expected a JSON object")


@pytest.mark.parametrize("key", KEYS)
def test_a_missing_key_is_named(place, key):
    configuration = place.configuration()
    del configuration[key]
    place.write_configuration(json.dumps(configuration))
    fails(place, 3, "mount-config.json", f'"{key}"', "missing")


@pytest.mark.parametrize("key", KEYS)
def test_a_key_in_another_case_is_missing(place, key):
    configuration = place.configuration()
    configuration[key.upper()] = configuration.pop(key)
    place.write_configuration(json.dumps(configuration))
    fails(place, 3, f'"{key}"', "missing")


@pytest.mark.parametrize("key", KEYS)
@pytest.mark.parametrize("value", [42, True, None, [], {}])
def test_a_value_of_the_wrong_type_is_named(place, key, value):
    place.configure(**{key: value})
    fails(place, 3, "mount-config.json", f'"{key}"', "a string")


@pytest.mark.parametrize("helper", ["", "helper.mjs", "./helper.mjs"])
def test_a_helper_path_that_is_not_absolute(place, helper):
    place.configure(helper)
    fails(place, 3, "mount-config.json", "helperPath", "absolute path")


def test_further_keys_are_ignored(place):
    place.configure(comment={"any": "thing"})
    place.mount()
    assert place.run("unmount", place.point).returncode == 0


# The helper

@pytest.mark.parametrize("options, words", [("ro", ["must be an array of strings"]), ([5], ["must be an array of strings"]),
                                            (["frobnicate"], ['option "frobnicate" is not known']), (["attr_timeout=x"], ["attr_timeout"]),
                                            (["ro,helper_env=A=1"], ["helper_env=A=1", "helperEnvironment"])])
def test_mount_options_in_the_configuration_that_are_none(place, options, words):
    place.configure(mountOptions=options)
    assert_fails(place.run("mount", place.source, place.point), 3, place.source / "mount-config.json", "mountOptions", *words)
    assert not place.is_mounted()


def test_a_bad_option_is_told_before_the_configuration_is_looked_at(place):
    place.configure(mountOptions=["frobnicate"])
    assert_fails(place.run("mount", place.source, place.point, "-o", "other"), 2, "-o other")


def test_helper_script_that_does_not_exist(place):
    missing = place.folder / "none.mjs"
    place.configure(missing)
    fails(place, 4, missing, "does not exist", "helperPath")


def test_node_that_is_not_in_path(place):
    tools = place.folder / "bin"
    tools.mkdir()
    (tools / "fusermount3").symlink_to(shutil.which("fusermount3"))
    fails(place, 4, "node", "PATH", environment=place.environment(PATH=tools))


@pytest.mark.parametrize("foreground", [[], ["-f"]])
def test_helper_that_prints_garbage(place, foreground):
    place.use_helper("garbage.mjs")
    result = fails(place, 5, HELPERS / "garbage.mjs", "not a line of the protocol", "kemvi check", options=foreground)
    assert "garbage.mjs: starting" in result.stderr


@pytest.mark.parametrize("foreground", [[], ["-f"]])
def test_helper_that_answers_the_ping_with_an_error(place, foreground):
    place.use_helper("pingFails.mjs")
    result = fails(place, 5, "pingFails.mjs", "error: no database", options=foreground)
    assert "pingFails.mjs: no database\n" in result.stderr


@pytest.mark.parametrize("foreground", [[], ["-f"]])
def test_helper_that_exits_at_once(place, foreground):
    place.use_helper("exits.mjs")
    result = fails(place, 5, "exits.mjs", "ended before it answered", options=foreground)
    lines = result.stderr.splitlines()
    assert lines[0] == "exits.mjs: cannot read my settings"
    assert lines[-1].startswith("kemvi: ")


@pytest.mark.parametrize("foreground", [[], ["-f"]])
def test_helper_that_answers_another_request(place, foreground):
    place.use_helper("answersAnother.mjs")
    result = fails(place, 5, "answersAnother.mjs", "did not match request id", options=foreground)
    assert "answersAnother.mjs: starting\n" in result.stderr


@pytest.mark.parametrize("foreground", [[], ["-f"]])
def test_helper_that_is_no_javascript(place, foreground):
    script = place.folder / "helper.mjs"
    script.write_text("this is not JavaScript")
    place.configure(script)
    result = fails(place, 5, script, "ended before it answered", options=foreground)
    assert "SyntaxError" in result.stderr


def test_helper_that_neither_answers_well_nor_ends_is_ended(place):
    place.use_helper("garbageAndStays.mjs")
    fails(place, 5, "not a line of the protocol")


# The mount point

def test_mount_point_that_does_not_exist(place):
    place.point.rmdir()
    fails(place, 6, place.point, "does not exist", "mkdir")


def test_mount_point_in_a_folder_that_does_not_exist(place):
    result = place.run("mount", place.source, place.folder / "none" / "point")
    assert_fails(result, 6, place.folder / "none" / "point", "does not exist")


def test_mount_point_that_is_a_file(place):
    place.point.rmdir()
    place.point.write_text("")
    fails(place, 6, place.point, "not a directory")


def test_mount_point_that_is_not_empty(place):
    (place.point / "precious").write_text("")
    fails(place, 6, place.point, "not empty", "-o nonempty")


def test_nonempty_mounts_over_what_is_there(place):
    (place.point / "precious").write_text("")
    place.mount("-o", "nonempty")
    assert os.listdir(place.point) == ["a.txt"]
    assert place.run("unmount", place.point).returncode == 0
    assert os.listdir(place.point) == ["precious"]


def test_mount_point_that_is_mounted_already_keeps_its_mount(place):
    place.mount()
    result = place.run("mount", place.source, place.point)
    assert_fails(result, 6, place.point, "mounted already", place.source, "kemvi unmount")
    assert os.listdir(place.point) == ["a.txt"]
    assert place.run("unmount", place.point).returncode == 0


def test_mounted_already_is_said_of_a_mount_whose_helper_hangs(place):
    place.use_helper("hangsOnReaddir.mjs")
    place.mount("-o", "attr_timeout=0,entry_timeout=0")
    listing = place.start_listing()
    result = place.run("mount", place.source, place.point)
    assert_fails(result, 6, "mounted already")
    assert place.run("unmount", "--force", place.point).returncode == 0
    listing.wait()


def test_mount_point_with_another_file_system_on_it(place):
    result = place.run("mount", place.source, "/proc")
    assert_fails(result, 6, "/proc", "type proc")


@pytest.mark.parametrize("point", ["tree/point", "tree/deep/point"])
def test_mount_point_inside_the_served_tree_would_deadlock(place, point):
    (place.folder / point).mkdir(parents=True)
    assert_fails(place.run("mount", place.source, place.folder / point), 6, "inside the served directory", place.tree,
                 "--repo-root")


def test_mount_point_that_would_cover_the_served_tree(place):
    place.configure(repoRoot=str(place.point / "tree"))
    (place.point / "tree").mkdir()
    fails(place, 6, "cover", place.point / "tree", options=["-o", "nonempty"])


def test_mount_point_that_would_cover_a_helper_in_the_served_tree(place):
    (place.tree / "point").mkdir()
    helper = place.tree / "point" / "helper.mjs"
    helper.write_text("")
    place.configure(helper, repoRoot=str(place.folder / "tree"))
    result = place.run("mount", place.source, place.tree / "point", "-o", "nonempty")
    assert_fails(result, 6, "--repo-root")


@pytest.mark.parametrize("what", ["program", "argument"])
def test_mount_point_that_would_cover_what_a_command_needs(place, what):
    needed = place.point / "needed"
    shutil.copy2("/bin/true", needed)
    command = [str(needed)] if what == "program" else ["/bin/cat", "-n", str(needed)]
    place.configure(Path(SHIPPED_HELPER).with_name("program.mjs"), helperCommand=command)
    fails(place, 6, "cover", needed, options=["-o", "nonempty"])


def test_mount_point_that_is_the_source_directory(place):
    result = place.run("mount", place.source, place.source, "-o", "nonempty")
    assert_fails(result, 6, "cover", place.source)


def test_mount_point_beside_the_served_tree_in_the_source_directory_is_fine(place):
    point = place.source / "point"
    point.mkdir()
    assert place.run("mount", place.source, point).returncode == 0
    assert place.run("unmount", point).returncode == 0


@pytest.mark.user_only
def test_mount_point_that_belongs_to_someone_else(place):
    result = place.run("mount", place.source, "/mnt")
    assert_fails(result, 6, "/mnt", "may not write")


# The machine

IN_PRIVATE_NAMESPACE = [system.OWN_MOUNT_TABLE, "sh", "-c"]


@pytest.mark.root_only
def test_missing_fuse_device(place):
    script = 'mount -t tmpfs none /dev && mknod -m 666 /dev/null c 1 3 && exec "$0" "$@"'
    result = subprocess.run([*IN_PRIVATE_NAMESPACE, script, KEMVI, "mount", place.source, place.point], check=False,
                            cwd=place.folder, env=place.environment(), capture_output=True, text=True)
    assert_fails(result, 7, "/dev/fuse", "does not exist", "modprobe")


@pytest.mark.user_only
def test_missing_fusermount3(place):
    tools = place.folder / "bin"
    tools.mkdir()
    (tools / "node").symlink_to(shutil.which("node"))
    fails(place, 7, "fusermount3", "PATH", "fuse3", environment=place.environment(PATH=tools))


def fuse_conf_allows():
    try:
        with open("/etc/fuse.conf", encoding="utf-8") as file:
            return any(line.strip() == "user_allow_other" for line in file)
    except OSError:
        return False


@pytest.mark.user_only
@pytest.mark.skipif(fuse_conf_allows(), reason="/etc/fuse.conf allows it here")
def test_allow_other_that_fuse_conf_forbids(place):
    fails(place, 7, "allow_other", "/etc/fuse.conf", options=["-o", "allow_other"])


@pytest.mark.root_only
def test_what_fusermount_refuses_is_said_in_words(place):
    """As an ordinary user on a machine whose administrator allows no mounts at all. What that user needs lies in /mnt,
    which only this test sees."""
    shutil.copy(KEMVI, place.folder / "kemvi")
    (place.folder / "helper.mjs").write_text(
        'process.stdin.on("data", (line) => console.log(`{"id":"${JSON.parse(line).id}","ok":true}`));')
    (place.folder / "fuse.conf").write_text("mount_max=0\n")
    place.configure("/mnt/helper.mjs", repoRoot="/mnt/tree")
    for folder in (place.folder, place.source, place.point):
        folder.chmod(0o777)
    script = ("mount --bind . /mnt && cd /mnt && mount --bind fuse.conf /etc/fuse.conf && mkdir dev && "
              "mount -t tmpfs none dev && mknod -m 666 dev/fuse c 10 229 && mount --bind dev/fuse /dev/fuse && "
              'exec setpriv --reuid=65534 --regid=65534 --clear-groups ./kemvi "$0" "$@"')
    result = subprocess.run([*IN_PRIVATE_NAMESPACE, script, "mount", "/mnt/source", "/mnt/point"], check=False,
                            cwd=place.folder, env=place.environment(), capture_output=True, text=True)
    assert_fails(result, 8, "/mnt/point", "raise mount_max in /etc/fuse.conf")
    assert "fusermount3:" not in result.stderr


@pytest.mark.root_only
def test_root_may_allow_others(place):
    place.mount("-o", "allow_other")
    assert place.run("unmount", place.point).returncode == 0


def test_a_line_break_in_a_path_keeps_the_message_on_one_line(place):
    assert_fails(place.run("mount", place.folder / "two\nlines", place.point), 3, "two\\nlines")
