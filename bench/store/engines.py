"""The two engines, private to one run, as the tests start them, and what is asked of them without a mount."""

import os
import re
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SERVERS = ROOT / 'tests' / 'servers'
LIMIT = 120  # seconds, for a start or an end

MAKE_BUCKET = """
import { CreateBucketCommand, S3Client } from '@aws-sdk/client-s3';
await new S3Client({ forcePathStyle: true }).send(new CreateBucketCommand({ Bucket: process.argv[1] }));
"""

PUT_MANY = """
import { PutObjectCommand, S3Client } from '@aws-sdk/client-s3';
const [bucket, prefix, count] = process.argv.slice(1);
const client = new S3Client({ forcePathStyle: true });
let next = 0;
const one = async () => {
    while (next < Number(count)) {
        const Key = `${prefix}/${String(next++).padStart(6, '0')}`;
        await client.send(new PutObjectCommand({ Bucket: bucket, Key, Body: 'x' }));
    }
};
await Promise.all(Array.from({ length: 16 }, one));
"""


def run(*command, **more):
    return subprocess.run([str(part) for part in command], check=True, capture_output=True, text=True,
                          **{'timeout': LIMIT} | more).stdout


class Engines:
    """A PostgreSQL server and an S3-compatible one in a folder; use as a context."""

    def __init__(self, folder):
        self.folder = folder
        self.bucket = 'bench'

    def __enter__(self):
        for name in ('postgres', 's3'):
            (self.folder / name).mkdir()
        run(SERVERS / 'postgres.sh', 'start', self.folder / 'postgres')
        run(SERVERS / 's3.sh', 'start', self.folder / 's3')
        self.variables = dict(line.split('=', 1) for line in run(SERVERS / 's3.sh', 'env', self.folder / 's3').splitlines())
        self.node(MAKE_BUCKET, self.bucket)
        return self

    def __exit__(self, *_):
        for name in ('postgres', 's3'):
            subprocess.run([SERVERS / f'{name}.sh', 'stop', self.folder / name], check=False, timeout=LIMIT)

    @property
    def endpoint(self):
        return self.variables['AWS_ENDPOINT_URL_S3']

    @property
    def keys(self):
        return self.variables['AWS_ACCESS_KEY_ID'], self.variables['AWS_SECRET_ACCESS_KEY']

    @property
    def store(self):
        """The server's address as `kemvi init --store` takes it: by its socket, which asks no password."""
        host, port = re.search(r'host=([^&]+)&port=(\d+)', run(SERVERS / 'postgres.sh', 'url', self.folder / 'postgres', 'socket')).groups()
        return f'postgres:///postgres?host={host}&port={port}&user=postgres'

    def sql(self, text):
        return run('psql', '-XAtq', '-v', 'ON_ERROR_STOP=1', self.store.replace('postgres:', 'postgresql:', 1), '-c', text, timeout=600)

    def node(self, script, *arguments):
        environment = os.environ | self.variables
        return run('node', '--input-type=module', '-e', script, *arguments, cwd=ROOT / 'sdk' / 'store', env=environment, timeout=600)

    def put_many(self, prefix, count):
        self.node(PUT_MANY, self.bucket, prefix, count)
