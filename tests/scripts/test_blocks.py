"""The blocks of commands and code in the documents: each is tested as blocks.txt says, and none is left out."""

import json
import os
import re
import shlex
import subprocess
from pathlib import Path

import pytest

TOP = Path(__file__).resolve().parents[2]
TABLE = Path(__file__).with_name("blocks.txt")
MANUAL = ("docs/*.1", "docs/*.8")
DOCUMENTS = sorted(str(path.relative_to(TOP)) for pattern in ("*.md", "docs/*.md", "sdk/*/README.md", "examples/**/*.md", *MANUAL)
                   for path in TOP.glob(pattern))
FENCED = re.compile(r"^```\w*\n(.*?)^```$", re.M | re.S)
INDENTED = re.compile(r"(?:(?<=\n\n)|\A)((?: {4,}\S.*\n|(?<=\n)\n(?= {4}))+)")


def blocks(document):
    """The text of every block, without its indentation."""
    text = (TOP / document).read_text(encoding="utf-8")
    if document.endswith((".1", ".8")):
        found = re.findall(r"^\.nf\n(.*?)^\.fi$", text, re.M | re.S)
        return [re.sub(r"\\f[BIR]", "", block).replace("\\-", "-") for block in found]
    fenced = FENCED.findall(text)
    return fenced + [block for block in INDENTED.findall(FENCED.sub("", text))]


def table():
    rows = [line.split(" | ") for line in TABLE.read_text().splitlines() if line and not line.startswith("#")]
    return [tuple(cell.strip() for cell in row) for row in rows]


def row_for(document, block):
    first = block.strip().splitlines()[0]
    rows = [row for row in table() if row[0] == document]
    fitting = [row for row in rows if row[1] == "*" or first.startswith(row[1])]
    # Of two that fit, the longer beginning says more.
    return max(fitting, key=lambda row: 0 if row[1] == "*" else len(row[1]), default=None)


def of(test):
    """The blocks that a test here is given."""
    return [pytest.param(document, block, id=f"{document}:{number}") for document in DOCUMENTS
            for number, block in enumerate(blocks(document), 1) if (row_for(document, block) or "  -")[2] == f"here: {test}"]


@pytest.mark.parametrize("document", DOCUMENTS)
def test_every_block_is_tested(document):
    left_out = [block for block in blocks(document) if row_for(document, block) is None]
    assert not left_out, f"{document}: tests/scripts/blocks.txt does not say how this is tested: {left_out[0]}"


@pytest.mark.parametrize("document, begins, how", table(), ids=lambda value: value[:40])
def test_what_the_table_says_holds(document, begins, how):
    if not (TOP / document).exists():
        assert document == "docs/recipes.md"
        return
    assert any(row_for(document, block) == (document, begins, how) for block in blocks(document)), "no such block"
    kind, _, more = how.partition(": ")
    if kind == "here":
        assert f"test_{more}" in globals()
    elif kind != "shown":
        assert Path(document).name in (TOP / how).read_text(), f"{how} does not read {document}"


def commands(block):
    """Its lines without comments, continued lines joined, as words."""
    for line in block.replace("\\\n", " ").splitlines():
        words = shlex.split(line, comments=True)
        for command in re.split(r"&&|[()]", " ".join(words)):
            if command.strip():
                yield command.split()


@pytest.mark.parametrize("document, block", of("scripts"))
def test_scripts(document, block):
    """Too long or too far-reaching to be executed here: that they are there and know their options. A fresh machine
    executes those of README."""
    for program, *arguments in commands(block):
        if program in ("cd", "npm", "sudo", "ctest", "cmake"):
            continue
        script = TOP / program
        assert os.access(script, os.X_OK), f"{document}: {program}"
        known = script.read_text(encoding="utf-8")
        if program == "bench/mount/run":
            known = subprocess.run([script, "--help"], check=True, capture_output=True, text=True, timeout=60).stdout
            known = re.sub(r"\n +", "", known) + known
        for option in arguments:
            if option.startswith("--"):
                assert option in known, f"{document}: {program} {option}"
    for preset in re.findall(r"--preset (\w+)", block):
        assert f'"name": "{preset}"' in (TOP / "CMakePresets.json").read_text(), preset


@pytest.mark.parametrize("document, block", of("unit"))
def test_unit(document, block):
    unit = (TOP / "systemd" / "kemvi@.service.in").read_text(encoding="utf-8")
    for name in re.findall(r"^ *(\w+)=", block, re.M):
        assert re.search(rf"\$\{{?{name}\b", unit), f"{document}: {name}"


@pytest.mark.parametrize("document, block", of("configuration"))
def test_configuration(document, block):
    keys = json.loads("{" + block + "}")
    assert Path(keys["helperPath"]).name in os.listdir(TOP / "sdk" / "node" / "helpers"), document
    assert all(isinstance(word, str) for word in keys["helperCommand"])


@pytest.mark.parametrize("document, block", of("macos_configuration"))
def test_macos_configuration(document, block):
    """It has the keys that the extension reads, and no other."""
    source = (TOP / "extension" / "KemviMountConfig.cpp").read_text(encoding="utf-8")
    assert sorted(json.loads(block)) == sorted(re.findall(r'members\.string\("(\w+)"\)', source)), document


def test_protocol(tmp_path):
    """The requests of the protocol's pages, in their order, to the shipped helper: its answers are those shown."""
    (tmp_path / "docs").mkdir()
    (tmp_path / "docs" / "a.txt").write_text("hello")
    requests, expected = [], {}
    for parameter in of("protocol"):
        lines = [json.loads(line) for line in parameter.values[1].splitlines() if line.strip()]
        for request, answer in zip(lines[::2], lines[1::2], strict=True):
            assert request["id"] == answer["id"]
            if request["op"] == "write":  # the file with handle 2 is nowhere opened
                requests.append({"id": "w", "op": "open", "path": "/docs/w.txt", "flags": ["write", "create"]})
            requests.append(request)
            expected[request["id"]] = answer
    assert len(expected) >= 17
    done = subprocess.run(["node", TOP / "sdk" / "node" / "helpers" / "local.mjs"], capture_output=True, text=True,
                          input="".join(json.dumps(request) + "\n" for request in requests), timeout=60, check=True,
                          env=dict(os.environ, KEMVI_REPO_ROOT=str(tmp_path), KEMVI_DRIVE_ID="d", KEMVI_HOME=str(tmp_path)))
    answers = {answer["id"]: answer for answer in map(json.loads, done.stdout.splitlines())}
    for number, answer in expected.items():
        given = answers[number]
        assert given["ok"] == answer["ok"] and given.keys() == answer.keys(), (given, answer)
        assert given.get("dataBase64") == answer.get("dataBase64")
        assert given.get("error", {}).get("code") == answer.get("error", {}).get("code"), (given, answer)
        if isinstance(answer.get("result"), dict):
            assert answer["result"].keys() <= given["result"].keys()
