/// <reference types="node" />
/**
 * Files and folders in memory, up to a limit; beyond it, writing answers ENOSPC. A file that is removed while it is
 * open lives, and counts, until it is released.
 */
export class MemoryFileSystem {
    /** @param {{limit?: number}} [options] `limit`: bytes of all contents together, 256 bytes for each node included */
    constructor(options?: {
        limit?: number | undefined;
    } | undefined);
    limit_: number;
    used_: number;
    nodes_: {
        files: number;
        directories: number;
    };
    root_: Folder;
    /** @param {string} path */
    getattr(path: string): {
        isDirectory: boolean;
        size: number;
        modifiedAt: number;
    };
    /** @param {string} path @returns {Entry[]} */
    readdir(path: string): Entry[];
    /** @param {string} path @param {OpenFlags} flags @returns {File} */
    open(path: string, flags: OpenFlags): File;
    /** @param {File} file @param {number} offset @param {number} length */
    read(file: File, offset: number, length: number): Buffer;
    /** @param {File} file @param {number} offset @param {Buffer} data */
    write(file: File, offset: number, data: Buffer): void;
    /** @param {File} file */
    release(file: File): void;
    /** @param {string} path */
    mkdir(path: string): void;
    /** @param {string} path */
    unlink(path: string): void;
    /** @param {string} oldPath @param {string} newPath */
    rename(oldPath: string, newPath: string): void;
    /**
     * Kept, though nothing shows it.
     * @param {string} path
     * @param {number} mode
     */
    chmod(path: string, mode: number): void;
    /** @param {string} path @param {Date} mtime */
    utimes(path: string, mtime: Date): void;
    statfs(): {
        bytes: number;
        files: number;
        directories: number;
    };
    /** @param {string} path @returns {Node} */
    node_(path: string): Node;
    /** @param {string} path @returns {Folder} */
    folder_(path: string): Folder;
    /** @param {Folder} parent @param {string} name @returns {File} */
    createFile_(parent: Folder, name: string): File;
    /** @param {File} file @param {number} size */
    grow_(file: File, size: number): void;
    /** @param {File} file */
    truncate_(file: File): void;
    /** @param {Folder} parent @param {string} name @param {Node} node */
    detach_(parent: Folder, name: string, node: Node): void;
    /** @param {File} file */
    dropUnused_(file: File): void;
    /** @param {number} bytes */
    take_(bytes: number): void;
}
export type Entry = import('../fileSystem.mjs').Entry;
export type OpenFlags = import('../fileSystem.mjs').OpenFlags;
export type Folder = {
    kind: 'folder';
    members: Map<string, Node>;
    modifiedAt: number;
    mode: number;
};
export type File = {
    kind: 'file';
    /**
     * zeros after `size`
     */
    data: Buffer;
    size: number;
    modifiedAt: number;
    mode: number;
    /**
     * whether a folder names it
     */
    linked: boolean;
    openers: number;
};
export type Node = Folder | File;
