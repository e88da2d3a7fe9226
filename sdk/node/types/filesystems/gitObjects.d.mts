/// <reference path="../../typecheck/node.d.ts" />
/** Reads the objects of one repository. What was read is kept, since an object never changes. */
export class GitObjects {
    /**
     * @param {string} root a repository, or a folder in its work tree
     * @throws {Error} with what git says when it is none
     */
    constructor(root: string);
    root_: string;
    idBytes: number;
    contents_: CatFile;
    sizes_: CatFile;
    /** @type {RecentlyUsed<Commit | undefined>} */
    commitCache_: RecentlyUsed<Commit | undefined>;
    /** @type {RecentlyUsed<TreeEntry[]>} */
    treeCache_: RecentlyUsed<TreeEntry[]>;
    /** @type {RecentlyUsed<number>} */
    sizeCache_: RecentlyUsed<number>;
    /** @type {RecentlyUsed<Buffer>} */
    blobCache_: RecentlyUsed<Buffer>;
    /** @param {string} id @returns {Promise<Commit | undefined>} undefined when there is no such commit */
    commit(id: string): Promise<Commit | undefined>;
    /** @param {string} id @returns {Promise<TreeEntry[]>} */
    tree(id: string): Promise<TreeEntry[]>;
    /** @param {string} id @returns {Promise<number>} bytes of a blob */
    blobSize(id: string): Promise<number>;
    /** @param {string} id @returns {Promise<Buffer>} */
    blob(id: string): Promise<Buffer>;
    /** @param {string[]} options @returns {Promise<string>} what git prints */
    run(options: string[]): Promise<string>;
    end(): void;
    /** @param {string[]} options */
    runSync_(options: string[]): string;
}
/**
 * `data` is empty when only the size was asked
 */
export type GitObject = {
    type: string;
    size: number;
    data: Buffer;
};
export type Waiter = {
    resolve: (object: GitObject | undefined) => void;
    reject: (error: Error) => void;
};
export type TreeEntry = {
    mode: string;
    name: string;
    id: string;
};
/**
 * time in milliseconds
 */
export type Commit = {
    tree: string;
    time: number;
};
/** One `git cat-file` that answers in the order it is asked. It is started when it is first needed. */
declare class CatFile {
    /** @param {string} root @param {'--batch' | '--batch-check'} mode */
    constructor(root: string, mode: '--batch' | '--batch-check');
    root_: string;
    mode_: "--batch" | "--batch-check";
    /** @type {import('node:child_process').ChildProcess | undefined} */
    child_: import('node:child_process').ChildProcess | undefined;
    /** @type {Waiter[]} */
    waiting_: Waiter[];
    header_: Buffer;
    /** @type {{object: GitObject, filled: number} | undefined} the object whose contents are arriving */
    arriving_: {
        object: GitObject;
        filled: number;
    } | undefined;
    /** @param {string} id @returns {Promise<GitObject | undefined>} undefined when there is none */
    ask(id: string): Promise<GitObject | undefined>;
    end(): void;
    start_(): import("node:child_process").ChildProcess;
    /** @param {import('node:child_process').ChildProcess} child @param {Error} error */
    fail_(child: import('node:child_process').ChildProcess, error: Error): void;
    /** @param {Buffer} chunk */
    take_(chunk: Buffer): void;
    /** @param {Buffer} chunk @returns {Buffer} the rest */
    takeHeader_(chunk: Buffer): Buffer;
    /** @param {{object: GitObject, filled: number}} arriving @param {Buffer} chunk @returns {Buffer} the rest */
    takeContents_(arriving: {
        object: GitObject;
        filled: number;
    }, chunk: Buffer): Buffer;
}
import { RecentlyUsed } from "./recentlyUsed.mjs";
export {};
