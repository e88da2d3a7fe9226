"""kemvi stats, kemvi metrics and kemvi trace: what a mount has done and is doing, told without being felt by it."""

import json
import os
import pty
import re
import select
import shutil
import signal
import socket
import subprocess
import time
import urllib.error
import urllib.request
from pathlib import Path

import pytest

from harness import system
from harness.deadline import LIMIT, SLOWNESS, eventually
from harness.place import assert_fails


@pytest.fixture(name="place")
def place_unmounted_at_the_end(place):
    yield place
    for point in system.mount_points(place.folder):
        place.unmount(point=point)


def stats(place):
    result = place.run("stats", "--json", place.point)
    assert result.returncode == 0, result.stderr
    return json.loads(result.stdout)


def named(entries, op):
    found = [entry for entry in entries if entry["op"] == op]
    return found[0] if found else {"count": 0, "errors": {}, "bytes": 0}


def stat_missing(place, name="missing"):
    with pytest.raises(FileNotFoundError):
        (place.point / name).stat()


# Figures

def test_requests_and_exchanges_are_counted(place):
    place.mount()
    (place.tree / "ten").write_text("0123456789")
    before = stats(place)
    assert (place.point / "ten").read_text() == "0123456789"
    for _ in range(3):
        stat_missing(place)
    (place.point / "new").write_text("abc")
    after = eventually(lambda: (now := stats(place))["gauges"]["helperHandles"] == 0 and now, 30, "handles given back")
    grown = lambda group, op: named(after[group], op)["count"] - named(before[group], op)["count"]
    assert grown("kernel", "read") >= 1 and grown("kernel", "lookup") >= 4 and grown("kernel", "create") == 1
    assert grown("exchanges", "read") >= 1 and grown("exchanges", "write") == 1
    assert named(after["kernel"], "lookup")["errors"]["ENOENT"] - named(before["kernel"], "lookup")["errors"].get("ENOENT", 0) >= 3
    assert named(after["exchanges"], "getattr")["errors"]["ENOENT"] >= 3
    assert after["bytes"]["read"] - before["bytes"]["read"] == 10
    assert after["bytes"]["written"] - before["bytes"]["written"] == 3
    assert after["bytes"]["sent"] > before["bytes"]["sent"] and after["bytes"]["received"] > before["bytes"]["received"]
    for group in ("kernel", "exchanges"):
        for entry in after[group]:
            assert sum(count for _, _, count in entry["histogram"]) == entry["count"], entry["op"]
            assert entry["p50"] <= entry["p99"] <= entry["longest"], entry["op"]
    assert after["memory"]["host"] > 1e6 and after["memory"]["helper"] > 1e6
    assert 0 <= after["time"]["waiting"] <= after["time"]["requests"]


def test_gauges_follow_what_is_open(place):
    place.mount()
    # Read alone: of a file that is written every close is flushed, that of a program begun meanwhile, too.
    with open(place.point / "a.txt", encoding="utf-8") as kept:
        kept.read()
        held = stats(place)["gauges"]
        assert held["helperHandles"] == 1 and held["openFiles"] == 1 and held["hiddenFiles"] == 0
        assert held["nodes"] >= 2 and held["helperUp"] is True
        os.unlink(place.point / "a.txt")
        eventually(lambda: stats(place)["gauges"]["hiddenFiles"] == 1, 30, "a hidden file")
    eventually(lambda: (now := stats(place)["gauges"])["openFiles"] == 0 and now["hiddenFiles"] == 0 and
               now["helperHandles"] == 0, 30, "nothing open")


def test_figures_are_told_while_the_helper_hangs(place):
    place.use_helper("hangsOnReaddir.mjs")
    place.mount()
    listing = place.start_listing()
    told = eventually(lambda: (now := stats(place))["gauges"]["currentExchangeSeconds"] > 1 and now, 30, "a second of hanging")
    assert told["gauges"]["waitingRequests"] == 0
    waiting = subprocess.Popen(["stat", "--file-system", place.point], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    eventually(lambda: stats(place)["gauges"]["waitingRequests"] >= 1, 30, "a request that waits")
    begin = time.monotonic()
    text = place.run("stats", place.point).stdout
    assert time.monotonic() - begin < 2 * SLOWNESS
    assert re.search(r"helper +answers; has been asked for \d+ s\n", text)
    place.unmount("--force")
    listing.wait(10 * SLOWNESS)
    waiting.wait(10 * SLOWNESS)


def test_a_dead_helper_is_not_up(place):
    place.mount()
    os.kill(place.helper(), signal.SIGKILL)
    with pytest.raises(OSError):
        (place.point / "a.txt").read_text()
    told = stats(place)
    assert told["gauges"]["helperUp"] is False and "helper" not in told["memory"]
    assert sum(entry["errors"].get("gone", 0) for entry in told["exchanges"]) >= 1
    assert "answers no more" in place.run("stats", place.point).stdout


def test_figures_are_told_in_words(place):
    place.mount()
    stat_missing(place)
    text = place.run("stats", place.point).stdout
    assert text.startswith(f"{place.point}  ({place.source}, since ")
    assert re.search(r"^kernel +count +failed +mean +p50 +p90 +p99 +longest$", text, re.M)
    assert re.search(r"^  lookup +\d+ +[1-9]\d* ", text, re.M) and re.search(r"^  getattr +\d+ +[1-9]\d* ", text, re.M)
    assert "lookup ENOENT" in text
    assert all(len(line) <= 80 for line in text.splitlines()[1:] if line.startswith("  "))


def test_watching_needs_a_terminal(place):
    place.mount()
    assert_fails(place.run("stats", "--watch", place.point), 2, "--watch", "no terminal")
    assert_fails(place.run("stats", "--watch", "--json", place.point), 2, "--json")


def test_watching_draws_what_is_done_now(place):
    place.mount()
    master, slave = pty.openpty()
    process = subprocess.Popen([place.program.path, "stats", "--watch", "--interval", "0.2", place.point],
                               stdout=slave, stderr=slave, stdin=subprocess.DEVNULL, env=place.environment())
    os.close(slave)
    drawn = b""

    def is_drawn():
        nonlocal drawn
        stat_missing(place)
        while select.select([master], [], [], 0)[0]:
            drawn += os.read(master, 65536)
        return re.search(rb"per s.*\n.*  lookup +[1-9]", drawn, re.S)
    try:
        eventually(is_drawn, 30, "a drawing with rates")
        assert drawn.startswith(b"\x1b[2J")
    finally:
        process.send_signal(signal.SIGINT)
        process.wait(LIMIT)
        os.close(master)


# Prometheus

SERIES = re.compile(r'([a-z_]+)\{((?:[a-z]+="(?:[^"\\\n]|\\["\\n])*",?)*)\} (\S+)')


def parsed(page):
    """The series of a page as {name: {labels: value}}; fails on whatever the text format forbids."""
    types, series, ended, current = {}, {}, set(), None
    for line in page.splitlines():
        comment = re.fullmatch(r"# (HELP|TYPE) ([a-z_]+) (.+)", line)
        if comment:
            kind, name, rest = comment.groups()
            if name != current:
                assert name not in ended, f"{name} comes in two places"
                ended.add(current)
                current = name
            if kind == "TYPE":
                assert name not in types and rest in ("counter", "gauge", "histogram")
                types[name] = rest
            continue
        found = SERIES.fullmatch(line)
        assert found, line
        name, labels, value = found.groups()
        base = re.sub(r"_(bucket|sum|count)$", "", name) if types.get(current) == "histogram" else name
        assert base == current and base in types, line
        values = series.setdefault(name, {})
        assert labels not in values, f"{line}: twice"
        values[labels] = float(value)
    assert page.endswith("\n")
    for name, kind in types.items():
        assert (kind == "counter") == name.endswith("_total"), name
        if kind == "histogram":
            check_histogram(series, name)
    return series


def check_histogram(series, name):
    """Buckets grow, end with +Inf, and agree with the count."""
    rows = {}
    for labels, value in series.get(f"{name}_bucket", {}).items():
        rest, bound = re.fullmatch(r'(.*),le="([^"]+)"', labels).groups()
        rows.setdefault(rest, []).append((float(bound), value))
    for rest, buckets in rows.items():
        assert buckets == sorted(buckets) and [value for _, value in buckets] == sorted(value for _, value in buckets)
        assert buckets[-1] == (float("inf"), series[f"{name}_count"][rest])
        assert rest in series[f"{name}_sum"]


def check_with_promtool(page):
    if shutil.which("promtool"):
        subprocess.run(["promtool", "check", "metrics"], input=page, text=True, check=True, timeout=LIMIT)


def test_figures_are_told_to_prometheus(place):
    place.mount()
    stat_missing(place)
    page = place.run("stats", "--prometheus", place.point).stdout
    check_with_promtool(page)
    series = parsed(page)
    labels = f'source="{place.source}",mountpoint="{place.point}"'
    assert series["kemvi_kernel_requests_total"][f'{labels},op="lookup"'] >= 1
    assert series["kemvi_kernel_errors_total"][f'{labels},op="lookup",errno="ENOENT"'] >= 1
    assert series["kemvi_exchange_errors_total"][f'{labels},op="getattr",code="ENOENT"'] >= 1
    assert series["kemvi_helper_up"][labels] == 1
    assert series["kemvi_process_resident_bytes"][f'{labels},process="helper"'] > 1e6
    for name in ("kemvi_nodes", "kemvi_open_files", "kemvi_helper_handles", "kemvi_hidden_files", "kemvi_waiting_requests",
                 "kemvi_current_exchange_seconds", "kemvi_helper_restarts_total"):
        assert labels in series[name], name
    assert series["kemvi_build_info"] and series["kemvi_bytes_total"][f'{labels},direction="read"'] >= 0


@pytest.fixture
def served(place):
    """Starts kemvi metrics and returns the URL of its page."""
    process = place.start("metrics", "--listen", "127.0.0.1:0")
    yield re.fullmatch(r"kemvi: serving (http://127\.0\.0\.1:\d+/metrics)\n", process.stderr.readline()).group(1)
    process.terminate()
    process.communicate(timeout=LIMIT)


def fetched(url):
    with urllib.request.urlopen(url, timeout=LIMIT) as answer:
        assert answer.headers["Content-Type"].startswith("text/plain; version=0.0.4")
        return answer.read().decode()


def test_all_mounts_are_served_to_prometheus(place, served):
    second = place.folder / 'odd "name"'
    second.mkdir()
    assert f'mountpoint="{place.point}"' not in fetched(served)
    place.mount()
    assert place.run("mount", place.source, second).returncode == 0
    page = fetched(served)
    check_with_promtool(page)
    up = parsed(page)["kemvi_up"]
    escaped = str(second).replace('"', '\\"')
    assert up[f'mountpoint="{place.point}"'] == 1 and up[f'mountpoint="{escaped}"'] == 1
    os.kill(place.host(), signal.SIGSTOP)
    try:
        series = parsed(fetched(served))
        assert series["kemvi_up"][f'mountpoint="{place.point}"'] == 0, "one that does not answer is told as such"
        assert series["kemvi_up"][f'mountpoint="{escaped}"'] == 1, "and holds up no other"
    finally:
        os.kill(place.host(), signal.SIGCONT)


def test_other_pages_and_odd_requests_are_refused(served):
    with pytest.raises(urllib.error.HTTPError, match="404"):
        fetched(served.replace("/metrics", "/"))
    with pytest.raises(urllib.error.HTTPError, match="405"):
        urllib.request.urlopen(served, data=b"x", timeout=LIMIT)
    address = served.split("/")[2].split(":")
    for odd in (b"\0\1\2\r\n\r\n", b"GET\r\n\r\n", b"G" * 100_000):
        with socket.create_connection((address[0], int(address[1])), timeout=LIMIT) as connection:
            try:
                connection.sendall(odd)
                connection.recv(100)
            except OSError:
                pass
    assert parsed(fetched(served)) is not None, "and it goes on serving"


def test_an_address_that_is_none_is_refused(place):
    for address in ("9469", "localhost:9469", "127.0.0.1:", "127.0.0.1:70000", "127.0.0.1:x", ":9469"):
        assert_fails(place.run("metrics", "--listen", address), 2, address, "127.0.0.1:9469")
    with socket.create_server(("127.0.0.1", 0)) as taken:
        assert_fails(place.run("metrics", "--listen", f"127.0.0.1:{taken.getsockname()[1]}"), 1, "in use")


# Traces

class Trace:
    """kemvi trace --json, from when it listens."""

    def __init__(self, place, *arguments):
        self._place = place
        self.process = place.start("trace", "--json", place.point, *arguments)
        self.lines = []
        os.set_blocking(self.process.stdout.fileno(), False)
        self._rest = b""

    def _read(self):
        while True:
            try:
                part = os.read(self.process.stdout.fileno(), 65536)
            except BlockingIOError:
                return
            if not part:
                return
            *whole, self._rest = (self._rest + part).split(b"\n")
            self.lines += [json.loads(line) for line in whole]

    def until(self, op, path=None, act=lambda: None):
        """Does `act` again and again until there is a line of it, which is returned."""
        def look():
            act()
            self._read()
            return next((line for line in self.lines if line["op"] == op and path in (None, line.get("path"))), None)
        return eventually(look, 30, f"a line of {op}")

    def end(self):
        if self.process.poll() is None:
            self.process.terminate()
            self.process.communicate(timeout=LIMIT)


@pytest.fixture
def trace(place):
    started = []

    def start(*arguments):
        started.append(Trace(place, *arguments))
        return started[-1]
    yield start
    for one in started:
        one.end()


def test_a_trace_tells_who_asked_what_and_what_it_took(place, trace):
    place.mount()
    watching = trace()
    line = watching.until("lookup", "/missing", lambda: stat_missing(place))
    assert line["errno"] == "ENOENT" and "result" not in line
    assert (line["pid"], line["uid"]) == (os.getpid(), os.getuid())
    assert line["process"] == Path("/proc/self/comm").read_text().strip()
    exchange, = line["exchanges"]
    assert (exchange["op"], exchange["error"]) == ("getattr", "ENOENT")
    assert 0 < exchange["microseconds"] <= line["microseconds"]
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z", line["time"])
    (place.tree / "ten").write_text("0123456789")
    (place.point / "ten").read_text()
    read = watching.until("read", "/ten")
    assert (read["offset"], read["bytes"], read["result"]) == (0, 10, "ok")
    os.rename(place.point / "ten", place.point / "other")
    assert watching.until("rename", "/ten")["to"] == "/other"


def test_a_trace_is_told_in_words(place):
    place.mount()
    process = place.start("trace", place.point, "--op", "LOOKUP", "--count", "1")
    while process.poll() is None:
        stat_missing(place)
        time.sleep(0.02)
    line, rest = process.communicate(timeout=LIMIT)
    assert process.returncode == 0 and rest == ""
    comm = re.escape(Path("/proc/self/comm").read_text().strip())
    assert re.fullmatch(rf"\d\d:\d\d:\d\d\.\d{{6}} {comm}\[{os.getpid()}\] +LOOKUP +/missing +ENOENT +\d+ us +getattr \d+ us ENOENT\n", line)


def test_a_trace_shows_only_what_is_asked_for(place, trace):
    place.mount()
    (place.tree / "folder").mkdir()
    (place.tree / "folder" / "a").write_text("a")

    def act():
        stat_missing(place)
        os.listdir(place.point / "folder")
        (place.point / "folder" / "a").read_text()
        subprocess.run(["stat", place.point / "gone"], capture_output=True, check=False, timeout=LIMIT)
    everything = trace()
    by_path = trace("--path", "/folder")
    by_error = trace("--error", "ENOENT")
    by_caller = trace("--caller", "stat", "--op", "lookup,getattr")
    slow = trace("--slower", "60000")
    by_path.until("open", "/folder/a", act)  # its content is read once, perhaps before somebody listens
    by_error.until("lookup", "/gone", act)
    by_caller.until("lookup", "/gone", act)
    everything.until("lookup", "/missing", act)
    assert all(line["path"].startswith("/folder") for line in by_path.lines)
    assert all(line["errno"] == "ENOENT" for line in by_error.lines)
    assert all(line["process"] == "stat" and line["op"] in ("lookup", "getattr") for line in by_caller.lines)
    assert slow.lines == []


def test_what_a_trace_cannot_show_is_refused(place):
    place.mount()
    assert_fails(place.run("trace", place.point, "--op", "fly"), 1, "fly", "lookup")
    assert_fails(place.run("trace", place.point, "--slower", "-1"), 2, "--slower")
    assert_fails(place.run("trace", place.folder), 9, "nothing is mounted here")


def test_a_reader_that_does_not_read_loses_lines_and_is_told_how_many(place):
    place.mount()
    environment = Path(f"/proc/{place.helper()}/environ").read_bytes().split(b"\0")
    path, = [entry.split(b"=", 1)[1] for entry in environment if entry.startswith(b"KEMVI_CONTROL=")]
    lookups = 8000
    with socket.socket(socket.AF_UNIX) as peer:
        peer.settimeout(LIMIT)
        peer.connect(path)
        peer.sendall(b'{"op":"trace","operations":["lookup"],"path":"/missing*"}\n')
        lines = peer.makefile("r", encoding="utf-8")
        assert json.loads(lines.readline())["mountPoint"] == str(place.point)
        assert json.loads(lines.readline())["ok"]
        for number in range(lookups):
            try:
                os.stat(f"{place.point}/missing{number:0200}")
            except FileNotFoundError:
                pass
        told, lost = 0, 0
        while told + lost < lookups:
            line = json.loads(lines.readline())
            lost += line.get("lost", 0)
            told += "op" in line
    assert told + lost == lookups and lost > 0 and told > 0


def test_a_trace_ends_with_its_mount(place, trace):
    place.mount()
    watching = trace("--op", "lookup")
    watching.until("lookup", "/missing", lambda: stat_missing(place))  # it listens
    assert place.run("unmount", place.point).returncode == 0
    _, told = watching.process.communicate(timeout=LIMIT)
    assert (watching.process.returncode, told) == (0, f"kemvi: {place.point}: the trace has ended with the mount\n")
