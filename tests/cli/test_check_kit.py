"""What the helper kit examines in the tests of authors (`kemvi-helper/testing`) is what kemvi check examines: the same rules
by the same names, and of the same fault in a file system the same findings, word for word."""

import json
import re
import subprocess
from pathlib import Path

import pytest

from harness.deadline import LIMIT
from harness.program import SHIPPED_HELPER

pytestmark = pytest.mark.limit(240)

SDK = Path(SHIPPED_HELPER).parents[1]
FAULTY = SDK / "test" / "servers" / "faulty.mjs"

EXAMINE = """
const { mountless } = await import(process.argv[1] + '/src/testing/index.mjs');
const { faulty } = await import(process.argv[1] + '/test/servers/faulty.mjs');
const write = process.argv[3] === 'write' ? '/' : false;
const found = await mountless(faulty(process.argv[2]), { limit: 5000 }).check({ write }).catch((error) => error);
if (found.errors === undefined) throw found;
console.log(JSON.stringify([...found.errors, ...found.warnings]));
"""


def node(script, *arguments):
    result = subprocess.run(["node", "--input-type=module", "-e", script, str(SDK), *arguments], capture_output=True,
                            text=True, timeout=4 * LIMIT)
    assert result.returncode == 0, result.stderr
    return json.loads(result.stdout)


def check(place, fault, write):
    place.configure(FAULTY, kemviHome=fault)
    options = ["--write", "/"] if write else []
    result = place.run("check", place.source, "--json", "--op-timeout", "5", *options, limit=4 * LIMIT)
    return json.loads(result.stdout)


def comparable(name, finding):
    """A finding without what differs from run to run, or is shortened when it is shown."""
    problem = re.sub(r"kemvi-check-[-0-9a-fA-F]{36}", "kemvi-check-X", finding["problem"])
    problem = re.sub(r"took [\d.]+ s", "took X s", problem)
    return name, finding["severity"], problem[:290], finding["consequence"], finding["more"]


def assert_same(place, fault, write):
    report = check(place, fault, write)
    by_command = [comparable(found["name"], finding) for found in report["checks"] for finding in found["findings"]]
    by_kit = [comparable(finding["check"], finding)
              for finding in node(EXAMINE, fault, "write" if write else "read")]
    assert sorted(by_command) == sorted(by_kit)
    assert fault == "" or by_kit != []


def test_both_have_the_same_rules_in_the_same_order(place):
    checks = node("const { checks } = await import(process.argv[1] + '/src/testing/checks.mjs');"
                  "console.log(JSON.stringify(Object.values(checks)))")
    report = check(place, "", write=True)
    assert [found["name"] for found in report["checks"]] == ["the configuration is complete, and what it names is there"] + checks


@pytest.mark.parametrize("fault", ["", "inTime", "errorsSpeak", "missingNames", "longLines", "listings", "statfs", "names",
                                   "duplicates", "agreement", "speed", "opening", "data", "wholeSize", "pastTheEnd",
                                   "offsets", "released"])
def test_both_find_the_same_in_reading(place, fault):
    assert_same(place, fault, write=False)


# Each makes 10,000 files: a short run is content with one.
@pytest.mark.parametrize("fault", ["writing"] + [pytest.param(fault, marks=pytest.mark.long) for fault in [
    "folders", "creating", "renaming", "fullFolders", "removing", "settingTimes", "modes", "oddNames", "longWrites",
    "manyEntries", "cleanedUp", "duplicates",
]])
def test_both_find_the_same_in_writing(place, fault):
    assert_same(place, fault, write=True)
