"""scripts/docs: the documents become a site without a warning, and a link that leads nowhere is an error."""

import re
import shutil
import subprocess
from pathlib import Path

import pytest

TOP = Path(__file__).resolve().parents[2]
PARTS = ("docs", "scripts", "examples", "sdk/cpp", "sdk/node/README.md", "sdk/python/README.md", "LICENSE", "NOTICE")
pytestmark = pytest.mark.skipif(not shutil.which("mkdocs") or not shutil.which("mandoc"),
                                reason="mkdocs or mandoc is not installed: scripts/setup --docs")


def build(top, site):
    return subprocess.run([top / "scripts" / "docs", site], check=False, capture_output=True, text=True, timeout=120)


@pytest.fixture
def copy(tmp_path):
    """The documents in a folder of the test's own, where they may be changed."""
    top = tmp_path / "copy"
    top.mkdir()
    for part in [*PARTS, *(page.name for page in TOP.glob("*.md"))]:
        (top / part).parent.mkdir(parents=True, exist_ok=True)
        if (TOP / part).is_dir():
            shutil.copytree(TOP / part, top / part, ignore=shutil.ignore_patterns("node_modules"))
        else:
            shutil.copy2(TOP / part, top / part)
    return top


def test_the_site_is_built_without_a_warning_and_needs_no_network(tmp_path):
    done = build(TOP, tmp_path / "site")
    assert done.returncode == 0, done.stderr
    assert done.stderr == ""
    for page in (tmp_path / "site").rglob("*.html"):
        for fetched in ('src="http', 'src="//', 'rel="stylesheet" href="http'):
            assert fetched not in page.read_text(encoding="utf-8"), page


def test_the_manual_page_is_a_page_with_a_heading_for_each_command(tmp_path):
    assert build(TOP, tmp_path / "site").returncode == 0
    page = (tmp_path / "site" / "docs" / "kemvi.1.html").read_text(encoding="utf-8")
    commands = re.findall(r"^\.SS (kemvi \w+)$", (TOP / "docs" / "kemvi.1").read_text(encoding="utf-8"), re.M)
    headings = [" ".join(re.sub("<[^>]*>", " ", text).split()) for text in re.findall(r"<h3 id=[^>]*>(.*?)<a", page, re.S)]
    assert len(commands) > 10 and headings == commands
    assert page.count('<a href="#mount-options" class="nav-link">') == 1, "it is in the page's table of contents"
    assert "<td>helperDead</td>" in page and "<b>--repo-root</b>" in page
    assert "&lt;div&gt;" not in page and "\\f" not in page


def test_who_prefers_a_dark_page_gets_one(tmp_path):
    assert build(TOP, tmp_path / "site").returncode == 0
    assert "prefers-color-scheme: dark" in (tmp_path / "site" / "docs" / "site" / "kemvi.css").read_text(encoding="utf-8")


@pytest.mark.parametrize("text, told", [
    ("[gone](docs/gone.md)", "gone.md"),
    ("[gone](docs/gone)", "docs/gone: leads nowhere"),
    ("[heading](docs/operating.md#no-such-heading)", "no-such-heading: the page has no such heading"),
    ("![picture](docs/pictures/gone.svg)", "gone.svg"),
], ids=["page", "folder", "heading", "picture"])
def test_what_leads_nowhere_is_an_error(copy, tmp_path, text, told):
    with open(copy / "README.md", "a", encoding="utf-8") as readme:
        readme.write(f"\n{text}\n")
    done = build(copy, tmp_path / "site")
    assert done.returncode != 0
    assert told in done.stderr


def test_a_page_that_no_menu_has_is_an_error(copy, tmp_path):
    (copy / "docs" / "forgotten.md").write_text("# Forgotten\n")
    done = build(copy, tmp_path / "site")
    assert done.returncode != 0
    assert "docs/forgotten.md" in done.stderr


def test_a_folder_with_something_else_in_it_is_left_alone(tmp_path):
    (tmp_path / "site").mkdir()
    (tmp_path / "site" / "letter").write_text("dear")
    done = build(TOP, tmp_path / "site")
    assert done.returncode == 1
    assert "name an empty folder" in done.stderr
    assert (tmp_path / "site" / "letter").read_text() == "dear"
