"""The engines of a store, started for real: PostgreSQL and an S3-compatible server, each in a folder of its own."""

import datetime
import hashlib
import hmac
import os
import re
import shutil
import subprocess
import urllib.parse
import urllib.request
from pathlib import Path

from .deadline import LIMIT, SLOWNESS, eventually

SERVERS = Path(__file__).resolve().parents[1] / "servers"


def missing_programs(*names):
    """Those of some Debian packages' programs that are not installed."""
    places = os.environ["PATH"] + ":/usr/sbin:/usr/bin"
    return [name for name in names if not shutil.which(name, path=places)]


class _Engine:
    """What a script of tests/servers runs in a folder."""

    def __init__(self, script, folder, environment=None):
        self.script, self.folder, self.environment = SERVERS / script, Path(folder), environment or {}

    def _call(self, verb, *arguments, seconds=90):
        done = subprocess.run([self.script, verb, self.folder, *arguments], stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=seconds * SLOWNESS, check=False, env=os.environ | self.environment)
        assert done.returncode == 0, done.stderr
        return done.stdout.strip()

    def stop(self):
        self._call("stop")

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()


class PostgreSQL(_Engine):
    """A private server, where wanted with a standby that follows it; `synchronous`: a commit waits for the standby."""

    def __init__(self, folder, standby=False, synchronous=False, **options):
        super().__init__("postgres.sh", folder, {"PG_OPTS": "-c max_connections=200"} if not options else options)
        self.standby, self.synchronous = standby, synchronous

    @staticmethod
    def missing():
        found = sorted(Path("/usr/lib/postgresql").glob("*/bin/postgres"))
        return [] if found else ["postgres"]

    def start(self):
        self._call("start", *(["--standby"] if self.standby else []))
        if self.synchronous:
            self.sql("alter system set synchronous_standby_names = '*'")
            self.sql("select pg_reload_conf()")
            self.until("select sync_state in ('sync', 'quorum') from pg_stat_replication")

    def kill(self, standby=False):
        """kill -9 of the server and all its children."""
        self._call("kill", *(["--standby"] if standby else []))

    def promote(self):
        self._call("promote")

    def url(self, which="socket"):
        """As postgres.sh has it: tcp, socket, standby, standby-socket, both. Those over TCP hold the password."""
        return self._call("url", which)

    def password(self):
        return (self.folder / "password").read_text()

    def without_password(self, which="tcp"):
        return re.sub(r"://postgres:[^@]*@", "://postgres@", self.url(which))

    def sql(self, text, which="socket"):
        """What psql prints for a statement: rows of fields with | between."""
        done = subprocess.run(["psql", "-XAtq", "-v", "ON_ERROR_STOP=1", "-c", text, self.url(which)], text=True, check=False,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=LIMIT)
        assert done.returncode == 0, done.stderr
        return done.stdout.strip()

    def until(self, question):
        eventually(lambda: self.sql(question) == "t", 20, question)


class S3(_Engine):
    """A private S3 server; what it holds outlives `kill`."""

    def __init__(self, folder, **environment):
        super().__init__("s3.sh", folder, environment)

    @staticmethod
    def missing():
        return missing_programs("ceph-mon", "ceph-osd", "radosgw")

    def start(self):
        self._call("start", seconds=180)

    def kill(self):
        self._call("kill")

    def settings(self):
        """The environment by which the SDK finds the server and what it asks for."""
        return dict(line.split("=", 1) for line in self._call("env").splitlines())

    def make_bucket(self, name):
        self.request("PUT", f"/{name}")

    def keys(self, bucket, prefix=""):
        """The names of all objects that begin with a prefix."""
        found, more = [], ""
        while True:
            query = {"list-type": "2", "prefix": prefix} | ({"continuation-token": more} if more else {})
            text = self.request("GET", f"/{bucket}", query).decode()
            found += re.findall("<Key>([^<]*)</Key>", text)
            token = re.search("<NextContinuationToken>([^<]*)<", text)
            if not token:
                return found
            more = token[1]

    def request(self, method, path, query=(), body=b""):
        """One signed request; the body of the answer. Raises urllib.error.HTTPError."""
        settings = self.settings()
        endpoint = settings["AWS_ENDPOINT_URL_S3"]
        asked = urllib.parse.urlencode(sorted(dict(query).items()), quote_via=urllib.parse.quote)
        now = datetime.datetime.now(datetime.timezone.utc).strftime("%Y%m%dT%H%M%SZ")
        told = {"host": urllib.parse.urlsplit(endpoint).netloc, "x-amz-content-sha256": hashlib.sha256(body).hexdigest(),
                "x-amz-date": now}
        signed = ";".join(told)
        canonical = "\n".join([method, path, asked, *(f"{name}:{value}" for name, value in told.items()), "", signed,
                               told["x-amz-content-sha256"]])
        scope = f"{now[:8]}/{settings['AWS_REGION']}/s3/aws4_request"
        text = "\n".join(["AWS4-HMAC-SHA256", now, scope, hashlib.sha256(canonical.encode()).hexdigest()])
        key = ("AWS4" + settings["AWS_SECRET_ACCESS_KEY"]).encode()
        for part in scope.split("/"):
            key = hmac.new(key, part.encode(), hashlib.sha256).digest()
        signature = hmac.new(key, text.encode(), hashlib.sha256).hexdigest()
        told["Authorization"] = (f"AWS4-HMAC-SHA256 Credential={settings['AWS_ACCESS_KEY_ID']}/{scope}, "
                                 f"SignedHeaders={signed}, Signature={signature}")
        url = f"{endpoint}{path}" + (f"?{asked}" if asked else "")
        asking = urllib.request.Request(url, data=body or None, headers=told, method=method)
        with urllib.request.build_opener(urllib.request.ProxyHandler({})).open(asking, timeout=LIMIT) as answer:
            return answer.read()
