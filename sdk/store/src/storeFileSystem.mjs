// The tree as the kit serves it. Nothing is remembered of names and attributes here: the host and the kernel do that, and
// are told what changes; so what they ask is asked of the engine.
import { PosixError } from 'kemvi-helper';

/** @typedef {import('kemvi-helper').OpenFlags} OpenFlags */
/** @typedef {import('kemvi-helper').Stat} Stat */
/** @typedef {import('kemvi-helper').Entry} Entry */
/** @typedef {import('./names/names.mjs').Names} Names */
/** @typedef {import('./contents/contents.mjs').Contents} Contents */
/** @typedef {import('./contents/openFile.mjs').OpenFile} OpenFile */

export class StoreFileSystem {
    /**
     * @param {Names} names
     * @param {Contents} contents
     * @param {() => Promise<void>} [close] of the engine
     */
    constructor(names, contents, close) {
        this.names_ = names;
        this.contents_ = contents;
        this.close_ = close;
    }

    /** @param {string} path @returns {Promise<Stat>} */
    async getattr(path) {
        const { node, kind, size, mtime, version } = await this.names_.getattr(path);
        if (kind === 'd') return { isDirectory: true, modifiedAt: mtime };
        this.contents_.learn(node, { size, mtime, version });
        const here = this.contents_.overlay(node);
        return { size: here?.size ?? size, modifiedAt: here?.mtime ?? mtime };
    }

    /** @param {string} path @returns {Promise<Entry[]>} */
    async readdir(path) {
        const members = await this.names_.readdir(path);
        for (const member of members) {
            const here = this.contents_.overlay(member.node);
            if (here) Object.assign(member, { size: here.size, modifiedAt: here.mtime });
        }
        return members;
    }

    /** @param {string} path @param {OpenFlags} flags @returns {Promise<OpenFile>} */
    async open(path, flags) {
        const made = flags.create && !flags.truncate ? this.names_.takeMade(path) : undefined;
        const assumed = made && this.contents_.openAssumed(made, path);
        if (assumed) return assumed;
        const there = await this.names_.open(path, flags.create);
        await this.contents_.settle(there);
        return this.contents_.open(there, { ...flags, path });
    }

    /** @param {OpenFile} file @param {number} offset @param {number} length @param {Buffer} buffer */
    read(file, offset, length, buffer) {
        return file.read(offset, length, buffer);
    }

    /** @param {OpenFile} file @param {number} offset @param {Buffer} data */
    write(file, offset, data) {
        this.names_.forgetMade();
        return file.write(offset, data);
    }

    /** @param {OpenFile} file */
    flush(file) {
        return file.flush();
    }

    /** @param {OpenFile} file */
    release(file) {
        return file.release();
    }

    /** @param {string} path */
    mkdir(path) {
        return this.names_.mkdir(path);
    }

    /** @param {string} path */
    unlink(path) {
        return this.names_.unlink(path);
    }

    /** @param {string} oldPath @param {string} newPath */
    rename(oldPath, newPath) {
        return this.names_.rename(oldPath, newPath);
    }

    /** @param {string} path @param {number} mode */
    chmod(path, mode) {
        return this.names_.chmod(path, mode);
    }

    /** @param {string} path @param {Date} time */
    async utimes(path, time) {
        const mtime = time.getTime();
        if (!Number.isFinite(mtime)) throw new PosixError('EINVAL', 'no time');
        this.contents_.setTime(await this.names_.utimes(path, mtime), mtime);
    }

    statfs() {
        return this.names_.statfs();
    }

    async end() {
        await this.contents_.end();
        await this.close_?.();
    }
}
