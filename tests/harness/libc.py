"""Calls that the standard library does not offer."""

import ctypes
import os
import struct

library = ctypes.CDLL(None, use_errno=True)

RENAME_NOREPLACE = 1
RENAME_EXCHANGE = 2
AT_FDCWD = -100


def _checked(result):
    if result < 0:
        number = ctypes.get_errno()
        raise OSError(number, os.strerror(number))
    return result


def renameat2(old, new, flags):
    _checked(library.renameat2(AT_FDCWD, os.fsencode(old), AT_FDCWD, os.fsencode(new), ctypes.c_uint(flags)))


def raw_directory(descriptor, size):
    """One getdents64 call with a buffer of `size` bytes: [(name, inode, cookie, type)], empty at the end."""
    getdents64 = 217
    buffer = ctypes.create_string_buffer(size)
    count = _checked(library.syscall(ctypes.c_long(getdents64), ctypes.c_int(descriptor), buffer, ctypes.c_size_t(size)))
    entries, at = [], 0
    while at < count:
        inode, cookie, length, kind = struct.unpack_from("=QqHB", buffer.raw, at)
        name = buffer.raw[at + 19:at + length].split(b"\0", 1)[0]
        entries.append((os.fsdecode(name), inode, cookie, kind))
        at += length
    return entries


def whole_directory(descriptor, size=32768):
    """Everything that getdents64 tells from the descriptor's place on."""
    found = []
    while True:
        part = raw_directory(descriptor, size)
        if not part:
            return found
        found += part


def msync(address, length, flags=4):
    _checked(library.msync(ctypes.c_void_p(address), ctypes.c_size_t(length), ctypes.c_int(flags)))


def fallocate(descriptor, mode, offset, length):
    _checked(library.fallocate(descriptor, mode, ctypes.c_int64(offset), ctypes.c_int64(length)))
