"""What is done on each mount. A workload prepares its part of the source folder, runs on the mount while the clock runs,
and checks the result once."""
import contextlib
import filecmp
import os
import shutil
import subprocess
import time


class WorkloadFailed(Exception):
    pass


def run_program(seconds, *arguments, **options):
    """Runs a program with a time limit; its standard output. Raises WorkloadFailed where it does not succeed."""
    try:
        done = subprocess.run([str(argument) for argument in arguments], capture_output=True, text=True,
                              timeout=seconds, check=False, **options)
    except subprocess.TimeoutExpired as error:
        raise WorkloadFailed(f'over {seconds} s') from error
    if done.returncode != 0:
        last = (done.stderr.strip().splitlines() or ['no message'])[-1]
        raise WorkloadFailed(f'{arguments[0]} exits with {done.returncode}: {last}')
    return done.stdout


class Workload:
    """`unit` is "s" where less is better, otherwise a rate."""

    name = ''
    unit = 's'

    def __init__(self, context):
        self.context = context
        self.sizes = context.sizes
        self.material = context.material

    def prepare(self, source):
        """Before the mount: what the workload finds in the folder."""

    def run(self, mounted):
        """One number in the workload's unit."""
        raise NotImplementedError

    def check(self, source):
        """After the unmount; raises WorkloadFailed where the folder is not what it must be."""

    def command(self, *arguments, **options):
        """Runs a program on the mount; its standard output."""
        return run_program(self.sizes.command_seconds, *arguments, **options)

    def seconds(self, *arguments, **options):
        start = time.monotonic()
        self.command(*arguments, **options)
        return time.monotonic() - start

    def small(self, what, folder, count):
        return float(self.command(self.context.workload_program, what, folder, count))


class SequentialWrite(Workload):
    name = 'seqwrite'
    unit = 'MB/s'

    def run(self, mounted):
        count = self.sizes.sequential >> 20
        taken = self.seconds('dd', f'if={self.material.fresh_random_data()}', f'of={mounted}/written', 'bs=1M',
                             f'count={count}', 'conv=fsync', 'status=none')
        return self.sizes.sequential / 1e6 / taken

    def check(self, source):
        if not filecmp.cmp(os.path.join(source, 'written'), self.material.random_data, shallow=False):
            raise WorkloadFailed('what was written is not what is there')


class SequentialRead(Workload):
    name = 'seqread'
    unit = 'MB/s'

    def prepare(self, source):
        shutil.copyfile(self.material.fresh_random_data(), os.path.join(source, 'data'))

    def run(self, mounted):
        taken = self.seconds('dd', f'if={mounted}/data', 'of=/dev/null', 'bs=1M', 'status=none')
        return self.sizes.sequential / 1e6 / taken


class RandomRead(SequentialRead):
    name = 'randread'
    unit = 'op/s'

    def run(self, mounted):
        return self.small('randread', f'{mounted}/data', self.sizes.random_seconds)


class SmallFiles(Workload):
    unit = 'op/s'
    what = ''

    def run(self, mounted):
        return self.small(self.what, f'{mounted}/small', self.sizes.small_files)


class Create(SmallFiles):
    name = what = 'create'

    def prepare(self, source):
        os.mkdir(os.path.join(source, 'small'))

    def check(self, source):
        files = os.scandir(os.path.join(source, 'small'))
        if sum(entry.stat().st_size for entry in files) != 1024 * self.sizes.small_files:
            raise WorkloadFailed('files are missing or have the wrong size')


class ExistingFiles(SmallFiles):
    def prepare(self, source):
        os.mkdir(os.path.join(source, 'small'))
        self.small('create', os.path.join(source, 'small'), self.sizes.small_files)


class Stat(ExistingFiles):
    name = what = 'stat'


class OpenReadClose(ExistingFiles):
    name = what = 'openread'


class Unlink(ExistingFiles):
    name = what = 'unlink'

    def check(self, source):
        if os.listdir(os.path.join(source, 'small')):
            raise WorkloadFailed('files are still there')


class Listing(Workload):
    size_index = 0

    @property
    def count(self):
        return self.sizes.listings[self.size_index]

    def prepare(self, source):
        os.mkdir(os.path.join(source, 'wide'))
        self.small('createempty', os.path.join(source, 'wide'), self.count)

    def run(self, mounted):
        start = time.monotonic()
        listed = self.command('ls', '-l', f'{mounted}/wide', env={**os.environ, 'LC_ALL': 'C'})
        taken = time.monotonic() - start
        if listed.count('\n') != self.count + 1:
            raise WorkloadFailed(f'{listed.count(chr(10)) - 1} of {self.count} entries are listed')
        return taken


class ShortListing(Listing):
    name = 'ls10k'


class LongListing(Listing):
    name = 'ls50k'
    size_index = 1


class Extract(Workload):
    name = 'tarx'

    def run(self, mounted):
        return self.seconds('tar', '-C', mounted, '-xf', self.material.archive)

    def check(self, source):
        self.command('diff', '-rq', self.material.tree, os.path.join(source, 'tree'))


class Clone(Workload):
    name = 'gitclone'

    def run(self, mounted):
        return self.seconds('git', 'clone', '-q', '--no-hardlinks', self.material.repository, f'{mounted}/clone')

    def check(self, source):
        self.command('diff', '-rq', '-x', '.git', self.material.tree, os.path.join(source, 'clone'))


class Status(Workload):
    """The first status after a clone elsewhere: every file is looked at, none is read twice."""

    name = 'gitstatus'

    def prepare(self, source):
        self.command('git', 'clone', '-q', '--no-hardlinks', self.material.repository, os.path.join(source, 'clone'))

    def run(self, mounted):
        return self.seconds('git', '-c', 'safe.directory=*', '-C', f'{mounted}/clone', 'status', '--short')


class Search(Workload):
    name = 'grep'

    def prepare(self, source):
        shutil.copytree(self.material.tree, os.path.join(source, 'tree'))

    def run(self, mounted):
        return self.seconds('grep', '-r', 'fn_1_19_1(', f'{mounted}/tree')


class Build(Workload):
    name = 'cbuild'
    jobs = 1

    def prepare(self, source):
        shutil.copytree(self.material.project, os.path.join(source, 'project'))

    def run(self, mounted):
        return self.seconds('make', '-s', f'-j{self.jobs}', '-C', f'{mounted}/project')

    def check(self, source):
        if not os.path.exists(os.path.join(source, 'project', 'program')):
            raise WorkloadFailed('no program was built')


class ParallelBuild(Build):
    name = 'cbuild2'
    jobs = 2


class FourClients(Workload):
    """Four programs at once, each with a folder of its own."""

    unit = 'op/s'
    what = ''
    clients = 4

    @property
    def each(self):
        return self.sizes.small_files // 2

    def folders(self, parent):
        return [os.path.join(parent, f'client{number}') for number in range(self.clients)]

    def prepare(self, source):
        for folder in self.folders(source):
            os.mkdir(folder)
            if self.what != 'create':
                self.small('create', folder, self.each)

    def run(self, mounted):
        start = time.monotonic()
        running = [subprocess.Popen([str(self.context.workload_program), self.what, folder, str(self.each)],
                                    stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
                   for folder in self.folders(mounted)]
        try:
            for process in running:
                _, said = process.communicate(timeout=self.sizes.command_seconds)
                if process.returncode != 0:
                    raise WorkloadFailed(f'one of four exits with {process.returncode}: {said.strip()}')
        except subprocess.TimeoutExpired as error:
            raise WorkloadFailed(f'over {self.sizes.command_seconds} s') from error
        finally:
            for process in running:
                process.kill()
                process.wait()
        return self.clients * self.each / (time.monotonic() - start)


class FourCreate(FourClients):
    name, what = 'create4', 'create'


class FourStat(FourClients):
    name, what = 'stat4', 'stat'


class FourOpenReadClose(FourClients):
    name, what = 'openread4', 'openread'


class WhileBusy:
    """A workload while as many programs as there are processors do nothing but burn them, at the usual priority."""

    @contextlib.contextmanager
    def burning(self):
        # The time limit and the parent's death end them too, should this program not come to it.
        running = [subprocess.Popen([str(self.context.workload_program), 'burn', '-', str(self.sizes.command_seconds)],
                                    stdout=subprocess.DEVNULL) for _ in os.sched_getaffinity(0)]
        try:
            yield
        finally:
            for process in running:
                process.kill()
                process.wait()

    def run(self, mounted):
        with self.burning():
            return super().run(mounted)


class BusyCreate(WhileBusy, Create):
    name = 'createbusy'


class BusyStat(WhileBusy, Stat):
    name = 'statbusy'


class BusyOpenReadClose(WhileBusy, OpenReadClose):
    name = 'openreadbusy'


class BusyFourStat(WhileBusy, FourStat):
    name = 'stat4busy'


class BusyFourOpenReadClose(WhileBusy, FourOpenReadClose):
    name = 'openread4busy'


class BusyExtract(WhileBusy, Extract):
    name = 'tarxbusy'


ALL = [SequentialWrite, SequentialRead, RandomRead, Create, Stat, OpenReadClose, Unlink, ShortListing, LongListing,
       Extract, Clone, Status, Search, Build, ParallelBuild, FourCreate, FourStat, FourOpenReadClose, BusyCreate,
       BusyStat, BusyOpenReadClose, BusyFourStat, BusyFourOpenReadClose, BusyExtract]
BY_NAME = {workload.name: workload for workload in ALL}
