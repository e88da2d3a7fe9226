/**
 * The same but for the end. The helper in C++ has a table of what becomes ASCII by it (sdk/cpp/local/foldings.mjs).
 * @param {string} text
 */
export function foldedText(text: string): string;
/** @typedef {{ino: number, dev: number}} Identity as node's fs.Stats have it, so rounded where it is large */
/**
 * What is used of node's fs.BigIntStats.
 * @typedef {object} Exact
 * @property {bigint} ino
 * @property {bigint} dev
 * @property {() => boolean} isDirectory
 * @property {() => boolean} isFile
 * @property {() => boolean} isSymbolicLink
 */
/**
 * One name on the way to the configuration: that of the file, of a folder above it or of a link that leads to it.
 * @typedef {object} Entry
 * @property {string} folder real
 * @property {string} name
 * @property {Exact | undefined} stat of what has the name, links not followed; undefined when nothing has it
 */
/**
 * @typedef {object} Way
 * @property {Entry[]} entries those that lie in the served folder
 * @property {Exact | undefined} file the configuration itself, when it is there
 * @property {boolean} exact whether other spellings of a name are known to be other files
 * @property {number} since
 */
export class ConfigurationGuard {
    /**
     * @param {string} root the real path of the served folder
     * @param {string} [source] the folder of the configuration; the served folder when it is not told
     */
    constructor(root: string, source?: string | undefined);
    root_: string;
    prefix_: string;
    source_: string;
    way_: Way;
    /**
     * To be called before a name is made, removed, replaced or given to something else.
     * @param {string} real its real path, of which only the last component may be a link
     * @param {string} path for the message
     * @throws {PosixError} EPERM when it is a name on the way to the configuration
     */
    checkName(real: string, path: string): void;
    /**
     * To be called before a file is changed, whatever name it was reached by.
     * @param {Identity} stat of the file
     * @param {() => Exact | undefined} lookAgain for the unrounded numbers
     * @param {string} path for the message
     * @throws {PosixError} EPERM when it is the configuration
     */
    checkFile(stat: Identity, lookAgain: () => Exact | undefined, path: string): void;
    /**
     * To be called before a folder's mode is set: others who may write there replace the configuration past the mount.
     * @param {string} real
     * @param {number} before its mode
     * @param {number} after
     * @param {string} path for the message
     */
    checkFolderMode(real: string, before: number, after: number, path: string): void;
    current_(): Way;
    /** @param {string} real */
    isServed_(real: string): boolean;
    /**
     * Goes from the served folder, or else from the source directory, to the configuration as the kernel would.
     * @returns {Way}
     */
    walk_(): Way;
}
/**
 * as node's fs.Stats have it, so rounded where it is large
 */
export type Identity = {
    ino: number;
    dev: number;
};
/**
 * What is used of node's fs.BigIntStats.
 */
export type Exact = {
    ino: bigint;
    dev: bigint;
    isDirectory: () => boolean;
    isFile: () => boolean;
    isSymbolicLink: () => boolean;
};
/**
 * One name on the way to the configuration: that of the file, of a folder above it or of a link that leads to it.
 */
export type Entry = {
    /**
     * real
     */
    folder: string;
    name: string;
    /**
     * of what has the name, links not followed; undefined when nothing has it
     */
    stat: Exact | undefined;
};
export type Way = {
    /**
     * those that lie in the served folder
     */
    entries: Entry[];
    /**
     * the configuration itself, when it is there
     */
    file: Exact | undefined;
    /**
     * whether other spellings of a name are known to be other files
     */
    exact: boolean;
    since: number;
};
