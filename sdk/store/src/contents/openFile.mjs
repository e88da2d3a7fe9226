// One handle of a file.
import { PosixError } from 'kemvi-helper';
import { ReadAhead } from './readAhead.mjs';

/** @typedef {import('./sharedFile.mjs').SharedFile} SharedFile */

export class OpenFile {
    /**
     * @param {SharedFile} file
     * @param {boolean} writes
     * @param {{chunkSize: number, most: number}} ahead
     * @param {(failure?: Error) => void} released
     */
    constructor(file, writes, ahead, released) {
        this.file_ = file;
        this.writes_ = writes;
        this.released_ = released;
        this.isOpen_ = true;
        this.ahead_ = new ReadAhead((from, to) => {
            file.fetchAhead(from, to).catch(() => {}); // whoever reads it meets the error
        }, ahead);
    }

    get node() {
        return this.file_.node;
    }

    /**
     * @param {number} offset
     * @param {number} length
     * @param {Buffer} buffer with room for `length`
     * @returns {Promise<number>} how many bytes were put into it
     */
    read(offset, length, buffer) {
        if (length > 0) this.ahead_.read(offset, length);
        return this.file_.read(offset, length, buffer);
    }

    /**
     * @param {number} offset
     * @param {Buffer} data
     */
    async write(offset, data) {
        if (!this.writes_) throw new PosixError('EBADF', 'the file is open for reading');
        await this.file_.write(offset, data);
    }

    /** What was written to the file, through whichever handle, is in the engines then. */
    async flush() {
        if (this.file_.lost && this.writes_) throw this.file_.lost;
        await this.file_.flush();
    }

    /** Commits what was written. The handle is gone whatever comes of that. */
    async release() {
        if (!this.isOpen_) return;
        this.isOpen_ = false;
        try {
            if (this.writes_) await this.flush();
        } catch (error) {
            this.released_(/** @type {Error} */ (error));
            throw error;
        }
        this.released_();
    }
}
