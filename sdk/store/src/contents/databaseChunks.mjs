// The calls of the SQL functions of contents.
import { PosixError } from 'kemvi-helper';

/** @typedef {import('../engine/engine.mjs').Engine} Engine */
/**
 * A chunk as the database has it. Its bytes never change: `key` names them for good.
 * @typedef {object} ChunkRow
 * @property {number} position
 * @property {number} length bytes that count; behind them the chunk is zeros
 * @property {string} key
 * @property {string | null} object null: the bytes lie in the database
 * @property {number} version of the file, with which it came
 */
/** @typedef {{size: number, mtime: number, version: number}} FileFacts `mtime` in milliseconds since 1970 */
/**
 * @typedef {object} CommitRequest
 * @property {number} node
 * @property {number | null} base bytes to which the file is cut first; null: it is not cut
 * @property {number} extent the file is at least this long then
 * @property {number | null} mtime null keeps it
 * @property {StoredChunk[]} chunks
 * @property {number | null} upload
 * @property {number} lastTurn of the upload
 * @property {string[]} unused objects that nothing will ever name
 * @property {string} batch uuid of the commit
 * @property {number | null} expected version that the file must have; null: any
 */
/** @typedef {{position: number, length: number, object: string | null, bytes?: Buffer}} StoredChunk */
/**
 * @typedef {object} OnlyChunk the chunk of a file that has no other
 * @property {number} length
 * @property {string | null} object
 * @property {number} since version of the file, with which it came
 * @property {Buffer | null} contents its bytes, where they came along
 */

const commitText = `call kemvi_store.commit_file($1, $2, $3, $4, $5, $6, $7, $8, $9, $10, $11, $12, $13, $14,
    null, null, null, null, null)`;
const remembered = 50 * 60_000; // milliseconds; requests are forgotten after an hour

export class DatabaseChunks {
    /**
     * @param {Engine} engine
     * @param {{id: number, key: string}} tree
     */
    constructor(engine, tree) {
        this.engine_ = engine;
        this.tree_ = tree;
        /**
         * The last commit that was acknowledged.
         * @type {{batch: string, at: number} | undefined}
         */
        this.last_ = undefined;
        /**
         * The same when the connection broke.
         * @type {{batch: string, at: number} | undefined}
         */
        this.lastBefore_ = undefined;
    }

    /**
     * One round trip: what is known of a file, its chunks in a range, and the bytes of some of them where they lie in the
     * database.
     * @param {number} node
     * @param {number} first
     * @param {number} amount
     * @param {number} [dataFirst]
     * @param {number} [dataAmount]
     * @returns {Promise<{facts: FileFacts, rows: ChunkRow[], bytes: Map<string, Buffer>}>} `bytes` by key
     * @throws {PosixError} ESTALE when there is no such file any more
     */
    async chunks(node, first, amount, dataFirst = 0, dataAmount = 0) {
        const answer = await this.engine_.query('select * from kemvi_store.chunks($1, $2, $3, $4, $5, $6)', [
            this.tree_.id, node, first, amount, dataFirst, dataAmount,
        ]);
        if (answer.length === 0) throw gone();
        const { node_version: version, node_size: size, node_mtime: mtime } = answer[0];
        /** @type {ChunkRow[]} */
        const rows = [];
        /** @type {Map<string, Buffer>} */
        const bytes = new Map();
        for (const each of answer) {
            if (each.at === null) continue;
            const row = this.row_(node, each);
            rows.push(row);
            if (each.contents) bytes.set(row.key, each.contents);
        }
        return { facts: { size, mtime, version }, rows, bytes };
    }

    /**
     * @param {number} upload
     * @param {number} first
     * @param {number} amount
     * @returns {Promise<ChunkRow[]>}
     * @throws {GivenUp} also when it was committed
     */
    async uploadChunks(upload, first, amount) {
        const answer = await this.engine_.query('select * from kemvi_store.upload_chunks($1, $2, $3, $4)', [
            this.tree_.id, upload, first, amount,
        ]);
        if (answer.length === 0) throw givenUp();
        return answer.filter(({ at }) => at !== null).map((each) => this.row_(-upload, each));
    }

    /**
     * The bytes of chunks that lie in the database, by position; of those that were replaced meanwhile there are none.
     * @param {number} node
     * @param {ChunkRow[]} rows
     * @returns {Promise<Map<number, Buffer>>}
     */
    async bytes(node, rows) {
        const answer = await this.engine_.query('select * from kemvi_store.chunk_data($1, $2, $3)', [
            this.tree_.id, node, rows.map(({ position }) => position),
        ]);
        const found = new Map(answer.map((each) => [each.at, each]));
        /** @type {Map<number, Buffer>} */
        const bytes = new Map();
        for (const { position, version } of rows) {
            const each = found.get(position);
            if (each?.since === version) bytes.set(position, each.contents);
        }
        return bytes;
    }

    /**
     * @param {number} upload
     * @param {{isNew: boolean, turn: number, lastTurn: number}} how `turn`: a higher one for each call; `lastTurn`: the last
     *     one that has succeeded, or 0
     * @param {StoredChunk[]} chunks
     * @throws {GivenUp}
     */
    async stage(upload, { isNew, turn, lastTurn }, chunks) {
        const [{ kept }] = await this.engine_.change('select kemvi_store.stage_chunks($1, $2, $3, $4, $5, $6, $7, $8, $9) as kept', [
            this.tree_.id, upload, isNew, turn, lastTurn, rowsText(chunks), joined(chunks),
        ]);
        if (!kept) throw givenUp();
    }

    /** @param {number} upload */
    async renew(upload) {
        await this.engine_.change('select kemvi_store.renew_upload($1, $2, $3, $4)', [this.tree_.id, upload]);
    }

    /** @param {number[]} uploads */
    async drop(uploads) {
        await this.engine_.change('select kemvi_store.drop_uploads($1, $2, $3, $4)', [this.tree_.id, uploads]);
    }

    /**
     * @param {CommitRequest} commit
     * @returns {Promise<FileFacts & {again: boolean} | undefined>} `again`: it had been done before, and the facts are of now;
     *     undefined: the file has another version than was expected, and nothing was done
     * @throws {PosixError} ESTALE when there is no such file any more; GivenUp
     */
    async commit(commit) {
        const { node, base, extent, mtime, chunks, upload, lastTurn, unused, batch, expected } = commit;
        const [answer] = await this.engine_.change(commitText, [
            expected, this.tree_.id, node, base, extent, mtime, rowsText(chunks), joined(chunks), upload, lastTurn, unused, batch,
        ]);
        if (answer.code === 'EAGAIN') return undefined;
        if (answer.code === 'ESTALE') throw gone();
        if (answer.code) throw givenUp();
        this.last_ = { batch, at: Date.now() };
        return { size: answer.size, mtime: answer.mtime, version: answer.version, again: answer.again };
    }

    /** The connection has broken: the next one may be to a database that lacks what this one had. */
    noteBreak() {
        this.lastBefore_ ??= this.last_;
    }

    /**
     * When a commit was acknowledged, before the break, that the database does not have any more; undefined where none is known
     * to be lost.
     * @returns {Promise<number | undefined>} milliseconds since 1970
     */
    async lostCommit() {
        const { lastBefore_: last } = this;
        if (last === undefined || Date.now() - last.at > remembered) return undefined;
        const isThere = await this.wasCommitted(last.batch);
        this.lastBefore_ = undefined;
        return isThere ? undefined : last.at;
    }

    /**
     * Whether a commit whose answer did not come was done.
     * @param {string} batch
     */
    async wasCommitted(batch) {
        const found = await this.engine_.query('select from kemvi_store.request where tree = $1 and id = $2', [this.tree_.id, batch]);
        return found.length > 0;
    }

    /**
     * The row that a commit has made of a chunk.
     * @param {number} node
     * @param {StoredChunk} chunk
     * @param {number} version of the file after it
     */
    rowOf(node, { position, length, object }, version) {
        return this.row_(node, { at: position, bytes: length, name: object, since: version });
    }

    /**
     * @param {number} node
     * @param {any} each
     * @returns {ChunkRow}
     */
    row_(node, { at: position, bytes: length, name: object, since: version }) {
        const key = object ?? `${this.tree_.key}-${node}-${position}-${version}`;
        return { position, length, key, object, version };
    }
}

/** What was put away before the commit is gone, so that the commit can never succeed. */
export class GivenUp extends PosixError {}

function gone() {
    return new PosixError('ESTALE', 'the file was removed');
}

function givenUp() {
    return new GivenUp('EIO', 'what was written was given up: this helper was not heard of for too long, ' +
        'or the database has lost its last moments');
}

/** @param {StoredChunk[]} chunks */
function rowsText(chunks) {
    return JSON.stringify(chunks.map(({ position, length, object }) => [position, length, object]));
}

/** @param {StoredChunk[]} chunks */
function joined(chunks) {
    return Buffer.concat(chunks.map(({ object, bytes }) => (object === null && bytes ? bytes : nothing)));
}

const nothing = Buffer.alloc(0);
