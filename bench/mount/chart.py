"""The results as a picture: per workload one bar per column, its length the speed relative to what all is compared
with."""
from xml.sax.saxutils import escape

from results import DESCRIPTIONS

BAR, GAP, LEFT, WIDTH, TOP = 11, 14, 270, 620, 46
LOWEST, HIGHEST = 0.02, 8.0
COLOURS = ['#1f6feb', '#7db0ff', '#b8d2ff', '#e3883c', '#8a8f98', '#c4c8cf', '#b07cc6', '#6aa84f', '#333333']
TICKS = [0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5]


def position(ratio):
    """Where a ratio stands on the logarithmic axis."""
    from math import log
    bounded = min(max(ratio, LOWEST), HIGHEST)
    return LEFT + WIDTH * (log(bounded) - log(LOWEST)) / (log(HIGHEST) - log(LOWEST))


def text(x, y, content, anchor='start', size=11):
    return f'<text x="{x:.1f}" y="{y:.1f}" font-size="{size}" text-anchor="{anchor}">{escape(content)}</text>'


def axis(bottom):
    for tick in TICKS:
        x = position(tick)
        colour = '#666666' if tick == 1 else '#dddddd'
        yield f'<line x1="{x:.1f}" y1="{TOP - 6}" x2="{x:.1f}" y2="{bottom}" stroke="{colour}"/>'
        yield text(x, bottom + 14, f'{tick:g}', 'middle')


def bars(results, columns, workload, y):
    yield text(LEFT - 8, y + BAR * len(columns) / 2 + 4, DESCRIPTIONS[workload], 'end', 12)
    for index, column in enumerate(columns):
        ratio = results.speed(column, results.against, workload)
        top = y + index * BAR
        if ratio is None:
            yield text(LEFT + 3, top + BAR - 2, 'no result', size=9)
            continue
        end = position(ratio.middle)
        colour = COLOURS[index % len(COLOURS)]
        yield f'<rect x="{LEFT}" y="{top}" width="{end - LEFT:.1f}" height="{BAR - 1}" fill="{colour}"/>'
        yield text(end + 3, top + BAR - 2, f'{ratio.middle:.2f}', size=9)


def legend(columns):
    x = LEFT
    for index, column in enumerate(columns):
        yield f'<rect x="{x}" y="24" width="10" height="10" fill="{COLOURS[index % len(COLOURS)]}"/>'
        yield text(x + 13, 33, str(column))
        x += 24 + 7 * len(str(column))


def svg(results):
    columns = [column for column in results.columns if column.contestant not in ('native', results.against)]
    height = TOP + len(results.workloads) * (BAR * len(columns) + GAP) + 24
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + WIDTH + 50}" height="{height}" '
             'font-family="sans-serif">', '<rect width="100%" height="100%" fill="white"/>',
             text(LEFT, 15, f'Speed relative to {results.against} (1 = the same, logarithmic)', size=13)]
    parts += legend(columns)
    parts += axis(height - 22)
    for index, workload in enumerate(results.workloads):
        parts += bars(results, columns, workload, TOP + index * (BAR * len(columns) + GAP))
    return '\n'.join([*parts, '</svg>\n'])
