/// <reference types="node" />
/** @typedef {import('../fileSystem.mjs').FileSystem} FileSystem */
/** @typedef {import('../fileSystem.mjs').Stat} Stat */
/**
 * @typedef {object} OpenFile
 * @property {string} path
 * @property {Stat} stat
 * @property {Promise<any> | undefined} file that of the slow file system, once it was needed
 * @property {boolean} writes it is open for writing
 * @property {boolean} isDirect nothing of it is kept: it is open for writing, or was changed while it was open
 * @property {number} nextBlock the one that a reader in order asks for next
 * @property {number} streak how many times it did
 */
export const blockLength: number;
export class Contents {
    /**
     * @param {FileSystem} source
     * @param {import('./keptAnswers.mjs').KeptAnswers} kept
     * @param {number} ttl milliseconds for which what nothing dates is taken for true
     * @param {{inAdvance: import('./inAdvance.mjs').InAdvance, bytes: number}} ahead who asks ahead, and for how much
     * @param {(open: OpenFile) => Promise<any>} openFile opens the file of the slow file system, if it is not open
     */
    constructor(source: FileSystem, kept: import('./keptAnswers.mjs').KeptAnswers, ttl: number, ahead: {
        inAdvance: import('./inAdvance.mjs').InAdvance;
        bytes: number;
    }, openFile: (open: OpenFile) => Promise<any>);
    source_: FileSystem;
    kept_: import("./keptAnswers.mjs").KeptAnswers;
    ttl_: number;
    inAdvance_: import("./inAdvance.mjs").InAdvance;
    mostAhead_: number;
    openFile_: (open: OpenFile) => Promise<any>;
    /**
     * @param {OpenFile} open
     * @param {number} offset
     * @param {number} length
     * @param {Buffer} buffer
     * @returns {Promise<any>}
     */
    read(open: OpenFile, offset: number, length: number, buffer: Buffer): Promise<any>;
    /**
     * @param {OpenFile} open
     * @param {number} first
     * @param {number} last
     * @param {(block: number) => boolean} isThere
     */
    readAhead_(open: OpenFile, first: number, last: number, isThere: (block: number) => boolean): void;
    /** @param {OpenFile} open @param {number} block */
    has(open: OpenFile, block: number): boolean;
    /**
     * Without a size and a time of modification nothing shows that contents are still the same.
     * @param {OpenFile} open
     */
    blockTtl_({ stat: { size, modifiedAt } }: OpenFile): number;
    /**
     * @param {OpenFile} open
     * @param {number} block
     * @param {() => Promise<void>} [release] gives the file back, where it was opened for that alone
     * @returns {Promise<Buffer>}
     */
    block(open: OpenFile, block: number, release?: (() => Promise<void>) | undefined): Promise<Buffer>;
    /** @param {OpenFile} open @param {number} block */
    fetch_(open: OpenFile, block: number): Promise<Buffer>;
}
export type FileSystem = import('../fileSystem.mjs').FileSystem;
export type Stat = import('../fileSystem.mjs').Stat;
export type OpenFile = {
    path: string;
    stat: Stat;
    /**
     * that of the slow file system, once it was needed
     */
    file: Promise<any> | undefined;
    /**
     * it is open for writing
     */
    writes: boolean;
    /**
     * nothing of it is kept: it is open for writing, or was changed while it was open
     */
    isDirect: boolean;
    /**
     * the one that a reader in order asks for next
     */
    nextBlock: number;
    /**
     * how many times it did
     */
    streak: number;
};
