"""What is compared: each shows a tree of its own whose contents lie in the same bucket."""

import os
import subprocess
import time
from pathlib import Path

LIMIT = 60  # seconds, for a mount to be there or gone


def is_mounted(point):
    return any(line.split(' ')[4] == str(point) for line in Path('/proc/self/mountinfo').read_text().splitlines())


class Peer:
    """A mount that can be made and taken away again and again; what it shows stays."""

    name = None

    def __init__(self, engines, folder):
        self.engines = engines
        self.folder = folder
        self.point = folder / 'mnt'
        self.point.mkdir(parents=True)
        self.process = None
        self.prepare()

    def prepare(self):
        pass

    def mount(self):
        log = open(self.folder / 'log', 'ab')
        self.process = subprocess.Popen([str(part) for part in self.command()], env=self.environment(),
                                        stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        log.close()
        self._wait(lambda: is_mounted(self.point) or self.process.poll() is not None, 'is not mounted')
        if self.process.poll() is not None:
            raise RuntimeError(f'{self.name}: ' + (self.folder / 'log').read_text())

    def environment(self):
        return os.environ | self.engines.variables

    def unmount(self):
        if self.process is None:
            return
        subprocess.run(['fusermount3', '-u', self.point], check=False, timeout=LIMIT)
        try:
            self.process.wait(LIMIT)
        except subprocess.TimeoutExpired:
            self.process.kill()
            subprocess.run(['umount', '-l', self.point], check=False, timeout=LIMIT)
            self.process.wait(LIMIT)
        self.process = None

    def remount(self):
        self.unmount()
        self.mount()

    def many_files(self, folder, count):
        """A folder of `count` files, made in whatever way is quick."""
        self.engines.put_many(f'{self.name}/{folder}', count)

    def _wait(self, condition, what):
        end = time.monotonic() + LIMIT
        while not condition():
            if time.monotonic() > end:
                raise RuntimeError(f'{self.name}: {what} after {LIMIT} s; see {self.folder / "log"}')
            time.sleep(0.01)


class Kemvi(Peer):
    """Names in PostgreSQL, contents in the bucket."""

    name = 'kemvi'
    binary = None  # set by the run
    tree = 'main'
    contents = None
    options = ()

    def prepare(self):
        contents = self.contents or f's3://{self.engines.bucket}/{self.name}'
        subprocess.run([self.binary, 'init', self.folder / 'source', '--store', self.engines.store, '--tree', self.tree,
                        '--contents', contents], check=True, capture_output=True, timeout=LIMIT)

    def command(self):
        return [self.binary, 'mount', '-f', *self.options, self.folder / 'source', self.point]

    def many_files(self, folder, count):
        (self.point / folder).mkdir()
        for number in range(count):
            (self.point / folder / f'{number:06}').write_bytes(b'x')


class S3fs(Peer):
    name = 's3fs'

    def prepare(self):
        secrets = self.folder / 'passwd'
        secrets.touch(0o600)
        secrets.write_text(':'.join(self.engines.keys) + '\n')
        self.engines.put_many(f'{self.name}', 1)

    def command(self):
        return ['s3fs', f'{self.engines.bucket}:/{self.name}', self.point, '-f', '-o', f'passwd_file={self.folder}/passwd',
                '-o', f'url={self.engines.endpoint}', '-o', 'use_path_request_style']


class Rclone(Peer):
    """Without its cache on disk, with which close would return before anything is in the bucket."""

    name = 'rclone'

    def prepare(self):
        key, secret = self.engines.keys
        config = self.folder / 'rclone.conf'
        config.write_text(f'[s]\ntype = s3\nprovider = Ceph\nendpoint = {self.engines.endpoint}\n'
                          f'access_key_id = {key}\nsecret_access_key = {secret}\nforce_path_style = true\n')

    def command(self):
        return ['rclone', '--config', self.folder / 'rclone.conf', 'mount', f's:{self.engines.bucket}/{self.name}', self.point]

    def environment(self):
        return {name: value for name, value in super().environment().items() if name != 'AWS_CA_BUNDLE'}  # it fails of that
