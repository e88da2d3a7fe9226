// Chunks that were used lately, up to a number of bytes.

export class MemoryCache {
    /** @param {number} limit bytes */
    constructor(limit) {
        this.limit_ = limit;
        this.used_ = 0;
        /** @type {Map<string, Buffer>} the one used longest ago first */
        this.chunks_ = new Map();
    }

    get used() {
        return this.used_;
    }

    /** @param {string} key */
    get(key) {
        const bytes = this.chunks_.get(key);
        if (bytes === undefined) return undefined;
        this.chunks_.delete(key);
        this.chunks_.set(key, bytes);
        return bytes;
    }

    /** @param {string} key */
    has(key) {
        return this.chunks_.has(key);
    }

    /**
     * @param {string} key
     * @param {Buffer} bytes which must not change any more
     */
    put(key, bytes) {
        this.drop(key);
        this.used_ += weightOf(bytes);
        this.chunks_.set(key, alone(bytes));
        for (const oldest of this.chunks_.keys()) {
            if (this.used_ <= this.limit_) break;
            this.drop(oldest);
        }
    }

    /** @param {string} key */
    drop(key) {
        const bytes = this.chunks_.get(key);
        if (bytes === undefined) return;
        this.chunks_.delete(key);
        this.used_ -= weightOf(bytes);
    }
}

const recordLength = 300; // what node needs for an entry, about

/** @param {Buffer} bytes */
function weightOf(bytes) {
    return bytes.length + recordLength;
}

/**
 * A slice would keep all of the memory that it is cut from.
 * @param {Buffer} bytes
 */
function alone(bytes) {
    return bytes.buffer.byteLength > bytes.length + 16_384 ? Buffer.from(bytes) : bytes;
}
