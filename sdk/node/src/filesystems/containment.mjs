// Turns paths of the served tree into real paths that do not leave it.
import fs from 'node:fs';
import { PosixError } from '../errors.mjs';

// How long a folder's real place is believed. Asking anew for each request would cost as much as the request itself.
const believedMilliseconds = 100;
const mostBelieved = 10_000;

/** @typedef {{real: string, since: number}} Place `since` is a time of Date.now, the cheapest clock by far */

export class Containment {
    /** @param {string} root an existing folder */
    constructor(root) {
        this.root = fs.realpathSync.native(root);
        if (!fs.statSync(this.root).isDirectory()) throw new PosixError('ENOTDIR', `${root} is not a folder`);
        this.prefix_ = this.root === '/' ? '/' : this.root + '/';
        /** @type {Map<string, Place>} */
        this.places_ = new Map();
        this.lastFolder_ = ''; // without a slash at its end
    }

    /**
     * Where a path of the tree lies. Its folder is followed through links, its last component is not.
     * @param {string} path
     * @returns {string}
     * @throws {PosixError} EACCES when it would lead out of the tree; ENOENT, ENOTDIR when its folder is none
     */
    locate(path) {
        if (path === '/') return this.root;
        const slash = path.lastIndexOf('/');
        const name = path.slice(slash + 1);
        if (name === '' || name === '.' || path.startsWith('//')) throw notPlain(path);
        if (name === '..') throw leavesTree(path);
        const folder = this.folder(this.folderOf_(path, slash));
        return folder === '/' ? folder + name : folder + '/' + name;
    }

    /**
     * Requests come in rows for one folder. While they do, its path stays one and the same string, whose hash is known.
     * @param {string} path
     * @param {number} slash the last one
     */
    folderOf_(path, slash) {
        if (slash !== this.lastFolder_.length || !path.startsWith(this.lastFolder_)) {
            this.lastFolder_ = path.slice(0, slash);
        }
        return this.lastFolder_ || '/';
    }

    /**
     * The real path of a folder of the tree, links followed.
     * @param {string} path
     * @returns {string}
     */
    folder(path) {
        if (path === '/') return this.root;
        const now = Date.now();
        const known = this.places_.get(path);
        if (known !== undefined && isFresh(known, now)) return known.real;
        const real = this.follow(path);
        if (this.places_.size >= mostBelieved) this.places_.clear();
        this.places_.set(path, { real, since: now });
        return real;
    }

    /**
     * The real path of anything in the tree, all links followed, asked anew.
     * @param {string} path
     * @returns {string}
     */
    follow(path) {
        if (/\/\.{0,2}(?:\/|$)/.test(path) && path !== '/') {
            throw path.includes('/..') ? leavesTree(path) : notPlain(path);
        }
        let real;
        try {
            real = fs.realpathSync.native(this.root + path);
        } catch (error) {
            const slash = path.lastIndexOf('/');
            if (slash > 0) this.follow(path.slice(0, slash)); // out of the tree even what is missing is refused
            throw withoutRealPath(error, path);
        }
        if (real !== this.root && !real.startsWith(this.prefix_)) throw leavesTree(path);
        return real;
    }

    /** To be called after a change that may have moved folders. */
    forget() {
        this.places_.clear();
    }
}

/**
 * Not before its time either: the clock may have been set back.
 * @param {Place} place
 * @param {number} now
 */
function isFresh(place, now) {
    return now >= place.since && now - place.since < believedMilliseconds;
}

/** @param {string} path */
function leavesTree(path) {
    return new PosixError('EACCES', `${path} leads out of the served folder`);
}

/** @param {string} path */
function notPlain(path) {
    return new PosixError('EINVAL', `${path} is not a plain path`);
}

/**
 * The error of a call of node:fs, told with the path of the tree instead of the real one.
 * @param {unknown} error
 * @param {string} path
 */
export function withoutRealPath(error, path) {
    const { code, message } = /** @type {NodeJS.ErrnoException} */ (error);
    if (code === 'ERR_INVALID_ARG_VALUE') return new PosixError('EINVAL', `${JSON.stringify(path)} is not a path`);
    if (code === undefined || error instanceof PosixError) return error;
    return new PosixError(/** @type {import('../errors.mjs').PosixCode} */ (code), `${message.split(',')[0]}: ${path}`);
}
