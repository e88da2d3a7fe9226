"""A mount whose helper's files are watched: it is started anew when they change, and the mount outlives whatever is
written into them."""

import errno
import json
import os
import signal
import threading
from pathlib import Path

import pytest

from harness import system
from harness.deadline import eventually
from harness.rest import comes_to_rest
from harness.volume import Volume

HELPER = """
import {{ PosixError, serve }} from '{kit}';
{imports}
const text = {text};
serve({{
    getattr(path) {{
        if (path === '/') return {{ isDirectory: true, modifiedAt: 0 }};
        if (path !== '/file') throw new PosixError('ENOENT', `there is no ${{path}}`);
        return {{ size: text.length, modifiedAt: 0 }};
    }},
    readdir: () => [{{ name: 'file', size: text.length, modifiedAt: 0 }}],
    read: (path, offset, length) => Buffer.from(text).subarray(offset, offset + length),
}});
"""


class Script:
    """A helper that serves one file, and is being written."""

    def __init__(self, folder):
        self.folder = folder
        folder.mkdir(parents=True)
        self.path = folder / "tree.mjs"
        self.kit = Path(os.environ["KEMVI_HELPER"]).parents[1] / "src" / "index.mjs"
        self.path.write_text(self.text("first"))

    def text(self, shown=None, imports=""):
        return HELPER.format(kit=self.kit, imports=imports, text="shown" if shown is None else json.dumps(shown))

    def write(self, shown=None, imports=""):
        self.path.write_text(self.text(shown, imports))

    def replace(self, shown):
        fresh = self.folder / ".tree.mjs.swp"
        fresh.write_text(self.text(shown))
        os.replace(fresh, self.path)


@pytest.fixture
def script(workspace):
    return Script(workspace / "helper")


@pytest.fixture
def watched(mount, script, monkeypatch):
    """Mounts the script: watched("on_death=exit")."""
    arguments = Volume.arguments
    monkeypatch.setattr(Volume, "arguments", lambda volume: [*arguments(volume), "--watch"])

    def make(*options):
        # Names and contents stay in the kernel for as long as the mount does, unless they are dropped.
        kept = ["entry_timeout=3600", "attr_timeout=3600", "ro"]
        volume = mount(helper=script.path, options=[*kept, *options])
        volume.expect_log("changed", "was saved", "is gone", "Helper: ", "loadResource failed", "helper closed stdout",
                          "until the helper's files change")
        return volume
    return make


def shown(volume):
    return (volume.path / "file").read_text()


def shows(volume, text):
    """Waits until the file has these contents. While a start fails it has none."""
    def look():
        try:
            return shown(volume) == text
        except OSError as error:
            assert error.errno == errno.EIO
            return False
    eventually(look, 20, f"{text!r} to be seen")


def restarts(volume):
    return len(volume.log_lines("was started anew"))


def failures(volume):
    return len(volume.log_lines("could not be started anew"))


def status(volume):
    return json.loads(volume.program.run("status", "--json", volume.path).stdout)


def fails(volume):
    with pytest.raises(OSError) as caught:
        (volume.path / "file").read_text()
    assert caught.value.errno == errno.EIO
    return True


def test_a_script_that_is_written_in_place_is_served_at_once(watched, script):
    volume = watched()
    assert shown(volume) == "first"
    script.write("second")
    shows(volume, "second")
    line, = volume.log_lines("was started anew")
    assert "tree.mjs changed: the helper was started anew (pid " in line and line.endswith(" ms)")
    assert status(volume)["restarts"] == 1


def test_a_script_that_is_replaced_is_served_at_once(watched, script):
    volume = watched()
    script.replace("second")
    shows(volume, "second")
    script.replace("third")
    shows(volume, "third")
    assert status(volume)["restarts"] == 2


def test_an_imported_file_counts_too_and_one_that_is_imported_later(watched, script):
    (script.folder / "lib").mkdir()
    (script.folder / "lib" / "shown.mjs").write_text("export const shown = 'imported';")
    volume = watched()
    script.write(imports="import { shown } from './lib/shown.mjs';")
    shows(volume, "imported")
    (script.folder / "lib" / "shown.mjs").write_text("export { shown } from '../more.mjs';")
    eventually(lambda: failures(volume) == 1, 20, "a start that fails for want of the file")
    (script.folder / "more.mjs").write_text("export const shown = 'more';")
    shows(volume, "more")
    assert volume.log_lines("lib/shown.mjs changed: ") and volume.log_lines("Supervisor: more.mjs changed: ")
    watched_files = status(volume)["helper"]["watched"]
    assert watched_files[0] == str(script.path)
    assert {str(script.folder / "lib" / "shown.mjs"), str(script.folder / "more.mjs")} < set(watched_files)


@pytest.mark.parametrize("on_death", ["fail", "exit", "restart"])
def test_a_mistake_is_told_and_the_mount_waits_until_it_is_mended(watched, script, on_death):
    volume = watched(f"on_death={on_death}")
    script.path.write_text(script.text("second") + "\nthis is a mistake (")
    eventually(lambda: failures(volume) == 1, 20, "a start that fails")
    eventually(lambda: volume.log_lines("until the helper's files change"), 20, "the end of attempts")
    assert fails(volume)
    assert volume.log_lines("Helper: .*SyntaxError")
    assert status(volume)["state"] == "helperDead"
    script.write("third")
    shows(volume, "third")
    script.path.write_text("process.exit(3);")
    eventually(lambda: failures(volume) == 2, 20, "a start that ends at once")
    assert volume.log_lines("exited with status 3")
    script.write("fourth")
    shows(volume, "fourth")
    assert failures(volume) == 2, "each is tried once"


def test_changes_in_quick_succession_are_one(watched, script):
    (script.folder / "shown.mjs").write_text("export const shown = 'imported';")
    script.write(imports="import { shown } from './shown.mjs';")
    volume = watched()
    # Both before the first quiet moment, however slow this machine is: the host does not run meanwhile.
    os.kill(volume.host.pid, signal.SIGSTOP)
    try:
        (script.folder / "shown.mjs").write_text("export const shown = 'both';")
        script.write(imports="import { shown } from './shown.mjs'; // written")
    finally:
        os.kill(volume.host.pid, signal.SIGCONT)
    shows(volume, "both")
    assert volume.log_lines("shown.mjs and tree.mjs changed: the helper was started anew")
    assert status(volume)["restarts"] == 1


def test_the_same_contents_start_nothing(watched, script):
    volume = watched()
    helper = volume.helper_pid()
    script.write("first")
    os.utime(script.path)
    script.replace("first")
    script.write("second")  # what came before was looked at by the time that this is
    shows(volume, "second")
    assert status(volume)["restarts"] == 1
    assert volume.helper_pid() != helper


def test_a_helper_that_dies_is_brought_back_by_the_next_save(watched, script):
    volume = watched()
    volume.expect_log("was killed by signal 9")
    helper = volume.helper_pid()
    os.kill(helper, signal.SIGKILL)
    eventually(lambda: not system.is_alive(helper), 10, "the helper's death")
    eventually(lambda: fails(volume), 10)
    script.write("first")
    shows(volume, "first")
    assert volume.log_lines("the helper was saved: the helper was started anew")


def test_a_helper_that_dies_ends_the_mount_where_that_is_asked_for(watched):
    volume = watched("on_death=exit")
    volume.expect_log("was killed by signal 9", "the helper ended")
    volume.expects_exit = 14
    os.kill(volume.helper_pid(), signal.SIGKILL)
    assert volume.wait_for_end(20) == 14


def test_a_script_that_is_gone_changes_nothing_until_it_is_back(watched, script):
    volume = watched()
    helper = volume.helper_pid()
    away = script.path.rename(script.folder / "away")
    eventually(lambda: volume.log_lines("tree.mjs is gone; the helper goes on"), 20, "a word about it")
    assert shown(volume) == "first" and volume.helper_pid() == helper
    away.write_text(script.text("second"))
    away.rename(script.path)
    shows(volume, "second")
    assert status(volume)["restarts"] == 1


def test_open_files_and_folders_go_on_and_nothing_old_is_served(watched, script):
    volume = watched()
    file = os.open(volume.path / "file", os.O_RDONLY)
    folder = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    try:
        assert os.read(file, 100) == b"first"
        script.write("second, longer")
        eventually(lambda: restarts(volume) == 1, 20, "the restart")
        # The kernel was told to forget before this line was written.
        assert shown(volume) == "second, longer"
        assert os.pread(file, 100, 0) == b"second, longer"
        assert os.listdir(folder) == ["file"]
    finally:
        os.close(file)
        os.close(folder)


def test_an_unmount_while_the_helper_is_started_ends_the_mount(watched, script):
    volume = watched()
    pipe = script.folder / "pipe"
    os.mkfifo(pipe)
    script.path.write_text("import fs from 'node:fs';\nfs.writeFileSync('%s', 'starting');\nsetInterval(() => {}, 1000);"
                           % pipe)
    assert pipe.read_text() == "starting"  # and never answers
    assert status(volume)["state"] == "restarting"
    volume.expects_exit = None  # it has to be forced
    volume.checks_descriptors = False
    done = volume.program.run("unmount", "--force", volume.path, limit=60)
    assert done.returncode == 0, done.stderr
    volume.wait_for_end(20)
    assert not system.mount_points(volume.path)


def test_a_start_that_hangs_is_given_up_for_the_next_change(watched, script):
    volume = watched()
    volume.expect_log("does not come to an end")
    pipe = script.folder / "pipe"
    os.mkfifo(pipe)
    script.path.write_text("import fs from 'node:fs';\nfs.writeFileSync('%s', 'starting');\nsetInterval(() => {}, 1000);"
                           % pipe)
    assert pipe.read_text() == "starting"
    script.write("mended")
    eventually(lambda: restarts(volume) == 1, 30, "the helper that is mended")
    shows(volume, "mended")


def test_readers_at_work_notice_no_restart(watched, script):
    volume = watched()
    texts = {"first", *(f"text {number}" for number in range(5))}
    seen, over = [], threading.Event()

    def read():
        while not over.is_set():
            try:
                seen.append(shown(volume))
            except OSError as error:
                seen.append(error)
    reader = threading.Thread(target=read)
    reader.start()
    try:
        for number in range(5):
            script.replace(f"text {number}")
            eventually(lambda done=number: restarts(volume) == done + 1, 20, "the restart")
    finally:
        over.set()
        reader.join()
    shows(volume, "text 4")
    assert not [what for what in seen if isinstance(what, OSError)]
    assert {what for what in seen if len(what) == len("text 0") or what == "first"} <= texts


@pytest.mark.limit(180)
def test_an_idle_mount_that_is_watched_uses_no_processor(watched, script):
    volume = watched()
    script.write("second")
    shows(volume, "second")
    comes_to_rest(volume.host.pid)
