"""Called as mount(8) calls the program of a file system type."""

import json
import os
import re
import subprocess
from pathlib import Path

import pytest

from harness.deadline import LIMIT
from harness.program import KEMVI


def call(place, *arguments, name="mount.kemvi"):
    program = place.folder / name
    if not program.is_symlink():
        program.symlink_to(KEMVI)
    return subprocess.run([program, *map(str, arguments)], cwd="/", check=False, env=place.environment(),
                          stdin=subprocess.DEVNULL, text=True, capture_output=True, timeout=LIMIT)


def test_its_manual_page_has_all_that_it_takes_and_nothing_else(place):
    page = (Path(__file__).resolve().parents[2] / "docs" / "mount.kemvi.8").read_text(encoding="utf-8")
    page = re.sub(r"\\f[BIRP]|,", "", page).replace("\\-", "-")
    taken = {option for options in re.findall(r"^  (-\S+) ", call(place, "--help").stdout, re.M) for option in options.split(",")}
    headed = {option for line in re.findall(r"^\.TP\n\.BI?R? (.*)", page, re.M) for option in re.findall(r"(?<!\w)-[-\w]+", line)}
    assert headed == taken - {"-h", "--help"}
    synopsis = re.search(r"^mount\.kemvi (SOURCE .*)$", page, re.M)[1]
    letters = {f"-{letter}" for group in re.findall(r"\[-(\w+)", synopsis) for letter in group}
    assert letters == {option for option in headed if len(option) == 2} - {"-V"}


@pytest.mark.parametrize("name", ["mount.kemvi", "mount.fuse.kemvi"])
def test_it_mounts_as_mount_asks(place, name):
    result = call(place, place.source, place.point, "-o", f"rw,noatime,x-systemd.automount,_netdev,log_file={place.folder}/log",
                  name=name)
    assert (result.returncode, result.stderr) == (0, "")
    assert os.listdir(place.point) == ["a.txt"]
    assert place.run("unmount", place.point).returncode == 0


def test_options_that_tables_of_mounts_often_have_are_taken(place):
    options = "defaults,noauto,user,nofail,rw,auto_unmount,big_writes,kernel_cache,max_read=131072,lazytime,user=anna,X-mount.mkdir,uid=root"
    assert call(place, place.source, place.point, "-o", options + ",request_size=128k").returncode == 0
    assert place.run("unmount", place.point).returncode == 0


def test_options_of_the_configuration_hold_where_no_other_is_given(place):
    place.configure(mountOptions=["close_to_open", "attr_timeout=30,ro", "fsname=the tree"])
    assert call(place, place.source, place.point, "-o", "rw,negative_timeout=2").returncode == 0
    options = json.loads(place.run("status", "--json", place.point).stdout)["options"]
    assert {"close_to_open", "attr_timeout=30", "negative_timeout=2", "fsname=the tree"} <= set(options) and "ro" not in options
    assert place.run("unmount", place.point).returncode == 0


def test_a_remount_is_refused_with_what_to_do_instead(place):
    result = call(place, place.source, place.point, "-o", "remount,ro")
    assert result.returncode == 1 and "unmount it and mount it again" in result.stderr


def test_flags_of_mount_are_taken(place):
    assert call(place, place.source, place.point, "-s", "-n", "-v", "-t", "fuse.kemvi", "-o", "ro").returncode == 0
    assert place.run("unmount", place.point).returncode == 0


def test_a_fake_mount_checks_and_mounts_nothing(place):
    assert call(place, place.source, place.point, "-f").returncode == 0
    assert not place.is_mounted()
    (place.point / "x").write_text("")
    assert call(place, place.source, place.point, "-f").returncode == 32


def test_failures_have_the_exit_codes_of_mount(place):
    assert call(place, place.source).returncode == 1
    assert call(place, place.source, place.point, "-o", "frobnicate").returncode == 1
    assert call(place, place.source, place.folder / "none").returncode == 32
    result = call(place, place.folder / "none", place.point)
    assert result.returncode == 32 and result.stderr.startswith("kemvi: ")
