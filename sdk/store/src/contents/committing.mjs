// How what was written to one file gets to the engines: objects first, then one transaction.
//
// A commit whose outcome is not known keeps its layer as it is and is asked for again under the same name, so that it is
// done once; what is written meanwhile goes into another layer above it.
import { PutAway } from './putAway.mjs';
import { GivenUp } from './databaseChunks.mjs';

/** @typedef {import('./layer.mjs').Layer} Layer */
/** @typedef {import('./sharedFile.mjs').SharedFile} SharedFile */
/** @typedef {import('./databaseChunks.mjs').ChunkRow} ChunkRow */
/** @typedef {import('./databaseChunks.mjs').FileFacts} FileFacts */
/** @typedef {import('./databaseChunks.mjs').StoredChunk} StoredChunk */

const mostRows = 1024; // in one commit; more are put away before it
const mostBytes = 8 << 20; // the same of bytes that go into the database

export class Committing {
    /** @param {SharedFile} file @param {import('./sharedFile.mjs').Parts} parts */
    constructor(file, parts) {
        this.file_ = file;
        this.parts_ = parts;
        this.putAway_ = new PutAway(file, parts);
        /** @type {Layer | undefined} */
        this.underWay_ = undefined;
        /** @type {Promise<void>} one commit of a file at a time */
        this.last_ = Promise.resolve();
        /** @type {Promise<void>} the last commit, once the database was asked for it */
        this.asked_ = Promise.resolve();
    }

    /** @param {Layer} layer */
    isUnderWay(layer) {
        return layer === this.underWay_;
    }

    /**
     * @param {Layer} layer
     * @param {number} offset
     * @param {number} length
     */
    wrote(layer, offset, length) {
        this.putAway_.wrote(layer, offset, length);
    }

    /** @param {Layer} layer @param {number} position */
    putAwayRow(layer, position) {
        return this.putAway_.row(layer, position);
    }

    /**
     * What is known of the upload of a layer is right after this, if the layer is not committed.
     * @param {Layer} layer
     */
    async lookAgain(layer) {
        await layer.staging.catch(() => {});
        await this.asked_.catch(() => {});
        this.putAway_.forgetRows();
    }

    /** @returns {Promise<void>} */
    flush() {
        return this.next_(async () => {
            await this.commitLast_();
            if (this.underWay_ === undefined) await this.commitLast_();
        });
    }

    /** Frees some memory. @returns {Promise<void>} */
    putAway() {
        return this.next_(async () => {
            const [top] = this.file_.layers;
            if (this.underWay_ !== undefined) await this.commitLast_();
            else if (top !== undefined) await this.unlessLost_(() => this.putAway_.some(top));
        });
    }

    end() {
        this.putAway_.end();
    }

    /** @param {() => Promise<void>} work @returns {Promise<void>} */
    next_(work) {
        const next = this.last_.catch(() => {}).then(work);
        this.last_ = next;
        next.catch(() => {}); // told to whoever has asked
        return next;
    }

    async commitLast_() {
        if (this.file_.lost) throw this.file_.lost;
        const layer = this.file_.layers.at(-1);
        if (layer === undefined) return;
        this.underWay_ = layer;
        layer.isFrozen = true;
        await this.unlessLost_(() => this.commit_(layer));
        this.underWay_ = undefined;
    }

    /**
     * Notes when what was written can never be committed.
     * @param {() => Promise<void>} work
     */
    async unlessLost_(work) {
        try {
            await work();
        } catch (error) {
            if (error instanceof GivenUp || /** @type {any} */ (error).code === 'ESTALE') {
                this.underWay_ = undefined;
                this.file_.lose(/** @type {any} */ (error));
            }
            throw error;
        }
    }

    /** @param {Layer} layer */
    async commit_(layer) {
        for (let isDone = false; !isDone; ) {
            await this.putAway_.all(layer, mostRows, mostBytes);
            const asked = this.ask_(layer);
            this.asked_ = asked.then(() => {});
            this.asked_.catch(() => {});
            isDone = await asked;
            if (!isDone) await this.putAway_.makeSure(layer);
        }
    }

    /**
     * @param {Layer} layer of which all was put away
     * @returns {Promise<boolean>} false: it was put together for another version than the file has
     */
    async ask_(layer) {
        const chunks = this.putAway_.rest(layer);
        const { isTruncated, extent, mtime, unused, batch, lastTurn } = layer;
        const upload = layer.isUploadMade ? layer.upload : null;
        const { rows, node } = this.file_;
        const answer = await this.parts_.database.commit({
            node, base: isTruncated ? 0 : null, extent, mtime, chunks, upload, lastTurn, unused, batch,
            expected: rows.isAssumed ? rows.facts.version : null,
        });
        if (answer === undefined) return false;
        const { again, ...facts } = answer;
        this.committed_(layer, again ? undefined : chunks, facts);
        return true;
    }

    /**
     * @param {Layer} layer
     * @param {StoredChunk[] | undefined} chunks that the commit has put, undefined when that is not known
     * @param {FileFacts} facts
     */
    committed_(layer, chunks, facts) {
        const { rows, node } = this.file_;
        const isAll = layer.isTruncated || (rows.facts.size === 0 && rows.isNext(facts));
        if (chunks === undefined || layer.isUploadMade) {
            rows.drop();
            rows.learn(facts);
        } else {
            const put = chunks.map((chunk) => this.parts_.database.rowOf(node, chunk, facts.version));
            put.forEach(({ key }, at) => this.parts_.chunks.keep(key, /** @type {Buffer} */ (chunks[at].bytes)));
            rows.apply(facts, put, isAll);
        }
        this.file_.layers = this.file_.layers.filter((each) => each !== layer);
        this.file_.edition++;
        layer.clear();
        if (!this.file_.isChanged) this.parts_.room.writers.delete(this.file_);
        this.putAway_.done(layer);
        this.parts_.committed(node, facts);
    }
}
