// Chunks that are kept on a disk of this machine, so that the next mount need not fetch them again.
//
// A file holds a checksum, the length and the bytes. It is written aside and renamed, so that what has a chunk's name is
// whole; after a crash of the machine it may still be anything, which the checksum tells. Files are named by what they
// hold, which never changes, so several helpers may share a folder.
import { createHash } from 'node:crypto';
import fs from 'node:fs/promises';
import path from 'node:path';

const checksumLength = 20;
const headLength = checksumLength + 4;
const asideName = /^\.aside-/;
const oldAside = 600_000; // milliseconds: nobody writes one chunk for so long
const mostWaiting = 32;

export class DiskCache {
    /**
     * @param {{folder: string, bytes: number}} options `folder` is made if it is not there; `bytes`: the most that the files
     *     have together, about
     * @param {(text: string) => void} say takes lines for people
     */
    constructor({ folder, bytes }, say) {
        this.folder_ = path.join(folder, 'kemvi-chunks');
        this.limit_ = bytes;
        this.say_ = say;
        this.isUsable_ = true;
        this.written_ = 0; // bytes, since the folder was looked through
        this.waiting_ = 0;
        this.count_ = 0;
        /** @type {Promise<void>} */
        this.last_ = this.begin_();
    }

    /**
     * @param {string} key
     * @returns {Promise<Buffer | undefined>} undefined when it is not there, or not whole
     */
    async get(key) {
        if (!this.isUsable_) return undefined;
        const file = this.fileOf_(key);
        let text;
        try {
            text = await fs.readFile(file);
        } catch (error) {
            if (/** @type {any} */ (error).code !== 'ENOENT') this.tell_(error);
            return undefined;
        }
        const bytes = text.subarray(headLength);
        const isWhole = text.length >= headLength && text.readUInt32BE(checksumLength) === bytes.length
            && text.subarray(0, checksumLength).equals(checksum(bytes));
        if (!isWhole) {
            await fs.rm(file, { force: true }).catch((error) => this.tell_(error));
            return undefined;
        }
        const now = new Date();
        fs.utimes(file, now, now).catch(() => {}); // what was used longest ago goes first
        return bytes;
    }

    /**
     * Keeps bytes, some time soon. More than the disk takes in are let go.
     * @param {string} key
     * @param {Buffer} bytes which must not change any more
     */
    put(key, bytes) {
        if (!this.isUsable_ || this.waiting_ >= mostWaiting || bytes.length > this.limit_ / 8) return;
        this.waiting_++;
        this.last_ = this.last_.then(() => this.write_(key, bytes)).catch((error) => this.tell_(error)).finally(() => {
            this.waiting_--;
        });
    }

    /** Done when what was put is written. */
    async settled() {
        await this.last_;
    }

    async begin_() {
        try {
            await fs.mkdir(this.folder_, { recursive: true, mode: 0o700 });
            await this.makeRoom_();
        } catch (error) {
            this.tell_(error);
        }
    }

    /** @param {string} key @param {Buffer} bytes */
    async write_(key, bytes) {
        if (this.written_ > this.limit_ / 8) await this.makeRoom_();
        const file = this.fileOf_(key);
        await fs.mkdir(path.dirname(file), { recursive: true, mode: 0o700 });
        const aside = path.join(this.folder_, `.aside-${process.pid}-${++this.count_}`);
        const head = Buffer.alloc(headLength);
        checksum(bytes).copy(head);
        head.writeUInt32BE(bytes.length, checksumLength);
        try {
            await fs.writeFile(aside, Buffer.concat([head, bytes]), { mode: 0o600 });
            await fs.rename(aside, file);
        } catch (error) {
            await fs.rm(aside, { force: true }).catch(() => {});
            throw error;
        }
        this.written_ += headLength + bytes.length;
    }

    /** Removes what was used longest ago, until an eighth is free: so the limit holds until the next look. */
    async makeRoom_() {
        const files = await this.files_();
        files.sort((a, b) => a.usedAt - b.usedAt);
        let total = files.reduce((sum, { size }) => sum + size, 0);
        for (const { file, size } of files) {
            if (total <= this.limit_ - this.limit_ / 4) break;
            await fs.rm(file, { force: true });
            total -= size;
        }
        this.written_ = 0;
    }

    /** @returns {Promise<{file: string, size: number, usedAt: number}[]>} */
    async files_() {
        const found = [];
        for (const entry of await fs.readdir(this.folder_, { withFileTypes: true })) {
            const place = path.join(this.folder_, entry.name);
            if (asideName.test(entry.name)) await removeOld(place);
            if (!entry.isDirectory()) continue;
            for (const name of await fs.readdir(place)) {
                const file = path.join(place, name);
                const stat = await fs.stat(file).catch(() => undefined); // another helper may have removed it
                if (stat) found.push({ file, size: stat.size, usedAt: stat.mtimeMs });
            }
        }
        return found;
    }

    /** @param {string} key */
    fileOf_(key) {
        const folder = createHash('sha1').update(key).digest('hex').slice(0, 2);
        return path.join(this.folder_, folder, key);
    }

    /**
     * A disk that fails makes everything slower and nothing wrong.
     * @param {any} error
     */
    tell_(error) {
        if (!this.isUsable_) return;
        this.isUsable_ = false;
        this.say_(`KEMVI_STORE_DISK: ${this.folder_} is not used any more: ${error.message}`);
    }
}

/** @param {Uint8Array} bytes */
function checksum(bytes) {
    return createHash('sha1').update(bytes).digest();
}

/** @param {string} file of somebody who has probably crashed */
async function removeOld(file) {
    const stat = await fs.stat(file).catch(() => undefined);
    if (stat && Date.now() - stat.mtimeMs > oldAside) await fs.rm(file, { force: true });
}
