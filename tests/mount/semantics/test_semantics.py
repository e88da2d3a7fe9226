"""docs/semantics.md, executed: one test for each sentence in bold."""

import contextlib
import errno
import fcntl
import mmap
import os
import re
import shutil
import signal
import stat
import subprocess
from pathlib import Path

import pytest

from harness import libc, system
from harness.calls import failure, put
from harness.deadline import eventually, unless_overtaken
from harness.worker import Worker, in_child

DOCUMENT = Path(os.environ.get("KEMVI_SEMANTICS", Path(__file__).resolve().parents[3] / "docs" / "semantics.md"))
AT_ONCE = ["entry_timeout=0", "attr_timeout=0"]
claims = []


def claim(sentence):
    claims.append(sentence)
    return lambda test: test


def test_every_sentence_has_a_test_and_every_test_a_sentence():
    text = re.sub(r"\s+", " ", DOCUMENT.read_text(encoding="utf-8"))
    told = re.findall(r"- \*\*(.+?)\*\*", text)
    assert len(told) > 30
    assert sorted(told) == sorted(claims)


# Open files

@claim("A descriptor belongs to its file, not to its name.")
def test_descriptor_belongs_to_its_file(volume):
    (volume.path / "folder").mkdir()
    with open(put(volume.path / "folder" / "file"), "r+b", buffering=0) as file:
        os.rename(volume.path / "folder" / "file", volume.path / "folder" / "moved")
        os.rename(volume.path / "folder", volume.path / "elsewhere")
        assert file.read() == b"content" and os.fstat(file.fileno()).st_size == 7
        file.write(b" and more")
        os.ftruncate(file.fileno(), 10)
    assert (volume.path / "elsewhere" / "moved").read_bytes() == b"content an"


@claim("A file that is removed or replaced while open lives on until its last close.")
def test_removed_open_file_lives_on(volume):
    with open(put(volume.path / "a"), "r+b", buffering=0) as removed, open(put(volume.path / "b"), "rb") as replaced:
        os.unlink(volume.path / "a")
        os.rename(put(volume.path / "c", b"other"), volume.path / "b")
        assert removed.read() == b"content" and replaced.read() == b"content"
        removed.write(b"!")
    assert os.listdir(volume.path) == ["b"]
    eventually(lambda: os.listdir(volume.backing) == ["b"], 10)


@claim("A new file at an old name is another file.")
def test_new_file_is_another(volume):
    with open(put(volume.path / "file"), "r+b", buffering=0) as old:
        os.unlink(volume.path / "file")
        put(volume.path / "file", b"new")
        old.write(b"OLD")
        assert (volume.path / "file").read_bytes() == b"new"


def append(path, writer):
    for record in range(100):
        with open(path, "ab", buffering=0) as file:
            file.write(b"%d:%03d\n" % (writer, record))
    return True


@claim("Records that several processes append to a file through one mount are all there, and whole.")
def test_appended_records_are_all_there(volume):
    workers = [Worker(append, volume.path / "log", writer) for writer in range(3)]
    assert all(worker.result(50) for worker in workers)
    wanted = sorted(b"%d:%03d" % (writer, record) for writer in range(3) for record in range(100))
    assert sorted((volume.path / "log").read_bytes().split()) == wanted


@claim("Locks (flock, fcntl) hold between the processes of one machine.")
def test_locks_hold(volume):
    put(volume.path / "file")

    def lock(how):
        with open(volume.path / "file", "r+b") as file:
            how(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
    for how in (fcntl.flock, fcntl.lockf):
        with open(volume.path / "file", "r+b") as file:
            how(file, fcntl.LOCK_EX)
            assert failure(in_child, lock, how) == errno.EAGAIN
        in_child(lock, how)


@claim("Shared maps, reads and writes of a file show the same bytes.")
def test_maps_reads_and_writes_agree(volume):
    with open(put(volume.path / "file", bytes(8192)), "r+b", buffering=0) as file, mmap.mmap(file.fileno(), 0) as view:
        os.pwrite(file.fileno(), b"written", 5000)
        view[100:106] = b"mapped"
        assert view[5000:5007] == b"written" and os.pread(file.fileno(), 6, 100) == b"mapped"
        view.flush()
        assert (volume.backing / "file").read_bytes()[100:106] == b"mapped"


# Changes

def create_many(folder):
    won = []
    for number in range(60):
        try:
            os.close(os.open(folder / str(number), os.O_CREAT | os.O_EXCL | os.O_WRONLY))
            won.append(number)
        except FileExistsError:
            pass
    return won


@claim("An exclusive create succeeds for exactly one of several processes.")
def test_exclusive_create_has_one_winner(volume):
    workers = [Worker(create_many, volume.path) for _ in range(3)]
    assert sorted(number for worker in workers for number in worker.result(50)) == list(range(60))


@claim("Opening never empties a file unless it is asked to.")
def test_opening_does_not_empty(mount):
    volume = mount(options=["negative_timeout=60"])
    assert not (volume.path / "file").exists()
    put(volume.backing / "file")
    os.close(os.open(volume.path / "file", os.O_RDWR | os.O_CREAT))
    assert (volume.backing / "file").read_bytes() == b"content"
    os.close(os.open(volume.path / "file", os.O_RDWR | os.O_TRUNC))
    assert (volume.backing / "file").read_bytes() == b""


def replace_many(folder):
    for turn in range(40):
        os.rename(put(folder / "fresh", b"%04d" % turn), folder / "file")
    return True


@claim("A rename replaces its target in one step: the name is never absent and never half written.")
@pytest.mark.parametrize("helper", ["replaces", "refuses to replace"])
def test_rename_replaces_in_one_step(mount, helper):
    volume = mount(options=AT_ONCE, control=True)
    if helper == "refuses to replace":
        volume.helper.rule("renameRefusesExisting", "rename")
    put(volume.path / "file", b"0000")
    worker = Worker(replace_many, volume.path)
    while not worker.is_done():
        assert len(unless_overtaken((volume.path / "file").read_bytes)) == 4
    assert worker.result()


@claim("A rename that fails leaves both files as they were.")
def test_failed_rename_leaves_both(controlled):
    put(controlled.path / "a", b"is a")
    put(controlled.path / "b", b"is b")
    for code in (errno.EACCES, errno.EIO):
        rule = controlled.helper.fail("rename", errno.errorcode[code])
        assert failure(os.rename, controlled.path / "a", controlled.path / "b") == code
        controlled.helper.drop(rule)
        assert (controlled.path / "a").read_bytes() == b"is a" and (controlled.path / "b").read_bytes() == b"is b"


@claim("A folder with entries is neither removed nor replaced.")
def test_folder_with_entries_stays(controlled):
    controlled.helper.rule("recursiveUnlink", "unlink")
    for name in ("one", "two"):
        (controlled.path / name).mkdir()
        put(controlled.path / name / "file")
    assert failure(os.rmdir, controlled.path / "one") == errno.ENOTEMPTY
    assert failure(os.rename, controlled.path / "one", controlled.path / "two") == errno.ENOTEMPTY
    assert (controlled.backing / "one" / "file").exists() and (controlled.backing / "two" / "file").exists()


@claim("Resizing keeps the bytes that the file has now, also those that came behind the mount.")
def test_resizing_keeps_what_is_there(mount):
    volume = mount(options=["entry_timeout=60", "attr_timeout=60"])
    put(volume.backing / "file", b"12345")
    os.stat(volume.path / "file")
    put(volume.backing / "file", b"1234567890")
    os.truncate(volume.path / "file", 8)
    assert (volume.backing / "file").read_bytes() == b"12345678"


@claim("Growing a file costs one small write, whatever the size.")
def test_growing_is_one_small_write(controlled):
    put(controlled.path / "file")
    controlled.helper.forget()
    os.truncate(controlled.path / "file", 1 << 30)
    assert [request["size"] for request in controlled.helper.requests("write")] == [1]
    with open(controlled.path / "file", "rb") as file:
        assert file.read(20) == b"content" + bytes(13)


# Data

@claim("A write has reached the helper when it returns.")
def test_write_is_in_the_served_tree(volume):
    with open(volume.path / "file", "wb", buffering=0) as file:
        for number in range(1, 5):
            file.write(b"12345")
            assert (volume.backing / "file").stat().st_size == 5 * number


@claim("An orderly end of the mount first writes what programs have changed.")
def test_orderly_end_writes(mount):
    volume = mount(options=["writeback"])
    volume.checks_descriptors = False

    def change():
        os.write(os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT), b"changed")
        signal.pause()
    worker = Worker(change)
    eventually(lambda: (volume.path / "file").exists() and (volume.path / "file").stat().st_size == 7, 10)
    volume.host.send_signal(signal.SIGTERM)
    assert volume.wait_for_end() == 0
    worker.kill()
    assert (volume.backing / "file").read_bytes() == b"changed"


@claim("fsync asks the helper to make the file safe, and tells its error.")
def test_fsync_asks_the_helper(controlled):
    with open(controlled.path / "file", "wb", buffering=0) as file:
        file.write(b"content")
        os.fsync(file.fileno())
        assert controlled.helper.count("flush") == 1
        rule = controlled.helper.fail("flush", "EACCES")
        assert failure(os.fsync, file.fileno()) == errno.EACCES
        controlled.helper.drop(rule)


@claim("What fsync makes safe is all that was written to the file before, through whichever descriptor, also one that "
       "is closed.")
def test_fsync_covers_what_was_written_before(controlled):
    put(controlled.path / "file")
    assert controlled.helper.count("flush") == 0
    subprocess.run(["sync", controlled.path / "file"], check=True, timeout=20)
    assert controlled.helper.count("flush") == 1


@claim("fsync of one file does not tell the error of another.")
def test_fsync_tells_no_error_of_another_file(controlled):
    with open(controlled.path / "file", "wb", buffering=0) as file, open(controlled.path / "other", "wb", buffering=0) as other:
        file.write(b"content")
        other.write(b"content")
        rule = controlled.helper.rule("failOpenedAt", "flush", opened="/other", code="EACCES", message="refused")
        os.fsync(file.fileno())
        assert failure(os.fsync, other.fileno()) == errno.EACCES
        controlled.helper.drop(rule)


@claim("What the kernel holds of a file and cannot write is an error of the next msync, fsync or close of it, whoever "
       "holds the file.")
def test_pages_that_cannot_be_written(mount):
    volume = mount(options=["writeback"], control=True)
    volume.checks_descriptors = False
    descriptor = os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT)
    rule = volume.helper.fail("write", "ENOSPC")
    os.write(descriptor, b"content")
    assert failure(os.fsync, descriptor) == errno.EIO
    volume.helper.drop(rule)
    assert failure(os.close, descriptor) == errno.EIO


@claim("sync, syncfs and fsync of a folder do not reach the helper.")
def test_sync_of_more_than_a_file(controlled):
    put(controlled.path / "file")
    controlled.helper.forget()
    subprocess.run(["sync", "-f", controlled.path / "file"], check=True, timeout=20)
    folder = os.open(controlled.path, os.O_RDONLY | os.O_DIRECTORY)
    os.fsync(folder)
    os.close(folder)
    assert controlled.helper.count("flush", "statfs") == 0


@claim("The helper's error on giving back a written file is the error of close.")
def test_error_of_close(controlled):
    controlled.checks_descriptors = False
    descriptor = os.open(controlled.path / "file", os.O_WRONLY | os.O_CREAT)
    os.write(descriptor, b"content")
    rule = controlled.helper.rule("failAfter", "release", code="EACCES", message="too late")
    assert failure(os.close, descriptor) == errno.EACCES
    controlled.helper.drop(rule)


@claim("A read gives all the bytes that there are, however short the helper answers.")
def test_read_is_whole(controlled):
    data = os.urandom(50_000)
    put(controlled.backing / "file", data)
    controlled.helper.rule("shortReads", "read", most=999)
    assert (controlled.path / "file").read_bytes() == data


# Folders

@claim("A listing tells every entry that is there throughout exactly once, also while entries are removed.")
def test_listing_is_complete(volume):
    for index in range(300):
        (volume.path / f"file{index}").touch()
    descriptor = os.open(volume.path, os.O_RDONLY | os.O_DIRECTORY)
    seen = []
    while part := libc.raw_directory(descriptor, 300):
        for name, *_ in part:
            seen.append(name)
            if name.startswith("file") and int(name[4:]) % 2:
                os.unlink(volume.path / name)
    os.close(descriptor)
    assert sorted(seen) == sorted([".", "..", *(f"file{index}" for index in range(300))])


@claim("A listing costs the helper one request, with or without attributes.")
def test_listing_costs_one_request(controlled):
    for index in range(200):
        (controlled.backing / f"file{index}").touch()
    subprocess.run(["ls", controlled.path], check=True, capture_output=True, timeout=20)
    assert controlled.helper.short() == ["readdir /"]
    controlled.helper.forget()
    subprocess.run(["ls", "-l", controlled.path], check=True, capture_output=True, timeout=20)
    assert controlled.helper.count("readdir") == 1 and controlled.helper.count("getattr") <= 1


@claim("Names are any UTF-8 of up to 255 bytes, and come back as they went in.")
def test_names_come_back(volume):
    names = ["a b", "\u00e9", "e\u0301", "line\nbreak", "back\\slash", "\"quoted\"", "\U0001f600", "x" * 255]
    for name in names:
        put(volume.path / name)
    assert sorted(os.listdir(volume.path)) == sorted(names)
    assert failure(os.mkdir, volume.path / ("x" * 256)) == errno.ENAMETOOLONG


# Trouble

@claim("A process that waits for a helper that hangs can be killed.")
def test_waiting_process_can_be_killed(controlled):
    put(controlled.backing / "file")
    rule = controlled.helper.block("getattr")
    worker = Worker(os.stat, controlled.path / "file")
    controlled.helper.blocked_request()
    worker.kill()
    assert worker.is_gone(2)
    controlled.helper.drop(rule)
    assert (controlled.path / "file").read_bytes() == b"content"


@claim("A signal that the program handles breaks no operation, however long it lasts.")
def test_handled_signal_breaks_nothing(controlled):
    def make():
        signal.signal(signal.SIGALRM, lambda *_: None)
        signal.setitimer(signal.ITIMER_REAL, 0.1)
        os.mkdir(controlled.path / "folder")
        return True
    controlled.helper.rule("delay", "mkdir", milliseconds=700)
    assert in_child(make)


@claim("A process with changes in a shared map cannot be killed while they wait for a helper that hangs; "
       "`kemvi unmount --force` frees it.")
def test_forced_unmount_frees_a_process_with_a_changed_map(controlled):
    controlled.checks_descriptors, controlled.expects_exit = False, None
    controlled.expect_log("")
    put(controlled.path / "file", bytes(mmap.PAGESIZE))

    def change():
        with open(controlled.path / "file", "r+b") as file, mmap.mmap(file.fileno(), 0) as view:
            view[0] = 1
            view.flush()
    controlled.helper.block("write")
    worker = Worker(change)
    controlled.helper.blocked_request()
    worker.kill()
    assert not worker.is_gone(0.7)
    assert controlled.program.run("unmount", "--force", controlled.path, limit=20).returncode == 0
    assert worker.is_gone(5)
    controlled.wait_for_end(5)
    eventually(lambda: not controlled.helper_pids(), 5)


@claim("After the helper has died every operation that needs it fails at once with EIO.")
def test_dead_helper_is_an_error(controlled):
    controlled.expect_log("helper")
    for pid in controlled.helper_pids():
        with contextlib.suppress(ProcessLookupError):  # the inner one ends by itself when the outer one is gone
            os.kill(pid, 9)
    assert failure(os.listdir, controlled.path) == failure(os.stat, controlled.path / "file") == errno.EIO
    eventually(controlled.log, 5)
    assert len(controlled.log().splitlines()) == 1


def restarted(mount):
    """A volume, and a function that kills its helper and waits for the next."""
    volume = mount(options=["on_death=restart"])
    volume.expect_log("helper")

    def kill_helper():
        before = len(volume.log_lines("was started anew"))
        os.kill(volume.helper_pid(), signal.SIGKILL)
        eventually(lambda: len(volume.log_lines("was started anew")) > before, 20, "a new helper")
    return volume, kill_helper


@claim("With `-o on_death=restart` a program that only looks does not notice that the helper has died.")
def test_who_looks_does_not_notice_a_death(mount):
    volume, kill_helper = restarted(mount)
    with open(put(volume.path / "file"), "rb", buffering=0) as file:
        assert file.read(3) == b"con"
        kill_helper()
        assert file.read() == b"tent" and os.listdir(volume.path) == ["file"]


@claim("A change under way when the helper died fails with EIO, done or not.")
def test_change_under_way_at_a_death_fails(mount):
    volume = mount(control=True, options=["on_death=restart"])
    volume.expect_log("helper")
    volume.helper.rule("dieOnce", "mkdir")
    assert failure(os.mkdir, volume.path / "folder") == errno.EIO
    os.mkdir(volume.path / "folder")


@claim("What the helper had accepted and was not told to make safe when it died is an EIO of the file's next fsync, or of the "
       "next close by who writes it.")
def test_what_was_not_safe_at_a_death_is_told(mount):
    volume, kill_helper = restarted(mount)
    for tell in (os.fsync, os.close):
        descriptor = os.open(volume.path / "file", os.O_WRONLY | os.O_CREAT)
        os.write(descriptor, b"accepted")
        kill_helper()
        assert failure(tell, descriptor) == errno.EIO
        if tell is os.fsync:
            os.close(descriptor)


@claim("When the host dies the mount goes away with it.")
def test_mount_goes_with_its_host(mount):
    volume = mount()
    volume.expects_exit = None
    put(volume.path / "file")
    volume.host.kill()
    volume.wait_for_end()
    eventually(lambda: not system.mount_points(volume.path), 10)
    assert (volume.backing / "file").read_bytes() == b"content"


# What is not there

@claim("There are no symbolic links, hard links, pipes, sockets or devices: making one fails with EOPNOTSUPP.")
def test_no_links_and_no_special_files(mount):
    volume = mount()
    put(volume.path / "file")
    assert failure(os.symlink, "file", volume.path / "link") == errno.EOPNOTSUPP
    assert failure(os.link, volume.path / "file", volume.path / "link") == errno.EOPNOTSUPP
    assert failure(os.mkfifo, volume.path / "link") == errno.EOPNOTSUPP
    assert failure(os.mknod, volume.path / "link", stat.S_IFSOCK) == errno.EOPNOTSUPP
    if os.getuid() == 0:
        assert failure(os.mknod, volume.path / "link", stat.S_IFCHR, os.makedev(1, 3)) == errno.EOPNOTSUPP


@claim("There are no extended attributes and no access lists: setting one fails with EOPNOTSUPP.")
def test_no_extended_attributes(mount):
    volume = mount()
    put(volume.path / "file")
    assert failure(os.getxattr, volume.path / "file", "user.name") == errno.EOPNOTSUPP
    # A kernel that has looked for the access list to check permissions knows that there is none.
    assert failure(os.getxattr, volume.path / "file", "system.posix_acl_access") in (errno.ENODATA, errno.EOPNOTSUPP)
    access_list = bytes.fromhex("0200000001000600ffffffff04000400ffffffff20000400ffffffff")
    for name, value in (("user.name", b"value"), ("system.posix_acl_access", access_list)):
        assert failure(os.setxattr, volume.path / "file", name, value) == errno.EOPNOTSUPP


@claim("Exchanging two names (RENAME_EXCHANGE) fails with EINVAL.")
def test_no_exchange(mount):
    volume = mount()
    first, second = put(volume.path / "a"), put(volume.path / "b")
    assert failure(libc.renameat2, first, second, libc.RENAME_EXCHANGE) == errno.EINVAL


@claim("An unnamed temporary file (O_TMPFILE) fails with EOPNOTSUPP.")
def test_no_unnamed_files(mount):
    volume = mount()
    assert failure(os.open, volume.path, os.O_TMPFILE | os.O_RDWR) == errno.EOPNOTSUPP


# Owners and modes

def shown_mode(path):
    return stat.S_IMODE(os.stat(path).st_mode)


@claim("Files show mode 0644, folders 0755, and the user who mounted as owner.")
def test_owners_and_modes(mount):
    volume = mount()
    put(volume.path / "file")
    (volume.path / "folder").mkdir()
    assert shown_mode(volume.path / "file") == 0o644 and shown_mode(volume.path / "folder") == 0o755
    assert os.stat(volume.path / "file").st_uid == os.getuid() and os.stat(volume.path / "file").st_gid == os.getgid()


@claim("Programs on a mount can be executed only with -o fmask=022 or the like.")
def test_programs_need_a_mask(mount):
    for options, works in (([], False), (["fmask=022"], True)):
        volume = mount(options=options)
        shutil.copy(shutil.which("true"), volume.path / "program")
        try:
            assert subprocess.run([volume.path / "program"], check=False, timeout=20).returncode == 0 and works
        except PermissionError:
            assert not works


@claim("chmod reaches the helper, and what is shown stays.")
def test_chmod_reaches_the_helper(mount):
    volume = mount()
    os.chmod(put(volume.path / "file"), 0o600)
    assert shown_mode(volume.backing / "file") == 0o600 and shown_mode(volume.path / "file") == 0o644


@claim("access(2) tells the truth, and asks the helper for nothing.")
def test_access_tells_the_truth(controlled):
    put(controlled.path / "file")
    (controlled.path / "folder").mkdir()
    controlled.helper.forget()
    assert os.access(controlled.path / "file", os.R_OK | os.W_OK) and not os.access(controlled.path / "file", os.X_OK)
    assert os.access(controlled.path / "folder", os.R_OK | os.W_OK | os.X_OK)
    assert controlled.helper.count("getattr") == 0


@claim("Of a mode only the permissions reach the helper; set-user-ID, set-group-ID and sticky bits are dropped without an "
       "error.")
def test_only_permissions_reach_the_helper(mount):
    volume = mount()
    os.chmod(put(volume.path / "file"), 0o6755)
    (volume.path / "folder").mkdir()
    os.chmod(volume.path / "folder", 0o3755)
    assert shown_mode(volume.backing / "file") == 0o755 and shown_mode(volume.backing / "folder") == 0o755


@claim("A file created with less access for others than is usual has that in the served tree from the start.")
def test_private_files_are_private(mount):
    volume = mount()
    os.close(os.open(volume.path / "key", os.O_WRONLY | os.O_CREAT, 0o600))
    assert shown_mode(volume.backing / "key") == 0o600


@claim("chown to the owner shown succeeds; to any other it fails with EPERM.")
def test_chown(mount):
    volume = mount()
    os.chown(put(volume.path / "file"), os.getuid(), os.getgid())
    assert failure(os.chown, volume.path / "file", os.getuid() + 1, -1) == errno.EPERM


@claim("The configuration that a mount was made from can be read, not changed, moved or removed (EPERM).")
def test_configuration_is_kept(mount, workspace):
    volume = mount(backing=workspace / "source")
    path = volume.path / "mount-config.json"
    assert b"helperPath" in path.read_bytes()
    put(volume.path / "other")
    assert failure(path.write_bytes, b"{}") == errno.EPERM
    assert failure(os.rename, volume.path / "other", path) == errno.EPERM
    assert failure(os.rename, path, volume.path / "moved") == errno.EPERM
    assert failure(os.unlink, path) == errno.EPERM


@claim("Other users, root included, have no access unless -o allow_other was given.")
def test_other_users_have_no_access(mount):
    volume = mount()
    put(volume.path / "file")
    assert "allow_other" not in system.mount_at(volume.path).super_options
    if os.getuid() == 0:
        os.chmod(volume.workspace, 0o755)
        other = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "cat", volume.path / "file"]
        assert subprocess.run(other, capture_output=True, check=False, timeout=20).stdout == b""


# Times and numbers

@claim("There is one time, that of the last change of content; it is shown as all of them.")
def test_one_time(mount):
    volume = mount()
    os.utime(put(volume.path / "file"), (50, 1_000))
    seen = os.stat(volume.path / "file")
    assert seen.st_mtime == seen.st_atime == seen.st_ctime == 1_000


@claim("Times have milliseconds.")
def test_milliseconds(mount):
    volume = mount()
    wanted = 1_600_000_000_123_456_789
    os.utime(put(volume.path / "file"), ns=(wanted, wanted))
    assert abs(os.stat(volume.path / "file").st_mtime_ns - wanted) <= 1_000_000


@claim("The root of the mount shows 1970 and size 0.")
def test_root(mount):
    seen = os.stat(mount().path)
    assert seen.st_mtime == 0 and seen.st_size == 0


@claim("Inode numbers are computed from the path.")
def test_inode_numbers(mount):
    first = mount()
    put(first.path / "a")
    number = os.stat(first.path / "a").st_ino
    second = mount(backing=first.backing)
    assert os.stat(second.path / "a").st_ino == number == 564752086074186029
    os.rename(first.path / "a", first.path / "b")
    assert os.stat(first.path / "b").st_ino != number


@claim("Link counts are 1 for files and 2 for folders.")
def test_link_counts(mount):
    volume = mount()
    put(volume.path / "file")
    (volume.path / "folder" / "sub").mkdir(parents=True)
    assert os.stat(volume.path / "file").st_nlink == 1 and os.stat(volume.path / "folder").st_nlink == 2


@claim("The figures that df shows are fixed: 4 TiB, all free.")
def test_figures(controlled):
    seen = os.statvfs(controlled.path)
    assert seen.f_blocks * seen.f_frsize == seen.f_bavail * seen.f_frsize == 4 << 40
    assert controlled.helper.count() == 0


# Errors

@claim("Of the helper's error codes, ENOENT, EEXIST, EINVAL, EISDIR, ENOTDIR, ENOTEMPTY, EACCES, EPERM and EROFS arrive; "
       "any other is EIO.")
def test_error_codes(controlled):
    known = ["ENOENT", "EEXIST", "EINVAL", "EISDIR", "ENOTDIR", "ENOTEMPTY", "EACCES", "EPERM", "EROFS"]
    for code in [*known, "ENOSPC", "EBUSY"]:
        rule = controlled.helper.fail("getattr", code)
        assert failure(os.stat, controlled.path / "file") == (getattr(errno, code) if code in known else errno.EIO)
        controlled.helper.drop(rule)


@claim("A file that the helper tells of but does not find when it is opened fails with ENOENT.")
def test_file_that_is_told_and_not_opened(controlled):
    put(controlled.path / "file")
    controlled.helper.fail("open", "ENOENT")
    controlled.helper.forget()
    assert failure(os.open, controlled.path / "file", os.O_RDONLY) == errno.ENOENT
    assert controlled.helper.count("open") == 2


@claim("A name that is not UTF-8 fails with EINVAL.")
def test_names_that_are_not_utf8(mount):
    assert failure(os.mkdir, os.fsencode(mount().path) + b"/caf\xe9") == errno.EINVAL


# Behind the mount

@claim("What changes behind the mount is seen within a second.")
def test_changes_are_seen(mount):
    # The kernel counts the second in ticks of its clock, from when it has read the answer; the rest is a busy machine's.
    for options, seconds in ((AT_ONCE, 0), ([], 1.25)):
        volume = mount(options=options)
        put(volume.backing / "file")
        os.stat(volume.path / "file")
        put(volume.backing / "file", b"longer content")
        eventually(lambda path=volume.path: os.stat(path / "file").st_size == 14, seconds)
        os.unlink(volume.backing / "file")
        eventually(lambda path=volume.path: not (path / "file").exists(), seconds)


def invalidate(volume, *what):
    assert volume.program.run("invalidate", volume.path, *what).returncode == 0


@claim("What changes behind the mount is seen at once when the mount is told of it.")
def test_changes_that_are_told_are_seen(mount):
    volume = mount(options=["entry_timeout=3600", "attr_timeout=3600"])
    os.utime(put(volume.backing / "file", b"before"), (1_000, 1_000))
    assert (volume.path / "file").read_bytes() == b"before"
    os.utime(put(volume.backing / "file", b"after!"), (1_000, 1_000))
    assert (volume.path / "file").read_bytes() == b"before"
    invalidate(volume, "file")
    assert (volume.path / "file").read_bytes() == b"after!"
    os.stat(volume.path / "file")
    os.unlink(volume.backing / "file")
    assert (volume.path / "file").exists()
    invalidate(volume, "file")
    assert not (volume.path / "file").exists()


@claim("Telling a mount of changes loses nothing that programs have written through it.")
def test_written_bytes_outlive_invalidation(mount):
    volume = mount(options=["writeback", "attr_timeout=3600"])
    with open(volume.path / "file", "w+b", buffering=0) as file:
        file.write(b"held back")
        invalidate(volume, "--all")
        assert (volume.backing / "file").read_bytes() == b"held back"
        assert os.pread(file.fileno(), 100, 0) == b"held back"


@claim("Content that changes behind the mount is seen by the next open after its size or time was seen to change.")
def test_changed_content_is_seen(mount):
    volume = mount(options=AT_ONCE)
    os.utime(put(volume.backing / "file", b"a" * 50_000), (1_000, 1_000))
    assert (volume.path / "file").read_bytes() == b"a" * 50_000
    os.utime(put(volume.backing / "file", b"b" * 50_000), (2_000, 2_000))
    assert (volume.path / "file").read_bytes() == b"b" * 50_000


@claim("A removed file that is still open has a name .kemvi-hidden-... in the served tree.")
def test_hidden_name(mount):
    volume = mount()
    with open(put(volume.path / "file"), "rb"):
        os.unlink(volume.path / "file")
        assert len(volume.hidden()) == 1 and os.listdir(volume.path) == []
    eventually(lambda: os.listdir(volume.backing) == [], 10)


@claim("Shrinking a file to a size other than 0 writes its head anew.")
def test_shrinking_rewrites(controlled):
    put(controlled.path / "file", b"0123456789")
    controlled.helper.forget()
    os.truncate(controlled.path / "file", 4)
    assert sum(request["size"] for request in controlled.helper.requests("write")) == 2 * 4, "into a copy, and back"
    assert any("truncate" in request["flags"] for request in controlled.helper.requests("open"))


@claim("The head survives the death of helper or host in the middle: it is in the file, or beside it as "
       ".kemvi-hidden-...-head-of-NAME.")
def test_head_survives(controlled):
    controlled.checks_descriptors, controlled.expects_exit = False, None
    put(controlled.backing / "file", b"0123456789")
    controlled.helper.rule("killAllAt", "write", nth=2)  # the file is empty, the head is to be written back
    assert failure(os.truncate, controlled.path / "file", 4)
    controlled.wait_for_end()
    copy, = controlled.hidden()
    assert copy.endswith("-head-of-file") and (controlled.backing / copy).read_bytes() == b"0123"


@claim("A file that is removed behind the mount while it is open reads as before until that is noticed, and then answers ESTALE.")
def test_file_removed_behind_the_mount_is_stale(mount):
    late, soon = mount(options=["attr_timeout=60"]), mount(options=AT_ONCE)
    for volume, removed in ((late, False), (soon, True)):
        put(volume.backing / "file")
        descriptor = os.open(volume.path / "file", os.O_RDONLY)
        os.unlink(volume.backing / "file")
        if removed:
            assert failure(os.fstat, descriptor) == errno.ESTALE
            assert failure(os.pread, descriptor, 20, 0) == errno.ESTALE
        else:
            assert os.pread(descriptor, 7, 0) == b"content"
        os.close(descriptor)


@claim("A folder that is removed while it is open or somebody's working folder answers ESTALE.")
def test_removed_folder_is_stale(mount):
    volume = mount()
    (volume.path / "folder").mkdir()
    descriptor = os.open(volume.path / "folder", os.O_RDONLY | os.O_DIRECTORY)
    os.rmdir(volume.path / "folder")
    assert failure(os.fstat, descriptor) == errno.ESTALE
    os.close(descriptor)


@claim("Two mounts of one tree see each other's changes as changes behind the mount.")
def test_two_mounts(mount):
    first = mount(options=AT_ONCE)
    second = mount(options=AT_ONCE, backing=first.backing)
    put(first.path / "file")
    assert (second.path / "file").read_bytes() == b"content"
    with open(second.path / "file", "rb"):
        os.unlink(first.path / "file")
        assert first.hidden() == []
