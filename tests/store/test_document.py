"""docs/many-machines.md: its commands are executed as they stand there, with servers of ours in place of those that it names."""

import os
import re
import subprocess
from pathlib import Path

import pytest

from conftest import BUCKET
from harness import system
from harness.deadline import LIMIT
from harness.program import Program
from machines import HELPER, IS_LOCAL, TOOL

DOCUMENT = Path(__file__).resolve().parents[2] / "docs" / "many-machines.md"


def commands():
    blocks = re.findall(r"^```sh\n(.*?)^```$", DOCUMENT.read_text(encoding="utf-8"), re.M | re.S)
    return [block for block in blocks if not block.startswith("npm install")]


def on_our_servers(text, postgres, s3):
    told = s3.settings()
    for found, instead in (
            ("postgres://files@db.example.net/files", postgres.without_password().replace("postgresql:", "postgres:")),
            ("s3://files/shared", f"s3://{BUCKET}/document"), ("PGPASSWORD=...", f"PGPASSWORD={postgres.password()}"),
            ("AWS_ACCESS_KEY_ID=...", f"AWS_ACCESS_KEY_ID={told['AWS_ACCESS_KEY_ID']}"),
            ("AWS_SECRET_ACCESS_KEY=...", f"AWS_SECRET_ACCESS_KEY={told['AWS_SECRET_ACCESS_KEY']}"),
            ("https://s3.example.net", told["AWS_ENDPOINT_URL_S3"])):
        text = text.replace(found, instead)
    assert "example.net" not in text and "=..." not in text
    return text


@pytest.mark.limit(180)
@pytest.mark.skipif(IS_LOCAL or not HELPER.exists(), reason="is about the store")
def test_its_commands_work_as_they_stand_there(workspace, postgres, s3):
    binaries = workspace / "bin"
    binaries.mkdir()
    program = Program(workspace)
    (binaries / "kemvi").symlink_to(program.path)
    (binaries / "kemvi-store").symlink_to(TOOL)
    environment = program.environment | {"PATH": f"{binaries}:{os.environ['PATH']}"}
    script = "set -e\n" + on_our_servers("".join(commands()), postgres, s3)
    script += "echo shared > ~/tree/file\nkemvi unmount ~/tree\nkemvi mount ~/shared ~/tree\ncat ~/tree/file\nkemvi unmount ~/tree\n"
    try:
        done = subprocess.run(["bash", "-c", script], cwd=workspace, env=environment, stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=4 * LIMIT, check=False)
        assert done.returncode == 0, done.stdout + done.stderr
        assert done.stdout.endswith("shared\n"), script + done.stdout + done.stderr
    finally:
        system.clear_away(workspace)
