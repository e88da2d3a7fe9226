"""docs/pictures: what is there is what the script draws, from the figures and the recording as they are now."""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path
from xml.etree import ElementTree

import pytest

TOP = Path(__file__).resolve().parents[2]
PICTURES = TOP / "docs" / "pictures"
NAMES = sorted(path.name for path in PICTURES.glob("*.svg"))


def draw(script, *arguments, given=""):
    subprocess.run([sys.executable, script, *arguments], check=True, text=True, input=given, timeout=60,
                   env=dict(os.environ, PYTHONDONTWRITEBYTECODE="1"))


def test_each_picture_is_what_the_script_draws_now(tmp_path):
    draw(PICTURES / "draw.py", tmp_path)
    assert sorted(path.name for path in tmp_path.iterdir()) == NAMES
    for name in NAMES:
        assert (tmp_path / name).read_text() == (PICTURES / name).read_text(), f"run docs/pictures/draw.py: {name}"


@pytest.mark.parametrize("name", NAMES)
def test_a_picture_is_shown_by_a_document_and_dresses_for_the_dark(name):
    text = (PICTURES / name).read_text()
    ElementTree.fromstring(text)
    assert "prefers-color-scheme: dark" in text
    shown = re.compile(r"!\[[^\]]+\]\((docs/)?pictures/" + re.escape(name))
    assert any(shown.search(page.read_text()) for page in [*TOP.glob("*.md"), *(TOP / "docs").glob("*.md")])


def test_the_recording_is_of_the_demo_and_of_no_machine_in_particular():
    text = (PICTURES / "first-mount.txt").read_text()
    typed = re.findall(r"^\$ (.*)$", text, re.M)
    demo = (TOP / "scripts" / "demo").read_text()
    shown = re.findall(r"^show (.*)$|^printf .* '(echo .*)'$", demo, re.M)
    assert typed == [one or other for one, other in shown]
    assert not re.search(r"/tmp|/root|/work", text)


def test_what_is_of_one_machine_is_replaced_when_the_demo_is_recorded(tmp_path):
    pictures = tmp_path / "pictures"
    pictures.mkdir()
    for name in ("draw.py", "drawing.py"):
        shutil.copy(PICTURES / name, pictures)
    shutil.copy(TOP / "docs" / "performance.md", tmp_path)
    demo = ("Building ...\n\n$ kemvi init tree\nWrote /tmp/tmp.X/tree/mount-config.json:\n"
            "  kemviHome   /root/.local/share/kemvi\n\n$ kemvi check tree\nok    one\nok    two\n0 errors\n\n$ ls -l mnt\n"
            "-rw-r--r-- 1 ann staff 28 Nov 22 08:33 hello.txt\n\nThe demo is done: nothing is mounted\n")
    draw(pictures / "draw.py", "--recording", given=demo)
    assert (pictures / "first-mount.txt").read_text() == (
        "$ kemvi init tree\nWrote /home/you/tree/mount-config.json:\n  kemviHome   /home/you/.local/share/kemvi\n\n"
        "$ kemvi check tree\nok    one\n...\n0 errors\n\n$ ls -l mnt\n-rw-r--r-- 1 you you 28 Jan  1 09:00 hello.txt\n")
