"""The numbers of a run and what is made of them: medians, quartiles, ratios, tables. A column is a contestant in one of
the two lives of its mount; its values stand in the order of the repetitions."""
import statistics
from typing import NamedTuple

from lives import FRESH, SHOWN
from workloads import BY_NAME

DESCRIPTIONS = {
    'seqwrite': 'sequential write', 'seqread': 'sequential read', 'randread': 'random 4 KiB read',
    'create': 'create 1 KiB files', 'stat': 'stat', 'openread': 'open, read, close', 'unlink': 'unlink',
    'ls10k': 'ls -l (short)', 'ls50k': 'ls -l (long)', 'tarx': 'tar x', 'gitclone': 'git clone',
    'gitstatus': 'git status', 'grep': 'grep -r', 'cbuild': 'C build', 'cbuild2': 'C build, two at once',
    'create4': 'create, four programs', 'stat4': 'stat, four programs',
    'openread4': 'open, read, close, four programs', 'createbusy': 'create, busy machine',
    'statbusy': 'stat, busy machine', 'openreadbusy': 'open, read, close, busy machine',
    'stat4busy': 'stat, four programs, busy machine',
    'openread4busy': 'open, read, close, four programs, busy machine', 'tarxbusy': 'tar x, busy machine',
}


class Column(NamedTuple):
    contestant: str
    life: str = FRESH

    def __str__(self):
        return self.contestant if self.life == FRESH else f'{self.contestant}, {SHOWN[self.life]}'


class Spread(NamedTuple):
    """Of some numbers the one in the middle, and those a quarter from either end."""

    middle: float
    low: float
    high: float

    @classmethod
    def of(cls, values):
        if len(values) == 1:
            return cls(values[0], values[0], values[0])
        low, middle, high = statistics.quantiles(values, n=4, method='inclusive')
        return cls(middle, low, high)


class Results:
    def __init__(self, columns, workloads, against='passthrough'):
        """`against` is the contestant that ratios are relative to, in the same life."""
        self.columns = columns
        self.workloads = workloads
        self.against = against
        self.values = {}
        self.failures = {}

    def add(self, column, workload, value):
        self.values.setdefault((column, workload), []).append(value)

    def fail(self, column, workload, reason):
        self.failures[column, workload] = reason

    def spread(self, column, workload):
        """None where there is no number, or where a repetition failed."""
        values = self.values.get((column, workload))
        return Spread.of(values) if values and (column, workload) not in self.failures else None

    def median(self, column, workload):
        found = self.spread(column, workload)
        return found.middle if found else None

    def speed(self, column, other, workload):
        """How many times as fast the column is as the contestant `other` in the same life, repetition by repetition,
        since what was measured one right after the other met the same machine; None where either has no number."""
        base = Column(other, column.life)
        if self.median(column, workload) is None or self.median(base, workload) is None:
            return None
        lesser_is_better = BY_NAME[workload].unit == 's'
        pairs = zip(self.values[column, workload], self.values[base, workload])
        return Spread.of([theirs / ours if lesser_is_better else ours / theirs for ours, theirs in pairs])

    def as_json(self):
        return {'values': [{'peer': column.contestant, 'life': column.life, 'workload': workload,
                            'unit': BY_NAME[workload].unit, 'values': values}
                           for (column, workload), values in self.values.items()],
                'failures': [{'peer': column.contestant, 'life': column.life, 'workload': workload, 'reason': reason}
                             for (column, workload), reason in self.failures.items()]}


def number(value, unit):
    if value is None:
        return '-'
    if unit == 's':
        return f'{value:.3f}' if value < 1 else f'{value:.2f}'
    return f'{value:.0f}'


def row(cells):
    return '| ' + ' | '.join(cells) + ' |'


def times_table(results):
    """Medians, the quartiles where there are several numbers, and in brackets the speed relative to what all is compared
    with."""
    lines = [row(['workload', 'unit', *map(str, results.columns)]), '|---|---|' + '--:|' * len(results.columns)]
    for workload in results.workloads:
        cells = [times_cell(results, column, workload) for column in results.columns]
        lines.append(row([DESCRIPTIONS[workload], BY_NAME[workload].unit, *cells]))
    return '\n'.join(lines)


def times_cell(results, column, workload):
    if (column, workload) in results.failures:
        return 'FAILED'
    found = results.spread(column, workload)
    if not found:
        return '-'
    unit = BY_NAME[workload].unit
    text = number(found.middle, unit)
    if len(results.values[column, workload]) > 1:
        text += f', {number(found.low, unit)} to {number(found.high, unit)}'
    ratio = results.speed(column, results.against, workload)
    return text + (f' ({ratio.middle:.2f})' if ratio else '')


def ratios_table(results, column):
    """How many times as fast the column is as each of the other contestants in the same life."""
    others = [other.contestant for other in results.columns
              if other.life == column.life and other.contestant not in (column.contestant, 'native')]
    lines = [row(['workload', *others]), '|---|' + '--:|' * len(others)]
    for workload in results.workloads:
        ratios = [results.speed(column, other, workload) for other in others]
        lines.append(row([DESCRIPTIONS[workload], *map(ratio_cell, ratios)]))
    return '\n'.join(lines)


def ratio_cell(ratio):
    if not ratio:
        return '-'
    if ratio.low == ratio.high:
        return f'{ratio.middle:.2f}'
    return f'{ratio.middle:.2f} ({ratio.low:.2f} to {ratio.high:.2f})'


def counts_table(counts):
    """Requests to the helper per workload."""
    shown = ['getattr', 'readdir', 'open', 'read', 'write', 'flush', 'release', 'mkdir', 'unlink', 'rename', 'chmod',
             'utimes', 'statfs']
    lines = [row(['workload', 'all', *shown]), '|---|' + '--:|' * (len(shown) + 1)]
    for workload, of in counts.items():
        lines.append(row([DESCRIPTIONS[workload], str(sum(of.values())), *(str(of.get(op, 0)) for op in shown)]))
    return '\n'.join(lines)
