/** @typedef {import('./fileSystem.cjs').FileSystem} FileSystem */
/** @typedef {import('./fileSystem.cjs').Stat} Stat */
/** @typedef {import('./fileSystem.cjs').Entry} Entry */
/** @typedef {import('./fileSystem.cjs').OpenFlags} OpenFlags */
/** @typedef {import('./filesystems/contents.cjs').OpenFile} OpenFile */
/**
 * @typedef {object} CacheOptions
 * @property {number} [memory] bytes that are kept; 64 MiB when left out. What was used longest ago goes first.
 * @property {number} [ttl] milliseconds for which attributes, listings and "there is no such file" are taken for true;
 *     10,000 when left out. Contents stay longer where attributes asked anew show the same size and `modifiedAt`.
 * @property {number} [ahead] how many requests are made ahead at the same time; 16 when left out, 0 for none
 * @property {number} [prefetch] bytes: files up to this size are fetched before they are opened, when the files of a
 *     folder are opened in the order of its listing; 64 KiB when left out, 0 for none
 * @property {() => number} [now] the clock, in milliseconds
 */
/**
 * A file system that keeps what another one answers: attributes, listings (which answer the questions for attributes
 * that follow) and contents. Whoever reads a file in order finds the next blocks asked for already, and whoever reads the
 * files of a folder in order the next small files. What is changed through it, or told with `changed`, is dropped. Errors
 * are not kept, but that there is nothing at a path. A file is opened when bytes of it are needed that are not kept: what
 * opening it for reading refuses comes as the error of the read.
 * @param {FileSystem} fileSystem
 * @param {CacheOptions} [options]
 * @returns {FileSystem}
 * @throws {TypeError} when the file system or an option is not what it must be
 */
export function cached(fileSystem: FileSystem, options?: CacheOptions | undefined): FileSystem;
export type FileSystem = import('./fileSystem.cjs').FileSystem;
export type Stat = import('./fileSystem.cjs').Stat;
export type Entry = import('./fileSystem.cjs').Entry;
export type OpenFlags = import('./fileSystem.cjs').OpenFlags;
export type OpenFile = import('./filesystems/contents.cjs').OpenFile;
export type CacheOptions = {
    /**
     * bytes that are kept; 64 MiB when left out. What was used longest ago goes first.
     */
    memory?: number | undefined;
    /**
     * milliseconds for which attributes, listings and "there is no such file" are taken for true;
     * 10,000 when left out. Contents stay longer where attributes asked anew show the same size and `modifiedAt`.
     */
    ttl?: number | undefined;
    /**
     * how many requests are made ahead at the same time; 16 when left out, 0 for none
     */
    ahead?: number | undefined;
    /**
     * bytes: files up to this size are fetched before they are opened, when the files of a
     * folder are opened in the order of its listing; 64 KiB when left out, 0 for none
     */
    prefetch?: number | undefined;
    /**
     * the clock, in milliseconds
     */
    now?: (() => number) | undefined;
};
