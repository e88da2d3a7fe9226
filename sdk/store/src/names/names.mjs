// Names and attributes of one tree: a call of the routine in the database for each operation, one round trip.
import { PosixError } from 'kemvi-helper';
import { smallFile } from '../contents/small.mjs';
import { leastRequestId } from '../engine/requestId.mjs';
import { placeOf } from './places.mjs';
import { throwRefusal } from './refusals.mjs';
import { attributesAt, membersAt } from './walk.mjs';

/** @typedef {import('../engine/engine.mjs').Engine} Engine */
/**
 * @typedef {object} Facts what is known of a node
 * @property {number} node
 * @property {'d' | 'f'} kind
 * @property {number} size bytes
 * @property {number} mtime milliseconds since 1970
 * @property {number} mode
 * @property {number} version of the contents
 */
/**
 * @typedef {Facts & {only?: import('../contents/databaseChunks.mjs').OnlyChunk | null}} Opened `only`: the one chunk of the
 *     file, with its bytes where they are few and lie in the database; null where it has none, left out when it may have more
 */
/** @typedef {{name: string, isDirectory: boolean, size: number, modifiedAt: number, node: number}} Member */

const createText = 'call kemvi_store.create_file($1, $2, $3, $4, $5, null, null, null, null, null, null, null)';
const trimAfter = 2000; // changes
const trimmedAge = 3_600_000; // milliseconds
const nothing = /** @type {import('../engine/engine.mjs').Row} */ ({ code: 'ENOENT' });
const justNow = 20; // milliseconds

// At one moment: the node, and its chunk if it has but one. Whoever opens a small file most likely reads it.
const openText = `
    select n.id as node, n.kind, n.size, n.mtime, n.mode, n.version, c.length, c.object, c.version as since,
        case when c.length <= $4 then substring(c.data from 1 for c.length) end as contents
    from kemvi_store.resolve($1, $2) n
    left join kemvi_store.chunk c on c.tree = $1 and c.node = n.id and c.position = 0 and n.size <= $3`;

export class Names {
    /** @param {Engine} engine @param {{id: number, chunkSize: number}} tree */
    constructor(engine, tree) {
        this.engine_ = engine;
        this.tree_ = tree.id;
        this.chunkSize_ = tree.chunkSize;
        this.untrimmed_ = trimAfter;
        /**
         * What the last change has told of the file that it has made. A host that makes a file asks at once for its
         * attributes, while whoever makes it still waits, and opens it for what is written next: both are answered with what
         * was told, once, and at once only.
         * @type {{path: string, facts: Facts, at: number, isTold: boolean} | undefined}
         */
        this.made_ = undefined;
    }

    /** @param {string} path @returns {Promise<Facts>} */
    async getattr(path) {
        const made = this.justMade_(path);
        if (made && !made.isTold) {
            made.isTold = true;
            return made.facts;
        }
        const { text, params } = attributesAt(this.tree_, plain(path));
        const [row = nothing] = await this.ask_(text, params);
        throwRefusal(row.code, path);
        return /** @type {any} */ (row);
    }

    /** @param {string} path @returns {Promise<Member[]>} */
    async readdir(path) {
        const { text, params } = membersAt(this.tree_, plain(path));
        const [row = nothing] = await this.ask_(text, params);
        throwRefusal(row.code, path);
        if (row.names === null) return [];
        const facts = row.facts.split('/');
        return row.names.split('/').map((/** @type {string} */ name, /** @type {number} */ index) => memberOf(name, facts[index]));
    }

    /**
     * The file at a path, to be opened.
     * @param {string} path
     * @param {boolean} create make it when there is none
     * @returns {Promise<Opened>}
     */
    async open(path, create) {
        const facts = create ? await this.create_(path) : await this.open_(path);
        if (facts.kind === 'd') throwRefusal('EISDIR', path);
        return facts;
    }

    /** @param {string} path @returns {Promise<Opened>} */
    async open_(path) {
        const [row] = await this.ask_(openText, [this.tree_, plain(path), this.chunkSize_, smallFile]);
        const { length, object, since, contents, ...facts } = row;
        if (facts.node === null) throwRefusal(facts.kind === 'f' ? 'ENOTDIR' : 'ENOENT', path);
        const only = length === null ? null : { length, object, since, contents };
        return /** @type {any} */ (facts.size > this.chunkSize_ ? facts : { ...facts, only });
    }

    /** @param {string} path @returns {Promise<Facts>} */
    async create_(path) {
        if (path === '/') throwRefusal('EISDIR', path);
        const [row] = await this.change_(createText, placeOf(path));
        throwRefusal(row.code, path);
        const facts = /** @type {Facts} */ (row);
        if (facts.kind === 'f' && facts.version === 1) this.made_ = { path, facts, at: performance.now(), isTold: false };
        return facts;
    }

    /** @param {string} path */
    async mkdir(path) {
        if (path === '/') throwRefusal('EEXIST', path);
        const [{ code }] = await this.change_('call kemvi_store.mkdir($1, $2, $3, $4, $5, null)', placeOf(path));
        throwRefusal(code, path);
    }

    /** @param {string} path */
    async unlink(path) {
        const [{ code }] = await this.change_('call kemvi_store.unlink($1, $2, $3, $4, $5, null)', placeOf(path));
        throwRefusal(code, path);
    }

    /** @param {string} oldPath @param {string} newPath */
    async rename(oldPath, newPath) {
        const [{ code }] = await this.change_('call kemvi_store.rename($1, $2, $3, $4, $5, $6, $7, null)', [
            ...placeOf(oldPath), ...placeOf(newPath),
        ]);
        throwRefusal(code, code === 'ENOENT' ? `${oldPath}, or the folder of ${newPath}` : newPath);
    }

    /** @param {string} path @param {number} mode */
    async chmod(path, mode) {
        const text = 'select kemvi_store.chmod($1, $2, $3, $4, $5) as code';
        const [{ code }] = await this.change_(text, [plain(path), mode]);
        throwRefusal(code, path);
    }

    /**
     * @param {string} path
     * @param {number} mtime milliseconds since 1970
     * @returns {Promise<number>} the node
     */
    async utimes(path, mtime) {
        const text = 'call kemvi_store.set_time($1, $2, $3, $4, $5, null, null)';
        const [{ code, node }] = await this.change_(text, [plain(path), Math.trunc(mtime)]);
        throwRefusal(code, path);
        return node;
    }

    /** @returns {Promise<{files?: number}>} */
    async statfs() {
        const [row] = await this.ask_('select * from kemvi_store.statfs($1)', [this.tree_]);
        return row;
    }

    /**
     * What was told of a file, if that was just made and nothing else was asked since; it is not told again.
     * @param {string} path
     * @returns {Facts | undefined}
     */
    takeMade(path) {
        const made = this.justMade_(path);
        this.forgetMade();
        return made?.facts;
    }

    /** @param {string} path */
    justMade_(path) {
        const { made_: made } = this;
        return made?.path === path && performance.now() - made.at < justNow ? made : undefined;
    }

    /** Something else was asked since a file was made. */
    forgetMade() {
        this.made_ = undefined;
    }

    /** Counts a change that was made; now and then it removes what is remembered of old ones, which nobody waits for. */
    noteChange() {
        if (++this.untrimmed_ < trimAfter) return;
        this.untrimmed_ = 0;
        const before = leastRequestId(Date.now() - trimmedAge);
        this.engine_.query('select kemvi_store.trim($1, $2)', [this.tree_, before]).catch(() => {});
    }

    /** @param {string} text @param {any[]} params */
    ask_(text, params) {
        this.forgetMade();
        return this.engine_.query(text, params);
    }

    /** @param {string} text @param {any[]} params */
    async change_(text, params) {
        this.forgetMade();
        const rows = await this.engine_.change(text, [this.tree_, ...params]);
        this.noteChange();
        return rows;
    }
}

/** @param {string} path */
function plain(path) {
    if (path.includes('\0')) throw new PosixError('EINVAL', `${JSON.stringify(path)} is not a plain path`);
    return path;
}

/**
 * @param {string} name
 * @param {string} facts such as f1024,1716800000000,77
 * @returns {Member}
 */
function memberOf(name, facts) {
    const first = facts.indexOf(',');
    const second = facts.indexOf(',', first + 1);
    return {
        name,
        isDirectory: facts[0] === 'd',
        size: Number(facts.slice(1, first)),
        modifiedAt: Number(facts.slice(first + 1, second)),
        node: Number(facts.slice(second + 1)),
    };
}
