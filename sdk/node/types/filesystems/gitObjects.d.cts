/// <reference types="node" />
/** Reads the objects of one repository. What was read is kept, since an object never changes. */
export class GitObjects {
    /**
     * @param {string} root a repository, or a folder in its work tree
     * @throws {Error} with what git says when it is none
     */
    constructor(root: string);
    root_: string;
    idBytes: number;
    /** @type {ObjectSource} */
    contents_: ObjectSource;
    /** @type {ObjectSource} */
    sizes_: ObjectSource;
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
export type ObjectSource = {
    ask: (id: string) => Promise<GitObject | undefined>;
    end: () => void;
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
import { RecentlyUsed } from "./recentlyUsed.cjs";
