// Pieces of a file on their way out of the memory, before their commit: as objects, whose names are then put into an upload
// in the database, or, where contents lie there, into the upload at once. The bytes of a small file go with its commit into
// the database, wherever others lie; when it grows, its chunk is put away as an object like any that is written.
import { randomUUID } from 'node:crypto';

/** @typedef {import('./layer.mjs').Layer} Layer */
/** @typedef {import('./piece.mjs').Piece} Piece */
/** @typedef {import('./databaseChunks.mjs').ChunkRow} ChunkRow */
/** @typedef {import('./databaseChunks.mjs').StoredChunk} StoredChunk */

const together = 32; // chunks that are put into an upload at a time
const windowLength = 256; // rows of an upload that are asked for at a time
/**
 * Milliseconds for which an object may wait for its commit, or for its place in an upload. After that it is put away once
 * more, under another name: what nothing names is removed when it is much older (see garbage.mjs).
 */
export const longestWait = 20 * 60_000;
const renewal = 10 * 60_000; // milliseconds

export class PutAway {
    /** @param {import('./sharedFile.mjs').SharedFile} file @param {import('./sharedFile.mjs').Parts} parts */
    constructor(file, parts) {
        this.file_ = file;
        this.parts_ = parts;
        /** @type {NodeJS.Timeout | undefined} */
        this.timer_ = undefined;
        /** @type {Map<string, Promise<Map<number, ChunkRow>>>} rows of uploads */
        this.rows_ = new Map();
    }

    /**
     * Chunks that a writer has filled and passed go ahead, while the next are written.
     * @param {Layer} layer
     * @param {number} offset
     * @param {number} length
     */
    wrote(layer, offset, length) {
        const { chunkSize, isInDatabase } = this.parts_;
        const end = Math.floor((offset + length) / chunkSize);
        for (let position = Math.floor(offset / chunkSize); position < end; position++) {
            const piece = layer.pieces.get(position);
            if (!piece?.covers(0, chunkSize)) continue;
            if (isInDatabase) this.stageWhenMany_(layer).catch(leftToCommit);
            else this.store_(layer, position, piece).then(() => this.stageWhenMany_(layer)).catch(leftToCommit);
        }
    }

    /**
     * Frees memory: what was begun first goes first.
     * @param {Layer} layer
     */
    async some(layer) {
        const oldest = [...layer.pieces].slice(0, together);
        await this.ready_(layer, oldest);
        await this.stage_(layer);
    }

    /**
     * Puts all away, but for so much that a commit can take along.
     * @param {Layer} layer
     * @param {number} mostRows
     * @param {number} mostBytes
     */
    async all(layer, mostRows, mostBytes) {
        await layer.staging.catch(leftToCommit);
        if (this.isSmall_(layer)) {
            await this.fillSmall_(layer);
            return;
        }
        const { isInDatabase } = this.parts_;
        while (isInDatabase && layer.weight > mostBytes && layer.pieces.size > 1) await this.some(layer);
        await this.ready_(layer, [...layer.pieces]);
        while (layer.pieces.size > mostRows) {
            await this.stage_(layer);
            await this.ready_(layer, [...layer.pieces]);
        }
    }

    /**
     * Asks for what the file has now, where that was taken for granted. What was put away for something else is not right then.
     * @param {Layer} layer
     */
    async makeSure(layer) {
        if (!this.file_.rows.isAssumed) return;
        await this.file_.rows.makeSure();
        for (const [position, piece] of layer.pieces) if (!this.isFilled_(layer, position, piece)) layer.outdate(piece);
    }

    /**
     * What the commit takes along.
     * @param {Layer} layer of which all was put away
     * @returns {StoredChunk[]}
     */
    rest(layer) {
        return [...layer.pieces].map(([position, piece]) => chunkOf(position, piece));
    }

    /**
     * The row of a chunk in the layer's upload.
     * @param {Layer} layer
     * @param {number} position
     * @returns {Promise<ChunkRow | undefined>}
     */
    async row(layer, position) {
        if (layer.upload === null || position >= layer.uploadEnd) return undefined;
        const index = Math.floor(position / windowLength);
        const key = `${layer.upload} ${index}`;
        let window = this.rows_.get(key);
        if (window === undefined) {
            window = this.parts_.database.uploadChunks(layer.upload, index * windowLength, windowLength).then(
                (rows) => new Map(rows.map((row) => [row.position, row])),
            );
            this.rows_.clear(); // one window is enough for who goes through it
            this.rows_.set(key, window);
            window.catch(() => this.rows_.delete(key));
        }
        return (await window).get(position);
    }

    /** What is known of uploads may not be right any more. */
    forgetRows() {
        this.rows_.clear();
    }

    /** @param {Layer} layer that is committed */
    done(layer) {
        this.rows_.clear();
        const { upload, isUploadMade, unusedUploads } = layer;
        const unused = upload === null || isUploadMade ? unusedUploads : [...unusedUploads, upload];
        if (unused.length > 0) this.parts_.database.drop(unused).catch(leftToGarbage);
    }

    end() {
        clearInterval(this.timer_);
        this.timer_ = undefined;
        this.rows_.clear();
    }

    /**
     * Whether a file is small with a layer, of which nothing lies elsewhere. Its only chunk is then not written whole, so
     * that no piece of it is on its way to the object store.
     * @param {Layer} layer
     */
    isSmall_(layer) {
        const { isInDatabase, small } = this.parts_;
        if (isInDatabase || layer.upload !== null) return false;
        const beneath = layer.isTruncated ? 0 : this.file_.sizeBeneath(layer);
        return Math.max(beneath, layer.extent) <= small;
    }

    /** @param {Layer} layer */
    async fillSmall_(layer) {
        for (const [position, piece] of layer.pieces) {
            layer.outdate(piece); // of an upload that could not be made
            await this.fill_(layer, position, piece);
        }
    }

    /**
     * @param {Layer} layer
     * @param {[number, Piece][]} pieces
     */
    async ready_(layer, pieces) {
        const { isInDatabase } = this.parts_;
        const results = await Promise.allSettled(
            pieces.map(([position, piece]) =>
                isInDatabase ? this.fill_(layer, position, piece) : this.store_(layer, position, piece)),
        );
        const failed = results.find(({ status }) => status === 'rejected');
        if (failed) throw /** @type {PromiseRejectedResult} */ (failed).reason;
    }

    /**
     * Puts what was not written of a chunk into its piece.
     * @param {Layer} layer
     * @param {number} position
     * @param {Piece} piece
     */
    async fill_(layer, position, piece) {
        if (this.isFilled_(layer, position, piece)) return;
        layer.fill(piece, await this.file_.oldBytes(layer, position, this.oldLength_(layer, position)));
    }

    /**
     * @param {Layer} layer
     * @param {number} position
     * @param {Piece} piece
     */
    isFilled_(layer, position, piece) {
        const old = this.oldLength_(layer, position);
        return old === 0 || piece.covers(0, Math.max(piece.end, old)); // what was not written of a piece is zeros
    }

    /**
     * The most bytes that a chunk can have beneath its piece.
     * @param {Layer} layer
     * @param {number} position
     */
    oldLength_(layer, position) {
        const { chunkSize } = this.parts_;
        const inUpload = position < layer.uploadEnd ? layer.extent : 0;
        const beneath = layer.isTruncated ? 0 : this.file_.sizeBeneath(layer);
        return Math.max(0, Math.min(chunkSize, Math.max(inUpload, beneath) - position * chunkSize));
    }

    /**
     * @param {Layer} layer
     * @param {number} position
     * @param {Piece} piece
     * @returns {Promise<void>}
     */
    async store_(layer, position, piece) {
        while (!isFresh(piece.stored) || piece.storing) {
            piece.storing ??= this.storeNow_(layer, position, piece).finally(() => (piece.storing = undefined));
            await piece.storing;
            if (layer.pieces.get(position) !== piece) return;
        }
    }

    /**
     * @param {Layer} layer
     * @param {number} position
     * @param {Piece} piece
     */
    async storeNow_(layer, position, piece) {
        const { objects, puts } = this.parts_;
        if (objects === undefined) return;
        layer.outdate(piece);
        await this.fill_(layer, position, piece);
        const { edition } = piece;
        const object = randomUUID().replaceAll('-', '');
        const at = Date.now();
        const bytes = piece.lend();
        await puts.run(() => objects.put(object, bytes));
        if (layer.pieces.get(position) === piece && piece.edition === edition) piece.stored = { object, at };
        else layer.unused.push(object);
    }

    /** @param {Layer} layer */
    async stageWhenMany_(layer) {
        const { isInDatabase, chunkSize } = this.parts_;
        let many = 0;
        for (const piece of layer.pieces.values()) if (isInDatabase ? piece.covers(0, chunkSize) : piece.stored) many++;
        if (many >= together && !layer.isFrozen) await this.stage_(layer);
    }

    /** @param {Layer} layer */
    stage_(layer) {
        const next = layer.staging.catch(leftToCommit).then(() => this.stageNow_(layer));
        layer.staging = next;
        next.catch(leftToCommit);
        return next;
    }

    /** @param {Layer} layer */
    async stageNow_(layer) {
        const { isInDatabase, database } = this.parts_;
        await this.makeSure(layer); // what is put away here cannot be put together anew
        const ready = [...layer.pieces].filter(([position, piece]) =>
            isInDatabase ? this.isFilled_(layer, position, piece) : isFresh(piece.stored));
        const pieces = isInDatabase ? ready.slice(0, together) : ready;
        if (pieces.length === 0) return;
        const editions = pieces.map(([, { edition }]) => edition);
        const upload = layer.upload ?? layer.newUpload();
        const chunks = pieces.map(([position, piece]) => chunkOf(position, piece));
        const turn = ++layer.turn;
        try {
            await database.stage(upload, { isNew: !layer.isUploadMade, turn, lastTurn: layer.lastTurn }, chunks);
        } finally {
            this.rows_.clear();
        }
        if (layer.upload !== upload) return;
        layer.isUploadMade = true;
        layer.lastTurn = turn;
        this.renewFromNowOn_();
        pieces.forEach(([position, piece], at) => {
            layer.uploadEnd = Math.max(layer.uploadEnd, position + 1);
            const isSame = layer.pieces.get(position) === piece && piece.edition === editions[at];
            if (isSame) layer.remove(position);
        });
    }

    /** A file that waits long for its commit keeps its upload: no timer runs but for one. */
    renewFromNowOn_() {
        this.timer_ ??= setInterval(() => this.renew_(), renewal).unref();
    }

    renew_() {
        const layers = this.file_.layers.filter(({ isUploadMade }) => isUploadMade);
        if (layers.length === 0) this.end();
        for (const { upload } of layers) this.parts_.database.renew(/** @type {number} */ (upload)).catch(leftToCommit);
    }
}

/** @param {number} position @param {Piece} piece @returns {StoredChunk} */
function chunkOf(position, piece) {
    return { position, length: piece.end, object: piece.stored?.object ?? null, bytes: piece.lend() };
}

/** @param {Piece['stored']} stored */
function isFresh(stored) {
    if (stored === undefined) return false;
    const age = Date.now() - stored.at;
    return age >= 0 && age < longestWait; // a clock that was put back says nothing
}

// What fails ahead of its commit is tried again by the commit, which tells it.
function leftToCommit() {}

// An upload that stays is found by the collection of garbage.
function leftToGarbage() {}
