"""The package itself: what it needs, what it says of its types, and that its documents work."""
from __future__ import annotations

import ast
import re
import shutil
import subprocess
import sys
import unittest
from pathlib import Path

from driver import KIT, TOP, Driver, temporary_folder

SOURCES = sorted((KIT / "kemvi_helper").glob("*.py"))
MYPY = shutil.which("mypy")


def check_types(*files: Path) -> str:
    """What mypy finds wrong."""
    assert MYPY
    done = subprocess.run([MYPY, "--strict", "--cache-dir=/dev/null", *map(str, files)], capture_output=True, text=True,
                          check=False, env={"MYPYPATH": str(KIT), "PATH": "/usr/bin:/bin"})
    return "" if done.returncode == 0 else done.stdout + done.stderr


class Package(unittest.TestCase):
    def readme(self) -> Path:
        text = (KIT / "README.md").read_text()
        found = re.search(r"(?ms)^```python\n(.*?)^```$", text)
        assert found
        file = temporary_folder(self) / "hello.py"
        file.write_text(found[1])
        return file

    def test_it_needs_the_standard_library_alone(self) -> None:
        for source in SOURCES:
            for node in ast.walk(ast.parse(source.read_text())):
                names = []
                if isinstance(node, ast.Import):
                    names = [each.name for each in node.names]
                elif isinstance(node, ast.ImportFrom) and node.level == 0:
                    names = [node.module or ""]
                for name in names:
                    self.assertIn(name.partition(".")[0], sys.stdlib_module_names, source)

    def test_asyncio_is_not_loaded_before_it_is_used(self) -> None:
        code = "import sys, kemvi_helper; sys.exit('asyncio' in sys.modules)"
        subprocess.run([sys.executable, "-B", "-c", code], cwd=KIT, check=True)

    @unittest.skipUnless(MYPY, "mypy is not installed")
    def test_the_types_are_right(self) -> None:
        self.assertEqual(check_types(*SOURCES), "")
        self.assertEqual(check_types(self.readme()), "")

    @unittest.skipUnless(MYPY, "mypy is not installed")
    def test_the_types_find_a_mistake(self) -> None:
        file = self.readme()
        file.write_text(file.read_text().replace("-> list[Entry]:", "-> list[str]:").replace(
            'Entry("hello.txt", size=len(TEXT))', '"hello.txt"'))
        self.assertIn('incompatible type "Hello"; expected "FileSystem"', check_types(file))

    def test_the_readme_s_helper_works(self) -> None:
        helper = Driver(self, [sys.executable, self.readme()])
        self.assertEqual([entry["path"] for entry in helper.ok("readdir", path="/")], ["/hello.txt"])
        handle = helper.ok("open", path="/hello.txt", flags=["read"])["handle"]
        self.assertEqual(helper.ok("read", handle=handle, offset=1, length=3), b"ell")
        self.assertEqual(helper.code("getattr", path="/none"), "ENOENT")
        self.assertEqual(helper.code("open", path="/hello.txt", flags=["write", "create"]), "EROFS")
        self.assertEqual(helper.end(), 0)
        self.assertEqual(helper.stderr, "")

    def test_its_version_is_that_of_everything(self) -> None:
        text = (KIT / "pyproject.toml").read_text()
        self.assertIn(f'\nversion = "{(TOP / "VERSION").read_text().strip()}"\n', text)

    def test_pip_installs_it(self) -> None:
        folder = temporary_folder(self)
        source = folder / "source"  # the build leaves files beside the sources
        shutil.copytree(KIT, source, ignore=shutil.ignore_patterns("__pycache__"))
        done = subprocess.run(
            [sys.executable, "-m", "pip", "install", "--quiet", "--no-index", "--no-build-isolation", "--no-deps",
             "--disable-pip-version-check", "--root-user-action=ignore", "--target", str(folder / "into"), str(source)],
            capture_output=True, text=True, check=False)
        if "No module named pip" in done.stderr or "No module named 'setuptools" in done.stderr:
            self.skipTest("pip or setuptools is not installed")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        installed = {path.name for path in (folder / "into/kemvi_helper").iterdir() if path.is_file()}
        self.assertEqual(installed, {path.name for path in SOURCES} | {"py.typed"})


if __name__ == "__main__":
    unittest.main()
