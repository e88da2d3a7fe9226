// A file system in memory that is right in everything but one thing. Run as a program it is served, with the fault that
// KEMVI_HOME names.
import { fileURLToPath } from 'node:url';
import { MemoryFileSystem, PosixError, serve } from '../../src/index.mjs';

const never = () => new Promise(() => {});
const refuse = (code) => {
    throw new PosixError(code, 'refused by the test');
};

/** A tree with a file of ten bytes, and a folder with one more. */
function tree() {
    const fileSystem = new MemoryFileSystem();
    const put = (path, text) => {
        const file = fileSystem.open(path, { read: false, write: true, create: true, truncate: false });
        fileSystem.write(file, 0, Buffer.from(text));
        fileSystem.release(file);
    };
    put('/digits', '0123456789');
    fileSystem.mkdir('/folder');
    put('/folder/inner', 'deep');
    for (const path of ['/', '/folder', '/digits', '/folder/inner']) fileSystem.utimes(path, new Date(1e12));
    return fileSystem;
}

const isLong = (path) => path.length > 1000;
const inScratch = (path) => /\/kemvi-check-[^/]+\//.test(path);

/**
 * By the rule that is broken, as a key of `checks`: what it takes. `right` is the file system as it would be.
 * @type {Record<string, (right: MemoryFileSystem) => object>}
 */
export const faults = {
    inTime: (right) => ({ statfs: never }),
    errorsSpeak: (right) => ({
        getattr(path) {
            if (isLong(path)) throw new Error('a mistake');
            return right.getattr(path);
        },
    }),
    missingNames: (right) => ({
        getattr: (path) => (path.startsWith('/kemvi-check') ? refuse('EIO') : right.getattr(path)),
    }),
    longLines: (right) => ({ getattr: (path) => (isLong(path) ? { size: 0 } : right.getattr(path)) }),
    listings: (right) => ({ readdir: (path) => (path === '/folder' ? refuse('EIO') : right.readdir(path)) }),
    statfs: (right) => ({ statfs: () => refuse('EIO') }),
    names: (right) => ({ readdir: (path) => [...right.readdir(path), { name: 'x'.repeat(256), size: 0 }] }),
    duplicates: (right) => ({ readdir: (path) => [...right.readdir(path), ...right.readdir(path)] }),
    agreement: (right) => ({
        readdir: (path) => right.readdir(path).map((entry) => ({ ...entry, size: entry.isDirectory ? 0 : 3 })),
    }),
    speed: (right) => ({
        getattr: (path) => (path.startsWith('/slow') ? { size: 0, modifiedAt: 0 } : right.getattr(path)),
        readdir(path) {
            if (path !== '/') return right.readdir(path);
            Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, 120);
            return Array.from({ length: 1000 }, (_, number) => ({ name: `slow${number}`, size: 0, modifiedAt: 0 }));
        },
    }),
    opening: (right) => ({ open: (path, flags) => (path === '/digits' ? refuse('EACCES') : right.open(path, flags)) }),
    data: (right) => ({ read: () => refuse('EIO') }),
    wholeSize: (right) => {
        const longer = (stat) => ({ ...stat, size: stat.isDirectory ? 0 : stat.size + 2 });
        return {
            getattr: (path) => longer(right.getattr(path)),
            readdir: (path) => right.readdir(path).map(longer),
        };
    },
    pastTheEnd: (right) => ({
        read: (file, offset, length) => (offset > 10 ? refuse('EINVAL') : right.read(file, offset, length)),
    }),
    offsets: (right) => ({ read: (file, offset, length) => right.read(file, offset === 1 ? 0 : offset, length) }),
    released: (right) => ({ release: (file) => (right.release(file), refuse('EIO')) }),

    folders: (right) => ({ mkdir: (path) => (exists(right, path) ? undefined : right.mkdir(path)) }),
    writing: (right) => ({ write: (file, offset, data) => right.write(file, file.size, data) }),
    creating: (right) => ({ open: (path, flags) => right.open(path, { ...flags, truncate: flags.write }) }),
    renaming: (right) => ({ rename: (from, to) => (exists(right, to) ? undefined : right.rename(from, to)) }),
    fullFolders: (right) => ({
        unlink(path) {
            const isFolder = right.getattr(path).isDirectory;
            for (const { name } of isFolder ? right.readdir(path) : []) right.unlink(`${path}/${name}`);
            right.unlink(path);
        },
    }),
    removing: (right) => ({ unlink: (path) => (path.endsWith('full/file') ? undefined : right.unlink(path)) }),
    settingTimes: (right) => ({
        utimes: (path, mtime) => right.utimes(path, new Date(Math.floor(mtime.getTime() / 1000) * 1000)),
    }),
    modes: (right) => ({ chmod: () => refuse('EPERM') }),
    oddNames: (right) => ({
        readdir: (path) => right.readdir(path).map((entry) => ({ ...entry, name: entry.name.replace(/\n/, ' ') })),
    }),
    longWrites: (right) => ({ write: (file, offset, data) => right.write(file, offset, data.subarray(0, 1 << 20)) }),
    manyEntries: (right) => ({ readdir: (path) => right.readdir(path).slice(0, 5000) }),
    cleanedUp: (right) => ({
        unlink: (path) => (inScratch(path) ? right.unlink(path) : refuse('EPERM')),
    }),
    ends: (right) => ({ end: never }),
};

function exists(fileSystem, path) {
    try {
        return Boolean(fileSystem.getattr(path));
    } catch {
        return false;
    }
}

/** @param {string} fault a key of `faults`; none when empty */
export function faulty(fault) {
    const right = tree();
    const names = [
        'getattr', 'readdir', 'open', 'read', 'write', 'release', 'mkdir', 'unlink', 'rename', 'chmod', 'utimes', 'statfs',
    ];
    const functions = Object.fromEntries(names.map((name) => [name, (...values) => right[name](...values)]));
    return { ...functions, ...faults[fault]?.(right) };
}

if (process.argv[1] === fileURLToPath(import.meta.url)) serve(faulty(process.env.KEMVI_HOME ?? ''));
