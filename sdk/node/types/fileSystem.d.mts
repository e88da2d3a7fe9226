/// <reference types="node" />
/**
 * @param {any} fileSystem
 * @param {string} caller for the message
 * @throws {TypeError} naming the function that is missing or no function
 */
export function checkFileSystem(fileSystem: any, caller?: string): void;
/**
 * A line for each function that looks like one that is called and is not, such as `unLink`.
 * @param {any} fileSystem
 */
export function misnamed(fileSystem: any): string[];
/**
 * The functions of a file system that are declared async.
 * @param {any} fileSystem
 * @returns {string[]}
 */
export function asyncFunctions(fileSystem: any): string[];
/**
 * What is known of one file or folder.
 */
export type Stat = {
    /**
     * false when left out
     */
    isDirectory?: boolean | undefined;
    /**
     * whole bytes; may be left out for a folder
     */
    size?: number | undefined;
    /**
     * true for a file whose size is not known before it is read: it shows as empty and is
     * read to its end
     */
    sizeUnknown?: boolean | undefined;
    /**
     * a Date, or milliseconds since 1970; the start of the helper when left out
     */
    modifiedAt?: number | Date | undefined;
};
/**
 * One member of a folder.
 */
export type Entry = Stat & {
    name: string;
};
/**
 * How a file is to be opened. At least one of `read` and `write` is true.
 */
export type OpenFlags = {
    read: boolean;
    write: boolean;
    /**
     * make the file when it does not exist; keep its contents when it does
     */
    create: boolean;
    /**
     * empty it
     */
    truncate: boolean;
};
export type MaybeAsync<T> = T | Promise<T>;
/**
 * A file system. Paths are absolute within the served tree: "/" is the root, the others are "/name/name". Every
 * function may be plain or async, and throws to refuse: an error with a POSIX `code` (those of node:fs have one,
 * `PosixError` makes one) reaches the program as that error; any other is taken for a fault and arrives as EIO.
 *
 * `getattr`, `readdir` and `read` are required. Without `write` the file system is read-only, and everything that
 * changes something answers EROFS. With it, a missing function answers EPERM.
 */
export type FileSystem<File = any> = {
    /**
     * what is known of a path; ENOENT when there is nothing
     */
    getattr: (path: string) => MaybeAsync<Stat>;
    /**
     * the members of a folder, without "." and ".."
     */
    readdir: (path: string) => MaybeAsync<Iterable<Entry>>;
    /**
     * opens a file; what it returns is handed to
     * `read`, `write`, `flush` and `release`. When left out, that is the path.
     */
    open?: ((path: string, flags: OpenFlags) => MaybeAsync<File>) | undefined;
    /**
     *     up to `length` bytes from `offset`, fewer only at the end of the file. Either returns them, or puts them at the
     *     start of `buffer`, which has room for `length` and belongs to the kit, and returns their count.
     */
    read: (file: File, offset: number, length: number, buffer: Buffer) => MaybeAsync<Uint8Array | number>;
    /**
     * writes all of `data`, which is
     * only valid until the function (or its promise) is done
     */
    write?: ((file: File, offset: number, data: Buffer) => MaybeAsync<void>) | undefined;
    /**
     * makes what was written durable
     */
    flush?: ((file: File) => MaybeAsync<void>) | undefined;
    /**
     * the file is no longer used; called once for each `open`
     */
    release?: ((file: File) => MaybeAsync<void>) | undefined;
    mkdir?: ((path: string) => MaybeAsync<void>) | undefined;
    /**
     * removes a file or an empty folder
     */
    unlink?: ((path: string) => MaybeAsync<void>) | undefined;
    /**
     * replaces what is at `newPath`
     */
    rename?: ((oldPath: string, newPath: string) => MaybeAsync<void>) | undefined;
    /**
     * permission bits, 0 to 0o7777
     */
    chmod?: ((path: string, mode: number) => MaybeAsync<void>) | undefined;
    utimes?: ((path: string, mtime: Date) => MaybeAsync<void>) | undefined;
    statfs?: (() => MaybeAsync<{
        files?: number;
        directories?: number;
        bytes?: number;
    }>) | undefined;
    /**
     * the helper is about to end; everything open has been released
     */
    end?: (() => MaybeAsync<void>) | undefined;
};
