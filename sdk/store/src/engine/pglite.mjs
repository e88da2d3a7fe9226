// PostgreSQL within this process, in a folder of its own.
import { randomUUID } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import { PosixError } from 'kemvi-helper';
import { failureLine } from './failures.mjs';
import { lockFolder } from './folderLock.mjs';
import { requestId } from './requestId.mjs';

/** @typedef {import('./engine.mjs').Engine} Engine */
/** @typedef {import('./engine.mjs').Row} Row */

// Bytes by way of node's own code: the engine's own takes nine times as long for each of them.
const bytea = 17;
const serializers = {
    [bytea]: (/** @type {Uint8Array} */ bytes) =>
        `\\x${Buffer.from(bytes.buffer, bytes.byteOffset, bytes.length).toString('hex')}`,
};
const parsers = { [bytea]: (/** @type {string} */ text) => Buffer.from(text.slice(2), 'hex') };

/**
 * @param {string} folder made if it is not there; its parent must be
 * @param {(text: string) => void} [say] takes lines for people
 * @returns {Promise<Engine>}
 */
export async function openEmbedded(folder, say = () => {}) {
    makeFolder(folder);
    const lock = lockFolder(folder);
    try {
        if (!fs.existsSync(path.join(folder, 'database'))) say(`making the embedded store in ${folder}; this takes some seconds`);
        const { PGlite } = await import('@electric-sql/pglite'); // large: only who uses it waits for it
        const database = await PGlite.create(path.join(folder, 'database'), { serializers, parsers });
        await database.exec('set enable_seqscan = off; set plan_cache_mode = force_generic_plan');
        return new EmbeddedEngine(folder, database, lock);
    } catch (error) {
        lock.release();
        throw new Error(`${folder}: the embedded store cannot be opened: ${failureLine(error)}`);
    }
}

/** @param {string} folder */
function makeFolder(folder) {
    if (!fs.existsSync(folder)) fs.mkdirSync(folder, { mode: 0o700 });
    const strange = fs.readdirSync(folder).find((name) => name !== 'database' && name !== 'kemvi.lock');
    if (strange !== undefined && !fs.existsSync(path.join(folder, 'database'))) {
        throw new Error(`${folder}: holds ${strange} and no store; name an empty folder, or one that is not there yet`);
    }
}

class EmbeddedEngine {
    /**
     * @param {string} folder
     * @param {import('@electric-sql/pglite').PGlite} database
     * @param {{release: () => void}} lock
     */
    constructor(folder, database, lock) {
        this.origin = randomUUID();
        this.folder_ = folder;
        this.database_ = database;
        this.lock_ = lock;
    }

    /** @param {string} text @param {any[]} [params] @returns {Promise<Row[]>} */
    async query(text, params = []) {
        try {
            const { rows } = await this.database_.query(text, params);
            return rows.map(asBuffers);
        } catch (error) {
            throw new PosixError('EIO', `pglite:${this.folder_}: ${failureLine(error)}`);
        }
    }

    /** @param {string} text @param {any[]} [params] @returns {Promise<Row[]>} */
    change(text, params = []) {
        return this.query(text, [...params, requestId(), this.origin]);
    }

    /**
     * @template T
     * @param {(query: any) => Promise<T>} work
     * @returns {Promise<T>}
     */
    transaction(work) {
        return this.database_.transaction(async (transaction) => {
            const query = async (/** @type {string} */ text, /** @type {any[]} */ params = []) =>
                /** @type {any[]} */ ((await transaction.query(text, params)).rows).map(asBuffers);
            const script = async (/** @type {string} */ text) => void (await transaction.exec(text));
            return work(Object.assign(query, { script }));
        });
    }

    /** There is nobody else. */
    async listen() {}

    /** Nobody else brings the schema forward. */
    refuse() {}

    async close() {
        if (this.database_.closed) return;
        await this.database_.close();
        this.lock_.release();
    }
}

/** @param {any} row */
function asBuffers(row) {
    for (const name in row) {
        const value = row[name];
        if (value instanceof Uint8Array) row[name] = Buffer.from(value.buffer, value.byteOffset, value.length);
    }
    return row;
}
