"""What is mounted side by side: the kemvi command with several helpers, and other user-space file systems that serve
the same folder."""
import os
import shlex
import shutil
import signal
import subprocess
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
TOP = HERE.parent.parent
SFTP_SERVERS = ['/usr/lib/openssh/sftp-server', '/usr/libexec/openssh/sftp-server', '/usr/lib/ssh/sftp-server']
PASSTHROUGH_EXAMPLE = Path('/usr/share/doc/libfuse3-dev/examples')
MOUNT_SECONDS = 20
END_SECONDS = 20


class PeerFailed(Exception):
    pass


def mounted_at(path):
    """Whether something is mounted there, without asking the mount itself."""
    with open('/proc/self/mountinfo', encoding='utf-8', errors='surrogateescape') as table:
        return any(line.split(' ')[4] == str(path) for line in table)


class Peer:
    """One way to make the folder `source` appear at a mount point. Used for one mount at a time."""

    name = ''

    def __init__(self, work):
        """`work` is a folder for what it needs beside the mount; no other peer's."""
        self.work = work
        self.processes = []
        self.mount_point = None

    def missing(self):
        """Why it cannot be used here; None if it can."""
        return None

    def start(self, source, mount_point):
        """Starts the processes; they stay in the foreground."""
        raise NotImplementedError

    def run(self, command, **options):
        log = open(self.work / f'{self.name}.log', 'ab')
        options.setdefault('stdin', subprocess.DEVNULL)
        options.setdefault('stdout', log)
        process = subprocess.Popen(command, stderr=log, start_new_session=True, **options)
        log.close()
        self.processes.append(process)
        return process

    def mount(self, source, mount_point):
        """The path at which the workloads find the folder."""
        self.mount_point = mount_point
        self.start(source, mount_point)
        end = time.monotonic() + MOUNT_SECONDS
        while not mounted_at(mount_point):
            if any(process.poll() is not None for process in self.processes) or time.monotonic() > end:
                self.unmount()
                raise PeerFailed(f'{self.name} does not mount: {self.last_words()}')
            time.sleep(0.005)
        os.stat(mount_point)  # the first answer: whatever starts late has started
        return mount_point

    def last_words(self):
        lines = (self.work / f'{self.name}.log').read_text(errors='replace').strip().splitlines()
        return lines[-1] if lines else 'it says nothing'

    def unmount(self):
        if self.mount_point and mounted_at(self.mount_point):
            subprocess.run(['fusermount3', '-u', self.mount_point], stderr=subprocess.DEVNULL, check=False)
        end = time.monotonic() + END_SECONDS
        for process in self.processes:
            try:
                process.wait(max(0.1, end - time.monotonic()))
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
        if self.mount_point and mounted_at(self.mount_point):
            subprocess.run(['fusermount3', '-uz', self.mount_point], stderr=subprocess.DEVNULL, check=False)
        self.processes = []
        self.mount_point = None


class Native(Peer):
    """The folder itself: what the machine can do without a file system in between."""

    name = 'native'

    def mount(self, source, mount_point):
        return source

    def unmount(self):
        pass


class Passthrough(Peer):
    """libfuse's own example, compiled here: the least that a FUSE file system can do."""

    name = 'passthrough'

    def missing(self):
        if not PASSTHROUGH_EXAMPLE.is_dir():
            return 'libfuse3-dev is not installed'
        return None if self.program() else 'its source does not compile'

    def program(self):
        built = self.work / 'passthrough_ll'
        if built.exists():
            return built
        folder = self.work / 'passthrough'
        folder.mkdir(exist_ok=True)
        for source in PASSTHROUGH_EXAMPLE.glob('passthrough*'):
            shutil.copy(source, folder)
        for packed in folder.glob('*.gz'):
            subprocess.run(['gunzip', '-f', packed], check=True)
        flags = subprocess.run(['pkg-config', '--cflags', '--libs', 'fuse3'], capture_output=True, text=True,
                               check=False)
        command = ['cc', '-O2', '-w', folder / 'passthrough_ll.c', '-o', built, *shlex.split(flags.stdout)]
        subprocess.run(command, stderr=subprocess.DEVNULL, check=False)
        return built if built.exists() else None

    def start(self, source, mount_point):
        self.run([self.program(), '-f', '-o', f'source={source}', mount_point])


class Sshfs(Peer):
    """sshfs in its passive mode, a local sftp-server at the other ends of its two pipes: no network, no cipher."""

    name = 'sshfs'

    def missing(self):
        if not shutil.which('sshfs'):
            return 'sshfs is not installed'
        return None if self.server() else 'openssh-sftp-server is not installed'

    @staticmethod
    def server():
        return next((path for path in SFTP_SERVERS if os.access(path, os.X_OK)), None)

    def start(self, source, mount_point):
        server = self.run([self.server()], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.run(['sshfs', '-f', f':{source}', mount_point, '-o', 'passive'], stdin=server.stdout, stdout=server.stdin)
        server.stdin.close()
        server.stdout.close()


class NodeBinding(Peer):
    """A node binding of libfuse with a plain pass-through on it: what else a node author would use."""

    name = 'fuse-native'
    sync = ''

    def missing(self):
        if not shutil.which('node'):
            return 'node is not installed'
        installed = self.folder() / 'node_modules' / 'fuse-native'
        return None if installed.is_dir() else f'not installed; run npm install in {self.folder()}'

    @staticmethod
    def folder():
        return Path(os.environ.get('KEMVI_BENCH_NODE_BINDING', HERE / 'binding'))

    def start(self, source, mount_point):
        environment = dict(os.environ, SYNC=self.sync, NODE_PATH=str(self.folder() / 'node_modules'))
        self.run(['node', HERE / 'binding' / 'passthrough.cjs', source, mount_point], env=environment)


class NodeBindingSync(NodeBinding):
    """The same with node's blocking calls."""

    name = 'fuse-native-sync'
    sync = '1'


class Rclone(Peer):
    """rclone over a local folder, with the cache that it needs to be written to."""

    name = 'rclone'

    def missing(self):
        return None if shutil.which('rclone') else 'rclone is not installed'

    def start(self, source, mount_point):
        self.run(['rclone', 'mount', source, mount_point, '--vfs-cache-mode', 'writes', '--vfs-write-back', '0s',
                  '--cache-dir', self.work / 'rclone', '--config', '/dev/null'])

    def unmount(self):
        super().unmount()
        shutil.rmtree(self.work / 'rclone', ignore_errors=True)


def sources_of(build):
    """The tree that a build folder was made of, whose kit belongs to its command."""
    try:
        cache = (Path(build) / 'CMakeCache.txt').read_text()
    except OSError:
        return TOP
    return next((Path(line.split('=', 1)[1]) for line in cache.splitlines()
                 if line.startswith('CMAKE_HOME_DIRECTORY')), TOP)


class Kemvi(Peer):
    """The kemvi command with the local helper that ships with it."""

    name = 'kemvi'
    build = TOP / 'build' / 'release'
    options = ''

    def missing(self):
        if not self.command().exists():
            return f'{self.command()} is not built'
        return None if shutil.which('node') else 'node is not installed'

    def command(self):
        return self.build / 'bin' / 'kemvi'

    def helper(self):
        return sources_of(self.build) / 'sdk' / 'node' / 'helpers' / 'local.mjs'

    def helper_options(self):
        return ['--helper', self.helper()]

    def environment(self):
        return dict(os.environ)

    def start(self, source, mount_point):
        drive = self.work / f'{self.name}.drive'
        drive.mkdir(exist_ok=True)
        subprocess.run([self.command(), 'init', drive, '--force', *self.helper_options(), '--repo-root', source],
                       stdout=subprocess.DEVNULL, check=True)
        options = ['-o', self.options] if self.options else []
        self.run([self.command(), 'mount', '-f', *options, drive, mount_point], env=self.environment())


class KemviNative(Kemvi):
    """The kemvi command with the local helper in C++ that ships with it."""

    name = 'kemvi-cpp'

    def missing(self):
        program = self.build / 'bin' / 'kemvi-local'
        return super().missing() or (None if program.exists() else f'{program} is not built')

    def helper_options(self):
        return ['--native']


class KemviEvents(Kemvi):
    """The kemvi command with the same folder served from node's event loop, as by a helper with asynchronous work."""

    name = 'kemvi-events'
    def helper(self):
        return HERE / 'helpers' / 'events.mjs'


class KemviCounting(Kemvi):
    """The kemvi command with a helper that counts what it is asked, for the table of requests; not for times."""

    name = 'kemvi-counting'
    def helper(self):
        return HERE / 'helpers' / 'counting.mjs'

    def environment(self):
        return dict(os.environ, KEMVI_BENCH_COUNTS=str(self.counts_file()))

    def counts_file(self):
        return self.work / 'counts.json'


ALL = [Native, Passthrough, Kemvi, KemviNative, KemviEvents, Sshfs, NodeBinding, NodeBindingSync, Rclone]
QUICK = [Kemvi, KemviNative, Passthrough, Sshfs, NodeBinding, Rclone]
BY_NAME = {peer.name: peer for peer in [*ALL, KemviCounting]}


class Contestant:
    """What takes part in a run: a peer by its name, one of the command's also with a build of its own and options:
    NAME[@BUILD][:OPTION[+OPTION]], as in "kemvi@../other/build/release:placement=off"."""

    def __init__(self, text):
        """Raises ValueError where there is no such peer, or where it takes neither build nor options."""
        self.text = text
        before, _, options = text.partition(':')
        name, _, build = before.partition('@')
        if name not in BY_NAME:
            raise ValueError(f'{name}: unknown; expected some of {", ".join(BY_NAME)}')
        self.type = BY_NAME[name]
        self.is_ours = issubclass(self.type, Kemvi)
        if (options or build) and not self.is_ours:
            raise ValueError(f'{text}: only the kemvi command is run with another build or with options')
        self.build = Path(build).resolve() if build else None
        self.options = options.replace('+', ',')

    def peer(self, work):
        """A mount to be, with the folder `work` to itself."""
        work.mkdir(parents=True, exist_ok=True)
        peer = self.type(work)
        if self.build:
            peer.build = self.build
        if self.options:
            peer.options = self.options
        return peer
