// What the author of a file system writes.
import { unknownFunctions } from './unknownFunctions.mjs';

/**
 * What is known of one file or folder.
 * @typedef {object} Stat
 * @property {boolean} [isDirectory] false when left out
 * @property {number} [size] whole bytes; may be left out for a folder
 * @property {boolean} [sizeUnknown] true for a file whose size is not known before it is read: it shows as empty and is
 *     read to its end
 * @property {Date | number} [modifiedAt] a Date, or milliseconds since 1970; the start of the helper when left out
 */

/**
 * One member of a folder.
 * @typedef {Stat & {name: string}} Entry
 */

/**
 * How a file is to be opened. At least one of `read` and `write` is true.
 * @typedef {object} OpenFlags
 * @property {boolean} read
 * @property {boolean} write
 * @property {boolean} create make the file when it does not exist; keep its contents when it does
 * @property {boolean} truncate empty it
 */

/**
 * @template T
 * @typedef {T | Promise<T>} MaybeAsync
 */

/**
 * A file system. Paths are absolute within the served tree: "/" is the root, the others are "/name/name". Every
 * function may be plain or async, and throws to refuse: an error with a POSIX `code` (those of node:fs have one,
 * `PosixError` makes one) reaches the program as that error; any other is taken for a fault and arrives as EIO.
 *
 * `getattr`, `readdir` and `read` are required. Without `write` the file system is read-only, and everything that
 * changes something answers EROFS. With it, a missing function answers EPERM.
 *
 * @template [File=any]
 * @typedef {object} FileSystem
 * @property {(path: string) => MaybeAsync<Stat>} getattr what is known of a path; ENOENT when there is nothing
 * @property {(path: string) => MaybeAsync<Iterable<Entry>>} readdir the members of a folder, without "." and ".."
 * @property {(path: string, flags: OpenFlags) => MaybeAsync<File>} [open] opens a file; what it returns is handed to
 *     `read`, `write`, `flush` and `release`. When left out, that is the path.
 * @property {(file: File, offset: number, length: number, buffer: Buffer) => MaybeAsync<Uint8Array | number>} read
 *     up to `length` bytes from `offset`, fewer only at the end of the file. Either returns them, or puts them at the
 *     start of `buffer`, which has room for `length` and belongs to the kit, and returns their count.
 * @property {(file: File, offset: number, data: Buffer) => MaybeAsync<void>} [write] writes all of `data`, which is
 *     only valid until the function (or its promise) is done
 * @property {(file: File) => MaybeAsync<void>} [flush] makes what was written durable
 * @property {(file: File) => MaybeAsync<void>} [release] the file is no longer used; called once for each `open`
 * @property {(path: string) => MaybeAsync<void>} [mkdir]
 * @property {(path: string) => MaybeAsync<void>} [unlink] removes a file or an empty folder
 * @property {(oldPath: string, newPath: string) => MaybeAsync<void>} [rename] replaces what is at `newPath`
 * @property {(path: string, mode: number) => MaybeAsync<void>} [chmod] permission bits, 0 to 0o7777
 * @property {(path: string, mtime: Date) => MaybeAsync<void>} [utimes]
 * @property {() => MaybeAsync<{files?: number, directories?: number, bytes?: number}>} [statfs]
 * @property {() => MaybeAsync<void>} [end] the helper is about to end; everything open has been released
 */

const required = ['getattr', 'readdir', 'read'];
const optional = [
    'open', 'write', 'flush', 'release', 'mkdir', 'unlink', 'rename', 'chmod', 'utimes', 'statfs', 'end',
];

/**
 * @param {any} fileSystem
 * @param {string} caller for the message
 * @throws {TypeError} naming the function that is missing or no function
 */
export function checkFileSystem(fileSystem, caller = 'serve') {
    if (typeof fileSystem !== 'object' || fileSystem === null) {
        throw new TypeError(`${caller}: the file system must be an object with getattr, readdir and read`);
    }
    for (const name of required) {
        if (typeof fileSystem[name] !== 'function') {
            const hint = misnamed(fileSystem).map((line) => `; ${line}`);
            throw new TypeError(`${caller}: the file system has no function ${name}${hint.join('')}`);
        }
    }
    for (const name of optional) {
        if (fileSystem[name] !== undefined && typeof fileSystem[name] !== 'function') {
            throw new TypeError(`${caller}: ${name} of the file system must be a function`);
        }
    }
}

/**
 * A line for each function that looks like one that is called and is not, such as `unLink`.
 * @param {any} fileSystem
 */
export function misnamed(fileSystem) {
    return unknownFunctions(fileSystem, [...required, ...optional]);
}

/**
 * The functions of a file system that are declared async.
 * @param {any} fileSystem
 * @returns {string[]}
 */
export function asyncFunctions(fileSystem) {
    const AsyncFunction = (async () => {}).constructor;
    return [...required, ...optional].filter((name) => fileSystem[name] instanceof AsyncFunction);
}
