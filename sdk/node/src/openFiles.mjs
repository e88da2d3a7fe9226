// The open files of one run, by the handles that the host knows them by.
import { PosixError } from './errors.mjs';

/** @typedef {{file: any, read: boolean, write: boolean, path: string}} OpenFile `path`: with which it was opened */

export class OpenFiles {
    /** @param {import('./fileSystem.mjs').FileSystem} fileSystem */
    constructor(fileSystem) {
        this.fileSystem_ = fileSystem;
        /** @type {Map<number, OpenFile>} */
        this.files_ = new Map();
        this.lastHandle_ = 0;
    }

    /** Whether no file was opened yet. */
    get isFresh() {
        return this.lastHandle_ === 0;
    }

    /**
     * @param {any} file
     * @param {import('./fileSystem.mjs').OpenFlags} flags with which it was opened
     * @param {string} path with which it was opened
     * @returns {number} a number that was never used before
     */
    add(file, { read, write }, path) {
        this.files_.set(++this.lastHandle_, { file, read, write, path });
        return this.lastHandle_;
    }

    /** @param {unknown} handle @returns {OpenFile} */
    get(handle) {
        const open = this.files_.get(/** @type {number} */ (handle));
        if (open === undefined) throw new PosixError('EBADF', `handle ${String(handle)} is not open`);
        return open;
    }

    /** @param {unknown} handle @returns {string | undefined} for messages; undefined where it is not open */
    pathOf(handle) {
        return this.files_.get(/** @type {number} */ (handle))?.path;
    }

    /** Those that are open now. */
    handles() {
        return [...this.files_.keys()];
    }

    /**
     * Forgets a handle and gives its file back.
     * @param {unknown} handle
     */
    release(handle) {
        const { file } = this.get(handle);
        this.files_.delete(/** @type {number} */ (handle));
        return this.fileSystem_.release?.(file);
    }
}
