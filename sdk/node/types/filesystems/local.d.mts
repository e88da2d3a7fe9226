/// <reference types="node" />
/** @typedef {import('../fileSystem.mjs').Entry} Entry */
/** @typedef {import('../fileSystem.mjs').OpenFlags} OpenFlags */
/** @typedef {{descriptor: number, path: string}} LocalFile */
/**
 * What is used of node's fs.Stats.
 * @typedef {object} LocalStat
 * @property {number} mode
 * @property {number} ino
 * @property {number} dev
 * @property {number} size
 * @property {number} atimeMs
 * @property {number} mtimeMs
 * @property {() => boolean} isDirectory
 * @property {() => boolean} isFile
 * @property {() => boolean} isSymbolicLink
 */
/**
 * A folder of this machine as a file system. Nothing outside of the folder is reached: links that stay inside are
 * followed; one that leads out, nowhere or in a circle shows as an empty file that cannot be opened. Special files are
 * shown, not opened. Names that are not UTF-8 cannot be told in the protocol and are left out of listings.
 *
 * The configuration of the mount is shown, and never changed, moved or removed. No file gets a set-user-id or set-group-id
 * bit, and one that is opened for writing loses them.
 */
export class LocalFileSystem {
    /**
     * @param {string} root the folder to serve
     * @param {string} [source] the folder with the configuration of the mount; the served one where it is not told
     */
    constructor(root: string, source?: string | undefined);
    tree_: Containment;
    guard_: ConfigurationGuard;
    warned_: boolean;
    lastLook_: LastLook;
    /** @param {string} path */
    getattr(path: string): {
        isDirectory: boolean;
        size: number;
        modifiedAt: number;
    };
    /** @param {string} path @returns {Iterable<Entry>} */
    readdir(path: string): Iterable<Entry>;
    /**
     * @param {string[]} names
     * @param {string} folder real, with a slash
     * @param {string} prefix in the tree, with a slash
     * @returns {Generator<Entry>}
     */
    entries_(names: string[], folder: string, prefix: string): Generator<Entry>;
    /**
     * @param {string} real
     * @param {string} path
     * @returns {LocalStat | undefined} undefined when nothing is there
     */
    lookAt_(real: string, path: string): LocalStat | undefined;
    /**
     * @param {LocalStat} stat of what is at the path, links not followed
     * @param {string} path
     */
    shown_(stat: LocalStat, path: string): {
        isDirectory: boolean;
        size: number;
        modifiedAt: number;
    };
    /**
     * @param {string} path of a link
     * @returns {LocalStat | undefined} what it leads to; undefined when it leads out, nowhere or in a circle
     */
    throughLink_(path: string): LocalStat | undefined;
    /**
     * @param {string} path of a link
     * @returns {string} the real path of what it leads to
     */
    followLink_(path: string): string;
    /**
     * @param {string} folder
     * @param {string} path
     */
    utf8Names_(folder: string, path: string): string[];
    /** @param {string} path @param {OpenFlags} flags @returns {LocalFile} */
    open(path: string, flags: OpenFlags): LocalFile;
    /**
     * Opens what the last look was at, without another one.
     * @param {string} real
     * @param {string} path
     * @param {OpenFlags} flags
     * @returns {number | undefined} undefined when it was not looked at, or is something else by now
     */
    openAsLastSeen_(real: string, path: string, flags: OpenFlags): number | undefined;
    /**
     * @param {string} real
     * @param {string} path
     * @param {OpenFlags} flags
     */
    openAnew_(real: string, path: string, flags: OpenFlags): number;
    /**
     * Opens a file that this very call makes: empty, a plain one, and none that was there before under another name.
     * @param {string} real
     * @param {string} path
     * @param {OpenFlags} flags
     * @returns {number | undefined} undefined when there is something by now, whatever it is
     */
    make_(real: string, path: string, flags: OpenFlags): number | undefined;
    /**
     * Something else may have taken the file's place since it was looked at: the open never waits, follows no link,
     * and what was opened is looked at once more before it is emptied.
     * @param {string} real
     * @param {string} path
     * @param {OpenFlags} flags
     */
    openChecked_(real: string, path: string, flags: OpenFlags): number;
    /** @param {LocalFile} file @param {number} offset @param {number} length @param {Buffer} buffer */
    read(file: LocalFile, offset: number, length: number, buffer: Buffer): number;
    /** @param {LocalFile} file @param {number} offset @param {Buffer} data */
    write(file: LocalFile, offset: number, data: Buffer): void;
    /** @param {LocalFile} file */
    flush(file: LocalFile): void;
    /** @param {LocalFile} file */
    release(file: LocalFile): void;
    /** @param {string} path */
    mkdir(path: string): void;
    /**
     * Removes a file, a link or an empty folder.
     * @param {string} path
     */
    unlink(path: string): void;
    /** @param {string} oldPath @param {string} newPath */
    rename(oldPath: string, newPath: string): void;
    /**
     * Sets the permission bits and no others. A folder keeps the bits that decide who removes from it and what group new
     * files get.
     * @param {string} path
     * @param {number} mode
     */
    chmod(path: string, mode: number): void;
    /**
     * Sets the time of the last change; that of the last access stays.
     * @param {string} path
     * @param {Date} mtime
     */
    utimes(path: string, mtime: Date): void;
    /** The figures of the file system that the folder lies on. */
    statfs(): {
        files: number;
        directories: number;
        bytes: number;
    };
    /**
     * Changes what is at a path itself, not what a link there leads to.
     * @param {string} path
     * @param {(real: string) => void} change
     */
    change_(path: string, change: (real: string) => void): void;
    /**
     * @param {string} path
     * @param {(real: string, stat: LocalStat) => void} change
     */
    onTarget_(path: string, change: (real: string, stat: LocalStat) => void): void;
}
export type Entry = import('../fileSystem.mjs').Entry;
export type OpenFlags = import('../fileSystem.mjs').OpenFlags;
export type LocalFile = {
    descriptor: number;
    path: string;
};
/**
 * What is used of node's fs.Stats.
 */
export type LocalStat = {
    mode: number;
    ino: number;
    dev: number;
    size: number;
    atimeMs: number;
    mtimeMs: number;
    isDirectory: () => boolean;
    isFile: () => boolean;
    isSymbolicLink: () => boolean;
};
import { Containment } from "./containment.mjs";
import { ConfigurationGuard } from "./configurationGuard.mjs";
import { LastLook } from "./lastLook.mjs";
