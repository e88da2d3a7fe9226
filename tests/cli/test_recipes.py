"""docs/recipes.md and the beginning of docs/writing-a-helper.md: code and commands are used as they stand there."""

import os
import re
import shutil
import socket
import subprocess
from pathlib import Path

import pytest

from harness import system
from harness.deadline import LIMIT, eventually
from harness.program import SHIPPED_HELPER

DOCUMENTS = Path(__file__).resolve().parents[2] / "docs"
KIT = Path(SHIPPED_HELPER).resolve().parents[1]
RECIPES = re.split(r"^## ", (DOCUMENTS / "recipes.md").read_text(encoding="utf-8"), flags=re.M)
TUTORIAL = re.split(r"^## ", (DOCUMENTS / "writing-a-helper.md").read_text(encoding="utf-8"), flags=re.M)


def commands_of(section):
    """(command, what it prints) of each indented line outside of code."""
    text = re.sub(r"^```.*?^```$", "", section, flags=re.M | re.S)
    return [tuple(part.strip() for part in f"{line}  # ".split("  # ")[:2]) for line in re.findall(r"^ {4}(\S.*)$", text, re.M)]


def free_port():
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        return str(free.getsockname()[1])


@pytest.fixture
def author(place):
    """A folder such as an author has, with the kit to be found, in $KEMVI too."""
    (place.folder / "bin").mkdir()
    (place.folder / "bin" / "kemvi").symlink_to(place.program.path)
    (place.folder / "clone" / "sdk").mkdir(parents=True)
    (place.folder / "clone" / "sdk" / "node").symlink_to(KIT)
    (place.folder / "work" / "node_modules").mkdir(parents=True)
    (place.folder / "work" / "node_modules" / "kemvi-helper").symlink_to(KIT)
    yield place
    for point in [place.folder / "work" / "mnt", place.folder / "hello" / "mnt", place.folder / "my-fs" / "mnt"]:
        if system.mount_points(point):
            place.unmount(point=point)


def execute(author, commands, folder):
    """Runs all in one shell, as typed one after the other, and holds what is printed to what the document says."""
    port = free_port()
    script = ["set -e", "trap 'kill $(jobs -p) 2> /dev/null || true' EXIT"]
    for number, (command, _) in enumerate(commands):
        script += [f"echo '@@{number}@@'", command.replace("8000", port)]
        if command.endswith("&"):
            script.append(f"for i in $(seq 300); do (: < /dev/tcp/127.0.0.1/{port}) 2> /dev/null && break; sleep 0.1; done")
    environment = author.environment(PATH=f"{author.folder}/bin:{os.environ['PATH']}", KEMVI=author.folder / "clone",
                                     npm_config_update_notifier="false", npm_config_cache=author.folder / "npm")
    result = subprocess.run(["bash", "-c", "\n".join(script)], cwd=folder, env=environment, stdin=subprocess.DEVNULL,
                            capture_output=True, text=True, timeout=5 * LIMIT, check=False)
    assert result.returncode == 0, result.stdout + result.stderr
    outputs = re.split(r"^@@\d+@@\n", result.stdout, flags=re.M)[1:]
    for (command, expected), output in zip(commands, outputs, strict=True):
        if command.startswith("kemvi check"):
            assert "\n0 errors, 0 warnings" in output, output
        if expected:
            assert " ".join(output.split()) == expected, command


@pytest.mark.parametrize("recipe", RECIPES[1:], ids=[recipe.split("\n")[0] for recipe in RECIPES[1:]])
def test_recipe(author, recipe):
    if "sqlite3 " in recipe and not shutil.which("sqlite3"):
        pytest.skip("sqlite3 is not installed")
    code, = re.findall(r"^```js\n(.*?)^```$", recipe, re.M | re.S)
    name = re.match(r"// ([a-z-]+\.mjs): ", code)[1]
    (author.folder / "work" / name).write_text(code)
    commands = commands_of(recipe)
    assert any(command.startswith("kemvi check") for command, _ in commands)
    assert any(expected for _, expected in commands)
    execute(author, commands_of(RECIPES[0]) + commands, author.folder / "work")


@pytest.mark.skipif(not shutil.which("npm"), reason="npm is not installed")
@pytest.mark.limit(180)  # npm, node and several mounts, one after the other
def test_the_tutorials_own_project(author):
    setting_up, = [part for part in TUTORIAL if part.startswith("Setting up")]
    hello, = [part for part in TUTORIAL if part.startswith("Hello")]
    commands = [command for command, _ in commands_of(setting_up) if not re.match(r"scripts/|cmake |export ", command)]
    assert any("new my-fs" in command for command in commands) and any("npm install" in command for command in commands)
    commands = [(command, "") for command in commands if command != "npm start"]
    copy, = re.findall(r"`(cp \"\$KEMVI/.*?)`", hello)
    execute(author, commands + [(copy, "")] + commands_of(hello), author.folder)


@pytest.mark.skipif(not shutil.which("npm"), reason="npm is not installed")
def test_npm_start_mounts_and_takes_changes_up(author):
    execute(author, [('npx --yes "$KEMVI/sdk/node" new my-fs', "")], author.folder)
    project = author.folder / "my-fs"
    environment = author.environment(PATH=f"{author.folder}/bin:{os.environ['PATH']}")
    with subprocess.Popen(["npm", "start"], cwd=project, env=environment, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as started:
        try:
            hello = project / "mnt" / "hello.txt"
            eventually(hello.exists, LIMIT, "the mount")
            assert hello.read_text() == "Hello from my-fs.\n"
            served = project / "fileSystem.mjs"
            served.write_text(served.read_text().replace("Hello from", "Good day from"))
            eventually(lambda: hello.read_text() == "Good day from my-fs.\n", LIMIT, "the change to be seen")
            subprocess.run(["npm", "run", "stop"], cwd=project, env=environment, check=True, capture_output=True, timeout=LIMIT)
            output = started.communicate(timeout=LIMIT)[0]
        finally:
            started.kill()
    assert started.returncode == 0, output
    assert "fileSystem.mjs changed" in output
