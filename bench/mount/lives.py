"""A mount's life: fresh for each workload, or long, having served many requests before the first one that is timed."""
import shutil

from peers import PeerFailed
from workloads import WorkloadFailed, run_program

FRESH, LONG = 'fresh', 'long'
SHOWN = {FRESH: 'fresh mount', LONG: 'long-lived mount'}


class FreshMounts:
    """Each workload finds a mount that has served nothing but the look that shows that it is there."""

    def __init__(self, contestant, work, context):
        del context
        self.peer = contestant.peer(work)
        self.source = work / 'source'
        self.mount_point = work / 'mount'
        self.mount_point.mkdir(exist_ok=True)

    def measure(self, workload):
        shutil.rmtree(self.source, ignore_errors=True)
        self.source.mkdir()
        workload.prepare(str(self.source))
        mounted = self.peer.mount(str(self.source), str(self.mount_point))
        try:
            value = workload.run(mounted)
        finally:
            self.peer.unmount()
        workload.check(str(self.source))
        shutil.rmtree(self.source)
        return value

    def end(self):
        self.peer.unmount()


class LongLivedMount:
    """All workloads work on one mount, each in a folder that nobody has looked at before."""

    def __init__(self, contestant, work, context):
        self.peer = contestant.peer(work)
        self.context = context
        self.source = work / 'source'
        self.mount_point = work / 'mount'
        self.source.mkdir()
        self.mount_point.mkdir()
        self.mounted = None
        self.folders = 0

    def new_folder(self):
        self.folders += 1
        return f'folder{self.folders}'

    def measure(self, workload):
        if self.mounted is None:
            self.begin()
        name = self.new_folder()
        inside = self.source / name
        inside.mkdir()
        try:
            workload.prepare(str(inside))
            value = workload.run(f'{self.mounted}/{name}')
            workload.check(str(inside))
        except Exception:
            self.end()  # whatever state it is in, the next one begins anew
            raise
        finally:
            shutil.rmtree(inside, ignore_errors=True)
        return value

    def begin(self):
        self.mounted = self.peer.mount(str(self.source), str(self.mount_point))
        served = 0
        while served < self.context.sizes.served_before:
            served += self.serve_some()

    def serve_some(self):
        """Some of everything. Returns how many requests of the kernel that is at the least: making a file takes a
        look-up, a creation, a write and a release; reading it an opening, a read and a release; removing it one; a
        look at one that is not known yet one."""
        count = self.context.sizes.warm_files
        unseen, made = self.source / self.new_folder(), self.new_folder()
        unseen.mkdir()
        self.small('create', unseen, count)
        self.small('stat', f'{self.mounted}/{unseen.name}', count)
        shutil.rmtree(unseen)
        (self.source / made).mkdir()
        for what in ('create', 'openread', 'unlink'):
            self.small(what, f'{self.mounted}/{made}', count)
        (self.source / made).rmdir()
        return count * (1 + 4 + 3 + 1)

    def small(self, *arguments):
        try:
            run_program(self.context.sizes.command_seconds, self.context.workload_program, *arguments)
        except WorkloadFailed as error:
            raise PeerFailed(f'{self.peer.name} does not warm up: {error}') from error

    def end(self):
        self.peer.unmount()
        self.mounted = None


BY_NAME = {FRESH: FreshMounts, LONG: LongLivedMount}
