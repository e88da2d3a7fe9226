// The bytes of chunks: from memory, from the disk, or from where they are kept.
import { PosixError } from 'kemvi-helper';
import { MissingObject } from '../objects/objects.mjs';

/** @typedef {import('./databaseChunks.mjs').ChunkRow} ChunkRow */
/** @typedef {import('./databaseChunks.mjs').DatabaseChunks} DatabaseChunks */
/** @typedef {import('./memoryCache.mjs').MemoryCache} MemoryCache */
/** @typedef {import('./diskCache.mjs').DiskCache} DiskCache */
/** @typedef {import('../objects/objects.mjs').Objects} Objects */

export class ChunkBytes {
    /**
     * @param {object} parts
     * @param {DatabaseChunks} parts.database
     * @param {Objects | undefined} parts.objects
     * @param {MemoryCache} parts.memory
     * @param {DiskCache | undefined} parts.disk
     * @param {import('./limiter.mjs').Limiter} parts.transfers
     */
    constructor({ database, objects, memory, disk, transfers }) {
        this.database_ = database;
        this.objects_ = objects;
        this.memory_ = memory;
        this.disk_ = disk;
        this.transfers_ = transfers;
        /** @type {Map<string, Promise<Buffer>>} by key: what is on its way, so that nothing is fetched twice at a time */
        this.coming_ = new Map();
    }

    /**
     * Keeps bytes that came, or went, otherwise.
     * @param {string} key
     * @param {Buffer} bytes
     */
    keep(key, bytes) {
        this.memory_.put(key, bytes);
    }

    /**
     * What is there without a wait.
     * @param {ChunkRow} row
     */
    at(row) {
        const bytes = this.memory_.get(row.key);
        return bytes && this.cut_(row, bytes);
    }

    /**
     * The bytes that count of one chunk.
     * @param {number} node whose it is; minus an upload
     * @param {ChunkRow} row
     * @returns {Promise<Buffer>}
     * @throws {MissingObject} when it was replaced meanwhile, or is lost
     */
    async get(node, row) {
        const known = this.at(row);
        if (known) return known;
        if (!this.coming_.has(row.key)) this.fetch_(node, [row]);
        return this.cut_(row, await /** @type {Promise<Buffer>} */ (this.coming_.get(row.key)));
    }

    /**
     * Fetches what is neither here nor on its way. What fails is left to whoever needs it.
     * @param {number} node
     * @param {ChunkRow[]} rows
     */
    fetchAhead(node, rows) {
        const missing = rows.filter(({ key }) => !this.memory_.has(key) && !this.coming_.has(key));
        if (missing.length === 0) return;
        this.fetch_(node, missing);
        for (const { key } of missing) this.coming_.get(key)?.catch(() => {});
    }

    /**
     * @param {number} node
     * @param {ChunkRow[]} rows of which none is on its way
     */
    fetch_(node, rows) {
        const onDisk = Promise.all(rows.map(({ key }) => this.disk_?.get(key)));
        const inDatabase = onDisk.then((found) => this.fromDatabase_(node, rows.filter((row, at) => !found[at])));
        inDatabase.catch(() => {}); // each row that needs it tells
        rows.forEach((row, at) => {
            const bytes = onDisk.then((found) => found[at] ?? this.fromOrigin_(row, inDatabase));
            const arriving = bytes.then((came) => this.arrived_(row, came)).finally(() => this.coming_.delete(row.key));
            this.coming_.set(row.key, arriving);
        });
    }

    /**
     * All of one file in one round trip.
     * @param {number} node
     * @param {ChunkRow[]} rows
     */
    async fromDatabase_(node, rows) {
        const wanted = rows.filter(({ object }) => object === null);
        return wanted.length === 0 ? new Map() : this.database_.bytes(node, wanted);
    }

    /**
     * @param {ChunkRow} row
     * @param {Promise<Map<number, Buffer>>} inDatabase
     */
    async fromOrigin_(row, inDatabase) {
        const { object, position, key } = row;
        let bytes;
        if (object === null) bytes = (await inDatabase).get(position);
        else if (this.objects_) bytes = await this.transfers_.run(() => /** @type {Objects} */ (this.objects_).get(object));
        if (bytes === undefined) throw new MissingObject(key);
        this.disk_?.put(key, bytes);
        return bytes;
    }

    /** @param {ChunkRow} row @param {Buffer} bytes */
    arrived_(row, bytes) {
        this.memory_.put(row.key, bytes);
        return bytes;
    }

    /** @param {ChunkRow} row @param {Buffer} bytes */
    cut_({ key, length }, bytes) {
        if (bytes.length < length) throw new PosixError('EIO', `${key} has ${bytes.length} bytes and should have ${length}`);
        return bytes.length === length ? bytes : bytes.subarray(0, length);
    }
}
