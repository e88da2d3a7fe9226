// One file that is open here, however many handles it has: what is committed, and above it what is not.
import { PosixError } from 'kemvi-helper';
import { MissingObject } from '../objects/objects.mjs';
import { ChunkRows } from './chunkRows.mjs';
import { Committing } from './committing.mjs';
import { GivenUp } from './databaseChunks.mjs';
import { Layer } from './layer.mjs';

/** @typedef {import('./databaseChunks.mjs').FileFacts} FileFacts */
/** @typedef {import('./piece.mjs').Piece} Piece */
/**
 * What all files share.
 * @typedef {object} Parts
 * @property {import('./databaseChunks.mjs').DatabaseChunks} database
 * @property {import('../objects/objects.mjs').Objects | undefined} objects undefined where contents lie in the database
 * @property {import('./chunkBytes.mjs').ChunkBytes} chunks
 * @property {import('./limiter.mjs').Limiter} puts
 * @property {import('./room.mjs').Room} room
 * @property {number} chunkSize
 * @property {boolean} isInDatabase
 * @property {number} small bytes of a file up to which its contents lie in the database in any case; less than a chunk
 * @property {(node: number, facts: FileFacts) => void} committed
 * @property {(text: string) => void} say takes lines for people
 */

const longestWrite = 1 << 20; // bytes that go into the memory at a time, so that its limit holds

export class SharedFile {
    /**
     * @param {number} node
     * @param {Parts} parts
     * @param {FileFacts} facts
     */
    constructor(node, parts, facts) {
        this.node = node;
        this.parts_ = parts;
        this.handles = 0;
        /** The one by which it was opened last: for people. */
        this.path = '';
        this.rows = new ChunkRows(node, parts, facts);
        /** @type {Layer[]} the newest first; the last one may be under way to the engines */
        this.layers = [];
        /** Counted when what lies in the layers goes elsewhere: whoever was reading meanwhile has to look again. */
        this.edition = 0;
        /** @type {PosixError | undefined} why what was written can never be committed */
        this.lost = undefined;
        this.committing_ = new Committing(this, parts);
    }

    /** Bytes of memory for what is not committed. */
    get weight() {
        return this.layers.reduce((sum, { weight }) => sum + weight, 0);
    }

    get isChanged() {
        return this.layers.length > 0;
    }

    /** Nobody has it open here, and all is committed. */
    get isUnused() {
        return this.handles === 0 && !this.isChanged;
    }

    /** What is not committed, for people. */
    get unsaved() {
        const bytes = this.layers.reduce((sum, { written }) => sum + written, 0);
        return bytes === 0 ? 'that it was emptied' : `${bytes} bytes`;
    }

    /** The name of the next commit, or of the one under way. There is something to commit. */
    get batch() {
        return /** @type {Layer} */ (this.layers.at(-1)).batch;
    }

    get size() {
        return this.sizeBeneath(undefined);
    }

    get mtime() {
        return this.layers.find(({ mtime }) => mtime !== null)?.mtime ?? this.rows.facts.mtime;
    }

    /**
     * The size without a layer and those above it.
     * @param {Layer | undefined} layer
     */
    sizeBeneath(layer) {
        return this.beneath_(layer).reduceRight(
            (size, { isTruncated, extent }) => Math.max(isTruncated ? 0 : size, extent),
            this.rows.facts.size,
        );
    }

    /**
     * @param {number} offset
     * @param {number} length
     * @param {Buffer} buffer
     * @returns {Promise<number>} how many bytes were put into it
     */
    async read(offset, length, buffer) {
        // It may have grown on another machine since anybody looked.
        if (offset >= this.size && !this.isChanged) await this.lookAgain_(offset);
        for (;;) {
            const { edition } = this;
            const count = Math.max(0, Math.min(length, this.size - offset));
            await this.compose_(offset, buffer.subarray(0, count), this.layers);
            if (edition === this.edition) return count;
        }
    }

    /** @param {number} offset @param {Buffer} data */
    async write(offset, data) {
        for (let done = 0; done < data.length || done === 0; done += longestWrite) {
            const some = data.subarray(done, done + longestWrite);
            if (!this.parts_.room.has(some.length)) await this.parts_.room.make(some.length);
            if (this.lost) throw this.lost;
            this.top_().write(offset + done, some);
            this.committing_.wrote(this.layers[0], offset + done, some.length);
        }
    }

    truncate() {
        if (this.size === 0 && !this.isChanged) return;
        this.top_().truncate();
        this.edition++;
    }

    /** Commits all that was written until now. */
    flush() {
        return this.committing_.flush();
    }

    /** Puts some of what lies in memory where the commit finds it, or commits it. */
    putAway() {
        return this.committing_.putAway();
    }

    /**
     * The file shows another time now, which what was written before does not change any more.
     * @param {number} mtime
     */
    setTime(mtime) {
        for (const layer of this.layers) layer.mtime = null;
        this.rows.facts = { ...this.rows.facts, mtime };
    }

    /**
     * What was written is never committed.
     * @param {PosixError} reason
     */
    lose(reason) {
        this.lost = reason;
        this.abandon(reason);
    }

    /**
     * Lets go of what was written, and tells: a program that has ended since hears nothing.
     * @param {Error} reason
     */
    abandon(reason) {
        if (this.isChanged) this.parts_.say(`${this.path}: not committed, and lost: ${this.unsaved}: ${reason.message}`);
        for (const layer of this.layers) layer.clear();
        this.layers = [];
        this.edition++;
        this.parts_.room.writers.delete(this);
        this.committing_.end();
    }

    /**
     * @param {number} from position
     * @param {number} to position behind the last
     */
    async fetchAhead(from, to) {
        const end = Math.min(to, Math.ceil(this.rows.facts.size / this.parts_.chunkSize));
        const rows = [];
        for (let position = from; position < end; position++) {
            const row = (this.rows.known(position) ?? { row: await this.rows.get(position) }).row;
            if (row && !this.layers.some(({ isTruncated, pieces }) => isTruncated || pieces.has(position))) rows.push(row);
        }
        this.parts_.chunks.fetchAhead(this.node, rows);
    }

    /**
     * The bytes of a chunk as they are without a layer and those above it, but with what the layer has put away.
     * @param {Layer} layer
     * @param {number} position
     * @param {number} length
     * @returns {Promise<Buffer>}
     */
    async oldBytes(layer, position, length) {
        const bytes = Buffer.alloc(length);
        for (;;) {
            const { edition } = this;
            await this.composeBeneath_(position, 0, bytes, layer);
            if (edition === this.edition) return bytes;
        }
    }

    top_() {
        if (this.layers.length === 0 || this.committing_.isUnderWay(this.layers[0])) {
            this.layers = [new Layer(this.parts_.chunkSize, this.parts_.room), ...this.layers];
            this.parts_.room.writers.add(this);
        }
        return this.layers[0];
    }

    /** @param {Layer | undefined} layer */
    beneath_(layer) {
        return layer === undefined ? this.layers : this.layers.slice(this.layers.indexOf(layer) + 1);
    }

    /**
     * @param {number} offset
     * @param {Buffer} target all of which is filled
     * @param {Layer[]} layers
     */
    async compose_(offset, target, layers) {
        const { chunkSize } = this.parts_;
        const parts = [];
        for (let done = 0; done < target.length; ) {
            const position = Math.floor((offset + done) / chunkSize);
            const from = offset + done - position * chunkSize;
            const count = Math.min(target.length - done, chunkSize - from);
            parts.push(this.composeChunk_(position, from, target.subarray(done, done + count), layers));
            done += count;
        }
        await Promise.all(parts);
    }

    /**
     * @param {number} position
     * @param {number} from within the chunk
     * @param {Buffer} target
     * @param {Layer[]} layers
     */
    async composeChunk_(position, from, target, layers) {
        const [layer] = layers;
        if (layer === undefined) return this.copyCommitted_(position, from, target);
        const piece = layer.pieces.get(position);
        if (!piece?.covers(from, from + target.length)) await this.composeBeneath_(position, from, target, layer);
        piece?.copyTo(target, 0, from, from + target.length);
    }

    /**
     * @param {number} position
     * @param {number} from
     * @param {Buffer} target
     * @param {Layer} layer
     */
    async composeBeneath_(position, from, target, layer) {
        const putAway = await this.putAwayBytes_(layer, position);
        if (putAway) {
            copyOver(target, from, putAway);
        } else if (layer.isTruncated) {
            target.fill(0);
        } else {
            await this.composeChunk_(position, from, target, this.beneath_(layer));
        }
    }

    /**
     * @param {Layer} layer
     * @param {number} position
     */
    async putAwayBytes_(layer, position) {
        const { edition } = this;
        for (let missing = false; ; missing = true) {
            try {
                const row = await this.committing_.putAwayRow(layer, position);
                return row && (await this.parts_.chunks.get(-(layer.upload ?? 0), row));
            } catch (error) {
                if (missing || !(error instanceof MissingObject || error instanceof GivenUp)) throw error;
                await this.committing_.lookAgain(layer);
                if (edition !== this.edition) return undefined; // it was committed: whoever reads looks again
            }
        }
    }

    /**
     * @param {number} position
     * @param {number} from
     * @param {Buffer} target
     */
    async copyCommitted_(position, from, target) {
        const isBeyond = position * this.parts_.chunkSize + from >= this.rows.facts.size;
        copyOver(target, from, isBeyond ? undefined : await this.committedChunk_(position));
    }

    /**
     * @param {number} position
     * @returns {Promise<Buffer | undefined>} undefined: there is a hole
     */
    async committedChunk_(position) {
        for (let missing = ''; ; ) {
            const row = (this.rows.known(position) ?? { row: await this.rows.get(position) }).row;
            if (row === undefined) return undefined;
            try {
                return this.parts_.chunks.at(row) ?? (await this.parts_.chunks.get(this.node, row));
            } catch (error) {
                if (!(error instanceof MissingObject)) throw error;
                if (missing === row.key) throw new PosixError('EIO', `chunk ${position} of file ${this.node}: ${error.message}`);
                missing = row.key; // most likely it was replaced, and removed as garbage
                this.rows.drop();
            }
        }
    }

    /** @param {number} offset */
    async lookAgain_(offset) {
        this.rows.drop();
        await this.rows.get(Math.floor(offset / this.parts_.chunkSize));
    }
}

/**
 * @param {Buffer} target all of which is filled
 * @param {number} from
 * @param {Buffer | undefined} bytes of a chunk from its start
 */
function copyOver(target, from, bytes) {
    const count = bytes === undefined ? 0 : Math.max(0, Math.min(target.length, bytes.length - from));
    if (bytes !== undefined && count > 0) bytes.copy(target, 0, from, from + count);
    if (count < target.length) target.fill(0, count);
}
