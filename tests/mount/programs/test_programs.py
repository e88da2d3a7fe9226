"""Programs that people use, on real work: what they leave behind is what they leave on a local disk."""

import hashlib
import os
import random
import shutil
import signal
import sqlite3
import subprocess
import sys
import tarfile

import pytest

from harness.deadline import eventually
from harness.worker import script


def need(*names):
    """The first of these programs that is installed."""
    found = next((name for name in names if shutil.which(name)), None)
    if not found:
        pytest.skip(f"{names[0]} is not installed")
    return found


def run(*command, cwd=None, limit=120, **more):
    """Runs a program to its end; its output, or a failure that shows it."""
    environment = dict(os.environ, GIT_CONFIG_NOSYSTEM="1", GIT_AUTHOR_NAME="Test", GIT_AUTHOR_EMAIL="test@localhost",
                       GIT_COMMITTER_NAME="Test", GIT_COMMITTER_EMAIL="test@localhost", HOME=str(cwd or "/tmp"),
                       GIT_CONFIG_COUNT="1", GIT_CONFIG_KEY_0="safe.directory", GIT_CONFIG_VALUE_0="*",
                       GIT_TERMINAL_PROMPT="0")
    done = subprocess.run(list(map(str, command)), cwd=cwd, capture_output=True, text=True, errors="replace", check=False,
                          timeout=limit, env=environment, stdin=subprocess.DEVNULL, **more)
    assert done.returncode == 0, f"{command}: {done.returncode}\n{done.stdout[-2000:]}{done.stderr[-2000:]}"
    return done.stdout


def make_tree(folder, count, seed=1):
    """A source tree: text of very different lengths in folders of several levels."""
    source = random.Random(seed)
    for index in range(count):
        place = folder / f"part{index % 17}" / f"sub{index % 5}"
        place.mkdir(parents=True, exist_ok=True)
        lines = source.choice([0, 1, 5, 40, 200, 2000 if index % 50 == 0 else 60])
        (place / f"file{index}.c").write_text("".join(f"int value{line} = {source.getrandbits(30)};\n" for line in range(lines)))
    (folder / "empty folder").mkdir()
    (folder / "n\u00e4me with space").write_text("text\n")
    return folder


def contents(folder):
    told = {}
    for place, folders, files in os.walk(folder):
        if ".git" in folders:
            folders.remove(".git")
        for name in files:
            path = os.path.join(place, name)
            with open(path, "rb") as file:
                told[os.path.relpath(path, folder)] = hashlib.sha256(file.read()).hexdigest()
        for name in folders:
            told[os.path.relpath(os.path.join(place, name), folder)] = "folder"
    return told


# git

@pytest.mark.limit(300)
@pytest.mark.parametrize("count", [300, pytest.param(2500, marks=pytest.mark.long)])
def test_git_clones_commits_packs_and_checks(volume, workspace, count):
    need("git")
    origin = make_tree(workspace / "origin", count)
    run("git", "init", "-q", "-b", "main", cwd=origin)
    run("git", "add", "-A", cwd=origin)
    run("git", "commit", "-q", "-m", "first", cwd=origin)
    clone = volume.path / "clone"
    run("git", "clone", "-q", "--no-local", origin, clone, cwd=workspace, limit=250)
    assert run("git", "status", "--porcelain", cwd=clone) == ""
    run("git", "fsck", "--full", "--strict", cwd=clone)
    assert {name: told for name, told in contents(clone).items() if told != "folder"} == \
        {name: told for name, told in contents(origin).items() if told != "folder"}

    (clone / "added").write_text("added\n")
    os.unlink(clone / "part1" / "sub1" / "file1.c")
    (clone / "part2" / "sub2" / "file2.c").write_text("changed\n")
    assert len(run("git", "status", "--porcelain", cwd=clone).splitlines()) == 3
    run("git", "checkout", "-q", "-b", "branch", cwd=clone)
    run("git", "add", "-A", cwd=clone)
    run("git", "commit", "-q", "-m", "second", cwd=clone)
    run("git", "mv", "part3", "moved", cwd=clone)
    run("git", "commit", "-q", "-m", "third", cwd=clone)
    run("git", "checkout", "-q", "main", cwd=clone)
    assert (clone / "part3").is_dir() and not (clone / "added").exists()
    run("git", "merge", "-q", "branch", cwd=clone)
    run("git", "stash", "list", cwd=clone)
    run("git", "gc", "-q", "--prune=now", cwd=clone, limit=250)
    run("git", "fsck", "--full", "--strict", cwd=clone)
    assert run("git", "status", "--porcelain", cwd=clone) == ""
    run("git", "push", "-q", "origin", "main:received", cwd=clone)
    run("git", "fsck", "--full", cwd=origin)


def test_git_repository_made_in_the_volume_serves_as_origin(volume, workspace):
    need("git")
    origin = make_tree(volume.path / "origin", 60)
    run("git", "init", "-q", "-b", "main", cwd=origin)
    run("git", "add", "-A", cwd=origin)
    run("git", "commit", "-q", "-m", "first", cwd=origin)
    run("git", "clone", "-q", "--no-local", origin, workspace / "clone", cwd=workspace)
    run("git", "fsck", "--full", "--strict", cwd=workspace / "clone")


# sqlite

@pytest.mark.parametrize("journal", ["delete", "truncate", "persist", "wal"])
def test_sqlite_keeps_its_promises_in_every_journal_mode(volume, journal):
    base = sqlite3.connect(volume.path / "base.db", timeout=20)
    assert base.execute(f"pragma journal_mode={journal}").fetchone()[0] == journal
    base.execute("create table t (id integer primary key, text)")
    for turn in range(5):
        with base:
            base.executemany("insert into t (text) values (?)", [(f"{turn} {row} " * 20,) for row in range(200)])
    base.execute("delete from t where id % 3 = 0")
    base.commit()
    base.execute("vacuum")
    other = sqlite3.connect(volume.path / "base.db", timeout=20)
    assert other.execute("select count(*) from t").fetchone() == base.execute("select count(*) from t").fetchone() == (667,)
    assert other.execute("pragma integrity_check").fetchone() == ("ok",)
    other.close()
    base.close()
    copy = sqlite3.connect(volume.backing / "base.db")
    assert copy.execute("pragma integrity_check").fetchone() == ("ok",)
    copy.close()


WRITER = """
import sqlite3, sys
base = sqlite3.connect(sys.argv[1], timeout=60, isolation_level=None)
for row in range(int(sys.argv[3])):
    base.execute('begin immediate')
    base.execute('insert into t (writer) values (?)', (sys.argv[2],))
    base.execute('commit')
"""


@pytest.mark.parametrize("journal", ["delete", "wal"])
def test_sqlite_writers_in_several_processes_lose_no_row(volume, journal):
    base = sqlite3.connect(volume.path / "base.db", timeout=60)
    base.execute(f"pragma journal_mode={journal}")
    base.execute("create table t (id integer primary key, writer)")
    base.commit()
    writers = [script(WRITER, volume.path / "base.db", number, 30) for number in range(3)]
    assert [writer.wait(55) for writer in writers] == [0, 0, 0]
    assert base.execute("select writer, count(*) from t group by writer").fetchall() == [("0", 30), ("1", 30), ("2", 30)]
    assert base.execute("pragma integrity_check").fetchone() == ("ok",)
    base.close()


TRANSACTION = """
import sqlite3, sys, signal
base = sqlite3.connect(sys.argv[1], isolation_level=None)
base.execute('pragma cache_size=10')
base.execute('begin')
base.executemany('insert into t (text) values (?)', [('uncommitted ' * 50,) for row in range(3000)])
open(sys.argv[2], 'w').close()
signal.pause()
"""


@pytest.mark.parametrize("journal", ["delete", "wal"])
def test_sqlite_rolls_back_what_a_killed_process_had_not_committed(volume, workspace, journal):
    base = sqlite3.connect(volume.path / "base.db")
    base.execute(f"pragma journal_mode={journal}")
    base.execute("create table t (id integer primary key, text)")
    base.executemany("insert into t (text) values (?)", [("committed",)] * 100)
    base.commit()
    base.close()
    writer = script(TRANSACTION, volume.path / "base.db", workspace / "ready")
    eventually((workspace / "ready").exists, 40, "the open transaction")
    writer.send_signal(signal.SIGKILL)
    writer.wait(20)
    base = sqlite3.connect(volume.path / "base.db", timeout=20)
    assert base.execute("select count(*), min(text), max(text) from t").fetchone() == (100, "committed", "committed")
    assert base.execute("pragma integrity_check").fetchone() == ("ok",)
    base.close()


# Copying

@pytest.fixture
def original(workspace):
    return make_tree(workspace / "original", 250)


def test_rsync_copies_all_and_finds_nothing_to_do_the_second_time(volume, original):
    need("rsync")
    arguments = ["rsync", "-a", "--itemize-changes", "--no-owner", "--no-group", "--no-perms", f"{original}/", volume.path / "copy"]
    assert len(run(*arguments).splitlines()) > 250
    again = [line for line in run(*arguments).splitlines() if not line.startswith("cd") and not line.startswith(".d")]
    assert again == []
    assert contents(volume.path / "copy") == contents(original)
    (original / "part1" / "sub1" / "file1.c").write_text("changed and longer\n")
    assert len([line for line in run(*arguments).splitlines() if line.startswith(">f")]) == 1
    run("rsync", "-a", "--checksum", "--delete", f"{volume.path / 'copy'}/", original.parent / "back")
    assert contents(original.parent / "back") == contents(original)


def test_rsync_with_everything_preserved_works_for_own_files(volume, original):
    need("rsync")
    run("rsync", "-a", f"{original}/", volume.path / "copy")
    assert contents(volume.path / "copy") == contents(original)


def test_tar_out_of_and_into_the_volume_is_the_same(volume, original, workspace):
    run("tar", "-cf", workspace / "archive.tar", "-C", original, ".")
    (volume.path / "tree").mkdir()
    run("tar", "-xf", workspace / "archive.tar", "-C", volume.path / "tree", "--no-same-owner")
    assert contents(volume.path / "tree") == contents(original)
    for name in ("part1/sub1/file1.c", "part2/sub2/file2.c"):
        assert abs(os.stat(volume.path / "tree" / name).st_mtime - os.stat(original / name).st_mtime) < 1.001
    run("tar", "-czf", volume.path / "again.tar.gz", "-C", volume.path / "tree", ".")
    with tarfile.open(volume.path / "again.tar.gz") as archive:
        archive.extractall(workspace / "back")
    assert contents(workspace / "back") == contents(original)


def test_cp_r_in_and_out_is_the_same(volume, original, workspace):
    run("cp", "-r", original, volume.path / "copy")
    run("diff", "-r", original, volume.path / "copy")
    run("cp", "-a", "--no-preserve=ownership,mode", volume.path / "copy", workspace / "back")
    run("diff", "-r", original, workspace / "back")
    run("mv", volume.path / "copy", volume.path / "moved")
    run("diff", "-r", original, volume.path / "moved")
    run("rm", "-r", volume.path / "moved")
    assert os.listdir(volume.backing) == []


@pytest.mark.long
@pytest.mark.limit(200)
def test_file_of_300_mib_comes_back_the_same(volume, workspace):
    block = random.Random(7).randbytes(1 << 20)
    wanted, size = hashlib.sha256(), 300
    with open(volume.path / "large", "wb", buffering=0) as file:
        for index in range(size):
            part = index.to_bytes(8, "big") + block[8:]
            assert file.write(part) == len(part)
            wanted.update(part)
    got = hashlib.sha256()
    with open(volume.path / "large", "rb", buffering=0) as file:
        os.posix_fadvise(file.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)
        while part := file.read(1 << 20):
            got.update(part)
    assert got.hexdigest() == wanted.hexdigest() and os.stat(volume.path / "large").st_size == size << 20
    held = hashlib.sha256()
    with open(volume.backing / "large", "rb") as file:
        while part := file.read(1 << 20):
            held.update(part)
    assert held.hexdigest() == wanted.hexdigest()


# Building

SOURCES = {
    "CMakeLists.txt": "cmake_minimum_required(VERSION 3.13)\nproject(small C)\nadd_library(part SHARED part.c)\n"
                      "add_executable(small main.c)\ntarget_link_libraries(small part)\n",
    "part.h": "int twice(int);\n",
    "part.c": '#include "part.h"\nint twice(int x) { return 2 * x; }\n',
    "main.c": '#include "part.h"\n#include <stdio.h>\nint main(void) { printf("%d\\n", twice(21)); return 0; }\n',
}


@pytest.mark.long
@pytest.mark.limit(200)
def test_cmake_project_builds_runs_and_rebuilds_only_what_changed(request, volume):
    need("cmake")
    need("gcc")
    if not request.config.getoption("--plain"):
        volume = request.getfixturevalue("mount")(options=["fmask=022"])
    for name, text in SOURCES.items():
        (volume.path / name).write_text(text)
    run("cmake", "-S", volume.path, "-B", volume.path / "build", "-G", "Unix Makefiles", cwd=volume.path)
    run("cmake", "--build", volume.path / "build", "-j2", cwd=volume.path)
    assert run(volume.path / "build" / "small") == "42\n"
    assert "Building" not in run("cmake", "--build", volume.path / "build", cwd=volume.path)
    (volume.path / "part.c").write_text(SOURCES["part.c"].replace("2 *", "3 *"))
    again = run("cmake", "--build", volume.path / "build", cwd=volume.path)
    assert "part.c" in again and "main.c" not in again
    assert run(volume.path / "build" / "small") == "63\n"


@pytest.mark.long
@pytest.mark.limit(200)
def test_npm_installs_a_local_package_with_many_files(volume, workspace):
    need("npm")
    package = workspace / "package"
    (package / "lib").mkdir(parents=True)
    (package / "package.json").write_text('{"name": "many-files", "version": "1.0.0", "main": "lib/index.js"}')
    (package / "lib" / "index.js").write_text("module.exports = require('./file7');")
    for index in range(600):
        (package / "lib" / f"file{index}.js").write_text(f"module.exports = {index};\n" * (index % 30 + 1))
    with tarfile.open(workspace / "many-files.tgz", "w:gz") as archive:
        archive.add(package, "package")
    (volume.path / "project").mkdir()
    (volume.path / "project" / "package.json").write_text('{"name": "project", "version": "1.0.0"}')
    run("npm", "install", "--offline", "--no-bin-links", "--no-audit", "--no-fund", "--cache", workspace / "cache",
        workspace / "many-files.tgz", cwd=volume.path / "project", limit=180)
    assert len(os.listdir(volume.path / "project" / "node_modules" / "many-files" / "lib")) == 601
    assert run("node", "-e", "console.log(require('many-files'))", cwd=volume.path / "project") == "7\n"
    run("npm", "uninstall", "--offline", "--no-audit", "--no-fund", "--cache", workspace / "cache", "many-files",
        cwd=volume.path / "project", limit=120)
    assert not (volume.path / "project" / "node_modules" / "many-files").exists()


def test_python_compiles_and_imports_from_the_volume(volume):
    package = volume.path / "package"
    package.mkdir()
    for index in range(40):
        (package / f"module{index}.py").write_text(f"value = {index}\n")
    (package / "__init__.py").write_text("")
    run(sys.executable, "-m", "compileall", "-q", package)
    assert len(os.listdir(package / "__pycache__")) == 41
    told = run(sys.executable, "-c", "import package.module7; print(package.module7.value)", cwd=volume.path)
    assert told == "7\n"


# Editing

@pytest.mark.parametrize("settings", ["", "set backup writebackup", "set backupcopy=yes", "set noswapfile"])
def test_vim_saves(volume, settings):
    vim = need("vim", "vim.tiny")
    (volume.path / "text").write_text("first line\nsecond line\n")
    for turn in ("one", "two"):
        run(vim, "-u", "NONE", "-i", "NONE", "-n" if "noswap" in settings else "-N", "-es",
            "-c", settings or "set nobackup", "-c", f"%s/line/{turn} line/", "-c", "wq", volume.path / "text",
            cwd=volume.path)
    assert (volume.path / "text").read_text() == "first one two line\nsecond one two line\n"
    assert set(os.listdir(volume.path)) - {"text~", ".viminfo"} == {"text"}


def test_editor_that_saves_by_replacing_works_while_others_read(volume):
    """Write beside, give it the modes of the original, synchronise, rename over; a reader keeps what it opened."""
    path = volume.path / "document"
    path.write_text("version 0\n")
    readers = []
    for version in range(1, 15):
        readers.append(open(path, encoding="ascii"))
        beside = volume.path / f".document.{os.getpid()}.tmp"
        with open(beside, "x", encoding="ascii") as file:
            file.write(f"version {version}\n" * version)
            file.flush()
            os.fchmod(file.fileno(), 0o644)
            os.fsync(file.fileno())
        os.replace(beside, path)
        folder = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
        os.fsync(folder)
        os.close(folder)
        assert path.read_text() == f"version {version}\n" * version
    for version, reader in enumerate(readers):
        assert reader.read() == f"version {version}\n" * max(version, 1)
        reader.close()
    assert os.listdir(volume.path) == ["document"]
