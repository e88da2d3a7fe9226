/// <reference types="node" />
/**
 * A repository, read-only. Every file and folder of a commit has the time of the commit. A symbolic link shows as a
 * file with its target as text, a submodule as an empty folder. `commits` lists the latest thousand and leads to all.
 */
export class GitFileSystem {
    /** @param {string} root a repository, or a folder in its work tree */
    constructor(root: string);
    objects_: GitObjects;
    references_: {
        branches: Group;
        tags: Group;
        latest: number;
    };
    believedUntil_: number;
    isId_: RegExp;
    /** @param {string} path */
    getattr(path: string): Promise<{
        isDirectory: boolean;
        size: number;
        modifiedAt: number;
    }>;
    /** @param {string} path */
    readdir(path: string): Promise<import("../fileSystem.mjs").Entry[]>;
    /** @param {string} path @returns {Promise<Buffer>} */
    open(path: string): Promise<Buffer>;
    /** @param {Buffer} contents @param {number} offset @param {number} length */
    read(contents: Buffer, offset: number, length: number): Promise<Buffer>;
    end(): void;
    /** @param {string} path @returns {Promise<Node>} */
    find_(path: string): Promise<Node>;
    /** @param {number} time @returns {Node} */
    topFolder_(time: number): Node;
    /** @param {string[]} names @param {string} path @param {number} time @returns {Promise<Node>} */
    findInCommits_(names: string[], path: string, time: number): Promise<Node>;
    /** @returns {Promise<Entry[]>} */
    latestCommits_(): Promise<Entry[]>;
    /** @param {string} id @param {string[]} names @param {string} path @returns {Promise<Node>} */
    findInCommit_(id: string, names: string[], path: string): Promise<Node>;
    /** @param {import('./gitObjects.mjs').TreeEntry} entry @param {number} time @returns {Node} */
    entryNode_({ mode, id }: import('./gitObjects.mjs').TreeEntry, time: number): Node;
    /** @param {Node} node */
    statOf_({ time, blob }: Node): Promise<{
        isDirectory: boolean;
        size: number;
        modifiedAt: number;
    }>;
    currentReferences_(): Promise<{
        branches: Group;
        tags: Group;
        latest: number;
    }>;
}
export type Entry = import('../fileSystem.mjs').Entry;
export type Reference = {
    commit: string;
    time: number;
};
/**
 * of references, since their names may contain slashes
 */
export type Group = {
    members: Map<string, Group | Reference>;
};
/**
 * What a path leads to. `members` is left out for a blob, `blob` for a folder.
 */
export type Node = {
    time: number;
    members?: (() => Promise<Entry[]>) | undefined;
    blob?: string | undefined;
};
import { GitObjects } from "./gitObjects.mjs";
