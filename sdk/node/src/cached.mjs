// Keeps what a slow file system answers, and asks ahead of whoever reads in order.
import { heedChanges } from './changed.mjs';
import { isPosixError, PosixError } from './errors.mjs';
import { checkFileSystem, misnamed } from './fileSystem.mjs';
import { blockLength, Contents } from './filesystems/contents.mjs';
import { InAdvance } from './filesystems/inAdvance.mjs';
import { beneath, KeptAnswers, nameOf, parentOf, recordLength } from './filesystems/keptAnswers.mjs';
import { Listing, Walk } from './filesystems/walk.mjs';
import { numberOption } from './options.mjs';
import { report } from './report.mjs';

/** @typedef {import('./fileSystem.mjs').FileSystem} FileSystem */
/** @typedef {import('./fileSystem.mjs').Stat} Stat */
/** @typedef {import('./fileSystem.mjs').Entry} Entry */
/** @typedef {import('./fileSystem.mjs').OpenFlags} OpenFlags */
/** @typedef {import('./filesystems/contents.mjs').OpenFile} OpenFile */
/**
 * @typedef {object} CacheOptions
 * @property {number} [memory] bytes that are kept; 64 MiB when left out. What was used longest ago goes first.
 * @property {number} [ttl] milliseconds for which attributes, listings and "there is no such file" are taken for true;
 *     10,000 when left out. Contents stay longer where attributes asked anew show the same size and `modifiedAt`.
 * @property {number} [ahead] how many requests are made ahead at the same time; 16 when left out, 0 for none
 * @property {number} [prefetch] bytes: files up to this size are fetched before they are opened, when the files of a
 *     folder are opened in the order of its listing; 64 KiB when left out, 0 for none
 * @property {() => number} [now] the clock, in milliseconds
 */
/**
 * A file system that keeps what another one answers: attributes, listings (which answer the questions for attributes
 * that follow) and contents. Whoever reads a file in order finds the next blocks asked for already, and whoever reads the
 * files of a folder in order the next small files. What is changed through it, or told with `changed`, is dropped. Errors
 * are not kept, but that there is nothing at a path. A file is opened when bytes of it are needed that are not kept: what
 * opening it for reading refuses comes as the error of the read.
 * @param {FileSystem} fileSystem
 * @param {CacheOptions} [options]
 * @returns {FileSystem}
 * @throws {TypeError} when the file system or an option is not what it must be
 */
export function cached(fileSystem, options = {}) {
    checkFileSystem(fileSystem, 'cached');
    for (const line of misnamed(fileSystem)) report(`cached: ${line}`);
    return new CachedFileSystem(fileSystem, options).asFileSystem();
}

class CachedFileSystem {
    /** @param {FileSystem} fileSystem @param {CacheOptions} options */
    constructor(fileSystem, options) {
        const known = ['memory', 'ttl', 'ahead', 'prefetch', 'now'];
        const number = (/** @type {'memory' | 'ttl' | 'ahead' | 'prefetch'} */ name, /** @type {number} */ usual) =>
            numberOption('cached', options, name, usual, known);
        const memory = number('memory', 64 << 20);
        const ttl = number('ttl', 10_000);
        const ahead = number('ahead', 16);
        const prefetch = Math.min(number('prefetch', 64 << 10), memory / 4);
        this.source_ = fileSystem;
        this.kept_ = new KeptAnswers(memory, ttl, options.now ?? (() => performance.now()));
        this.mostAhead_ = memory / 4; // bytes: what is fetched ahead must not push itself out
        this.inAdvance_ = new InAdvance(ahead);
        const bounds = { inAdvance: this.inAdvance_, bytes: this.mostAhead_ };
        this.contents_ = new Contents(fileSystem, this.kept_, ttl, bounds, (open) => this.sourceFile_(open));
        /** @type {Set<OpenFile>} */
        this.open_ = new Set();
        /** @type {Walk<Entry>} */
        this.files_ = new Walk(ahead, (entry) => isSmall(entry, prefetch));
        /** @type {Walk<Entry>} */
        this.folders_ = new Walk(ahead, (entry) => entry.isDirectory === true);
    }

    /** @returns {FileSystem} with the functions that the slow one has */
    asFileSystem() {
        const source = this.source_;
        const heeding = heedChanges((path) => this.drop_(path));
        /** @type {any} */
        const made = {
            getattr: async (/** @type {string} */ path) => this.getattr_(path),
            readdir: async (/** @type {string} */ path) => this.readdir_(path),
            open: async (/** @type {string} */ path, /** @type {OpenFlags} */ flags) => this.openFile_(path, flags),
            read: (/** @type {[OpenFile, number, number, Buffer]} */ ...args) => this.contents_.read(...args),
            flush: (/** @type {OpenFile} */ open) => this.throughFile_(open, (file) => source.flush?.(file)),
            release: (/** @type {OpenFile} */ open) => this.release_(open),
            end: async () => {
                heeding.end();
                await source.end?.();
            },
        };
        if (source.statfs) made.statfs = async () => source.statfs?.();
        if (source.write) {
            made.write = (/** @type {OpenFile} */ open, /** @type {number} */ offset, /** @type {Buffer} */ data) =>
                this.throughFile_(open, (file) => source.write?.(file, offset, data));
        }
        if (source.mkdir) made.mkdir = (/** @type {string} */ path) => this.change_([path], () => source.mkdir?.(path));
        if (source.unlink) {
            made.unlink = (/** @type {string} */ path) => this.replace_([path], () => source.unlink?.(path));
        }
        if (source.rename) {
            made.rename = (/** @type {string} */ from, /** @type {string} */ to) =>
                this.replace_([from, to], () => source.rename?.(from, to));
        }
        for (const name of /** @type {const} */ (['chmod', 'utimes'])) {
            if (source[name] === undefined) continue;
            made[name] = (/** @type {string} */ path, /** @type {any} */ value) =>
                this.change_([path], () => source[name]?.(path, /** @type {never} */ (value)));
        }
        return made;
    }

    /** @param {string} path @returns {Promise<Stat>} */
    async getattr_(path) {
        const known = this.knownStat_(path);
        const ask = async () => {
            try {
                return { stat: await this.source_.getattr(path) };
            } catch (error) {
                if (isPosixError(error) && error.code === 'ENOENT') return { error };
                throw error;
            }
        };
        const weigh = (/** @type {{stat?: Stat, error?: unknown}} */ answer) =>
            answer.error === undefined && typeof answer.stat !== 'object' ? 0 : recordLength + 2 * path.length;
        const answer = known ?? (await this.kept_.ask(`attributes:${path}`, ask, weigh));
        if (answer.error !== undefined) throw answer.error;
        return answer.stat;
    }

    /**
     * @param {string} path
     * @returns {{stat?: Stat, error?: unknown} | undefined} of the latest answer that told it
     */
    knownStat_(path) {
        const own = this.kept_.find(`attributes:${path}`);
        const folder = path === '/' ? undefined : this.kept_.find(`listing:${parentOf(path)}`);
        const position = folder?.value.positions.get(nameOf(path));
        if (folder === undefined || position === undefined || (own && own.at > folder.at)) return own?.value;
        return { stat: folder.value.members[position] };
    }

    /** @param {string} path @returns {Promise<any>} */
    async readdir_(path) {
        const parent = path === '/' ? undefined : this.kept_.find(`listing:${parentOf(path)}`)?.value;
        const listing = this.listing_(path);
        if (parent) {
            for (const { name } of this.folders_.use(parent, nameOf(path))) {
                const folder = beneath(parentOf(path), name);
                if (!this.kept_.has(`listing:${folder}`)) this.inAdvance_.run(() => this.listing_(folder));
            }
        }
        const answer = await listing;
        return answer instanceof Listing ? answer.members : answer;
    }

    /** @param {string} path */
    listing_(path) {
        const ask = async () => {
            const members = await this.source_.readdir(path);
            if (typeof members?.[Symbol.iterator] !== 'function') return members; // whoever asked says what is wrong
            return new Listing([...members], (entry) => entry?.name);
        };
        return this.kept_.ask(`listing:${path}`, ask, (answer) => {
            if (!(answer instanceof Listing)) return 0;
            return answer.members.reduce((sum, entry) => sum + recordLength + 2 * String(entry?.name).length, recordLength);
        });
    }

    /**
     * @param {string} path
     * @param {OpenFlags} flags
     * @returns {Promise<OpenFile>}
     */
    async openFile_(path, flags) {
        const open = { path, stat: {}, file: undefined, writes: flags.write, isDirect: flags.write, nextBlock: 0, streak: 0 };
        if (flags.write) await this.change_([path], () => this.sourceFile_(open, flags));
        else open.stat = await this.statOfFile_(path);
        this.open_.add(open);
        const folder = flags.write ? undefined : this.kept_.find(`listing:${parentOf(path)}`)?.value;
        const next = folder ? this.files_.use(folder, nameOf(path)) : [];
        if (next.length > 0) this.contents_.block(open, 0).catch(() => {}); // before those that nobody waits for yet
        this.fetchNext_(parentOf(path), next);
        return open;
    }

    /** @param {string} path */
    async statOfFile_(path) {
        const stat = await this.getattr_(path);
        if (stat?.isDirectory) throw new PosixError('EISDIR', `${path} is a folder`);
        return stat ?? {};
    }

    /**
     * Small files that are likely to be opened next.
     * @param {string} folder
     * @param {Entry[]} entries
     */
    fetchNext_(folder, entries) {
        let bytes = 0;
        for (const entry of entries) {
            bytes += entry.size ?? 0;
            if (bytes > this.mostAhead_) return;
            const path = beneath(folder, entry.name);
            const open = { path, stat: entry, file: undefined, writes: false, isDirect: false, nextBlock: 0, streak: 0 };
            for (let block = 0; block * blockLength < (entry.size ?? 0); block++) {
                if (!this.contents_.has(open, block)) this.inAdvance_.run(() => this.blockAlone_({ ...open }, block));
            }
        }
    }

    /**
     * A block of a file that is opened for that alone.
     * @param {OpenFile} open
     * @param {number} block
     */
    blockAlone_(open, block) {
        return this.contents_.block(open, block, () => this.release_(open));
    }

    /**
     * Opens the file of the slow file system, if it is not open.
     * @param {OpenFile} open
     * @param {OpenFlags} [flags]
     * @returns {Promise<any>}
     */
    sourceFile_(open, flags = { read: true, write: false, create: false, truncate: false }) {
        const begin = async () => {
            if (this.source_.open) return this.source_.open(open.path, flags);
            if (flags.write) await this.statOfFile_(open.path);
            return open.path;
        };
        if (open.file === undefined) {
            open.file = begin();
            open.file.catch(() => (open.file = undefined));
        }
        return open.file;
    }

    /** @param {OpenFile} open */
    async release_(open) {
        this.open_.delete(open);
        if (open.file === undefined || this.source_.release === undefined) return;
        await this.throughFile_(open, (file) => this.source_.release?.(file));
    }

    /**
     * Something that concerns an open file, and changes it if it is open for writing.
     * @param {OpenFile} open
     * @param {(file: any) => any} step
     */
    async throughFile_(open, step) {
        if (open.file === undefined) return undefined;
        const file = await open.file;
        return open.writes ? this.change_([open.path], () => step(file)) : step(file);
    }

    /**
     * Drops what is known of paths once something was done to them, also if that failed: part of it may be done.
     * @param {string[]} paths
     * @param {() => any} step
     */
    async change_(paths, step) {
        try {
            return await step();
        } finally {
            for (const path of paths) this.drop_(path);
        }
    }

    /**
     * A change after which a path means something else: who has it open goes on with what it was.
     * @param {string[]} paths
     * @param {() => any} step
     */
    async replace_(paths, step) {
        for (const open of this.open_) {
            if (!paths.some((path) => isWithin(open.path, path))) continue;
            await this.sourceFile_(open).catch(() => {}); // the read that needs it says so
            open.isDirect = true;
        }
        return this.change_(paths, step);
    }

    /** @param {string} path */
    drop_(path) {
        this.kept_.drop(path);
        if (path !== '/') this.kept_.dropAlone(`listing:${parentOf(path)}`);
        for (const open of this.open_) {
            if (open.file !== undefined && isWithin(open.path, path)) open.isDirect = true;
        }
    }
}

/** @param {Entry} entry @param {number} most */
function isSmall({ isDirectory, size }, most) {
    return !isDirectory && size !== undefined && size > 0 && size <= most;
}

/** @param {string} path @param {string} folder */
function isWithin(path, folder) {
    return path === folder || folder === '/' || path.startsWith(folder + '/');
}
