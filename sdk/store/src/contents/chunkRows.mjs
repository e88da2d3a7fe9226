// The chunk rows of one file that are known, some of them: a file may have more than anybody wants to hold.

/** @typedef {import('./databaseChunks.mjs').ChunkRow} ChunkRow */
/** @typedef {import('./databaseChunks.mjs').FileFacts} FileFacts */

const windowLength = 256; // rows that are asked for together
const mostWindows = 16;
const countedFrom = 2 ** 20; // versions are random below it (see next_version in the schema)
const fewBytes = 1 << 20; // what comes along with the rows of a file that is begun to be read

export class ChunkRows {
    /**
     * @param {number} node
     * @param {object} parts
     * @param {import('./databaseChunks.mjs').DatabaseChunks} parts.database
     * @param {import('./chunkBytes.mjs').ChunkBytes} parts.chunks
     * @param {number} parts.chunkSize
     * @param {boolean} parts.isInDatabase whether all bytes lie there, so that more are asked for with the rows
     * @param {FileFacts} facts
     */
    constructor(node, { database, chunks, chunkSize, isInDatabase }, facts) {
        this.node_ = node;
        this.database_ = database;
        this.chunks_ = chunks;
        // Elsewhere only a small file has bytes in the database.
        this.bytesTogether_ = isInDatabase ? Math.max(1, Math.floor(fewBytes / chunkSize)) : 1;
        /** @type {Map<number, Map<number, ChunkRow>>} the one used longest ago first */
        this.windows_ = new Map();
        /** @type {Map<number, Promise<Map<number, ChunkRow>>>} */
        this.coming_ = new Map();
        /** As of the rows. */
        this.facts = facts;
        this.edition_ = 0;
        this.isDoubted_ = false;
        /** Whether the database was not asked since somebody opened the file: what is written next must make sure. */
        this.isAssumed = false;
    }

    /**
     * @param {number} position
     * @returns {Promise<ChunkRow | undefined>} undefined: there is a hole
     */
    async get(position) {
        const known = this.known(position);
        if (known) return known.row;
        const index = Math.floor(position / windowLength);
        const rows = await (this.coming_.get(index) ?? this.ask_(index, position));
        return rows.get(position);
    }

    /**
     * @param {number} position
     * @returns {{row: ChunkRow | undefined} | undefined} undefined: it is not known
     */
    known(position) {
        const index = Math.floor(position / windowLength);
        const rows = this.windows_.get(index);
        if (rows === undefined) return undefined;
        this.windows_.delete(index);
        this.windows_.set(index, rows);
        return { row: rows.get(position) };
    }

    /** What is known may not be right any more. */
    drop() {
        this.edition_++;
        this.windows_.clear();
        this.coming_.clear();
    }

    /** The same; also the database may have gone back to an older version. */
    doubt() {
        this.drop();
        this.isDoubted_ = true;
    }

    /**
     * What is known of the file from elsewhere.
     * @param {FileFacts} facts
     */
    learn(facts) {
        if (this.isOfBefore_(facts)) return;
        if (facts.version !== this.facts.version) this.drop();
        this.hold_(facts);
    }

    /**
     * The same of a file that has one chunk, or none.
     * @param {FileFacts} facts
     * @param {import('./databaseChunks.mjs').OnlyChunk | null} only
     */
    learnOnly(facts, only) {
        this.learn(facts);
        if (facts.version !== this.facts.version) return; // of a moment before
        /** @type {Map<number, ChunkRow>} */
        const window = new Map();
        if (only) {
            const row = this.database_.rowOf(this.node_, { position: 0, length: only.length, object: only.object }, only.since);
            if (only.contents) this.chunks_.keep(row.key, only.contents);
            window.set(0, row);
        }
        this.windows_.set(0, window);
    }

    /**
     * Takes for granted that nothing has changed since the database has told this.
     * @param {number} version
     * @returns {boolean} false when that is not what is known here
     */
    assume(version) {
        const isKnown = !this.isDoubted_ && version === this.facts.version;
        this.isAssumed ||= isKnown;
        return isKnown;
    }

    /** Asks, where something was taken for granted. */
    async makeSure() {
        if (this.isAssumed) this.learn((await this.database_.chunks(this.node_, 0, 0)).facts);
        this.isAssumed = false;
    }

    /**
     * Nobody has changed the contents between what is known and this.
     * @param {FileFacts} facts
     */
    isNext({ version }) {
        return !this.isDoubted_ && Math.floor(version / countedFrom) === Math.floor(this.facts.version / countedFrom) + 1;
    }

    /**
     * What a commit has changed.
     * @param {FileFacts} facts after it
     * @param {ChunkRow[]} rows all that it has put
     * @param {boolean} isAll whether there is nothing else in the file
     */
    apply(facts, rows, isAll) {
        const isKnown = isAll || (this.isNext(facts) && this.coming_.size === 0);
        if (isAll || !isKnown) this.drop();
        this.hold_(facts);
        if (!isKnown) return;
        if (isAll) this.beginWindows_(rows);
        for (const row of rows) this.windows_.get(Math.floor(row.position / windowLength))?.set(row.position, row);
    }

    /** @param {ChunkRow[]} rows all that there are */
    beginWindows_(rows) {
        const last = rows.reduce((most, { position }) => Math.max(most, position), 0);
        const count = Math.floor(last / windowLength) + 1;
        if (count > mostWindows) return;
        for (let index = 0; index < count; index++) this.windows_.set(index, new Map());
    }

    /**
     * @param {number} index
     * @param {number} position that is wanted
     */
    ask_(index, position) {
        const { edition_: edition } = this;
        const first = index * windowLength;
        const together = position === first ? this.bytesTogether_ : 1;
        const coming = this.database_.chunks(this.node_, first, windowLength, position, together).then(
            ({ facts, rows, bytes }) => {
                for (const [key, each] of bytes) this.chunks_.keep(key, each);
                const window = new Map(rows.map((row) => [row.position, row]));
                if (edition === this.edition_) this.take_(index, window, facts);
                return window;
            },
            (error) => {
                if (edition === this.edition_) this.coming_.delete(index);
                throw error;
            },
        );
        this.coming_.set(index, coming);
        return coming;
    }

    /**
     * From a moment before what is known.
     * @param {FileFacts} facts
     */
    isOfBefore_(facts) {
        return !this.isDoubted_ && facts.version < this.facts.version;
    }

    /** @param {FileFacts} facts that the database has now */
    hold_(facts) {
        this.facts = facts;
        this.isDoubted_ = false;
        this.isAssumed = false;
    }

    /**
     * @param {number} index
     * @param {Map<number, ChunkRow>} window
     * @param {FileFacts} facts
     */
    take_(index, window, facts) {
        this.coming_.delete(index);
        if (this.isOfBefore_(facts)) return;
        // Another machine has committed since: rows of before and after are not to be mixed more than need be.
        if (facts.version !== this.facts.version) this.drop();
        this.hold_(facts);
        this.windows_.set(index, window);
        if (this.windows_.size > mostWindows) this.windows_.delete(/** @type {number} */ (this.windows_.keys().next().value));
    }
}
