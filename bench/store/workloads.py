"""What is measured on each mount: seconds for a piece of work, caches cold where reading is meant."""

import os
import subprocess
import time

LIMIT = 600  # seconds, for one piece of work


class TookTooLong(Exception):
    """The work had not ended after LIMIT."""


def seconds(work):
    begin = time.monotonic()
    work()
    return time.monotonic() - begin


def command(*words):
    try:
        subprocess.run([str(word) for word in words], check=True, stdout=subprocess.DEVNULL, timeout=LIMIT)
    except subprocess.TimeoutExpired as late:
        raise TookTooLong from late


def each(paths, do):
    end = time.monotonic() + LIMIT
    for path in paths:
        if time.monotonic() > end:
            raise TookTooLong
        do(path)


def write(path):
    path.write_bytes(b'k' * 1024)


def list_long(peer, sizes):
    peer.many_files('many', sizes['many'])
    peer.remount()
    yield f'`ls -l` of {sizes["many"]:,}', seconds(lambda: command('ls', '-l', peer.point / 'many'))


def small_files(peer, sizes):
    folder = peer.point / 'small'
    folder.mkdir()
    count = sizes['small']
    files = [folder / f'{number:05}' for number in range(count)]
    yield f'{count:,} files of 1 KiB: create', seconds(lambda: each(files, write))
    peer.remount()
    yield f'{count:,} files of 1 KiB: read', seconds(lambda: each(files, lambda path: path.read_bytes()))
    peer.remount()
    yield f'{count:,} files of 1 KiB: remove', seconds(lambda: each(files, os.unlink))


def rename_folder(peer, sizes):
    peer.many_files('before', sizes['renamed'])
    peer.remount()
    yield f'rename of a folder with {sizes["renamed"]:,}', seconds(lambda: command('mv', peer.point / 'before', peer.point / 'after'))


def large_file(peer, sizes):
    size, file, source = sizes['large'], peer.point / 'large', peer.folder / 'source-of-large'
    command('dd', 'if=/dev/urandom', f'of={source}', 'bs=1M', f'count={size}', 'status=none')
    whole = f'{size / 1024:g} GiB' if size >= 1024 else f'{size} MiB'
    yield f'{whole} written', seconds(lambda: command('dd', f'if={source}', f'of={file}', 'bs=1M', 'status=none'))
    peer.remount()
    source.unlink()
    yield f'{whole} read', seconds(lambda: command('dd', f'if={file}', 'of=/dev/null', 'bs=1M', 'status=none'))


ALL = (list_long, small_files, rename_folder, large_file)
