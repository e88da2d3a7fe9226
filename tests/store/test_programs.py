"""Programs that people use, on a tree that others see: what one machine leaves is whole on another."""

import hashlib
import os
import shutil
import sqlite3
import subprocess
import tarfile
import time
from contextlib import closing

import pytest

from harness.deadline import SLOWNESS, eventually
from harness.length import amount
from machines import IS_LOCAL


def need(name):
    if not shutil.which(name):
        pytest.skip(f"{name} is not installed")


def run(*command, cwd, limit=200):
    environment = dict(os.environ, HOME=str(cwd), GIT_CONFIG_NOSYSTEM="1", GIT_AUTHOR_NAME="Test", GIT_AUTHOR_EMAIL="test@localhost",
                       GIT_COMMITTER_NAME="Test", GIT_COMMITTER_EMAIL="test@localhost", GIT_CONFIG_COUNT="1",
                       GIT_CONFIG_KEY_0="safe.directory", GIT_CONFIG_VALUE_0="*", GIT_TERMINAL_PROMPT="0")
    done = subprocess.run(list(map(str, command)), cwd=cwd, capture_output=True, text=True, errors="replace", check=False,
                          timeout=limit * SLOWNESS, env=environment, stdin=subprocess.DEVNULL)
    assert done.returncode == 0, f"{command}: {done.returncode}\n{done.stdout[-2000:]}{done.stderr[-2000:]}"
    return done.stdout


def make_tree(folder, count):
    for number in range(count):
        place = folder / f"part{number % 7}" / f"sub{number % 3}"
        place.mkdir(parents=True, exist_ok=True)
        (place / f"file{number}.c").write_text(f"int value{number};\n" * (number % 60))
    (folder / "large").write_bytes(os.urandom(700_000))
    return folder


def sums(folder):
    told = {}
    for place, _, files in os.walk(folder):
        for name in files:
            path = os.path.join(place, name)
            with open(path, "rb") as file:
                told[os.path.relpath(path, folder)] = hashlib.sha256(file.read()).hexdigest()
    return told


@pytest.fixture
def machines(store):
    return store.several(2)


@pytest.fixture
def origin(workspace):
    return make_tree(workspace / "origin", amount(300, 60))


@pytest.mark.limit(400)
def test_a_clone_on_one_is_whole_on_another(machines, workspace, origin):
    need("git")
    one, other = machines
    for words in (("init", "-q", "-b", "main"), ("add", "-A"), ("commit", "-q", "-m", "first")):
        run("git", *words, cwd=origin)
    run("git", "clone", "-q", "--no-local", origin, one.path / "clone", cwd=workspace)
    clone = other.path / "clone"
    run("git", "fsck", "--full", "--strict", cwd=clone)
    assert run("git", "status", "--porcelain", cwd=clone) == ""
    (clone / "added").write_text("added\n")
    run("git", "add", "-A", cwd=clone)
    run("git", "commit", "-q", "-m", "second", cwd=clone)
    assert run("git", "log", "--format=%s", cwd=one.path / "clone").split() == ["second", "first"]
    run("git", "gc", "-q", "--prune=now", cwd=one.path / "clone")
    run("git", "fsck", "--full", cwd=clone)


@pytest.mark.limit(400)
def test_an_archive_unpacked_and_a_copy_brought_up_to_date(machines, workspace, origin):
    need("rsync")
    one, other = machines
    with tarfile.open(workspace / "a.tar", "w") as archive:
        archive.add(origin, "tree")
    run("tar", "-xf", workspace / "a.tar", "--no-same-owner", cwd=one.path)
    assert sums(other.path / "tree") == sums(origin)
    (origin / "part1" / "sub1" / "file1.c").write_text("changed\n")
    os.unlink(origin / "part2" / "sub2" / "file2.c")
    run("rsync", "-rt", "--delete", f"{origin}/", f"{other.path}/tree/", cwd=workspace)
    assert sums(one.path / "tree") == sums(origin)
    assert run("rsync", "-rtni", "--delete", f"{origin}/", f"{one.path}/tree/", cwd=workspace) == "", "times are as they were set"


@pytest.mark.limit(300)
@pytest.mark.parametrize("journal", ["delete", "truncate"])
def test_a_database_with_one_writer_is_read_elsewhere(machines, journal):
    one, other = machines
    base = sqlite3.connect(one.path / "base.db", timeout=20)
    base.execute(f"pragma journal_mode={journal}")
    base.execute("create table t (id integer primary key, text)")
    for turn in range(amount(15, 5)):
        with base:
            base.executemany("insert into t (text) values (?)", [(f"text {turn} {row}" * 20,) for row in range(50)])
        with closing(sqlite3.connect(f"file:{other.path}/base.db?mode=ro", uri=True, timeout=20)) as reader:
            assert reader.execute("select count(*) from t").fetchone()[0] == 50 * (turn + 1)
            assert reader.execute("pragma integrity_check").fetchone()[0] == "ok"
    base.close()


@pytest.mark.limit(300)
def test_npm_installs_into_it(machines, workspace):
    need("npm")
    one, other = machines
    package = workspace / "package"
    make_tree(package, 60)
    (package / "package.json").write_text('{"name": "some-package", "version": "1.0.0", "main": "index.js"}')
    (package / "index.js").write_text("module.exports = 42;\n")
    run("npm", "pack", "--silent", "--offline", cwd=package)
    project = one.path / "project"
    project.mkdir()
    (project / "package.json").write_text('{"name": "project", "version": "1.0.0", "private": true}')
    run("npm", "install", "--no-bin-links", "--offline", "--no-audit", "--no-fund", "--cache", workspace / "cache",
        package / "some-package-1.0.0.tgz", cwd=project)
    assert run("node", "-p", "require('some-package')", cwd=other.path / "project").strip() == "42"


def block(number):
    return hashlib.sha256(b"%d" % number).digest() * (1 << 15)  # 1 MiB


@pytest.mark.limit(900)
def test_a_large_file(machines):
    """KEMVI_TEST_LARGE is its size in MiB."""
    one, other = machines
    count = int(os.environ.get("KEMVI_TEST_LARGE", amount(512, 48)))
    with open(one.path / "large", "wb", buffering=0) as file:
        for number in range(count):
            assert file.write(block(number)) == 1 << 20
    assert os.stat(other.path / "large").st_size == count << 20
    with open(other.path / "large", "rb", buffering=0) as file:
        for number in range(count):
            assert file.read(1 << 20) == block(number), f"MiB {number}"
    with open(other.path / "large", "r+b", buffering=0) as file:
        file.seek((count - 1) << 20)
        file.write(b"changed")
    with open(one.path / "large", "rb", buffering=0) as file:
        file.seek((count - 1) << 20)
        assert file.read(1 << 20) == b"changed" + block(count - 1)[7:]


@pytest.mark.limit(400)
def test_a_folder_of_100000_entries(machines, postgres, store):
    """Made where the rows are, which is quicker."""
    one, other = machines
    if IS_LOCAL:
        pytest.skip("is about rows")
    os.mkdir(one.path / "many")
    postgres.sql(f"""insert into kemvi_store.node (tree, id, parent, name, kind, size, mtime, mode, version)
        select t.id, nextval('kemvi_store.node_id'), f.id, 'entry' || lpad(n::text, 6, '0'), 'f', 0, 0, 420, 1
        from kemvi_store.tree t join kemvi_store.node f on f.tree = t.id and f.name = 'many', generate_series(1, 100000) n
        where t.name = '{store.settings["KEMVI_STORE_TREE"]}'""")
    begin = time.monotonic()
    names = os.listdir(one.path / "many")
    took = time.monotonic() - begin
    assert sorted(names) == [f"entry{number:06}" for number in range(1, 100_001)]
    assert took < 30 * SLOWNESS
    os.unlink(one.path / "many" / "entry050000")
    (other.path / "many" / "new").write_text("new")
    for machine in machines:
        eventually(lambda machine=machine: len(os.listdir(machine.path / "many")) == 100_000, 20, "both changes")
        assert (machine.path / "many" / "new").read_text() == "new"
