/// <reference types="node" />
/**
 * Makes a file system usable in tests without a mount and without a process of its own.
 * @param {FileSystem} fileSystem
 * @param {MountlessOptions} [options]
 * @throws {TypeError} when the file system is not what it must be
 */
export function mountless(fileSystem: FileSystem, options?: MountlessOptions | undefined): Mountless;
/**
 * The calls of programs on a mount. They reject with what a program sees (`code`: ENOENT, EIO, ...) and the reason, or,
 * where an answer breaks a rule, with the rule. Paths are absolute within the tree.
 */
export class Mountless {
    /**
     * @param {FileSystem} fileSystem
     * @param {MountlessOptions} [options]
     */
    constructor(fileSystem: FileSystem, options?: MountlessOptions | undefined);
    isWritable_: boolean;
    talk_: Conversation;
    /** @param {string} path @returns {Promise<KnownEntry>} */
    stat(path: string): Promise<KnownEntry>;
    /** @param {string} path */
    exists(path: string): Promise<boolean>;
    /**
     * The names in a folder.
     * @param {string} path
     * @returns {Promise<string[]>}
     */
    readdir(path: string): Promise<string[]>;
    /**
     * What is known of the members of a folder.
     * @param {string} path
     * @returns {Promise<KnownEntry[]>}
     */
    list(path: string): Promise<KnownEntry[]>;
    /**
     * @template {BufferEncoding | undefined} [Encoding=undefined]
     * @param {string} path
     * @param {Encoding} [encoding]
     * @returns {Promise<Encoding extends string ? string : Buffer>} a text where an encoding is given
     */
    readFile<Encoding extends BufferEncoding | undefined = undefined>(path: string, encoding?: Encoding | undefined): Promise<Encoding extends string ? string : Buffer>;
    /**
     * Replaces or makes a file.
     * @param {string} path
     * @param {string | Uint8Array} data
     */
    writeFile(path: string, data: string | Uint8Array): Promise<void>;
    /** @param {string} path @param {string | Uint8Array} data */
    appendFile(path: string, data: string | Uint8Array): Promise<void>;
    /**
     * Makes a file shorter or longer. There is no request for that: what is to stay is written anew.
     * @param {string} path
     * @param {number} [size]
     */
    truncate(path: string, size?: number | undefined): Promise<void>;
    /**
     * Opens a file and keeps it open.
     * @param {string} path
     * @param {'r' | 'r+' | 'w'} [mode] to read; to read and write; the same, made or emptied first
     */
    open(path: string, mode?: "r" | "w" | "r+" | undefined): Promise<OpenedFile>;
    /** @param {string} path */
    mkdir(path: string): Promise<void>;
    /**
     * Removes a file.
     * @param {string} path
     */
    unlink(path: string): Promise<void>;
    /**
     * Removes an empty folder.
     * @param {string} path
     */
    rmdir(path: string): Promise<void>;
    /** @param {string} oldPath @param {string} newPath */
    rename(oldPath: string, newPath: string): Promise<void>;
    /** @param {string} path @param {number} mode */
    chmod(path: string, mode: number): Promise<void>;
    /** @param {string} path @param {Date} mtime */
    utimes(path: string, mtime: Date): Promise<void>;
    /** @returns {Promise<{files: number, directories: number, bytes: number}>} */
    statfs(): Promise<{
        files: number;
        directories: number;
        bytes: number;
    }>;
    /**
     * Sends one request, as it stands in docs/protocol.md.
     * @param {string} op
     * @param {object} [fields]
     * @returns {Promise<any>} the whole answer
     */
    request(op: string, fields?: object | undefined): Promise<any>;
    /**
     * Examines the file system by the rules of `kemvi check`, then ends it: nothing can be asked of it afterwards.
     * @param {CheckOptions} [options]
     * @returns {Promise<import('./findings.cjs').CheckResult>} with the warnings
     * @throws {CheckError} with everything that is wrong
     */
    check(options?: CheckOptions | undefined): Promise<import('./findings.cjs').CheckResult>;
    /** Gives back what is open and ends the file system, as an unmount does. */
    end(): Promise<void>;
    /** @param {string} op @param {string} subject @param {object} fields */
    ask_(op: string, subject: string, fields: object): Promise<import("./conversation.cjs").Answer>;
    /** @param {string} path */
    getattr_(path: string): Promise<KnownEntry>;
    /** @param {string} path */
    isThere_(path: string): Promise<boolean>;
    /** @param {string} path */
    statIfThere_(path: string): Promise<KnownEntry | undefined>;
    /** @param {string} path */
    folder_(path: string): Promise<KnownEntry>;
    /** @param {string} path */
    file_(path: string): Promise<KnownEntry>;
    /** @param {string} path of what is to be made */
    placeFor_(path: string): Promise<void>;
    /** @param {string} path */
    placeForFile_(path: string): Promise<KnownEntry | undefined>;
    /** @param {string} path @param {string[]} flags @returns {Promise<number>} */
    handle_(path: string, flags: string[]): Promise<number>;
    /**
     * @param {string} path
     * @param {string[]} flags
     * @param {number} offset
     * @param {Buffer} data
     */
    written_(path: string, flags: string[], offset: number, data: Buffer): Promise<void>;
    /** @param {string} path */
    remove_(path: string): Promise<void>;
    /** @param {string} path */
    refuseIfNotEmpty_(path: string): Promise<void>;
    /** @param {KnownEntry} source @param {KnownEntry} target */
    refuseToReplace_(source: KnownEntry, target: KnownEntry): Promise<void>;
    /**
     * For a file system that cannot replace: what is to be replaced gets another name first.
     * @param {string} oldPath
     * @param {string} newPath
     */
    renameInSteps_(oldPath: string, newPath: string): Promise<void>;
}
/** A file that a program has open. */
export class OpenedFile {
    /**
     * @param {Conversation} talk
     * @param {string} path
     * @param {{read: number | undefined, write: number | undefined}} handles
     */
    constructor(talk: Conversation, path: string, handles: {
        read: number | undefined;
        write: number | undefined;
    });
    talk_: Conversation;
    path_: string;
    handles_: {
        read: number | undefined;
        write: number | undefined;
    };
    /** @param {number} offset @param {number} length @returns {Promise<Buffer>} fewer bytes only at the end */
    read(offset: number, length: number): Promise<Buffer>;
    /** @param {number} offset @param {string | Uint8Array} data */
    write(offset: number, data: string | Uint8Array): Promise<void>;
    /** Makes what was written durable. */
    sync(): Promise<void>;
    close(): Promise<void>;
    /** @param {string} op @param {object} fields */
    ask_(op: string, fields: object): Promise<import("./conversation.cjs").Answer>;
}
export type FileSystem = import('../fileSystem.cjs').FileSystem;
export type KnownEntry = {
    name: string;
    path: string;
    isDirectory: boolean;
    size: number;
    modifiedAt: Date;
};
export type MountlessOptions = {
    /**
     * milliseconds that one answer may take; 10,000 when left out
     */
    limit?: number | undefined;
};
export type CheckOptions = {
    /**
     * the folder in which changes are tried, in a new folder that is removed again; false:
     * none. When left out, "/" for a file system with `write`.
     */
    write?: string | false | undefined;
};
import { Conversation } from "./conversation.cjs";
