// The contents of the files of one tree: what is open, and what all of it shares.
import { ChunkBytes } from './chunkBytes.mjs';
import { DatabaseChunks } from './databaseChunks.mjs';
import { DiskCache } from './diskCache.mjs';
import { Leftovers } from './leftovers.mjs';
import { Limiter } from './limiter.mjs';
import { MemoryCache } from './memoryCache.mjs';
import { OpenFile } from './openFile.mjs';
import { Room } from './room.mjs';
import { SharedFile } from './sharedFile.mjs';
import { smallFile } from './small.mjs';

/** @typedef {import('../engine/engine.mjs').Engine} Engine */
/** @typedef {import('../objects/objects.mjs').Objects} Objects */
/** @typedef {import('./databaseChunks.mjs').FileFacts} FileFacts */
/**
 * @typedef {object} ContentsOptions
 * @property {number} [memory] bytes of chunks that are kept in memory
 * @property {{folder: string, bytes: number}} [disk]
 * @property {number} [writing] bytes of memory for what is written and not committed
 * @property {number} [small] bytes of a file up to which its contents lie in the database, wherever others lie
 * @property {(node: number, facts: FileFacts) => void} [committed] called when a commit has changed what is known of a file
 * @property {(text: string) => void} [say] takes lines for people
 */

// At a time in each direction. What engines give grows up to about there; see bench/contents.mjs.
const transfers = 16;
const mostKept = 256; // files of which something is remembered after their last release

export class Contents {
    /**
     * @param {object} store
     * @param {Engine} store.engine
     * @param {{id: number, key: string, chunkSize: number}} store.tree
     * @param {Objects} [store.objects] left out where contents lie in the database
     * @param {ContentsOptions} [options]
     */
    constructor({ engine, tree, objects }, options = {}) {
        const { memory = 64 << 20, disk, writing = 32 << 20, small = smallFile, committed = () => {}, say = () => {} } = options;
        const database = new DatabaseChunks(engine, tree);
        this.disk_ = disk && new DiskCache(disk, say);
        this.objects_ = objects;
        this.leftovers_ = new Leftovers(database, say);
        this.ahead_ = { chunkSize: tree.chunkSize, most: Math.min(2 * transfers, Math.floor(memory / 4 / tree.chunkSize)) };
        /** @type {import('./sharedFile.mjs').Parts} */
        this.parts_ = {
            database, objects, committed,
            chunks: new ChunkBytes({
                database, objects, memory: new MemoryCache(memory), disk: this.disk_, transfers: new Limiter(transfers),
            }),
            puts: new Limiter(transfers),
            room: new Room(writing),
            chunkSize: tree.chunkSize,
            isInDatabase: objects === undefined,
            small: Math.min(small, tree.chunkSize - 1),
            say,
        };
        /** @type {Map<number, SharedFile>} those that are open, and the last that were */
        this.files_ = new Map();
    }

    /**
     * @param {FileFacts & {node: number, only?: import('./databaseChunks.mjs').OnlyChunk | null}} there what the database has
     *     just told of the file. `only`: the one chunk that it has, null where it has none; left out when it may have more.
     * @param {{write: boolean, truncate: boolean, path?: string}} flags
     * @returns {OpenFile}
     */
    open({ node, only, ...facts }, { write, truncate, path = `file ${node}` }) {
        const known = this.files_.get(node);
        const file = known && !(known.lost && known.handles === 0) ? known : new SharedFile(node, this.parts_, facts);
        if (only === undefined) file.rows.learn(facts);
        else file.rows.learnOnly(facts, only);
        if (truncate) file.truncate();
        return this.handle_(file, write, path);
    }

    /** @param {SharedFile} file @param {boolean} write @param {string} path */
    handle_(file, write, path) {
        this.files_.delete(file.node);
        this.files_.set(file.node, file);
        file.handles++;
        file.path = path;
        return new OpenFile(file, write, this.ahead_, (failure) => this.released_(file, failure));
    }

    /**
     * Opens a file for writing without asking for it anew: whether it still is what was told is found out by the commit.
     * @param {FileFacts & {node: number}} told
     * @param {string} path
     * @returns {OpenFile | undefined} undefined when it has to be asked for
     */
    openAssumed({ node, ...facts }, path) {
        const file = this.files_.get(node);
        if (!file || file.lost || file.isChanged || !file.rows.assume(facts.version)) return undefined;
        return this.handle_(file, true, path);
    }

    /**
     * What a file shows here before it is committed; undefined where that is what the database says.
     * @param {number} node
     * @returns {{size: number, mtime: number} | undefined}
     */
    overlay(node) {
        const file = this.files_.get(node);
        return file?.isChanged ? { size: file.size, mtime: file.mtime } : undefined;
    }

    /**
     * The database has told this of a file: what is known of older contents is dropped.
     * @param {number} node
     * @param {FileFacts} facts
     */
    learn(node, facts) {
        this.files_.get(node)?.rows.learn(facts);
    }

    /**
     * Before a file is opened of which something is left that was not committed.
     * @param {FileFacts & {node: number}} there what the database has just told of it
     */
    async settle({ node, version }) {
        const file = this.files_.get(node);
        if (file?.isChanged) await this.leftovers_.look(file, version);
    }

    /** Files may have changed without anybody knowing which: nothing is taken for known any more. */
    doubt() {
        this.parts_.database.noteBreak();
        for (const [node, file] of this.files_) {
            if (file.isUnused) this.files_.delete(node);
            else file.rows.doubt();
        }
    }

    /** The database is back: it may be one that lacks what another had, and then that is told. */
    async lookBack() {
        const at = await this.parts_.database.lostCommit();
        if (at === undefined) return;
        this.parts_.say(
            `what was acknowledged at ${new Date(at).toISOString()} is not in the database any more, and more may lack: ` +
                'it has lost its last moments, as a standby may that was not synchronous',
        );
    }

    /**
     * Somebody has set the time of a file, and that has been done.
     * @param {number} node
     * @param {number} mtime milliseconds since 1970
     */
    setTime(node, mtime) {
        this.files_.get(node)?.setTime(mtime);
    }

    /** When all is released. */
    async end() {
        await this.leftovers_.end();
        await this.disk_?.settled();
        this.objects_?.end?.();
    }

    /** @param {SharedFile} file @param {Error} [failure] of the last handle to commit what was written */
    released_(file, failure) {
        if (--file.handles > 0) return;
        if (file.isChanged) this.leftovers_.add(file, failure);
        if (file.lost) this.files_.delete(file.node);
        for (const [node, { isUnused }] of this.files_) {
            if (this.files_.size <= mostKept) break;
            if (isUnused) this.files_.delete(node);
        }
    }
}
