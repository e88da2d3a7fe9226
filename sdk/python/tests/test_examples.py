"""The examples in Python, and what `kemvi check` says of them and of `local`."""
from __future__ import annotations

import base64
import json
import os
import re
import shutil
import sqlite3
import subprocess
import sys
import unittest
from pathlib import Path
from typing import Any

from driver import KIT, TOP, Driver, temporary_folder
from test_package import MYPY, check_types

EXAMPLES = TOP / "examples/python"
WITH_KIT = ("hello.py", "database.py", "memory.py")


def walk(test: unittest.TestCase, helper: Driver, folder: str = "/") -> dict[str, Any]:
    """Everything that a helper shows, each file read whole, None for an empty folder; listing and getattr must agree."""
    found: dict[str, Any] = {}
    for entry in helper.ok("readdir", path=folder):
        test.assertEqual(helper.ok("getattr", path=entry["path"]), entry)
        if entry["isDirectory"]:
            found |= walk(test, helper, entry["path"]) or {entry["path"]: None}
            continue
        handle = helper.ok("open", path=entry["path"], flags=["read"])["handle"]
        data = helper.ok("read", handle=handle, offset=0, length=1 << 20)
        test.assertEqual(len(data), entry["size"], entry)
        test.assertEqual(helper.ok("read", handle=handle, offset=len(data), length=10), b"")
        helper.ok("release", handle=handle)
        found[entry["path"]] = data.decode()
    return found


def sample_database(folder: Path) -> Path:
    file = folder / "sample.db"
    with sqlite3.connect(file) as made:
        made.executescript("""
            CREATE TABLE people (id INTEGER PRIMARY KEY, name TEXT);
            INSERT INTO people VALUES (1, 'Ada'), (2, 'Gr\u00fc\u00df "e"');
            CREATE VIEW first AS SELECT name FROM people WHERE id = 1;
            CREATE TABLE "odd name" (key TEXT PRIMARY KEY, value);
            INSERT INTO "odd name" VALUES ('a b', 2.5), ('no/name', 1);
            CREATE TABLE keyless (a, b);
        """)
    made.close()
    return file


class Examples(unittest.TestCase):
    def start(self, name: str, root: object = "") -> Driver:
        return Driver(self, [sys.executable, EXAMPLES / name], {"KEMVI_REPO_ROOT": str(root)})

    @unittest.skipUnless(MYPY, "mypy is not installed")
    def test_their_types_are_right(self) -> None:
        self.assertEqual(check_types(*(EXAMPLES / name for name in WITH_KIT)), "")

    def test_the_tutorial_shows_hello_as_it_ships(self) -> None:
        blocks = re.findall(r"(?ms)^```python\n(.*?)^```$", (TOP / "docs/writing-a-helper.md").read_text())
        self.assertEqual(blocks, [(EXAMPLES / "hello.py").read_text()])

    def test_hello_is_about_forty_lines_and_an_open_file_stays_as_it_is(self) -> None:
        self.assertLessEqual((EXAMPLES / "hello.py").read_text().count("\n"), 45)
        helper = self.start("hello.py")
        self.assertEqual({entry["name"] for entry in helper.ok("readdir", path="/")}, {"hello.txt", "seconds.txt"})
        handle = helper.ok("open", path="/seconds.txt", flags=["read"])["handle"]
        first = helper.ok("read", handle=handle, offset=0, length=10_000)
        before = after = helper.ok("getattr", path="/seconds.txt")
        while after["size"] == before["size"]:
            after = helper.ok("getattr", path="/seconds.txt")
        self.assertGreater(after["modifiedAt"], before["modifiedAt"])
        self.assertEqual(helper.ok("read", handle=handle, offset=0, length=10_000), first)
        self.assertEqual(helper.code("getattr", path="/none"), "ENOENT")
        self.assertEqual(helper.code("readdir", path="/hello.txt"), "ENOTDIR")
        self.assertEqual(helper.code("open", path="/hello.txt", flags=["write", "create"]), "EROFS")
        self.assertEqual(helper.end(), 0)

    def test_database_shows_tables_and_rows_and_what_others_change(self) -> None:
        file = sample_database(temporary_folder(self))
        helper = self.start("database.py", file)
        found = walk(self, helper)
        self.assertEqual({path: found.pop(path) for path in list(found) if path.endswith(".sql")}, {
            "/people/definition.sql": "CREATE TABLE people (id INTEGER PRIMARY KEY, name TEXT);\n",
            "/first/definition.sql": "CREATE VIEW first AS SELECT name FROM people WHERE id = 1;\n",
            "/odd name/definition.sql": 'CREATE TABLE "odd name" (key TEXT PRIMARY KEY, value);\n',
            "/keyless/definition.sql": "CREATE TABLE keyless (a, b);\n"})
        self.assertEqual({path: json.loads(found.pop(path)) for path in list(found) if path.endswith(".json")}, {
            "/people/rows/1.json": {"id": 1, "name": "Ada"}, "/people/rows/2.json": {"id": 2, "name": 'Gr\u00fc\u00df "e"'},
            "/odd name/rows/a b.json": {"key": "a b", "value": 2.5}})
        self.assertEqual(found, {
            "/people/rows.csv": 'id,name\n1,Ada\n2,"Gr\u00fc\u00df ""e"""\n', "/first/rows.csv": "name\nAda\n",
            "/odd name/rows.csv": "key,value\na b,2.5\nno/name,1\n", "/keyless/rows.csv": "a,b\n"})
        for path in ("/none", "/people/none", "/people/rows/9.json", "/people/rows/1.json/x", "/keyless/rows", "/first/rows/1"):
            self.assertEqual(helper.code("getattr", path=path), "ENOENT", path)
        self.assertEqual(helper.code("open", path="/people", flags=["read"]), "EISDIR")
        with sqlite3.connect(file) as changing:
            changing.execute("INSERT INTO people VALUES (3, 'New')")
        changing.close()
        self.assertEqual(helper.ok("getattr", path="/people/rows/3.json")["isDirectory"], False)
        self.assertEqual(helper.end(), 0)
        self.assertEqual(helper.stderr, "")

    def test_database_says_what_is_wrong_with_its_file(self) -> None:
        text = temporary_folder(self) / "text"
        text.write_text("This is no database at all, however long it is.\n" * 100)
        for file in (text, text.with_name("none"), ""):
            helper = self.start("database.py", file)
            self.assertEqual(helper.exit(), 1)
            self.assertRegex(helper.stderr, r"\Adatabase: KEMVI_REPO_ROOT must name an SQLite database: .*\n\Z")

    def test_memory_keeps_what_is_written(self) -> None:
        helper = self.start("memory.py")

        def opened(path: str, *flags: str) -> int:
            return int(helper.ok("open", path=path, flags=list(flags))["handle"])

        def write(handle: int, offset: int, data: bytes) -> None:
            helper.ok("write", handle=handle, offset=offset, dataBase64=base64.b64encode(data).decode())

        helper.ok("mkdir", path="/d")
        handle = opened("/d/f", "write", "create")
        write(handle, 0, b"hello")
        write(handle, 7, b"!")
        helper.ok("utimes", path="/d/f", mtime="2024-05-01T12:34:56.789Z")
        helper.ok("chmod", path="/d/f", mode=0o600)
        self.assertEqual(helper.ok("readdir", path="/d"), [
            {"path": "/d/f", "name": "f", "isDirectory": False, "size": 8, "modifiedAt": "2024-05-01T12:34:56.789Z"}])
        for op, fields, code in (
            ("mkdir", {"path": "/d"}, "EEXIST"), ("unlink", {"path": "/d"}, "ENOTEMPTY"), ("unlink", {"path": "/"}, "EPERM"),
            ("unlink", {"path": "/x"}, "ENOENT"), ("readdir", {"path": "/d/f"}, "ENOTDIR"),
            ("getattr", {"path": "/d/f/x"}, "ENOTDIR"), ("open", {"path": "/d", "flags": ["read"]}, "EISDIR"),
            ("rename", {"oldPath": "/d", "newPath": "/d/e"}, "EINVAL"), ("rename", {"oldPath": "/x", "newPath": "/y"}, "ENOENT"),
        ):
            self.assertEqual(helper.code(op, **fields), code, (op, fields))
        helper.ok("mkdir", path="/e")
        self.assertEqual(helper.code("rename", oldPath="/d/f", newPath="/e"), "EISDIR")
        self.assertEqual(helper.code("rename", oldPath="/e", newPath="/d/f"), "ENOTDIR")
        self.assertEqual(helper.code("rename", oldPath="/e", newPath="/d"), "ENOTEMPTY")
        helper.ok("rename", oldPath="/d", newPath="/e")
        helper.ok("rename", oldPath="/e/f", newPath="/e/f")
        self.assertEqual(walk(self, helper), {"/e/f": "hello\0\0!"})
        self.assertEqual(helper.ok("getattr", path="/e/f")["size"], 8)
        opened("/e/f", "write", "create", "truncate")
        self.assertEqual(walk(self, helper), {"/e/f": ""})
        helper.ok("unlink", path="/e/f")
        write(handle, 0, b"nameless")
        helper.ok("unlink", path="/e")
        self.assertEqual(walk(self, helper), {})
        self.assertEqual(helper.end(), 0)


@unittest.skipUnless(os.environ.get("KEMVI_TEST_COMMAND"), "KEMVI_TEST_COMMAND names no kemvi")
class Check(unittest.TestCase):
    """What `kemvi check` finds."""

    def check(self, root: Path, program: Path, *arguments: str) -> None:
        source = temporary_folder(self)
        (source / "mount-config.json").write_text(json.dumps({
            "driveId": "test", "kemviHome": str(source), "repoRoot": str(root),
            "helperPath": str(TOP / "sdk/node/helpers/program.mjs"), "helperCommand": [sys.executable, str(program)]}))
        done = subprocess.run([os.environ["KEMVI_TEST_COMMAND"], "check", str(source), *arguments], check=False,
                              capture_output=True, text=True, timeout=240,
                              env={**os.environ, "PYTHONPATH": str(KIT), "PYTHONDONTWRITEBYTECODE": "1"})
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertTrue(done.stdout.endswith("\n0 errors, 0 warnings\n"), done.stdout + done.stderr)

    def test_local(self) -> None:
        root = temporary_folder(self)
        shutil.copytree(EXAMPLES, root / "examples")
        self.check(root, KIT / "helpers/local", "--write", "/")

    def test_memory(self) -> None:
        self.check(temporary_folder(self), EXAMPLES / "memory.py", "--write", "/")

    def test_hello(self) -> None:
        self.check(temporary_folder(self), EXAMPLES / "hello.py")

    def test_database(self) -> None:
        self.check(sample_database(temporary_folder(self)), EXAMPLES / "database.py")


if __name__ == "__main__":
    unittest.main()
