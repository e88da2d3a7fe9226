"""The command for macOS, built from its own sources and run here: python3 command.py KEMVI HELPERS."""

import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2]))
from harness.deadline import eventually  # noqa: E402
from harness.system import is_alive  # noqa: E402

KEMVI, HELPERS = (Path(argument).resolve() for argument in sys.argv[1:3])
CONTAINER = "Library/Containers/com.kemvi.fs.extension/Data"
LIMIT = 120  # seconds, for whatever the command does

# Answers a ping; anything else with an error of the code it is told, or without a code not at all. Its child, and not its
# input, decides how long it lives.
HELPER = """
import { spawn } from 'node:child_process'
import { createInterface } from 'node:readline'
import { writeFileSync } from 'node:fs'
const child = spawn('sleep', ['600'], { stdio: 'ignore' })
writeFileSync(process.env.NOTE, `${process.pid} ${child.pid}`)
const answer = (fields) => process.stdout.write(JSON.stringify(fields) + '\\n')
createInterface({ input: process.stdin }).on('line', (line) => {
    const { id, op } = JSON.parse(line)
    if (op === 'ping')
        answer({ id, ok: true })
    else if (process.env.CODE)
        answer({ id, ok: false, error: { message: 'no', code: process.env.CODE } })
})
"""


class CommandTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.home = Path(folder.name).resolve()
        self.container = self.home / CONTAINER
        self.tree = self.container / "tree"
        (self.tree / "folder").mkdir(parents=True)
        (self.tree / "folder/a.txt").write_text("some words\n")
        self.source = self.home / "my drive"
        self.note = self.home / "note"
        self.environment = {**os.environ, "HOME": str(self.home), "NOTE": str(self.note)}

    def run_command(self, *words):
        return subprocess.run([KEMVI, *words], cwd=self.home, env=self.environment, capture_output=True, text=True,
                              timeout=LIMIT, check=False)

    def init(self, *words):
        result = self.run_command("init", self.source, "--repo-root", self.tree, *words)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def test_init_writes_what_the_extension_reads(self):
        told = self.init("--drive-id", "photos")
        self.assertEqual(json.loads((self.source / "mount-config.json").read_text()), {
            "driveId": "photos", "kemviHome": str(self.container / "kemvi"), "repoRoot": str(self.tree),
            "helperPath": str(HELPERS / "local.mjs")})
        self.assertEqual(told.splitlines()[-1], f"Next: mount -F -t kemvifs '{self.source}' MOUNTPOINT")
        self.assertNotIn("sandbox", told)

    def test_init_tells_what_the_sandbox_refuses(self):
        result = self.run_command("init", "drive")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertIn(f"The extension's sandbox lets a helper work in {self.container} alone", result.stdout)

    def test_a_tree_is_examined(self):
        self.init()
        result = self.run_command("check", self.source, "--write", "/", "--json")
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertEqual(json.loads(result.stdout)["errors"], 0)
        self.assertEqual(sorted(each.name for each in self.tree.iterdir()), ["folder"])

    def init_for_helper(self, code):
        helper = self.home / "helper.mjs"
        helper.write_text(HELPER)
        self.init("--helper", helper, "--env", f"CODE={code}")

    def assert_all_ended(self):
        helper_and_child = [int(word) for word in self.note.read_text().split()]
        self.assertEqual(len(helper_and_child), 2)
        eventually(lambda: not any(is_alive(process) for process in helper_and_child), 30, "the helper's end")

    def test_codes_are_those_of_macos(self):
        for code, status in (("EFTYPE", "ok"), ("EREMOTEIO", "FAIL")):
            with self.subTest(code=code):
                shutil.rmtree(self.source, ignore_errors=True)
                self.init_for_helper(code)
                checks = json.loads(self.run_command("check", self.source, "--json").stdout)["checks"]
                self.assertEqual([each["status"] for each in checks if each["name"].endswith("POSIX code")], [status])

    def test_a_helper_that_hangs_is_ended_with_its_children(self):
        self.init_for_helper("")
        result = self.run_command("check", self.source, "--op-timeout", "5")
        self.assertIn(result.returncode, (5, 12), result.stdout + result.stderr)  # 5: node came late
        self.assert_all_ended()

    def test_a_signal_ends_check_and_helper(self):
        self.init_for_helper("")
        with subprocess.Popen([KEMVI, "check", self.source, "--op-timeout", "3600"], env=self.environment, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as check:
            line = check.stderr.readline()  # of progress, which comes once something lasts
            check.send_signal(signal.SIGTERM)
            output, told = check.communicate(timeout=LIMIT)
        self.assertEqual(check.returncode, 13, line + told)
        self.assertTrue(output.splitlines()[-1].startswith("interrupted"), output)
        self.assert_all_ended()

    def test_mounting_is_left_to_the_system(self):
        for words in (["my drive", "/Volumes/it's"], ["-o", "rdonly", "my drive", "/Volumes/it's"]):
            result = self.run_command("mount", *words)
            self.assertEqual((result.returncode, result.stdout), (2, ""))
            self.assertIn(f"run: mount -F -t kemvifs '{self.source}' '/Volumes/it'\\''s'", result.stderr)

    def test_there_is_nothing_else(self):
        result = self.run_command("unmount", "point")
        self.assertEqual((result.returncode, result.stdout), (2, ""))
        self.assertIn("there is no such command", result.stderr)
        self.assertRegex(self.run_command("--version").stdout, r"\Akemvi \d+\.\d+\.\d+\nsimdjson ")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
