"""How time and memory grow with what a program asks for: a line per kind of work, a point per size."""
import math
import os
import subprocess
import sys
import time
from pathlib import Path
from typing import NamedTuple

import peers as peer_list
from chart import COLOURS, text
from resident import MIB, Resident, helper_of, mounted

HERE = Path(__file__).resolve().parent
GIB = 1 << 30


class KemviMadeUp(peer_list.Kemvi):
    """The kemvi command over a tree that no disk has to hold."""

    name = 'kemvi-made-up'
    tree = {}

    def helper(self):
        return HERE / 'helpers' / 'wide.mjs'

    def environment(self):
        return dict(os.environ, **{name: str(value) for name, value in self.tree.items()})


class Kind(NamedTuple):
    name: str
    unit: str
    quick: tuple
    usual: tuple
    large: tuple
    scale: int = 1  # how many of what the sizes count make one unit


QUICK, USUAL, LARGE = 'quick', 'usual', 'large'

WALK = Kind('walk of folders of 1,000', 'file', (1000, 2000), (5000, 10000, 20000, 40000),
            (10000, 30000, 100000, 300000, 1000000))
LIST = Kind('ls -l of one folder', 'entry', (300, 1000), (5000, 10000, 20000, 40000),
            (1000, 10000, 30000, 100000, 300000, 1000000))
CREATE = Kind('create 1 KiB files', 'file', (30, 60), (500, 1000, 2000, 4000), (1000, 4000, 16000, 64000))
OPEN = Kind('open files, held', 'file', (20, 40), (500, 1000, 2000, 4000), (1000, 2000, 5000, 10000))
READ = Kind('sequential read', 'MiB', (2 * MIB, 4 * MIB), (64 * MIB, 128 * MIB, 256 * MIB, 512 * MIB),
            (256 * MIB, GIB, 4 * GIB, 10 * GIB), MIB)
WRITE = READ._replace(name='sequential write')


class Point(NamedTuple):
    size: int
    seconds: float
    host: int  # growth of the host's resident memory at its largest, bytes
    helper: int


def fit(xs, ys):
    """The exponent p of y = c * x^p by least squares on the logarithms, and how much of it that explains."""
    xs, ys = [math.log(x) for x in xs], [math.log(y) for y in ys]
    mean_x, mean_y = sum(xs) / len(xs), sum(ys) / len(ys)
    covariance = sum((x - mean_x) * (y - mean_y) for x, y in zip(xs, ys))
    variance_x, variance_y = sum((x - mean_x) ** 2 for x in xs), sum((y - mean_y) ** 2 for y in ys)
    return covariance / variance_x, covariance ** 2 / (variance_x * variance_y) if variance_y else 1.0


def slope(xs, ys):
    """Of the straight line through the points, by least squares."""
    mean_x, mean_y = sum(xs) / len(xs), sum(ys) / len(ys)
    return (sum((x - mean_x) * (y - mean_y) for x, y in zip(xs, ys)) / sum((x - mean_x) ** 2 for x in xs))


class Line:
    """What was measured of one kind of work."""

    def __init__(self, kind, points):
        self.kind = kind
        self.points = points
        self.exponent, self.explained = fit(self.sizes, [point.seconds for point in points])

    @property
    def sizes(self):
        return [point.size / self.kind.scale for point in self.points]

    def per_unit(self):
        """Microseconds."""
        return [point.seconds * 1e6 / size for point, size in zip(self.points, self.sizes)]

    def bytes_per_unit(self, process):
        return slope(self.sizes, [getattr(point, process) for point in self.points])

    def as_json(self):
        return {'what': self.kind.name, 'unit': self.kind.unit, 'exponent': self.exponent, 'R squared': self.explained,
                'points': [point._asdict() for point in self.points]}


def measure_all(work, build, length, names):
    program = build / 'bin' / 'kemvi_bench_workload'
    lines = []
    for name in names:
        kind, point = KINDS[name]
        points = []
        for size in getattr(kind, length):
            # The best of several: what else the machine does only adds.
            times = [point(work, program, size) for _ in range(3 if length == USUAL else 1)]
            points.append(min(times, key=lambda one: one.seconds))
            print(f'{kind.name} {size}: {points[-1].seconds:.3f} s', file=sys.stderr, flush=True)
        lines.append(Line(kind, points))
    return lines


def timed(process, size, *command):
    """Runs a command that works on the mount of this process."""
    watchers = [Resident(process.pid), Resident(helper_of(process))]
    for watcher in watchers:
        watcher.start()
    start = time.monotonic()
    subprocess.run([str(word) for word in command], check=True, stdout=subprocess.DEVNULL,
                   env={**os.environ, 'LC_ALL': 'C'})
    taken = time.monotonic() - start
    for watcher in watchers:
        watcher.stop()
    return Point(size, taken, *(watcher.largest - watcher.first for watcher in watchers))


def made_up(work, **tree):
    peer = KemviMadeUp(work)
    peer.tree = {f'KEMVI_BENCH_{name.upper()}': value for name, value in tree.items()}
    return mounted(peer, work)


def walk(work, program, size):
    del program
    with made_up(work, folders=size // 1000) as (_, mount, process):
        return timed(process, size, 'find', mount, '-size', '+9')  # looks at every file


def listing(work, program, size):
    del program
    with made_up(work, folders=1, files=size) as (_, mount, process):
        return timed(process, size, 'ls', '-l', mount / 'folder-0')


def create(work, program, size):
    with mounted(peer_list.Kemvi(work), work) as (_, mount, process):
        return timed(process, size, program, 'create', mount, size)


def open_many(work, program, size):
    with mounted(peer_list.Kemvi(work), work) as (source, mount, process):
        subprocess.run([program, 'createempty', source, str(size)], check=True, stdout=subprocess.DEVNULL)
        return timed(process, size, program, 'openall', mount, size)


def read(work, program, size):
    del program
    with made_up(work, hollow=size) as (_, mount, process):
        return timed(process, size, 'dd', f'if={mount}/hollow', 'of=/dev/null', 'bs=1M', 'status=none')


def write(work, program, size):
    del program
    with made_up(work, hollow=0) as (_, mount, process):
        return timed(process, size, 'dd', 'if=/dev/zero', f'of={mount}/hollow', 'bs=1M', f'count={size // MIB}',
                     'conv=notrunc,fsync', 'status=none')


KINDS = {'walk': (WALK, walk), 'list': (LIST, listing), 'create': (CREATE, create), 'open': (OPEN, open_many),
         'read': (READ, read), 'write': (WRITE, write)}


def table(lines):
    """Time in microseconds per unit; memory as its growth at its largest, and per unit by a straight line."""
    rows = ['| what grows | sizes | us per unit | exponent of the time | R squared | host, MiB more | bytes per unit | '
            'helper, MiB more |', '|---|---|---|--:|--:|---|--:|---|']
    for line in lines:
        cells = [f'{line.kind.name}, {line.kind.unit}', ', '.join(f'{size:,.0f}' for size in line.sizes),
                 ', '.join(f'{value:.1f}' for value in line.per_unit()), f'{line.exponent:.2f}', f'{line.explained:.3f}',
                 ', '.join(f'{point.host / MIB:.1f}' for point in line.points), f'{line.bytes_per_unit("host"):.0f}',
                 ', '.join(f'{point.helper / MIB:.0f}' for point in line.points)]
        rows.append('| ' + ' | '.join(cells) + ' |')
    return '\n'.join(rows)


LEFT, WIDTH, HEIGHT, TOP, GAP = 60, 560, 230, 40, 60


class Panel:
    """A field with logarithmic axes."""

    def __init__(self, top, title, xs, ys):
        self.top = top
        self.title = title
        self.xs = self.decades(xs)
        self.ys = self.decades(ys)

    @staticmethod
    def decades(values):
        """From the power of ten below all values to the one above."""
        low = math.floor(math.log10(min(values)))
        return low, max(low + 1, math.ceil(math.log10(max(values))))

    def x(self, value):
        return LEFT + WIDTH * (math.log10(value) - self.xs[0]) / (self.xs[1] - self.xs[0])

    def y(self, value):
        return self.top + HEIGHT * (1 - (math.log10(value) - self.ys[0]) / (self.ys[1] - self.ys[0]))

    def axes(self):
        yield text(LEFT, self.top - 10, self.title, size=13)
        for power in range(self.xs[0], self.xs[1] + 1):
            x = self.x(10 ** power)
            yield f'<line x1="{x:.1f}" y1="{self.top}" x2="{x:.1f}" y2="{self.top + HEIGHT}" stroke="#dddddd"/>'
            yield text(x, self.top + HEIGHT + 14, f'{10 ** power:,g}', 'middle')
        for power in range(self.ys[0], self.ys[1] + 1):
            y = self.y(10 ** power)
            yield f'<line x1="{LEFT}" y1="{y:.1f}" x2="{LEFT + WIDTH}" y2="{y:.1f}" stroke="#dddddd"/>'
            yield text(LEFT - 6, y + 4, f'{10 ** power:g}', 'end')

    def line(self, xs, ys, colour):
        points = ' '.join(f'{self.x(x):.1f},{self.y(y):.1f}' for x, y in zip(xs, ys))
        yield f'<polyline points="{points}" fill="none" stroke="{colour}" stroke-width="2"/>'
        for x, y in zip(xs, ys):
            yield f'<circle cx="{self.x(x):.1f}" cy="{self.y(y):.1f}" r="3" fill="{colour}"/>'


def svg(lines):
    """Time per unit, and below it the host's memory, over the size."""
    sizes = [size for line in lines for size in line.sizes]
    times = [value for line in lines for value in line.per_unit()]
    memory = {line: [max(point.host / MIB, 0.1) for point in line.points] for line in lines}
    panels = (Panel(TOP, 'Microseconds per unit, over the number of units', sizes, times),
              Panel(TOP + HEIGHT + GAP, "Growth of the host's memory at its largest, MiB (at least 0.1)", sizes,
                    [value for values in memory.values() for value in values]))
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + WIDTH + 330}" '
             f'height="{TOP + 2 * HEIGHT + GAP + 30}" font-family="sans-serif">',
             '<rect width="100%" height="100%" fill="white"/>']
    for panel in panels:
        parts += panel.axes()
    for index, line in enumerate(lines):
        colour = COLOURS[3 * index % len(COLOURS)] if index % 2 else COLOURS[index % len(COLOURS)]
        parts += panels[0].line(line.sizes, line.per_unit(), colour)
        parts += panels[1].line(line.sizes, memory[line], colour)
        y = TOP + 14 + 34 * index
        parts.append(f'<rect x="{LEFT + WIDTH + 20}" y="{y - 9}" width="10" height="10" fill="{colour}"/>')
        parts.append(text(LEFT + WIDTH + 36, y, f'{line.kind.name} (per {line.kind.unit})'))
        parts.append(text(LEFT + WIDTH + 36, y + 14, f'time ~ size^{line.exponent:.2f}, R squared {line.explained:.3f}; '
                          f'{line.bytes_per_unit("host"):.0f} bytes each', size=10))
    return '\n'.join([*parts, '</svg>\n'])
