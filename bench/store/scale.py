"""How the store grows: with more mounts on one server, and with more nodes in one tree."""

import statistics
import subprocess
import sys
import time
from pathlib import Path

from peers import Kemvi

WORKER = """
import os, sys, time
from pathlib import Path
folder, seconds = Path(sys.argv[1]), float(sys.argv[2])
folder.mkdir()
sys.stdin.readline()
for do in ('create', 'read'):
    number, end = 0, time.monotonic() + seconds
    while time.monotonic() < end:
        path = folder / f'{number % created:06}' if do == 'read' else folder / f'{number:06}'
        path.read_bytes() if do == 'read' else path.write_bytes(b'k' * 1024)
        number += 1
    print(number / seconds, flush=True)
    created = number
    sys.stdin.readline()
"""


def many_mounts(engines, work, counts, seconds):
    """(mounts, creates per second in all, reads per second in all); contents in the database."""
    Kemvi.tree, Kemvi.contents = 'mounts', 'database'
    for count in counts:
        mounts = [Kemvi(engines, work / f'of{count}-{number}') for number in range(count)]
        for mount in mounts:
            mount.mount()
        try:
            workers = [subprocess.Popen([sys.executable, '-c', WORKER, mount.point / f'{count}-{number}', str(seconds)],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
                       for number, mount in enumerate(mounts)]
            rates = []
            for _ in ('create', 'read'):
                for worker in workers:
                    worker.stdin.write('\n')
                    worker.stdin.flush()
                rates.append(sum(float(worker.stdout.readline()) for worker in workers))
            for worker in workers:
                worker.communicate('\n', timeout=60)
            yield count, *rates
        finally:
            for mount in mounts:
                mount.unmount()


# Folders of 100 folders of 100 files: as deep as the tree is large. An id is a number of the sequence and 20 further bits.
FILL = """
insert into kemvi_store.node (tree, id, parent, name, kind, mtime, mode)
select t.id, n << 20, case when n <= {first} + 99 then -t.id else {first} + (n - {first} - 100) / 100 << 20 end, 'n' || n,
       case when n < {first} + {folders} then 'd' else 'f' end, 0, 420
from kemvi_store.tree t, generate_series({first}::bigint, {last}) n where t.name = '{tree}';
select setval('kemvi_store.node_id', {last} + 1);
analyze kemvi_store.node
"""


def large_trees(engines, work, sizes, rounds=200):
    """(nodes, {operation: median milliseconds}), each name asked for once."""
    for size in sizes:
        Kemvi.tree, Kemvi.contents, Kemvi.options = f'nodes{size}', 'database', ('-o', 'entry_timeout=0,attr_timeout=0')
        mount = Kemvi(engines, work / f'nodes{size}')
        mount.mount()  # makes the tree
        mount.unmount()
        first = int(engines.sql("select nextval('kemvi_store.node_id')")) + 1
        engines.sql(FILL.format(first=first, last=first + size - 1, folders=size // 100, tree=Kemvi.tree))
        mount.mount()
        try:
            yield size, operations(mount.point, rounds)
        finally:
            mount.unmount()
            Kemvi.options = ()


def operations(point, rounds):
    top = sorted(point.iterdir())
    folders = [inner for folder in top[:rounds] for inner in list(folder.iterdir())[:3] if inner.is_dir()] or top
    folders = folders[:rounds]

    def median(do):
        times = []
        for number in range(rounds):
            begin = time.perf_counter()
            do(number, folders[number % len(folders)])
            times.append((time.perf_counter() - begin) * 1000)
        return round(statistics.median(times), 3)
    return {'stat': median(lambda number, folder: (folder / f'missing{number}').exists()),
            'list': median(lambda number, folder: list(folder.iterdir())),
            'mkdir': median(lambda number, folder: (folder / f'made{number}').mkdir()),
            'rename': median(lambda number, folder: (folder / f'made{number}').rename(folder / f'renamed{number}')),
            'rmdir': median(lambda number, folder: (folder / f'renamed{number}').rmdir())}
