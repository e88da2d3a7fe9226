"""A mount whose processes' memory is watched."""
import contextlib
import shutil
import subprocess
import threading
from pathlib import Path

MIB = 1 << 20


class Resident(threading.Thread):
    """Watches the resident memory of a process until it is told to stop; bytes."""

    def __init__(self, pid):
        super().__init__(daemon=True)
        self.pid = pid
        self.first = self.largest = self.now()
        self.stopped = threading.Event()

    def now(self):
        with open(f'/proc/{self.pid}/status', encoding='ascii') as status:
            return next(int(line.split()[1]) * 1024 for line in status if line.startswith('VmRSS'))

    def run(self):
        while not self.stopped.wait(0.05):
            self.largest = max(self.largest, self.now())

    def stop(self):
        self.stopped.set()
        self.join()
        self.largest = max(self.largest, self.now())
        return self.now()


@contextlib.contextmanager
def mounted(peer, work):
    """The source folder, the mount and the serving process."""
    source = work / 'source'
    mount_point = work / 'mount'
    shutil.rmtree(source, ignore_errors=True)
    source.mkdir()
    mount_point.mkdir(exist_ok=True)
    try:
        yield source, Path(peer.mount(str(source), str(mount_point))), peer.processes[0]
    finally:
        peer.unmount()
        shutil.rmtree(source, ignore_errors=True)


def watched(process, *command):
    """Runs a command; the process's memory before, at most, and after."""
    watcher = Resident(process.pid)
    watcher.start()
    subprocess.run([str(word) for word in command], check=True, stdout=subprocess.DEVNULL)
    after = watcher.stop()
    return watcher.first, watcher.largest, after


def helper_of(process):
    """The process that a serving process has started as its helper."""
    started = [int(pid) for task in Path(f'/proc/{process.pid}/task').iterdir()
               for pid in (task / 'children').read_text().split()]
    return next(pid for pid in started if Path(f'/proc/{pid}/comm').read_text().strip() == 'node')


def megabytes(*values):
    return ', '.join(f'{value / MIB:.1f}' for value in values)
