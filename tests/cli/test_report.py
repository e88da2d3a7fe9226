"""kemvi report: one page that needs nothing else, drawn by a real browser."""

import json
import os
import re
import shutil
import subprocess

import pytest

from harness.deadline import LIMIT

BROWSER = shutil.which("chromium") or shutil.which("chromium-browser") or shutil.which("google-chrome")
HEADER = {"recording": 1, "kemvi": "0.1.0", "started": "2026-11-22T12:00:00.000000Z", "mountPoint": "/mnt",
          "payloads": "hash", "names": "plain"}


def recording(place, count=500):
    lines = [json.dumps(HEADER)]
    for number in range(count):
        op = ("getattr", "readdir", "unlink")[number % 3]
        failed = number % 5 == 0
        answer = {"ok": False, "error": {"message": "no", "code": "ENOENT"}} if failed else {"ok": True}
        lines.append(json.dumps({"t": number * 700, "d": 5 + number % 90, "q": {"op": op, "path": f"/</script>{number % 7}"},
                                 "a": answer}))
        lines.append(json.dumps({"k": {"time": f"2026-11-22T12:00:00.{number * 700:06d}Z", "process": "git", "op": "LOOKUP",
                                       "path": "/x", "microseconds": 200, "exchanges": [{"op": op, "microseconds": 90}]}}))
    file = place.folder / "made.kemvi-record"
    file.write_text("\n".join([*lines, '{"end":{}}\n']))
    return file


def browse(place, page, *options):
    command = [BROWSER, "--headless", "--no-sandbox", "--disable-gpu", f"--user-data-dir={place.folder / 'browser'}",
               "--window-size=1200,2000", "--virtual-time-budget=5000", "--enable-logging=stderr", *options,
               f"file://{page}"]
    environment = os.environ | {"HOME": str(place.folder), "XDG_CONFIG_HOME": str(place.folder),
                                "XDG_CACHE_HOME": str(place.folder)}
    return subprocess.run(command, capture_output=True, text=True, timeout=4 * LIMIT, env=environment)


def test_a_page_names_nothing_outside_itself(place):
    page = place.folder / "report.html"
    result = place.run("report", recording(place), "-o", page)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    text = page.read_text()
    assert not re.search(r'(src|href)\s*=|@import|url\(|fetch\(|XMLHttpRequest|import\(', re.sub(r"<!--.*?-->", "", text, flags=re.S))
    assert "MIT License" in text, "the licence of what draws goes with it"


def test_the_figures_are_told_to_programs_too(place):
    figures = json.loads(place.run("report", recording(place), "--json").stdout)
    assert {each["op"]: each["count"] for each in figures["exchanges"]} == {"getattr": 167, "readdir": 167, "unlink": 166}
    assert sum(each["count"] for each in figures["errors"]) == 100
    assert (figures["requestTime"], figures["exchangeTime"], figures["cut"]) == (100000, 45000, False)


def test_only_a_report_is_replaced(place):
    page = place.folder / "report.html"
    for _ in range(2):
        assert place.run("report", recording(place), "-o", page).returncode == 0
    page.write_text("precious")
    result = place.run("report", recording(place), "-o", page)
    assert result.returncode == 2 and "is no report" in result.stderr
    assert page.read_text() == "precious"


def test_what_cannot_be_done_is_said(place):
    assert "-o FILE.html" in place.run("report", recording(place)).stderr
    result = place.run("report", place.folder / "none", "--json")
    assert result.returncode == 16 and "No such file" in result.stderr
    result = place.run("report", recording(place), "-o", place.folder / "none" / "r.html")
    assert result.returncode == 1 and "cannot be written: No such file" in result.stderr
    cut = place.folder / "cut"
    cut.write_text(recording(place).read_text()[:9000])
    result = place.run("report", cut, "--json")
    assert result.returncode == 0 and "breaks off after line" in result.stderr and json.loads(result.stdout)["cut"]


@pytest.mark.skipif(not BROWSER, reason="no Chromium here (Debian package chromium)")
@pytest.mark.parametrize("count", [500, 0])
def test_a_browser_draws_it_without_a_complaint(place, count):
    page = place.folder / "report.html"
    place.run("report", recording(place, count), "-o", page)
    result = browse(place, page, "--dump-dom")
    assert "CONSOLE" not in result.stderr, result.stderr
    assert f'data-drawn="{4 if count else 0}"' in result.stdout
    assert result.stdout.count("<canvas") == (4 if count else 0)
    for title in ("Time line", "Host and helper", "Slowest exchanges", "Busiest paths", "Errors") if count else ["Nothing"]:
        assert f"<h2>{title}</h2>" in result.stdout
    assert ("helper 45 %" in result.stdout) == (count > 0)


@pytest.mark.skipif(not BROWSER, reason="no Chromium here (Debian package chromium)")
def test_it_has_a_dark_and_a_light_face(place):
    page = place.folder / "report.html"
    place.run("report", recording(place), "-o", page)
    pictures = []
    for name, options in (("light", ()), ("dark", ("--blink-settings=preferredColorScheme=0",))):
        picture = place.folder / f"{name}.png"
        browse(place, page, f"--screenshot={picture}", *options)
        pictures.append(picture.read_bytes())
    assert pictures[0] != pictures[1]
