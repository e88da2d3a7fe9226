// Bounds what a slow file system is asked at the same time, and how long each answer may take.
import { PosixError } from './errors.mjs';
import { checkFileSystem, misnamed } from './fileSystem.mjs';
import { numberOption } from './options.mjs';
import { report } from './report.mjs';

/** @typedef {import('./fileSystem.mjs').FileSystem} FileSystem */
/** @typedef {{signal: AbortSignal}} Call the last argument of each function of a limited file system; `fetch` takes it */
/**
 * @template Member
 * @typedef {Member extends (...args: infer Args) => infer Result ? (...args: [...Args, Call]) => Result : Member} Abortable
 */
/**
 * A file system each function of which may take one argument more: a signal that is aborted when its time is over.
 * @typedef {{[Name in keyof FileSystem]: Abortable<FileSystem[Name]>}} AbortableFileSystem
 */
/**
 * @typedef {object} LimitOptions
 * @property {number} [concurrency] calls that may be under way at the same time; 32 when left out. Others wait their turn.
 * @property {number} [timeout] milliseconds that a call may take from its turn on; 30,000 when left out
 * @property {Timers} [timers] the clock
 */
/**
 * @typedef {object} Timers
 * @property {(step: () => void, milliseconds: number) => any} setTimeout
 * @property {(timer: any) => void} clearTimeout
 */

const limitable = /** @type {const} */ ([
    'getattr', 'readdir', 'open', 'write', 'flush', 'release', 'mkdir', 'unlink', 'rename', 'chmod', 'utimes', 'statfs', 'end',
]);

/**
 * A file system that asks another one for no more than `concurrency` things at a time, and gives each up with ETIMEDOUT
 * after `timeout` milliseconds. Each function gets `{ signal }` as its last argument, to end its work when it is given up;
 * one that goes on all the same is no longer waited for, and what it gives then is lost.
 * @param {AbortableFileSystem} fileSystem
 * @param {LimitOptions} [options]
 * @returns {FileSystem}
 * @throws {TypeError} when the file system or an option is not what it must be
 */
export function limited(fileSystem, options = {}) {
    checkFileSystem(fileSystem, 'limited');
    for (const line of misnamed(fileSystem)) report(`limited: ${line}`);
    const source = /** @type {any} */ (fileSystem);
    const turns = new Turns(options);
    /** @type {any} */
    const made = {};
    for (const name of limitable) {
        if (source[name] === undefined) continue;
        made[name] = (/** @type {any[]} */ ...args) => turns.take(name, (call) => source[name](...args, call));
    }
    // One that is given up may still use the memory it was lent: it gets memory of its own.
    made.read = async (
        /** @type {any} */ file, /** @type {number} */ offset, /** @type {number} */ length, /** @type {Buffer} */ buffer,
    ) => {
        const own = Buffer.allocUnsafe(length);
        const got = await turns.take('read', (call) => source.read(file, offset, length, own, call));
        if (typeof got === 'number') own.copy(buffer, 0, 0, got);
        return got;
    };
    if (source.write !== undefined) {
        made.write = (/** @type {any} */ file, /** @type {number} */ offset, /** @type {Buffer} */ data) =>
            turns.take('write', (call) => source.write(file, offset, Buffer.from(data), call));
    }
    return made;
}

class Turns {
    /** @param {LimitOptions} options */
    constructor(options) {
        const known = ['concurrency', 'timeout', 'timers'];
        this.free_ = numberOption('limited', options, 'concurrency', 32, known, 1);
        this.timeout_ = numberOption('limited', options, 'timeout', 30_000, known, 1);
        this.timers_ = options.timers ?? globalThis;
        /** @type {(() => void)[]} */
        this.waiting_ = [];
    }

    /**
     * @param {string} what for the message
     * @param {(call: Call) => any} step
     */
    async take(what, step) {
        if (this.free_ > 0) this.free_--;
        else await new Promise((resolve) => this.waiting_.push(() => resolve(undefined)));
        try {
            return await this.run_(what, step);
        } finally {
            const next = this.waiting_.shift();
            if (next) next();
            else this.free_++;
        }
    }

    /**
     * @param {string} what
     * @param {(call: Call) => any} step
     */
    async run_(what, step) {
        const controller = new AbortController();
        let timer;
        const late = new Promise((resolve, reject) => {
            timer = this.timers_.setTimeout(() => {
                const error = new PosixError('ETIMEDOUT', `${what} took longer than ${this.timeout_} ms`);
                reject(error);
                controller.abort(error);
            }, this.timeout_);
        });
        try {
            return await Promise.race([step({ signal: controller.signal }), late]);
        } finally {
            this.timers_.clearTimeout(timer);
        }
    }
}
