"""The results as a picture: per workload one bar per peer, its length the speed relative to the passthrough."""
from xml.sax.saxutils import escape

from results import DESCRIPTIONS

BAR, GAP, LEFT, WIDTH, TOP = 11, 14, 150, 620, 46
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


def bars(results, peers, workload, y):
    yield text(LEFT - 8, y + BAR * len(peers) / 2 + 4, DESCRIPTIONS[workload], 'end', 12)
    for index, peer in enumerate(peers):
        ratio = results.speed(peer, 'passthrough', workload)
        top = y + index * BAR
        if ratio is None:
            yield text(LEFT + 3, top + BAR - 2, 'no result', size=9)
            continue
        end = position(ratio)
        colour = COLOURS[index % len(COLOURS)]
        yield f'<rect x="{LEFT}" y="{top}" width="{end - LEFT:.1f}" height="{BAR - 1}" fill="{colour}"/>'
        yield text(end + 3, top + BAR - 2, f'{ratio:.2f}', size=9)


def legend(peers):
    x = LEFT
    for index, peer in enumerate(peers):
        yield f'<rect x="{x}" y="24" width="10" height="10" fill="{COLOURS[index % len(COLOURS)]}"/>'
        yield text(x + 13, 33, peer)
        x += 24 + 7 * len(peer)


def svg(results):
    peers = [peer for peer in results.peers if peer not in ('native', 'passthrough')]
    height = TOP + len(results.workloads) * (BAR * len(peers) + GAP) + 24
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + WIDTH + 50}" height="{height}" '
             'font-family="sans-serif">', '<rect width="100%" height="100%" fill="white"/>',
             text(LEFT, 15, 'Speed relative to the passthrough of libfuse (1 = the same, logarithmic)', size=13)]
    parts += legend(peers)
    parts += axis(height - 22)
    for index, workload in enumerate(results.workloads):
        parts += bars(results, peers, workload, TOP + index * (BAR * len(peers) + GAP))
    return '\n'.join([*parts, '</svg>\n'])
