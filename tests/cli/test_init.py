"""kemvi init writes a configuration that mounts, and never replaces one unasked."""

import json
import os
import shutil
from pathlib import Path

import pytest

from harness.place import assert_fails
from harness.program import KEMVI, SHIPPED_HELPER, Program


def configuration(source):
    return json.loads((source / "mount-config.json").read_text())


def assert_shipped(path):
    """It is the shipped helper; the command under test may be a copy, which looks in the place that it was built for."""
    assert os.path.isabs(path)
    with open(path, "rb") as found, open(SHIPPED_HELPER, "rb") as shipped:
        assert found.read() == shipped.read()


def test_defaults(place):
    source = place.folder / "drive"
    source.mkdir()
    result = place.run("init", "drive", environment=place.environment(XDG_DATA_HOME=""))
    assert (result.returncode, result.stderr) == (0, "")
    written = configuration(source)
    assert list(written) == ["driveId", "kemviHome", "repoRoot", "helperPath"]
    assert written["driveId"] == "drive"
    assert written["repoRoot"] == str(source)
    assert written["kemviHome"] == str(place.folder / ".local/share/kemvi")
    assert_shipped(written["helperPath"])
    assert "--repo-root" in result.stdout and str(source) in result.stdout


def test_what_it_writes_mounts(place):
    source = place.folder / "drive"
    assert place.run("init", source, "--repo-root", place.tree).returncode == 0
    assert place.run("mount", source, place.point).returncode == 0
    assert os.listdir(place.point) == ["a.txt"]
    assert place.run("unmount", place.point).returncode == 0


def test_options_become_absolute_paths(place):
    (place.folder / "my helper.mjs").write_text("")
    result = place.run("init", "new/drive", "--helper", "my helper.mjs", "--drive-id", "id 1", "--home", "home",
                       "--repo-root", "tree/../tree/")
    assert result.returncode == 0, result.stderr
    assert configuration(place.folder / "new/drive") == {
        "driveId": "id 1", "kemviHome": str(place.folder / "home"), "repoRoot": str(place.tree),
        "helperPath": str(place.folder / "my helper.mjs")}


def test_an_existing_configuration_is_kept(place):
    before = (place.source / "mount-config.json").read_text()
    assert_fails(place.run("init", place.source), 3, place.source / "mount-config.json", "exists", "--force")
    assert (place.source / "mount-config.json").read_text() == before
    assert os.listdir(place.source) == ["mount-config.json"]


def test_force_replaces_it(place):
    assert place.run("init", place.source, "--force", "--drive-id", "new").returncode == 0
    assert configuration(place.source)["driveId"] == "new"
    assert os.listdir(place.source) == ["mount-config.json"]


def test_a_helper_that_does_not_exist(place):
    result = place.run("init", place.folder / "drive", "--helper", "none.mjs")
    assert_fails(result, 4, "none.mjs", "no such helper")
    assert not (place.folder / "drive").exists()


def test_a_shipped_helper_by_name(place):
    assert place.run("init", place.folder / "drive", "--helper", "local").returncode == 0
    assert_shipped(configuration(place.folder / "drive")["helperPath"])


def installed_copy(place):
    """A command of this test's own, with the shipped helpers where an installation has them."""
    helpers = place.folder / "installed" / "share" / "kemvi" / "helpers"
    shutil.copytree(Path(SHIPPED_HELPER).parent, helpers)
    (place.folder / "installed" / "bin").mkdir()
    return Path(shutil.copy2(KEMVI, place.folder / "installed" / "bin" / "kemvi")), helpers


def test_an_installed_command_names_the_helpers_installed_with_it(place):
    command, helpers = installed_copy(place)
    assert Program(place.folder, command).run("init", place.folder / "drive").returncode == 0
    assert configuration(place.folder / "drive")["helperPath"] == str(helpers / "local.mjs")


@pytest.mark.user_only
def test_shipped_helpers_that_may_not_be_read(place):
    command, helpers = installed_copy(place)
    for closed in (helpers.parent, helpers):
        closed.chmod(0)
        result = Program(place.folder, command).run("init", place.folder / "drive")
        closed.chmod(0o755)
        assert_fails(result, 4, helpers, "you may not read this folder", "--helper")
        assert not (place.folder / "drive").exists()


def test_the_native_helper(place):
    """What it writes is checked by mounting it, in tests/mount."""
    source = place.folder / "drive"
    result = place.run("init", source, "--native")
    assert result.returncode == 0, result.stderr
    written = configuration(source)
    assert list(written) == ["driveId", "kemviHome", "repoRoot", "helperPath", "helperCommand"]
    assert written["helperPath"].endswith("/helpers/program.mjs")
    program, = written["helperCommand"]
    assert os.access(program, os.X_OK) and f"which runs  {program}" in result.stdout
    assert place.run("mount", source, place.point).returncode == 0
    assert os.listdir(place.point) == ["mount-config.json"]
    assert place.run("unmount", place.point).returncode == 0
    assert place.run("init", place.folder / "other", "--native", "--helper", "local").returncode == 2


def test_a_native_helper_that_is_not_installed(place):
    command, _ = installed_copy(place)
    result = Program(place.folder, command).run("init", place.folder / "drive", "--native")
    assert_fails(result, 4, "kemvi-local", "not installed")
    assert not (place.folder / "drive").exists()


def test_a_helper_that_is_a_program(place):
    program = shutil.copy2("/bin/true", place.folder / "my program")
    source = place.folder / "drive"
    result = place.run("init", source, "--helper", "my program")
    assert result.returncode == 0, result.stderr
    assert configuration(source)["helperCommand"] == [str(program)]
    assert configuration(source)["helperPath"].endswith("/helpers/program.mjs")
    inside = shutil.copy2("/bin/true", source / "inside")
    result = place.run("init", source, "--helper", inside, "--force")
    assert "helper lies inside the served directory" in result.stdout


def test_a_directory_to_work_on_that_does_not_exist_is_told(place):
    missing = place.folder / "tre"
    result = place.run("init", place.folder / "drive", "--repo-root", "tre")
    assert result.returncode == 0
    assert result.stderr.startswith(f"kemvi: --repo-root {missing}: does not exist") and result.stderr.count("\n") == 1
    assert configuration(place.folder / "drive")["repoRoot"] == str(missing)
    missing.write_text("what a helper of one's own works on may be a file")
    result = place.run("init", place.folder / "drive", "--force", "--repo-root", "tre")
    assert (result.returncode, result.stderr) == (0, "")


def test_a_source_that_is_a_file(place):
    (place.folder / "file").write_text("")
    assert_fails(place.run("init", place.folder / "file"), 3, "not a directory")


def test_a_helper_inside_the_served_directory_is_told(place):
    source = place.folder / "drive"
    source.mkdir()
    (source / "helper.mjs").write_text("")
    result = place.run("init", source, "--helper", source / "helper.mjs")
    assert result.returncode == 0 and "helper lies inside the served directory" in result.stdout
    result = place.run("init", source, "--helper", source / "helper.mjs", "--repo-root", place.tree, "--force")
    assert result.returncode == 0 and "lies inside" not in result.stdout


def test_any_name_survives_the_json(place):
    source = place.folder / 'a"b\\c\nd\u00e9'
    assert place.run("init", source).returncode == 0
    assert configuration(source)["repoRoot"] == str(source)


def test_a_name_that_is_not_utf8_is_refused(place):
    source = os.fsencode(place.folder) + b"/\xff"
    result = place.run("init", os.fsdecode(source))
    assert_fails(result, 2, "not UTF-8")
    assert not os.path.exists(source)


@pytest.mark.user_only
def test_a_folder_that_may_not_be_written(place):
    place.source.chmod(0o500)
    assert_fails(place.run("init", place.source, "--force"), 3, "cannot be written", "Permission denied")
