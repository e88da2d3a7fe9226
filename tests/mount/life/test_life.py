"""How a mount begins and ends: honest readiness, daemon and foreground, every way to end it, nothing left behind."""

import os
import signal
import subprocess

import pytest

from harness import system
from harness.deadline import eventually
from harness.volume import write_configuration
from harness.worker import Worker


@pytest.fixture
def place(workspace, program):
    """Folders for a mount that the test makes itself."""
    class Place:
        source, backing, path = workspace / "source", workspace / "tree", workspace / "mount"

        def mounted(self):
            return bool(system.mount_points(self.path))

        def processes(self):
            return system.processes(workspace)

        def host(self):
            """The process that serves the mount: it is the parent of the helper."""
            helper = next(pid for pid in self.processes() if "node" in system.command_of(pid).split(" ")[0])
            return system.parent_of(helper)

        def gone(self, seconds=10):
            eventually(lambda: not self.mounted() and not self.processes(), seconds, "the end of everything")

    found = Place()
    for folder in (found.source, found.backing, found.path):
        folder.mkdir()
    write_configuration(found.source, program.helper, found.backing)
    (found.backing / "file").write_bytes(b"content")
    return found


@pytest.fixture
def daemon(place, program):
    done = program.run("mount", place.source, place.path)
    assert done.returncode == 0, done.stderr
    yield place
    if place.mounted():
        program.run("unmount", place.path, "--force")


# In the background

def test_command_returns_when_the_mount_answers(place, program):
    done = program.run("mount", place.source, place.path)
    assert done.returncode == 0, done.stderr
    assert (place.path / "file").read_bytes() == b"content"
    assert program.run("unmount", place.path).returncode == 0
    assert not place.mounted()


def test_command_lets_go_of_the_pipes_of_its_caller(place, program):
    """As in $(kemvi mount ...): the caller waits for the end of the output, not only of the process."""
    log = place.path.parent / "log"  # without one, and without a log of the system, the command says so
    script = f'"{program.binary}" mount --log-file "{log}" "{place.source}" "{place.path}" 2>&1'
    text = subprocess.run(["sh", "-c", f"x=$({script}); echo done:$x"], env=program.environment, capture_output=True,
                          text=True, timeout=20, check=True, stdin=subprocess.DEVNULL).stdout
    assert text.strip() == "done:"
    assert program.run("unmount", place.path).returncode == 0


def test_background_process_survives_the_end_of_its_session(place, program):
    with subprocess.Popen([program.binary, "mount", place.source, place.path], env=program.environment,
                          start_new_session=True, stdin=subprocess.DEVNULL) as starter:
        assert starter.wait(20) == 0
        session = starter.pid
    host = place.host()
    assert os.getsid(host) != session
    assert (place.path / "file").read_bytes() == b"content"
    assert program.run("unmount", place.path).returncode == 0


def test_background_process_keeps_no_folder_busy(daemon):
    assert os.readlink(f"/proc/{daemon.host()}/cwd") == "/"


def test_mount_works_with_relative_paths(place, program, workspace):
    done = program.run("mount", "source", "mount", cwd=workspace)
    assert done.returncode == 0, done.stderr
    assert (place.path / "file").read_bytes() == b"content"
    done = program.run("unmount", "mount", cwd=workspace)
    assert done.returncode == 0, done.stderr
    place.gone()


def test_mount_works_through_names_with_spaces_and_other_letters(place, program, workspace):
    source, path = workspace / "the source \u00e4,1", workspace / "the 'mount' \u00f6=\\1"
    path.mkdir()
    os.rename(place.source, source)
    done = program.run("mount", source, path)
    assert done.returncode == 0, done.stderr
    assert (path / "file").read_bytes() == b"content"
    assert program.run("unmount", path).returncode == 0
    place.gone()


def test_unmount_waits_until_host_and_helper_have_ended(daemon, program):
    done = program.run("unmount", daemon.path)
    assert done.returncode == 0, done.stderr
    assert not daemon.mounted() and daemon.processes() == []


def test_mount_shows_its_type_and_source_in_the_mount_table(daemon):
    line = system.mount_line(daemon.path)
    assert line["type"] == "fuse.kemvi" and line["source"] == str(daemon.source)
    assert "default_permissions" in line["super_options"] and "allow_other" not in line["super_options"]


def test_mount_and_unmount_many_times(place, program):
    for turn in range(8):
        assert program.run("mount", place.source, place.path).returncode == 0
        assert (place.path / "file").read_bytes() == b"content"
        (place.path / f"turn{turn}").touch()
        assert program.run("unmount", place.path).returncode == 0
        assert os.listdir(place.path) == []
    assert len(os.listdir(place.backing)) == 9
    place.gone()


# Endings

@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_signal_ends_a_background_mount_cleanly(daemon, number):
    os.kill(daemon.host(), number)
    daemon.gone()
    assert os.listdir(daemon.path) == []


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_signal_ends_a_foreground_mount_cleanly(mount, number):
    volume = mount(control=True)
    (volume.path / "file").write_bytes(b"content")
    volume.host.send_signal(number)
    assert volume.wait_for_end() == 0
    assert not system.mount_points(volume.path)
    assert (volume.backing / "file").read_bytes() == b"content"


def detachers(path):
    yield ["fusermount3", "-u", str(path)]
    yield ["fusermount3", "-u", "-z", str(path)]
    if os.getuid() == 0:
        yield ["umount", str(path)]
        yield ["umount", "-l", str(path)]


@pytest.mark.parametrize("which", range(4))
def test_unmount_from_outside_ends_host_and_helper(daemon, which):
    commands = list(detachers(daemon.path))
    if which >= len(commands):
        pytest.skip("needs root")
    subprocess.run(commands[which], check=True, timeout=20)
    daemon.gone()


def test_foreground_mount_ends_with_success_after_an_unmount_from_outside(mount):
    volume = mount()
    subprocess.run(["fusermount3", "-u", volume.path], check=True, timeout=20)
    assert volume.wait_for_end() == 0


def test_open_file_keeps_a_plain_unmount_out_and_the_mount_goes_on(daemon, program):
    with open(daemon.path / "file", "rb", buffering=0) as file:
        done = program.run("unmount", daemon.path)
        assert done.returncode == 10 and "in use" in done.stderr and len(done.stderr.splitlines()) == 1
        assert file.read() == b"content"
        assert (daemon.path / "file").read_bytes() == b"content"
    assert program.run("unmount", daemon.path).returncode == 0


def test_lazy_unmount_serves_open_files_to_their_end(mount):
    volume = mount()
    (volume.path / "file").write_bytes(b"content")
    with open(volume.path / "file", "r+b", buffering=0) as file:
        subprocess.run(["fusermount3", "-u", "-z", volume.path], check=True, timeout=20)
        assert os.listdir(volume.path) == []
        assert file.read() == b"content"
        file.write(b" and more")
    assert volume.wait_for_end() == 0
    assert (volume.backing / "file").read_bytes() == b"content and more"


def test_ending_gives_back_what_is_open(mount):
    volume = mount(control=True)
    volume.checks_descriptors = False
    descriptor = os.open(volume.path / "file", os.O_RDWR | os.O_CREAT)
    os.write(descriptor, b"content")
    os.pread(descriptor, 3, 0)
    volume.host.send_signal(signal.SIGTERM)
    assert volume.wait_for_end() == 0
    opened = volume.helper.count("open")
    assert opened >= 2 and volume.helper.count("release") == opened
    try:
        os.close(descriptor)
    except OSError:
        pass


def test_ending_removes_hidden_files_of_files_still_open(mount):
    volume = mount()
    volume.checks_descriptors = False
    descriptor = os.open(volume.path / "file", os.O_RDWR | os.O_CREAT)
    os.unlink(volume.path / "file")
    assert len(volume.hidden()) == 1
    volume.host.send_signal(signal.SIGTERM)
    assert volume.wait_for_end() == 0
    assert os.listdir(volume.backing) == []
    try:
        os.close(descriptor)
    except OSError:
        pass


def test_helper_that_never_exits_is_named_and_ended_by_a_second_signal(mount):
    volume = mount(control=True)
    volume.expects_exit = 11
    volume.expect_log("")
    volume.helper.rule("neverExits")
    helper = volume.helper_pid()
    volume.host.send_signal(signal.SIGTERM)
    eventually((volume.helper.folder / "endOfInput").exists, 10, "the end of the helper's input")
    assert not system.mount_points(volume.path)
    eventually(lambda: volume.log_lines(str(helper)), 20, "a line with the pid of the helper")
    assert volume.host.poll() is None and system.is_alive(helper)
    volume.host.send_signal(signal.SIGTERM)
    volume.wait_for_end(10)
    eventually(lambda: not system.is_alive(helper), 5, "the end of the helper")


def test_slow_helper_is_waited_for_after_an_unmount(mount):
    volume = mount(control=True)
    rule = volume.helper.rule("neverExits")
    subprocess.run(["fusermount3", "-u", volume.path], check=True, timeout=20)
    eventually((volume.helper.folder / "endOfInput").exists, 10, "the end of the helper's input")
    assert volume.host.poll() is None
    volume.helper.drop(rule)
    assert volume.wait_for_end(10) == 0


def test_killed_host_leaves_no_stale_mount(daemon):
    os.kill(daemon.host(), signal.SIGKILL)
    daemon.gone()
    assert os.listdir(daemon.path) == []


def test_killed_host_in_the_foreground_leaves_no_stale_mount(mount):
    volume = mount()
    volume.expects_exit = None
    volume.host.kill()
    eventually(lambda: not system.mount_points(volume.path), 10, "the unmount")
    eventually(lambda: not volume.helper_pids(), 10, "the end of the helper")


def test_two_mounts_live_side_by_side(mount):
    first, second = mount(), mount()
    (first.path / "file").write_bytes(b"first")
    assert os.listdir(second.path) == []
    first.unmount()
    (second.path / "file").write_bytes(b"second")
    assert (second.backing / "file").read_bytes() == b"second"


def test_two_mounts_serve_one_tree(mount):
    first = mount(options=["entry_timeout=0", "attr_timeout=0"])
    second = mount(options=["entry_timeout=0", "attr_timeout=0"], backing=first.backing)
    (first.path / "file").write_bytes(b"content")
    assert (second.path / "file").read_bytes() == b"content"
    os.unlink(second.path / "file")
    assert not (first.path / "file").exists()


# Errors before the mount

def refused(place, program, code, *words, arguments=(), environment=None):
    """Holds a mount to fail with this exit code, with each of these words on standard error, and to leave nothing."""
    done = program.run("mount", place.source, place.path, *arguments, environment=environment)
    assert done.returncode == code, (done.returncode, done.stderr)
    for word in words:
        assert str(word) in done.stderr, done.stderr
    assert not place.mounted() and place.processes() == []
    return done


def one_line(done):
    assert len(done.stderr.splitlines()) == 1, done.stderr


@pytest.mark.parametrize("arguments", [(), ("-f",)], ids=["background", "foreground"])
def test_missing_configuration_is_refused_by_name(place, program, arguments):
    os.unlink(place.source / "mount-config.json")
    one_line(refused(place, program, 3, "mount-config.json", arguments=arguments))


def test_missing_source_is_refused_by_name(place, program):
    place.source = place.source / "absent"
    one_line(refused(place, program, 3, place.source))


@pytest.mark.parametrize("text", ["", "{", "[]", "null", '{"driveId": "x",}', "\xff"])
def test_broken_configuration_is_refused_by_name(place, program, text):
    (place.source / "mount-config.json").write_bytes(text.encode("latin-1"))
    one_line(refused(place, program, 3, "mount-config.json"))


@pytest.mark.parametrize("key", ["driveId", "kemviHome", "repoRoot", "helperPath"])
def test_missing_key_is_refused_by_name(place, program, key):
    write_configuration(place.source, program.helper, place.backing, **{key: None})
    one_line(refused(place, program, 3, "mount-config.json", key))


@pytest.mark.parametrize("value", [42, True, [], {}])
def test_key_of_a_wrong_type_is_refused_by_name_with_what_was_expected(place, program, value):
    write_configuration(place.source, program.helper, place.backing, driveId=value)
    one_line(refused(place, program, 3, "mount-config.json", "driveId", "string"))


def test_missing_helper_script_is_refused_by_name(place, program):
    write_configuration(place.source, "/absent/helper.mjs", place.backing)
    one_line(refused(place, program, 4, "/absent/helper.mjs"))


def test_missing_node_is_refused_by_name(place, program, workspace):
    (workspace / "empty").mkdir()
    one_line(refused(place, program, 4, "node", environment={"PATH": str(workspace / "empty")}))


BAD_HELPERS = {
    "ends at once": "process.exit(3)",
    "prints nonsense": "console.log('hello, I am not a helper'); process.stdin.resume()",
    "fails the first request": "import readline from 'node:readline';"
                               "for await (const line of readline.createInterface(process.stdin)) console.log("
                               "JSON.stringify({id: JSON.parse(line).id, ok: false, error: {message: 'no drive today', code: 'EIO'}}))",
    "answers another request": "process.stdin.on('data', () => console.log('{\"id\":\"77\",\"ok\":true}'))",
    "does not parse": "this is not JavaScript",
}


@pytest.mark.parametrize("arguments", [(), ("-f",)], ids=["background", "foreground"])
@pytest.mark.parametrize("what", BAD_HELPERS)
def test_helper_that_is_none_is_refused_and_its_own_words_are_shown(place, program, workspace, what, arguments):
    script = workspace / "helper.mjs"
    script.write_text("console.error('words of the helper');\n" + BAD_HELPERS[what])
    write_configuration(place.source, script, place.backing)
    done = refused(place, program, 5, script, arguments=arguments)
    if what == "does not parse":
        assert "SyntaxError" in done.stderr
    else:
        assert "words of the helper" in done.stderr
    if what == "fails the first request":
        assert "no drive today" in done.stderr


def test_missing_mount_point_is_refused_by_name(place, program):
    os.rmdir(place.path)
    one_line(refused(place, program, 6, place.path, "not exist"))


def test_mount_point_that_is_a_file_is_refused_by_name(place, program):
    os.rmdir(place.path)
    place.path.touch()
    one_line(refused(place, program, 6, place.path, "not a directory"))


def test_mount_point_with_entries_is_refused_unless_asked_for(place, program):
    (place.path / "entry").touch()
    one_line(refused(place, program, 6, place.path, "not empty"))
    assert program.run("mount", place.source, place.path, "-o", "nonempty").returncode == 0
    assert os.listdir(place.path) == ["file"]
    assert program.run("unmount", place.path).returncode == 0
    assert os.listdir(place.path) == ["entry"]


def test_mount_point_in_use_is_refused_by_name_and_the_mount_goes_on(daemon, program):
    done = program.run("mount", daemon.source, daemon.path)
    assert done.returncode == 6 and str(daemon.path) in done.stderr and "mounted already" in done.stderr
    assert (daemon.path / "file").read_bytes() == b"content"


def test_mount_point_inside_the_served_tree_is_refused(place, program):
    place.path = place.backing / "mount"
    place.path.mkdir()
    one_line(refused(place, program, 6, place.path))


def test_unmount_of_what_is_not_mounted_is_refused(place, program):
    done = program.run("unmount", place.path)
    assert done.returncode == 9 and str(place.path) in done.stderr and len(done.stderr.splitlines()) == 1


@pytest.mark.parametrize("option,word", [("nonsense", "nonsense"), ("fmask=9", "fmask"), ("fmask=1777", "fmask"),
                                         ("entry_timeout=soon", "entry_timeout"), ("attr_timeout=-1", "attr_timeout"),
                                         ("uid=no-such-user", "uid"), ("ro=1", "ro"), ("dmask", "dmask"),
                                         ("request_size=5000", "request_size")])
def test_bad_option_is_refused_by_name(place, program, option, word):
    one_line(refused(place, program, 2, word, arguments=("-o", option)))


@pytest.mark.user_only
def test_allow_other_is_refused_with_a_clear_word_where_the_machine_forbids_it(place, program):
    with open("/etc/fuse.conf", encoding="utf-8") as configuration:
        if any(line.strip() == "user_allow_other" for line in configuration):
            pytest.skip("this machine allows it")
    one_line(refused(place, program, 7, "allow_other", "user_allow_other", arguments=("-o", "allow_other")))


@pytest.mark.root_only
def test_missing_device_is_refused_by_name(place, program):
    """In a mount namespace whose /dev has nothing but the null device."""
    script = ('mount -t tmpfs none "$1" && mknod -m 666 "$1/null" c 1 3 && mount --move "$1" /dev && shift && "$@"')
    empty = place.path.parent / "dev"
    empty.mkdir()
    done = subprocess.run(["unshare", "--mount", "--propagation", "private", "sh", "-c", script, "sh", empty,
                           program.binary, "mount", place.source, place.path], env=program.environment, check=False,
                          capture_output=True, text=True, timeout=30, stdin=subprocess.DEVNULL)
    assert done.returncode == 7 and "/dev/fuse" in done.stderr, done.stderr
    assert not place.mounted() and place.processes() == []


def test_interrupt_before_the_mount_is_ready_leaves_nothing(place, program, workspace):
    """A helper that takes its time with the first answer, and a user who does not."""
    script = workspace / "helper.mjs"
    script.write_text(f"import fs from 'node:fs'; fs.writeFileSync({str(workspace / 'asked')!r}, '');"
                      "setInterval(() => {}, 1000)")
    write_configuration(place.source, script, place.backing)
    with program.start("mount", place.source, place.path, stderr=subprocess.DEVNULL) as starter:
        eventually((workspace / "asked").exists, 10, "the start of the helper")
        assert not place.mounted()
        starter.send_signal(signal.SIGINT)
        starter.send_signal(signal.SIGTERM)
        try:
            code = starter.wait(15)
        except subprocess.TimeoutExpired:
            starter.send_signal(signal.SIGTERM)
            code = starter.wait(15)
    assert code != 0
    place.gone()


def test_initialised_source_mounts(place, program):
    os.unlink(place.source / "mount-config.json")
    done = program.run("init", place.source, "--helper", program.helper, "--repo-root", place.backing)
    assert done.returncode == 0, done.stderr
    assert program.run("mount", place.source, place.path).returncode == 0
    assert (place.path / "file").read_bytes() == b"content"
    assert program.run("unmount", place.path).returncode == 0


# Others

def test_helper_gets_the_configured_environment(mount, workspace):
    script = workspace / "tell.mjs"
    script.write_text(f"import fs from 'node:fs'; fs.writeFileSync({str(workspace / 'environment')!r},"
                      "JSON.stringify(process.env)); await import(process.env.KEMVI_TEST_INNER)")
    volume = mount(helper=script, environment={"KEMVI_HOME": "inherited", "OTHER": "kept"}, control=True)
    import json
    told = json.loads((workspace / "environment").read_text())
    assert told["KEMVI_DRIVE_ID"] == "test" and told["KEMVI_REPO_ROOT"] == str(volume.backing)
    assert told["KEMVI_HOME"] == str(volume.source) and told["OTHER"] == "kept"
    volume.helper = None


def test_other_users_have_no_access(mount):
    """Without allow_other, not even root may look into an ordinary user's mount, nor anybody into root's."""
    volume = mount()
    (volume.path / "file").write_bytes(b"content")
    if os.getuid() != 0:
        pytest.skip("needs a second user")
    os.chmod(volume.workspace, 0o755)
    command = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "cat", str(volume.path / "file")]
    done = subprocess.run(command, capture_output=True, check=False, timeout=20)
    assert done.returncode != 0 and done.stdout == b""


@pytest.mark.root_only
def test_other_users_may_read_and_not_write_when_allowed(mount):
    volume = mount(options=["allow_other"])
    (volume.path / "file").write_bytes(b"content")
    os.chmod(volume.workspace, 0o755)
    other = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    done = subprocess.run([*other, "cat", volume.path / "file"], capture_output=True, check=False, timeout=20)
    assert done.stdout == b"content"
    for command in (["touch", volume.path / "fresh"], ["sh", "-c", 'echo x >> "$1"', "sh", volume.path / "file"],
                    ["rm", "-f", volume.path / "file"], ["mkdir", volume.path / "folder"]):
        assert subprocess.run([*other, *command], capture_output=True, check=False, timeout=20).returncode != 0
    assert os.listdir(volume.backing) == ["file"] and (volume.backing / "file").read_bytes() == b"content"


def test_concurrent_work_and_unmount_do_not_hang(mount):
    """A mount taken away under busy processes: they get errors, nobody hangs."""
    volume = mount()
    volume.checks_descriptors = False
    volume.expect_log("")

    def work():
        count = 0
        try:
            while True:
                (volume.path / f"file{os.getpid()}").write_bytes(b"x" * 5000)
                os.listdir(volume.path)
                count += 1
        except OSError:
            return count
    workers = [Worker(work) for _ in range(3)]
    eventually(lambda: len(os.listdir(volume.backing)) == 3, 20)
    volume.host.send_signal(signal.SIGTERM)
    eventually(lambda: not system.mount_points(volume.path), 20)
    for worker in workers:
        if not worker.is_gone(2) and not worker.is_done():
            worker.kill()  # it works on in the empty mount point, which is writable to it
    volume.wait_for_end(20)
    for name in os.listdir(volume.path):
        os.unlink(volume.path / name)
