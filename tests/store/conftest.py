"""Fixtures of the tests of many machines: the engines, started once for all, and a tree of its own for each test."""

import itertools
import os
import shutil
import tempfile
from pathlib import Path

import pytest

from harness import system
from harness.engines import S3, PostgreSQL
from machines import HELPER, IS_LOCAL, RECONNECT, Store

BUCKET = "trees"
_numbers = itertools.count(1)


def _engine_folder():
    """The account of a server must be able to pass it, and its sockets need short paths."""
    folder = Path(tempfile.mkdtemp(prefix="kemvi-engines-", dir=None if os.getuid() else "/tmp"))
    folder.chmod(0o755)
    return folder


def _engine(kind, **more):
    if not IS_LOCAL and (missing := kind.missing()):
        pytest.skip("not installed: " + ", ".join(missing))
    folder = _engine_folder()
    engine = kind(folder / "e", **more)
    try:
        if not IS_LOCAL:
            engine.start()
        yield engine
    finally:
        if not IS_LOCAL:
            engine.stop()
        shutil.rmtree(folder, ignore_errors=True)


@pytest.fixture(scope="session")
def postgres():
    """A server that no test ends."""
    yield from _engine(PostgreSQL)


@pytest.fixture(scope="session")
def s3():
    for server in _engine(S3):
        if not IS_LOCAL:
            server.make_bucket(BUCKET)
        yield server


@pytest.fixture
def own_postgres(time_limit):
    """A server that the test may end."""
    yield from _engine(PostgreSQL)


@pytest.fixture
def own_pair(time_limit):
    """The same with a standby that has all that was acknowledged."""
    yield from _engine(PostgreSQL, standby=True, synchronous=True)


@pytest.fixture
def own_s3(time_limit):
    for server in _engine(S3):
        if not IS_LOCAL:
            server.make_bucket(BUCKET)
        yield server


@pytest.fixture
def make_store(workspace, limit):
    """make_store(url, s3=None): a new tree there, with its contents in the database or in an S3 server."""
    if not IS_LOCAL and not HELPER.parents[1].joinpath("node_modules").exists():
        pytest.skip("the libraries of the store are not installed: scripts/setup --test")
    made = []

    def make(url, s3=None, secrets=None):
        name = f"tree{next(_numbers)}"
        settings = {"KEMVI_STORE": url, "KEMVI_STORE_TREE": name, "KEMVI_STORE_RECONNECT": str(RECONNECT)}
        secrets = dict(secrets or {})
        if s3:
            settings["KEMVI_STORE_CONTENTS"] = f"s3://{BUCKET}/{name}"
            if not IS_LOCAL:
                secrets |= s3.settings()
        store = Store(workspace, limit, settings, secrets, s3)
        made.append(store)
        return store

    yield make
    _close_leaked(workspace)
    for store in made:
        store.close()


def _close_leaked(workspace):
    """A test that failed may have left descriptors open; they are not to make its unmount fail too."""
    for descriptor, target in system.descriptors(os.getpid()).items():
        if target.startswith(str(workspace) + "/mount"):
            os.close(descriptor)


@pytest.fixture(params=["database", pytest.param("s3", marks=pytest.mark.long)])
def store(request, make_store, postgres):
    """A new tree on the server, with its contents there or, in a whole run, in an S3 server too."""
    url = "" if IS_LOCAL else postgres.url().replace("postgresql:", "postgres:")
    made = make_store(url, s3=request.getfixturevalue("s3") if request.param == "s3" else None)
    yield made
    if made.machines:
        made.check()
        made.close()
        made.check_objects(postgres)
