"""What users get: an installation that goes away again, and Debian packages that a fresh system takes."""

import json
import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

SLOWNESS = float(os.environ.get("KEMVI_TEST_SLOWNESS", "1"))
HERE = Path(__file__).resolve().parent
TOP = HERE.parents[1]
BUILD = Path(os.environ["KEMVI_BUILD"])
EPOCH = {"SOURCE_DATE_EPOCH": "1700000000"}
VERSION = (TOP / "VERSION").read_text().strip()


def run(*command, seconds=120, **more):
    done = subprocess.run([str(word) for word in command], text=True, capture_output=True, check=False,
                          stdin=subprocess.DEVNULL, timeout=seconds * SLOWNESS, **more)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def pack(folder):
    """The packages kemvi and kemvi-dev of this build."""
    run("cpack", "--config", BUILD / "CPackConfig.cmake", "-G", "DEB", "-B", folder, seconds=300, env={**os.environ, **EPOCH},
        cwd=BUILD)
    shutil.rmtree(folder / "_CPack_Packages")
    kemvi, = folder.glob("kemvi_*.deb")
    dev, = folder.glob("kemvi-dev_*.deb")
    return kemvi, dev


@pytest.fixture(scope="module")
def packages(tmp_path_factory):
    return pack(tmp_path_factory.mktemp("packages"))


def contents(package):
    """What the package holds by path: the rest of its line is mode, owner, size and time."""
    lines = run("dpkg-deb", "--contents", package).splitlines()
    return {re.sub(" -> .*", "", line.split(maxsplit=5)[5])[1:]: line for line in lines}


def test_the_version_is_the_same_everywhere():
    for kit in ("node", "store"):
        assert json.loads((TOP / f"sdk/{kit}/package.json").read_text())["version"] == VERSION
    assert f'\nversion = "{VERSION}"\n' in (TOP / "sdk/python/pyproject.toml").read_text()
    assert run(BUILD / "bin/kemvi", "--version").splitlines()[0] == f"kemvi {VERSION}"
    assert re.search(r"^## (\S+)", (TOP / "CHANGELOG.md").read_text(), re.M)[1] == VERSION


def test_the_same_build_gives_the_same_packages(packages, tmp_path):
    assert [path.read_bytes() for path in pack(tmp_path)] == [path.read_bytes() for path in packages]


def test_the_packages_hold_what_is_needed_and_nothing_that_tells_where_they_were_made(packages):
    kemvi, dev = map(contents, packages)
    for path in ("/usr/bin/kemvi", "/usr/sbin/mount.kemvi", "/usr/sbin/mount.fuse.kemvi", "/usr/libexec/kemvi/kemvi-local",
                 "/usr/share/kemvi/helpers/local.mjs", "/usr/share/kemvi/package.json", "/usr/share/man/man1/kemvi.1.gz",
                 "/usr/share/man/man1/kemvi-store.1.gz", "/usr/share/man/man8/mount.kemvi.8.gz", "/usr/share/man/man8/mount.fuse.kemvi.8.gz",
                 "/usr/share/bash-completion/completions/kemvi", "/usr/share/zsh/vendor-completions/_kemvi",
                 "/usr/share/fish/vendor_completions.d/kemvi.fish", "/usr/lib/systemd/system/kemvi@.service",
                 "/usr/share/doc/kemvi/copyright", "/usr/share/doc/kemvi/NOTICE", "/usr/share/doc/kemvi/docs/protocol.md",
                 "/usr/share/doc/kemvi/sdk/cpp/README.md", "/usr/share/doc/kemvi/sdk/python/README.md",
                 "/usr/share/doc/kemvi/docs/pictures/read.svg", "/usr/share/kemvi/templates/typescript/tsconfig.json"):
        assert path in kemvi
    assert any(path.startswith("/usr/include/kemvi/") for path in dev)
    assert any(path.endswith("/libkemvi-helper.a") for path in dev)
    assert "/usr/share/doc/kemvi-dev/examples/README.md" in dev
    assert not [path for path in {*kemvi, *dev} if "node_modules" in path or "__pycache__" in path or "/test/" in path]
    assert {line.split()[1] for line in [*kemvi.values(), *dev.values()]} == {"root/root"}


def test_the_archive_of_the_store_has_the_kit_in_it_and_names_the_libraries_that_were_tested(packages, tmp_path):
    run("dpkg-deb", "-x", packages[0], tmp_path)
    run("tar", "-C", tmp_path, "-xzf", tmp_path / "usr/share/kemvi/kemvi-helper-store.tgz")
    package = tmp_path / "package"
    told, lock = (json.loads((package / name).read_text()) for name in ("package.json", "npm-shrinkwrap.json"))
    assert told["version"] == VERSION and told["bundleDependencies"] == ["kemvi-helper"]
    assert told["dependencies"] == lock["packages"][""]["dependencies"] and told["dependencies"]["kemvi-helper"] == VERSION
    assert "file:" not in json.dumps([told, lock])
    tested = json.loads((TOP / "sdk/store/package-lock.json").read_text())["packages"]
    named = {path: each["version"] for path, each in lock["packages"].items() if path and "integrity" in each}
    assert len(named) > 3 and named == {path: tested[path]["version"] for path in named}
    assert os.listdir(package / "node_modules") == ["kemvi-helper"]
    assert (package / "node_modules/kemvi-helper/src/index.mjs").exists() and (package / "src/index.mjs").exists()
    assert not (package / "test").exists()


@pytest.mark.skipif(shutil.which("npm") is None, reason="npm is not installed")
def test_the_kit_is_installed_by_npm_of_its_archive(packages, tmp_path):
    run("dpkg-deb", "-x", packages[0], tmp_path / "system")
    project = tmp_path / "project"
    project.mkdir()
    (project / "package.json").write_text('{"name": "project", "version": "1.0.0", "private": true}')
    run("npm", "install", "--offline", "--no-audit", tmp_path / "system/usr/share/kemvi/kemvi-helper.tgz", cwd=project)
    said = run("node", "-e", "console.log(typeof require('kemvi-helper/testing').mountless)", cwd=project)
    assert said.strip() == "function"
    assert os.access(project / "node_modules/.bin/kemvi-helper", os.X_OK)


@pytest.mark.skipif(shutil.which("lintian") is None, reason="lintian is not installed")
def test_lintian_finds_no_error(packages):
    done = subprocess.run(["lintian", "--allow-root", "--fail-on", "error", *packages], text=True, capture_output=True, check=False,
                          timeout=120 * SLOWNESS)
    assert done.returncode == 0, done.stdout + done.stderr


def test_what_was_installed_can_be_uninstalled(tmp_path):
    prefix = tmp_path / "prefix"
    kept = prefix / "share/other"
    kept.mkdir(parents=True)
    (kept / "file").touch()
    manifest = BUILD / "install_manifest.txt"
    try:
        run("cmake", "--install", BUILD, "--prefix", prefix)
        assert run(prefix / "bin/kemvi", "--version").startswith("kemvi ")
        assert (prefix / "sbin/mount.kemvi").resolve() == prefix / "bin/kemvi"
        assert f"ExecStart={prefix}/bin/kemvi " in (prefix / "lib/systemd/system/kemvi@.service").read_text()
        run("cmake", "-P", BUILD / "packaging/uninstall.cmake")
    finally:
        manifest.unlink(missing_ok=True)
    left = [path for path in prefix.rglob("*") if not path.is_dir()]
    assert left == [kept / "file"]
    assert not [path for path in prefix.rglob("*kemvi*")]


def test_uninstalling_what_was_not_installed_says_so():
    done = subprocess.run(["cmake", "-P", BUILD / "packaging/uninstall.cmake"], text=True, capture_output=True, check=False,
                          timeout=60 * SLOWNESS)
    assert done.returncode != 0
    assert "nothing was installed from this build" in " ".join(done.stderr.split())


MISSING = [name for name in ("mmdebstrap", "systemd-nspawn") if shutil.which(name) is None]


@pytest.mark.skipif(os.getuid() != 0 or bool(MISSING) or not os.path.exists("/dev/fuse"),
                    reason="needs root, /dev/fuse, mmdebstrap and systemd-nspawn")
@pytest.mark.limit(600)
def test_a_fresh_debian_installs_mounts_upgrades_and_forgets(packages, tmp_path):
    given = tmp_path / "given"
    given.mkdir()
    for package in packages:
        shutil.copy(package, given)
    # The same once more as the next version.
    run("dpkg-deb", "-R", packages[0], tmp_path / "next")
    control = tmp_path / "next/DEBIAN/control"
    control.write_text(re.sub(r"^Version: .*$", "Version: 99", control.read_text(), flags=re.M))
    run("dpkg-deb", "--root-owner-group", "-b", tmp_path / "next", given / "next.deb")
    shutil.copy(HERE / "on_a_fresh_debian.sh", given)
    said = run(HERE / "fresh-debian.sh", given, BUILD / "fresh-debian", "bash", "./on_a_fresh_debian.sh", seconds=600)
    assert said.splitlines()[-1] == "done"
