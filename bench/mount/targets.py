"""What is aimed at, as data in targets.json, and how far a run came: per workload and column a least speed relative to a
contestant of the same run."""
import json
from pathlib import Path

from results import BY_NAME, DESCRIPTIONS, Column, number, ratio_cell, row


class Group:
    """Aims that share what they are relative to."""

    def __init__(self, data):
        self.title = data['title']
        self.against = data['against']
        self.columns = [Column(*column) for column in data['columns']]
        self.aims = data['aims']

    def needed(self):
        """The columns to be measured: in each life first what the others are compared with."""
        found = []
        for column in self.columns:
            for one in (Column(self.against, column.life), column):
                if one not in found:
                    found.append(one)
        return found

    def table(self, results):
        """Aims and what was reached, with the quartiles of the repetitions' ratios."""
        base = [column for column in self.needed() if column not in self.columns]
        heads = [f'{name} {column}' for column in self.columns for name in ('aim,', 'reached,')]
        lines = [row(['workload', *map(str, base), *heads]),
                 '|---|' + '--:|' * (len(base) + len(heads))]
        for workload, aims in self.aims.items():
            if workload in results.workloads:
                cells = [self.value_cell(results, column, workload) for column in base]
                for column, aim in zip(self.columns, aims):
                    cells += [f'{aim:g}', self.reached_cell(results, column, workload, aim)]
                lines.append(row([DESCRIPTIONS[workload], *cells]))
        return '\n'.join(lines)

    @staticmethod
    def value_cell(results, column, workload):
        unit = BY_NAME[workload].unit
        return f'{number(results.median(column, workload), unit)} {unit}'

    def reached_cell(self, results, column, workload, aim):
        ratio = results.speed(column, self.against, workload)
        if ratio is None:
            return 'no result'
        return ratio_cell(ratio) + ('' if ratio.middle >= aim else ' **missed**')


def all_groups():
    return [Group(data) for data in json.loads((Path(__file__).resolve().parent / 'targets.json').read_text())]
