"""kemvi init --store: a configuration whose helper is that of a store, with no secret in it, or the command that installs it."""

import json
import os
import shutil
from pathlib import Path

import pytest

from harness.place import assert_fails
from harness.program import KEMVI, SHIPPED_HELPER, Program

class Installation:
    """A command of this test's own, with the kit where an installation has it."""

    def __init__(self, folder):
        self.folder, self.kit = folder, folder / "installed" / "share" / "kemvi"
        self.package = self.kit / "store"
        shutil.copytree(Path(SHIPPED_HELPER).parent, self.kit / "helpers")
        (folder / "installed" / "bin").mkdir()
        self.program = Program(folder, Path(shutil.copy2(KEMVI, folder / "installed" / "bin" / "kemvi")))
        self.path = folder / "programs"
        self.path.mkdir()
        self.npm(folder / "none")

    def npm(self, root):
        """A stand-in that knows one folder of packages for all."""
        (self.path / "npm").write_text(f"#!/bin/sh\n[ \"$*\" = 'root --global' ] && echo {root}\n")
        (self.path / "npm").chmod(0o755)

    def install(self, package, libraries=True):
        (package / "helpers").mkdir(parents=True)
        (package / "helpers" / "store.mjs").write_text("")
        if libraries:
            (package / "node_modules" / "postgres").mkdir(parents=True)
        return package

    def init(self, source, *arguments):
        return self.program.run("init", source, *arguments, environment={"PATH": f"{self.path}:/usr/bin:/bin"})


@pytest.fixture
def installation(place):
    return Installation(place.folder)


def configuration(source):
    return json.loads((source / "mount-config.json").read_text())


def test_a_store_on_a_server(place, installation):
    installation.install(installation.package)
    source = place.folder / "drive"
    done = installation.init(source, "--store", "postgresql://alice@db1,db2:5433/trees", "--contents", "s3://bucket/a/b/", "--tree",
                             "photos", "--env", "KEMVI_STORE_MEMORY=128")
    assert (done.returncode, done.stderr) == (0, "")
    written = configuration(source)
    assert written["helperPath"] == str(installation.package / "helpers/store.mjs")
    assert written["repoRoot"] == ""
    assert written["helperEnvironment"] == {
        "KEMVI_STORE": "postgres://alice@db1,db2:5433/trees", "KEMVI_STORE_CONTENTS": "s3://bucket/a/b",
        "KEMVI_STORE_TREE": "photos", "KEMVI_STORE_MEMORY": "128"}
    assert written["mountOptions"] == ["close_to_open"] and "  mounted     -o close_to_open\n" in done.stdout
    assert "is served" not in done.stdout and "lies inside" not in done.stdout
    assert f"Next: kemvi mount {source} MOUNTPOINT" in done.stdout


def test_an_embedded_store(place, installation):
    installation.install(installation.package)
    source = place.folder / "drive"
    done = installation.init(source, "--store", "pglite:drive/../drive/store")
    assert (done.returncode, done.stderr) == (0, "")
    written = configuration(source)
    assert written["helperEnvironment"] == {"KEMVI_STORE": f"pglite:{source}/store"}
    assert "mountOptions" not in written, "there is no other machine"
    assert written["repoRoot"] == f"{source}/store", "so that no mount is placed in it or over it"
    assert (source / "store").stat().st_mode & 0o777 == 0o700


def test_an_embedded_store_is_not_placed_over_the_source(place, installation):
    installation.install(installation.package)
    for folder in (place.source, place.folder):
        assert_fails(installation.init(place.source, "--store", f"pglite:{folder}", "--force"), 2, "holds the source directory",
                     f"pglite:{place.source}/store")
    (place.folder / "file").write_text("")
    assert_fails(installation.init(place.folder / "drive", "--store", f"pglite:{place.folder}/file"), 2, "not a directory")


def test_an_existing_configuration_is_kept(place, installation):
    installation.install(installation.package)
    before = (place.source / "mount-config.json").read_text()
    assert_fails(installation.init(place.source, "--store", "postgres://db/tree"), 3, "exists", "--force")
    assert (place.source / "mount-config.json").read_text() == before


@pytest.mark.parametrize("arguments, words", [
    (["--store", "postgres://alice:s3cret@db/tree"], ["--store", "password", ".pgpass", "PGPASSWORD", "mount-secrets.env"]),
    (["--store", "ftp://db/tree"], ["--store", "pglite:DIR", "postgres://"]),
    (["--store", "postgres://db/tree", "--contents", "s3://Bucket"], ["--contents", "bucket"]),
    (["--store", "postgres://db/tree", "--tree", "a\tb"], ["--tree", "100 characters"]),
    (["--store", "postgres://db/tree", "--env", "KEMVI_STORE=other"], ["--env KEMVI_STORE=other", "--store"]),
    (["--store", "postgres://db/tree", "--helper", "local"], ["--store", "--helper"]),
    (["--store", "postgres://db/tree", "--native"], ["--store", "--native"]),
    (["--store", "postgres://db/tree", "--command", "cat"], ["--store", "--command"]),
    (["--store", "postgres://db/tree", "--repo-root", "/srv"], ["--store", "--repo-root"]),
    (["--contents", "database"], ["--contents", "--store"]),
    (["--tree", "main"], ["--tree", "--store"]),
    (["--env", "KEMVI_STORED=1"], ["KEMVI_"]),
])
def test_what_cannot_be_is_refused_and_nothing_is_written(place, installation, arguments, words):
    installation.install(installation.package)
    done = installation.init(place.folder / "drive", *arguments)
    assert_fails(done, 2, *words)
    assert "s3cret" not in done.stderr
    assert not (place.folder / "drive").exists()


def test_the_package_that_npm_has_installed_for_all(place, installation):
    package = installation.install(place.folder / "modules/kemvi-helper-store")
    installation.npm(place.folder / "modules")
    assert installation.init(place.folder / "drive", "--store", "postgres://db/tree").returncode == 0
    assert configuration(place.folder / "drive")["helperPath"] == str(package / "helpers/store.mjs")


def test_a_package_that_is_not_installed(place, installation):
    source = place.folder / "drive"
    assert_fails(installation.init(source, "--store", "postgres://db/tree"), 4, "kemvi-helper-store", "not installed")
    archive = installation.kit / "kemvi-helper-store.tgz"
    archive.write_text("")
    assert_fails(installation.init(source, "--store", "postgres://db/tree"), 4, f"npm install --global {archive}")
    assert not source.exists()


def test_a_package_without_its_libraries(place, installation):
    installation.install(installation.package, libraries=False)
    done = installation.init(place.folder / "drive", "--store", "postgres://db/tree")
    assert_fails(done, 4, installation.package, f"npm --prefix {installation.package} ci")
    package = installation.install(place.folder / "modules/kemvi-helper-store")
    installation.npm(place.folder / "modules")
    assert installation.init(place.folder / "drive", "--store", "postgres://db/tree").returncode == 0
    assert configuration(place.folder / "drive")["helperPath"] == str(package / "helpers/store.mjs"), "one that works"


def test_secrets_lie_beside_a_configuration_that_serves_no_directory(place, installation):
    """They are told to the helper, and are refused nowhere: what is shown is no directory of this machine."""
    installation.install(installation.package)
    (installation.package / "helpers/store.mjs").write_text(
        f"import {{ writeFileSync }} from 'node:fs'; writeFileSync('{place.folder}/told', JSON.stringify(process.env));")
    source = place.folder / "drive"
    assert installation.init(source, "--store", "postgres://db/tree").returncode == 0
    secrets = source / "mount-secrets.env"
    secrets.write_text("PGPASSWORD=s3cret\nKEMVI_STORE_RECONNECT=5\n")
    os.chmod(secrets, 0o600)
    installation.program.run("check", source)
    told = json.loads((place.folder / "told").read_text())
    assert (told["PGPASSWORD"], told["KEMVI_STORE"], told["KEMVI_STORE_RECONNECT"]) == ("s3cret", "postgres://db/tree", "5")
