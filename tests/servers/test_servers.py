"""The engines that tests start are what those tests rely on: whole again after kill -9, and a copy that follows."""

import os
import shutil
import subprocess
import sys
import tempfile
import urllib.error
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from harness.engines import S3, PostgreSQL, SERVERS  # pylint: disable=wrong-import-position


@pytest.fixture
def folder():
    """One that the account of the server may pass, and with a short path."""
    made = Path(tempfile.mkdtemp(prefix="kemvi-servers-"))
    made.chmod(0o755)
    yield made / "engine"
    shutil.rmtree(made)


def needs(engine):
    if missing := engine.missing():
        pytest.skip("not installed: " + ", ".join(missing))


def test_postgres_keeps_what_it_acknowledged(folder):
    needs(PostgreSQL)
    with PostgreSQL(folder) as server:
        server.sql("create table kept(number int)")
        server.sql("insert into kept values (1)")
        before = server.url("tcp")
        server.kill()
        assert psql_fails(server)
        server.start()
        assert server.url("tcp") == before
        server.sql("insert into kept values (2)", "tcp")
        assert server.sql("select count(*) from kept") == "2"
        assert server.password() in before and server.password() not in server.without_password()
    assert psql_fails(server), "stopped"


def test_a_synchronous_standby_has_all_that_was_acknowledged(folder):
    needs(PostgreSQL)
    with PostgreSQL(folder, standby=True, synchronous=True) as server:
        server.sql("create table kept(number int)")
        server.sql("insert into kept values (1)")
        server.kill()
        server.promote()
        assert server.sql("select count(*) from kept", "standby-socket") == "1"
        server.sql("insert into kept values (2)", "both")


def psql_fails(server):
    return subprocess.run(["psql", "-Xc", "select 1", server.url()], capture_output=True, check=False).returncode != 0


def test_s3_keeps_what_it_acknowledged(folder):
    needs(S3)
    with S3(folder) as server:
        server.make_bucket("bucket")
        server.request("PUT", "/bucket/some/name", body=b"content")
        assert server.keys("bucket") == ["some/name"]
        server.kill()
        with pytest.raises(urllib.error.URLError):
            server.keys("bucket")
        server.start()
        assert server.request("GET", "/bucket/some/name") == b"content"
        server.request("DELETE", "/bucket/some/name")
        assert server.keys("bucket") == []


@pytest.mark.parametrize("script", ["postgres.sh", "s3.sh"])
def test_they_say_how_to_use_them(script, tmp_path):
    done = subprocess.run([SERVERS / script, "levitate", tmp_path], capture_output=True, text=True, check=False)
    wrong = subprocess.run([SERVERS / script], capture_output=True, text=True, check=False)
    assert done.returncode != 0 and wrong.returncode == 2 and f"{script} start DIR" in wrong.stderr
    assert os.listdir(tmp_path) in ([], ["lock"])
