// What an author in TypeScript writes, checked against the declarations that ship: never run.
import {
    cached, changed, GitFileSystem, limited, LocalFileSystem, MemoryFileSystem, PosixError, serve,
    type AbortableFileSystem, type Entry, type FileSystem, type OpenFlags, type PosixCode, type ServeOptions, type Stat,
} from '../types/index.mjs';
import { CheckError, mountless, type CheckResult, type KnownEntry, type Mountless } from '../types/testing/index.mjs';

const stat: Stat = { size: 3, modifiedAt: new Date() };
const entry: Entry = { name: 'file', ...stat };

const readOnly: FileSystem<string> = {
    getattr: (path) => (path === '/' ? { isDirectory: true } : stat),
    readdir: async () => [entry],
    read: (file, offset, length) => Buffer.from(file).subarray(offset, offset + length),
};

const full: FileSystem<number> = {
    getattr: () => stat,
    *readdir() {
        yield entry;
    },
    open: (path: string, flags: OpenFlags) => (flags.write ? path.length : 0),
    async read(file, offset, length, buffer) {
        buffer[0] = file + offset + length;
        return 1;
    },
    write(file, offset, data) {
        if (data.length > 10) throw new PosixError('ENOSPC', `full at ${file + offset}`);
    },
    utimes: async (path, mtime) => console.error(path, mtime.getTime()),
};

const options: ServeOptions = { loop: 'events', debug: true };
const ended: Promise<void>[] = [serve(readOnly), serve(full, options), serve(new MemoryFileSystem({ limit: 1 << 20 }))];
ended.push(serve(new GitFileSystem('/')), serve(new LocalFileSystem('/')));

const driven: Mountless = mountless(readOnly, { limit: 100 });
const text: Promise<string> = driven.readFile('/a', 'utf8');
const bytes: Promise<Buffer> = driven.readFile('/a');
const members: Promise<KnownEntry[]> = driven.list('/');
const checked: Promise<CheckResult> = driven.check({ write: '/a' }).catch((error: CheckError) => { throw error.errors[0]; });
const remote: AbortableFileSystem = {
    getattr: async (path, { signal }) => (signal.aborted ? stat : { size: path.length }),
    readdir: () => [entry],
    read: async (file, offset, length, buffer, { signal }) => (signal.aborted ? 0 : length),
};
ended.push(serve(cached(limited(remote, { concurrency: 8, timeout: 5000 }), { memory: 1 << 20, ttl: 1000 })));

changed('/a');
changed(new Set(['/a', '/b']));
const code: PosixCode = new PosixError('ENOENT').code;
// @ts-expect-error there is no such error
const wrongCode = new PosixError('ENOTFOUND', 'no server knows that name');
// @ts-expect-error a path is a text
changed(3);
// @ts-expect-error a size is a number
const wrongSize: Stat = { size: '3' };
// @ts-expect-error getattr is required
const incomplete: FileSystem = { readdir: () => [], read: () => 0 };
// @ts-expect-error there is no such loop
const wrongOptions: ServeOptions = { loop: 'fast' };
// @ts-expect-error a number of milliseconds
cached(readOnly, { ttl: '10s' });
export { bytes, checked, code, ended, members, text, incomplete, wrongCode, wrongOptions, wrongSize };
