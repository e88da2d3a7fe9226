"""What the programs of the soak do. Each takes the root of a folder and what is kept open below it, and returns something
that must be the same on the mount and on a plain folder. Repeating one on a copy of the plain folder tells what an
interrupted one would have left, so none depends on anything but its arguments."""

import errno
import hashlib
import mmap
import os
import random
import shutil
import sqlite3
import stat as stat_module
import subprocess

LIMIT = 300  # seconds for a program

GIT_ENVIRONMENT = {
    "GIT_CONFIG_GLOBAL": "/dev/null", "GIT_CONFIG_NOSYSTEM": "1", "GIT_AUTHOR_NAME": "soak", "GIT_COMMITTER_NAME": "soak",
    "GIT_AUTHOR_EMAIL": "soak@localhost", "GIT_COMMITTER_EMAIL": "soak@localhost", "GIT_TERMINAL_PROMPT": "0",
    "GIT_PAGER": "cat", "GIT_OPTIONAL_LOCKS": "0",
}


def data(seed, length):
    return random.Random(seed).randbytes(length)


def digest_of(content):
    return [len(content), hashlib.sha1(content).hexdigest()]


def content_of(path):
    with open(path, "rb", buffering=0) as file:
        return file.readall()


def _write_all(descriptor, content, offset):
    view = memoryview(content)
    while view:
        done = os.pwrite(descriptor, view, offset)
        view, offset = view[done:], offset + done


def _append_all(descriptor, content):
    """A write that is cut short tells that the rest failed."""
    if os.write(descriptor, content) < len(content):
        raise OSError(errno.EIO, "a write was cut short")


def _count(memory, kind, number):
    memory[kind] = memory.get(kind, 0) + number


# Files


def write_at(root, memory, name, offset, seed, length, sync=False):
    content = data(seed, length)
    descriptor = os.open(os.path.join(root, name), os.O_WRONLY | os.O_CREAT, 0o644)
    try:
        _write_all(descriptor, content, offset)
        if sync:
            os.fsync(descriptor)
    finally:
        os.close(descriptor)
    _count(memory, "written", length)


def write_whole(root, memory, name, seed, length, sync=False):
    content = data(seed, length)
    descriptor = os.open(os.path.join(root, name), os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644)
    try:
        _write_all(descriptor, content, 0)
        if sync:
            os.fsync(descriptor)
    finally:
        os.close(descriptor)
    _count(memory, "written", length)


def append(root, memory, name, seed, length):
    descriptor = os.open(os.path.join(root, name), os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o644)
    try:
        _append_all(descriptor, data(seed, length))
    finally:
        os.close(descriptor)
    _count(memory, "written", length)


def truncate(root, _memory, name, size):
    os.truncate(os.path.join(root, name), size)


def copy(root, memory, name, target):
    content = content_of(os.path.join(root, name))
    descriptor = os.open(os.path.join(root, target), os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644)
    try:
        _write_all(descriptor, content, 0)
    finally:
        os.close(descriptor)
    _count(memory, "read", len(content))
    _count(memory, "written", len(content))


def map_write(root, memory, name, offset, seed, length, flush):
    """Changes bytes through a shared map; the file must be long enough."""
    descriptor = os.open(os.path.join(root, name), os.O_RDWR)
    try:
        with mmap.mmap(descriptor, 0) as view:
            before = hashlib.sha1(view).hexdigest()
            view[offset:offset + length] = data(seed, length)
            if flush:
                view.flush()
    finally:
        os.close(descriptor)
    _count(memory, "written", length)
    return before


def unlink(root, _memory, name):
    os.unlink(os.path.join(root, name))


def rename(root, _memory, name, target):
    os.rename(os.path.join(root, name), os.path.join(root, target))


def mkdir(root, _memory, name):
    os.mkdir(os.path.join(root, name))


def rmdir(root, _memory, name):
    os.rmdir(os.path.join(root, name))


def remove_tree(root, _memory, name):
    shutil.rmtree(os.path.join(root, name))


def many(root, memory, name, seed, count):
    """Many small files in a new folder."""
    lots = random.Random(seed)
    os.mkdir(os.path.join(root, name))
    for number in range(count):
        content = lots.randbytes(lots.randrange(2000))
        with open(os.path.join(root, name, f"{number:04d}"), "wb", buffering=0) as file:
            file.write(content)
        _count(memory, "written", len(content))


def read(root, memory, name):
    content = content_of(os.path.join(root, name))
    _count(memory, "read", len(content))
    return digest_of(content)


def stat(root, _memory, name):
    told = os.stat(os.path.join(root, name))
    return [0, told.st_size] if stat_module.S_ISREG(told.st_mode) else [stat_module.S_IFMT(told.st_mode), 0]


def listing(root, _memory, name):
    return sorted(os.listdir(os.path.join(root, name)))


def digest(root, memory, name):
    """Every name below a folder and every byte."""
    found = hashlib.sha1()
    base = os.path.join(root, name)
    for folder, folders, files in os.walk(base, onerror=raise_it):
        folders.sort()
        found.update(os.path.relpath(folder, base).encode() + b"/")
        for file in sorted(files):
            content = content_of(os.path.join(folder, file))
            _count(memory, "read", len(content))
            found.update(file.encode() + b" %d " % len(content) + content)
    return found.hexdigest()


def raise_it(error):
    raise error


# Files that stay open


def _kept(root, memory, name):
    files = memory.setdefault("files", {})
    if name not in files:
        files[name] = os.open(os.path.join(root, name), os.O_RDWR | os.O_CREAT | os.O_APPEND, 0o644)
    return files[name]


def kept_append(root, memory, name, seed, length):
    _append_all(_kept(root, memory, name), data(seed, length))
    _count(memory, "written", length)


def kept_sync(root, memory, name):
    os.fsync(_kept(root, memory, name))


def kept_read(root, memory, name):
    descriptor = _kept(root, memory, name)
    content = b""
    while True:
        more = os.pread(descriptor, 1 << 20, len(content))
        if not more:
            _count(memory, "read", len(content))
            return [os.fstat(descriptor).st_size, *digest_of(content)]
        content += more


def kept_truncate(root, memory, name, size):
    os.ftruncate(_kept(root, memory, name), size)


def kept_unlink(root, memory, name):
    """The file has no name any more, and lives on until `kept_close`."""
    _kept(root, memory, name)
    os.unlink(os.path.join(root, name))


def kept_close(_root, memory, name):
    descriptor = memory.get("files", {}).pop(name, None)
    if descriptor is not None:
        os.close(descriptor)


def let_go(_root, memory):
    for descriptor in memory.pop("files", {}).values():
        os.close(descriptor)
    for connection in memory.pop("connections", {}).values():
        connection.close()


# Programs


def _run(root, command, environment=None):
    try:
        done = subprocess.run(command, cwd=root, env={**os.environ, **(environment or {})}, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=LIMIT, check=True)
    except subprocess.TimeoutExpired as error:
        raise OSError(errno.ETIMEDOUT, f"{command} took more than {LIMIT} s") from error
    return done.stdout


def tar_in(root, _memory, folder, archive):
    _run(root, ["tar", "--sort=name", "--mtime=@0", "--owner=0", "--group=0", "--mode=u+rwX,go=rX", "-cf", archive, folder])


def tar_out(root, _memory, archive, folder):
    _run(root, ["tar", "-xf", archive, "-C", folder, "--no-same-owner"])


def git(root, _memory, repository, moment, *arguments):
    """A git command that changes something. The moment, in seconds, makes its commits the same on both sides."""
    when = {"GIT_AUTHOR_DATE": f"{1700000000 + moment} +0000", "GIT_COMMITTER_DATE": f"{1700000000 + moment} +0000"}
    when["GIT_CEILING_DIRECTORIES"] = str(root)  # never a repository that the folder of the run lies in
    return _run(os.path.join(root, repository),
                ["git", "-c", "core.fileMode=false", "-c", "gc.auto=0", "-c", "maintenance.auto=false",
                 "-c", "init.defaultBranch=main", "-c", "pack.threads=1", *arguments], {**GIT_ENVIRONMENT, **when})


def git_read(root, memory, repository, *arguments):
    return git(root, memory, repository, 0, *arguments)


# Databases


def connect(path):
    connection = sqlite3.connect(path, timeout=LIMIT, isolation_level=None)
    connection.execute("PRAGMA synchronous=FULL")
    return connection


def transaction(root, memory, name, mode, seed):
    """Some changes of a database, all or none. The connection stays open."""
    connections = memory.setdefault("connections", {})
    if name not in connections:
        connections[name] = connect(os.path.join(root, name))
        connections[name].execute(f"PRAGMA journal_mode={mode}")
        connections[name].execute("CREATE TABLE IF NOT EXISTS rows (id INTEGER PRIMARY KEY, text TEXT, bytes BLOB)")
        connections[name].execute("CREATE INDEX IF NOT EXISTS texts ON rows (text)")
    connection = connections[name]
    lots = random.Random(seed)
    connection.execute("BEGIN IMMEDIATE")
    try:
        for _ in range(lots.randrange(1, 30)):
            number, kind = lots.randrange(400), lots.random()
            if kind < 0.6:
                connection.execute("INSERT OR REPLACE INTO rows VALUES (?, ?, ?)",
                                   (number, str(lots.random()), lots.randbytes(lots.randrange(4000))))
            elif kind < 0.8:
                connection.execute("UPDATE rows SET text = ? WHERE id > ? AND id < ?",
                                   (str(lots.random()), number, number + 20))
            else:
                connection.execute("DELETE FROM rows WHERE id = ?", (number,))
        if lots.random() < 0.1:
            connection.execute("ROLLBACK")
            return "rolled back"
        connection.execute("COMMIT")
    except BaseException:
        if connection.in_transaction:
            try:
                connection.execute("ROLLBACK")
            except sqlite3.Error:
                pass
        raise
    return connection.execute("SELECT count(*), total(id), total(length(bytes)) FROM rows").fetchone()


NO_TABLE = ["[('ok',)]", "no table"]
EMPTY_TABLE = ["[('ok',)]", hashlib.sha1().hexdigest()]


def table(root, _memory, name):
    """All that a database says, read through a connection of its own."""
    connection = connect(os.path.join(root, name))
    try:
        health = connection.execute("PRAGMA integrity_check").fetchall()
        found = hashlib.sha1()
        try:
            for row in connection.execute("SELECT id, text, bytes FROM rows ORDER BY id"):
                found.update(repr(row).encode())
        except sqlite3.OperationalError as error:
            if "no such table" not in str(error):
                raise
            return [str(health), "no table"]
        return [str(health), found.hexdigest()]
    finally:
        connection.close()
