// What an author in TypeScript writes, checked against the declarations that ship: never run.
import {
    changed, GitFileSystem, LocalFileSystem, MemoryFileSystem, PosixError, serve,
    type Entry, type FileSystem, type OpenFlags, type ServeOptions, type Stat,
} from '../types/index.mjs';

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

changed('/a');
changed(new Set(['/a', '/b']));
// @ts-expect-error a path is a text
changed(3);
// @ts-expect-error a size is a number
const wrongSize: Stat = { size: '3' };
// @ts-expect-error getattr is required
const incomplete: FileSystem = { readdir: () => [], read: () => 0 };
// @ts-expect-error there is no such loop
const wrongOptions: ServeOptions = { loop: 'fast' };
export { ended, incomplete, wrongOptions, wrongSize };
