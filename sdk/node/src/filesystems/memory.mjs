// A tree that lives in memory and ends with the helper.
import { constants } from 'node:buffer';
import { PosixError } from '../errors.mjs';
import { baseName } from '../statText.mjs';

/** @typedef {import('../fileSystem.mjs').Entry} Entry */
/** @typedef {import('../fileSystem.mjs').OpenFlags} OpenFlags */
/** @typedef {{kind: 'folder', members: Map<string, Node>, modifiedAt: number, mode: number}} Folder */
/**
 * @typedef {object} File
 * @property {'file'} kind
 * @property {Buffer} data zeros after `size`
 * @property {number} size
 * @property {number} modifiedAt
 * @property {number} mode
 * @property {boolean} linked whether a folder names it
 * @property {number} openers
 */
/** @typedef {Folder | File} Node */

const nodeSize = 256; // what an empty file or folder counts for
const defaultLimit = 256 << 20;

/**
 * Files and folders in memory, up to a limit; beyond it, writing answers ENOSPC. A file that is removed while it is
 * open lives, and counts, until it is released.
 */
export class MemoryFileSystem {
    /** @param {{limit?: number}} [options] `limit`: bytes of all contents together, 256 bytes for each node included */
    constructor(options = {}) {
        const limit = options.limit ?? defaultLimit;
        if (!Number.isSafeInteger(limit) || limit <= 0) throw new TypeError('limit must be a whole number of bytes');
        this.limit_ = limit;
        this.used_ = 0;
        this.nodes_ = { files: 0, directories: 1 };
        this.root_ = newFolder();
    }

    /** @param {string} path */
    getattr(path) {
        return statOf(this.node_(path));
    }

    /** @param {string} path @returns {Entry[]} */
    readdir(path) {
        return Array.from(this.folder_(path).members, ([name, node]) => ({ name, ...statOf(node) }));
    }

    /** @param {string} path @param {OpenFlags} flags @returns {File} */
    open(path, flags) {
        const parent = path === '/' ? undefined : this.folder_(parentOf(path));
        const node = parent === undefined ? this.root_ : parent.members.get(checkedName(path));
        if (node?.kind === 'folder') throw new PosixError('EISDIR', `${path} is a folder`);
        if (node === undefined && !flags.create) throw missing(path);
        const file = node ?? this.createFile_(/** @type {Folder} */ (parent), baseName(path));
        if (flags.truncate) this.truncate_(file);
        file.openers++;
        return file;
    }

    /** @param {File} file @param {number} offset @param {number} length */
    read(file, offset, length) {
        return file.data.subarray(Math.min(offset, file.size), Math.min(offset + length, file.size));
    }

    /** @param {File} file @param {number} offset @param {Buffer} data */
    write(file, offset, data) {
        if (data.length > 0) {
            const end = offset + data.length;
            if (end > file.size) this.grow_(file, end);
            data.copy(file.data, offset);
        }
        file.modifiedAt = Date.now();
    }

    /** @param {File} file */
    release(file) {
        file.openers--;
        this.dropUnused_(file);
    }

    /** @param {string} path */
    mkdir(path) {
        if (path === '/') throw exists(path);
        const parent = this.folder_(parentOf(path));
        if (parent.members.has(checkedName(path))) throw exists(path);
        this.take_(nodeSize);
        this.nodes_.directories++;
        parent.members.set(baseName(path), newFolder());
        parent.modifiedAt = Date.now();
    }

    /** @param {string} path */
    unlink(path) {
        if (path === '/') throw isRoot();
        const parent = this.folder_(parentOf(path));
        const node = this.node_(path);
        if (node.kind === 'folder' && node.members.size > 0) throw notEmpty(path);
        this.detach_(parent, baseName(path), node);
    }

    /** @param {string} oldPath @param {string} newPath */
    rename(oldPath, newPath) {
        if (oldPath === '/' || newPath === '/') throw isRoot();
        const from = this.folder_(parentOf(oldPath));
        const node = this.node_(oldPath);
        const to = this.folder_(parentOf(newPath));
        const replaced = to.members.get(checkedName(newPath));
        if (replaced === node) return;
        if (newPath.startsWith(oldPath + '/')) throw new PosixError('EINVAL', `${newPath} lies in ${oldPath}`);
        if (replaced !== undefined) {
            checkReplaceable(node, replaced, newPath);
            this.detach_(to, baseName(newPath), replaced);
        }
        from.members.delete(baseName(oldPath));
        to.members.set(baseName(newPath), node);
        from.modifiedAt = to.modifiedAt = Date.now();
    }

    /**
     * Kept, though nothing shows it.
     * @param {string} path
     * @param {number} mode
     */
    chmod(path, mode) {
        this.node_(path).mode = mode & 0o777;
    }

    /** @param {string} path @param {Date} mtime */
    utimes(path, mtime) {
        this.node_(path).modifiedAt = mtime.getTime();
    }

    statfs() {
        return { ...this.nodes_, bytes: this.used_ };
    }

    /** @param {string} path @returns {Node} */
    node_(path) {
        if (path === '/') return this.root_;
        const node = this.folder_(parentOf(path)).members.get(checkedName(path));
        if (node === undefined) throw missing(path);
        return node;
    }

    /** @param {string} path @returns {Folder} */
    folder_(path) {
        /** @type {Node} */
        let node = this.root_;
        for (const name of path === '/' ? [] : path.slice(1).split('/')) {
            if (node.kind !== 'folder') throw new PosixError('ENOTDIR', `${path} leads through a file`);
            const member = node.members.get(name);
            if (member === undefined) throw missing(path);
            node = member;
        }
        if (node.kind !== 'folder') throw new PosixError('ENOTDIR', `${path} is not a folder`);
        return node;
    }

    /** @param {Folder} parent @param {string} name @returns {File} */
    createFile_(parent, name) {
        this.take_(nodeSize);
        this.nodes_.files++;
        /** @type {File} */
        const file = {
            kind: 'file', data: Buffer.alloc(0), size: 0, modifiedAt: Date.now(), mode: 0o644, linked: true, openers: 0,
        };
        parent.members.set(name, file);
        parent.modifiedAt = Date.now();
        return file;
    }

    /** @param {File} file @param {number} size */
    grow_(file, size) {
        this.take_(size - file.size);
        if (size > constants.MAX_LENGTH) {
            this.used_ -= size - file.size;
            throw new PosixError('EFBIG', 'the file would become too large');
        }
        if (size > file.data.length) {
            const data = Buffer.alloc(Math.max(size, Math.min(file.data.length * 2, this.limit_)));
            file.data.copy(data, 0, 0, file.size);
            file.data = data;
        }
        file.size = size;
    }

    /** @param {File} file */
    truncate_(file) {
        this.used_ -= file.size;
        file.data = Buffer.alloc(0);
        file.size = 0;
        file.modifiedAt = Date.now();
    }

    /** @param {Folder} parent @param {string} name @param {Node} node */
    detach_(parent, name, node) {
        parent.members.delete(name);
        parent.modifiedAt = Date.now();
        if (node.kind === 'folder') {
            this.nodes_.directories--;
            this.used_ -= nodeSize;
        } else {
            node.linked = false;
            this.dropUnused_(node);
        }
    }

    /** @param {File} file */
    dropUnused_(file) {
        if (file.linked || file.openers > 0) return;
        this.nodes_.files--;
        this.used_ -= file.size + nodeSize;
    }

    /** @param {number} bytes */
    take_(bytes) {
        if (this.used_ + bytes > this.limit_) {
            throw new PosixError('ENOSPC', `no space left: this file system holds up to ${this.limit_} bytes`);
        }
        this.used_ += bytes;
    }
}

/** @returns {Folder} */
function newFolder() {
    return { kind: 'folder', members: new Map(), modifiedAt: Date.now(), mode: 0o755 };
}

/** @param {Node} node */
function statOf(node) {
    const isDirectory = node.kind === 'folder';
    return { isDirectory, size: isDirectory ? 0 : node.size, modifiedAt: node.modifiedAt };
}

/** @param {string} path */
function parentOf(path) {
    return path.slice(0, path.lastIndexOf('/')) || '/';
}

/** @param {string} path */
function checkedName(path) {
    const name = baseName(path);
    if (name === '' || name === '.' || name === '..') throw new PosixError('EINVAL', `${path} is not a plain path`);
    if (Buffer.byteLength(name) > 255) throw new PosixError('ENAMETOOLONG', `the name is too long: ${name}`);
    return name;
}

/** @param {Node} node @param {Node} replaced @param {string} path */
function checkReplaceable(node, replaced, path) {
    if (replaced.kind !== 'folder') {
        if (node.kind === 'folder') throw new PosixError('ENOTDIR', `${path} is not a folder`);
    } else if (node.kind !== 'folder') {
        throw new PosixError('EISDIR', `${path} is a folder`);
    } else if (replaced.members.size > 0) {
        throw notEmpty(path);
    }
}

/** @param {string} path */
function missing(path) {
    return new PosixError('ENOENT', `no such file or folder: ${path}`);
}

/** @param {string} path */
function exists(path) {
    return new PosixError('EEXIST', `${path} exists`);
}

/** @param {string} path */
function notEmpty(path) {
    return new PosixError('ENOTEMPTY', `${path} is not empty`);
}

function isRoot() {
    return new PosixError('EPERM', 'the root cannot be removed or renamed');
}
