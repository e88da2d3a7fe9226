"""The numbers of a run and what is made of them: medians, ratios, tables."""
import statistics

from workloads import BY_NAME

DESCRIPTIONS = {
    'seqwrite': 'sequential write', 'seqread': 'sequential read', 'randread': 'random 4 KiB read',
    'create': 'create 1 KiB files', 'stat': 'stat', 'openread': 'open, read, close', 'unlink': 'unlink',
    'ls10k': 'ls -l (short)', 'ls50k': 'ls -l (long)', 'tarx': 'tar x', 'gitclone': 'git clone',
    'gitstatus': 'git status', 'grep': 'grep -r', 'cbuild': 'C build',
}


class Results:
    def __init__(self, peers, workloads):
        self.peers = peers
        self.workloads = workloads
        self.values = {}
        self.failures = {}

    def add(self, peer, workload, value):
        self.values.setdefault((peer, workload), []).append(value)

    def fail(self, peer, workload, reason):
        self.failures[peer, workload] = reason

    def median(self, peer, workload):
        """None where there is no number, or where a repetition failed."""
        if (peer, workload) in self.failures:
            return None
        values = self.values.get((peer, workload))
        return statistics.median(values) if values else None

    def speed(self, peer, other, workload):
        """How many times as fast `peer` is as `other`; None where either has no number."""
        ours, theirs = self.median(peer, workload), self.median(other, workload)
        if not ours or not theirs:
            return None
        return theirs / ours if BY_NAME[workload].unit == 's' else ours / theirs

    def spread(self, peer, workload):
        """(largest - smallest) / median."""
        values, middle = self.values.get((peer, workload)), self.median(peer, workload)
        return (max(values) - min(values)) / middle if values and middle else None

    def as_json(self):
        return {'values': [{'peer': peer, 'workload': workload, 'unit': BY_NAME[workload].unit, 'values': values}
                           for (peer, workload), values in self.values.items()],
                'failures': [{'peer': peer, 'workload': workload, 'reason': reason}
                             for (peer, workload), reason in self.failures.items()]}


def number(value, unit):
    if value is None:
        return '-'
    if unit == 's':
        return f'{value:.3f}' if value < 1 else f'{value:.2f}'
    return f'{value:.0f}'


def row(cells):
    return '| ' + ' | '.join(cells) + ' |'


def times_table(results):
    """Medians, and in brackets the speed relative to the passthrough."""
    lines = [row(['workload', 'unit', *results.peers]), '|---|---|' + '--:|' * len(results.peers)]
    for workload in results.workloads:
        unit = BY_NAME[workload].unit
        cells = []
        for peer in results.peers:
            ratio = results.speed(peer, 'passthrough', workload)
            cell = 'FAILED' if (peer, workload) in results.failures else number(results.median(peer, workload), unit)
            cells.append(cell + (f' ({ratio:.2f})' if ratio else ''))
        lines.append(row([DESCRIPTIONS[workload], unit, *cells]))
    return '\n'.join(lines)


def ratios_table(results, peer):
    """How many times as fast `peer` is as each of the others."""
    others = [other for other in results.peers if other not in (peer, 'native')]
    lines = [row(['workload', *others]), '|---|' + '--:|' * len(others)]
    for workload in results.workloads:
        ratios = [results.speed(peer, other, workload) for other in others]
        lines.append(row([DESCRIPTIONS[workload], *(f'{ratio:.2f}' if ratio else '-' for ratio in ratios)]))
    return '\n'.join(lines)


def counts_table(counts):
    """Requests to the helper per workload."""
    shown = ['getattr', 'readdir', 'open', 'read', 'write', 'flush', 'release', 'mkdir', 'unlink', 'rename', 'chmod',
             'utimes', 'statfs']
    lines = [row(['workload', 'all', *shown]), '|---|' + '--:|' * (len(shown) + 1)]
    for workload, of in counts.items():
        lines.append(row([DESCRIPTIONS[workload], str(sum(of.values())), *(str(of.get(op, 0)) for op in shown)]))
    return '\n'.join(lines)
