// Answers of a slow file system: kept up to a number of bytes, the least recently used go first; asked for once even when
// several want them; dropped with everything beneath a path.

export const recordLength = 200; // bytes, about, that node needs for anything that is kept
const mostDropped = 1000; // drops that are remembered before they are carried out

/**
 * @typedef {object} Kept
 * @property {any} value
 * @property {number} at when it came, in milliseconds
 * @property {number} weight in bytes
 * @property {number} since the latest drop when it was asked for
 */

/**
 * What is kept has a key "KIND:PATH". A drop only notes its number at the path, so that it costs the same however much is
 * kept; an answer that was asked for before the drop no longer counts, neither a kept one nor one that is still to come.
 */
export class KeptAnswers {
    /**
     * @param {number} memory bytes
     * @param {number} ttl milliseconds
     * @param {() => number} now milliseconds
     */
    constructor(memory, ttl, now) {
        this.memory_ = memory;
        this.ttl_ = ttl;
        this.now_ = now;
        this.weight = 0;
        /** @type {Map<string, Kept>} the one used longest ago first */
        this.kept_ = new Map();
        /** @type {Map<string, {promise: Promise<any>, since: number}>} */
        this.underWay_ = new Map();
        /** @type {Map<string, number>} paths, with all beneath, and keys, alone: the number of their latest drop */
        this.dropped_ = new Map();
        this.lastDrop_ = 0;
        this.sweptAt_ = 0;
    }

    /**
     * @param {string} key
     * @param {number} [ttl] milliseconds; for ever with Infinity
     * @returns {Kept | undefined}
     */
    find(key, ttl = this.ttl_) {
        const kept = this.kept_.get(key);
        if (kept === undefined) return undefined;
        this.kept_.delete(key);
        if (!this.counts_(key, kept.since)) {
            this.weight -= kept.weight;
            return undefined;
        }
        this.kept_.set(key, kept);
        return this.now_() - kept.at < ttl ? kept : undefined;
    }

    /**
     * Whether it is kept or about to come.
     * @param {string} key
     * @param {number} [ttl]
     */
    has(key, ttl) {
        return this.find(key, ttl) !== undefined || this.comingFor_(key) !== undefined;
    }

    /**
     * What is kept or, where nothing is, what `make` gives, which is kept then. An error is not.
     * @param {string} key
     * @param {() => Promise<any>} make
     * @param {(value: any) => number} weigh bytes; 0 for what is not to be kept
     * @param {number} [ttl]
     * @returns {Promise<any>}
     */
    async ask(key, make, weigh, ttl) {
        const kept = this.find(key, ttl);
        if (kept !== undefined) return kept.value;
        const coming = this.comingFor_(key);
        if (coming !== undefined) return coming.promise;
        const asked = { promise: this.make_(key, make, weigh), since: this.lastDrop_ };
        this.underWay_.set(key, asked);
        try {
            return await asked.promise;
        } finally {
            if (this.underWay_.get(key) === asked) this.underWay_.delete(key);
        }
    }

    /**
     * Forgets everything of a path and of what is beneath it.
     * @param {string} path
     */
    drop(path) {
        this.note_(path);
    }

    /**
     * Forgets one answer.
     * @param {string} key
     */
    dropAlone(key) {
        this.note_(key);
        this.find(key); // gives its bytes back
    }

    /**
     * @param {string} key
     * @param {() => Promise<any>} make
     * @param {(value: any) => number} weigh
     */
    async make_(key, make, weigh) {
        const since = this.lastDrop_;
        const value = await make();
        const weight = weigh(value);
        if (weight === 0 || weight > this.memory_ || !this.counts_(key, since)) return value;
        this.weight += weight - (this.kept_.get(key)?.weight ?? 0);
        this.kept_.delete(key);
        this.kept_.set(key, { value, at: this.now_(), weight, since });
        for (const [oldest, { weight: freed }] of this.kept_) {
            if (this.weight <= this.memory_) break;
            this.kept_.delete(oldest);
            this.weight -= freed;
        }
        return value;
    }

    /** @param {string} key */
    comingFor_(key) {
        const coming = this.underWay_.get(key);
        return coming !== undefined && this.counts_(key, coming.since) ? coming : undefined;
    }

    /**
     * Whether nothing was dropped of it since.
     * @param {string} key
     * @param {number} since
     */
    counts_(key, since) {
        if (since < this.sweptAt_ || (this.dropped_.get(key) ?? 0) > since) return false;
        if (this.dropped_.size === 0) return true;
        for (let path = key.slice(key.indexOf(':') + 1); ; path = parentOf(path)) {
            if ((this.dropped_.get(path) ?? 0) > since) return false;
            if (path === '/') return true;
        }
    }

    /** @param {string} pathOrKey */
    note_(pathOrKey) {
        if (this.dropped_.size >= mostDropped) this.sweep_();
        this.dropped_.set(pathOrKey, ++this.lastDrop_);
    }

    /** Carries out what was noted. What is under way is given to who waits for it, and not kept. */
    sweep_() {
        const swept = ++this.lastDrop_;
        for (const [key, kept] of this.kept_) {
            if (this.counts_(key, kept.since)) {
                kept.since = swept;
            } else {
                this.kept_.delete(key);
                this.weight -= kept.weight;
            }
        }
        this.dropped_.clear();
        this.sweptAt_ = swept;
    }
}

/** @param {string} path */
export function parentOf(path) {
    return path.slice(0, path.lastIndexOf('/')) || '/';
}

/** @param {string} path */
export function nameOf(path) {
    return path.slice(path.lastIndexOf('/') + 1);
}

/**
 * @param {string} folder
 * @param {string} name
 */
export function beneath(folder, name) {
    return (folder === '/' ? '' : folder) + '/' + name;
}
