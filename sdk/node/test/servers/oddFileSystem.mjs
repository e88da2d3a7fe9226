// A file system whose paths do what the tests want: answer, refuse, fail, print, lie.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import { PosixError } from 'kemvi-helper';

const time = new Date('2024-05-01T12:34:56.789Z');
const file = { size: 3, modifiedAt: time };

/** Bytes whose value tells their place. */
export function pattern(offset, length) {
    const bytes = Buffer.alloc(length);
    for (let i = 0; i < length; i++) bytes[i] = ((offset + i) * 31 + ((offset + i) >> 8)) & 255;
    return bytes;
}

const stats = {
    '/': () => ({ isDirectory: true, modifiedAt: time }),
    '/file': () => file,
    '/sub/a b': () => file,
    '/milliseconds': () => ({ size: 3, modifiedAt: time.getTime() }),
    '/posix': () => {
        throw new PosixError('ENOTEMPTY', 'so it is');
    },
    '/system': () => fs.statSync('/there/is/no/such/file'),
    '/fault': () => {
        throw new TypeError('a mistake of the author');
    },
    '/text': () => {
        throw 'only a text';
    },
    '/nodeCode': () => Buffer.alloc('x'),
    '/nothing': () => undefined,
    '/textSize': () => ({ size: '12' }),
    '/fractionSize': () => ({ size: 1.5 }),
    '/noSize': () => ({}),
    '/textFlag': () => ({ size: 1, isDirectory: 'yes' }),
    '/textTime': () => ({ size: 1, modifiedAt: '2024-05-01' }),
    '/invalidTime': () => ({ size: 1, modifiedAt: new Date('nonsense') }),
    '/prints': () => {
        console.log('console.log');
        process.stdout.write('process.stdout.write\n');
        return file;
    },
    '/printsBelow': () => {
        fs.writeSync(1, 'fs.writeSync\n');
        execFileSync('sh', ['-c', 'echo from a child; cat'], { stdio: 'inherit' });
        return file;
    },
};

const listings = {
    '/': () => [{ name: 'file', ...file }, { name: 'sub', isDirectory: true, modifiedAt: time }],
    '/empty': () => [],
    '/names': () =>
        ['a"b', 'back\\slash', 'line\nbreak', 'gr\u00fc\u00df', '\u{1f600}', '.dot'].map((name) => ({ name, ...file })),
    *'/generator'() {
        yield { name: 'x', ...file };
    },
    *'/late'() {
        for (let i = 0; i < 5000; i++) yield { name: `entry ${i}`, ...file };
        throw new PosixError('EACCES', 'the rest is secret');
    },
    *'/soon'() {
        yield { name: 'x', ...file };
        throw new PosixError('EACCES', 'the rest is secret');
    },
    '/slash': () => [{ name: 'a/b', ...file }],
    '/dots': () => [{ name: '..', ...file }],
    '/nameless': () => [file],
    '/noList': () => 5,
};

function pick(table, path) {
    if (!Object.hasOwn(table, path)) throw new PosixError('ENOENT', `there is no ${path}`);
    return table[path]();
}

export const oddFileSystem = {
    getattr: (path) => pick(stats, path),
    readdir: (path) => pick(listings, path),

    open(path, flags) {
        if (path === '/missing') throw new PosixError('ENOENT', 'there is no /missing');
        return { path, flags, written: [] };
    },

    read({ path, written }, offset, length, buffer) {
        if (path === '/written') return Buffer.concat(written).subarray(offset, offset + length);
        if (path === '/intoBuffer') return pattern(offset, length).copy(buffer);
        if (path === '/short') return pattern(offset, Math.max(0, Math.min(length, 100 - offset)));
        if (path === '/tooMuch') return pattern(offset, length + 5);
        if (path === '/breaksAt2M' && offset >= 1 << 20) throw new PosixError('EPERM', 'not this part');
        if (path === '/count') return length + 1;
        if (path === '/string') return 'text';
        return pattern(offset, length);
    },

    write(file, offset, data) {
        if (file.path === '/full') throw new PosixError('ENOSPC', 'full');
        file.written.push(Buffer.from(data));
    },

    flush({ path }) {
        if (path === '/flushFails') throw new PosixError('EPERM', 'not flushed');
    },

    release({ path }) {
        console.error(`released ${path}`);
        if (path === '/releaseFails') throw new PosixError('EPERM', 'not released');
    },

    chmod: (path, mode) => console.error(`chmod ${path} ${mode}`),
    utimes: (path, mtime) => console.error(`utimes ${path} ${mtime.getTime()}`),
    rename: (oldPath, newPath) => console.error(`rename ${oldPath} ${newPath}`),
    statfs: () => ({ files: 1, directories: 2, bytes: 3 }),
    end: () => console.error('ended'),
};
