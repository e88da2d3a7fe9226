// Keeps what was made until newer things need the room.

/** @template T */
export class RecentlyUsed {
    /**
     * @param {number} capacity the weight of all values together
     * @param {(value: T) => number} [weigh] 1 for each when left out
     */
    constructor(capacity, weigh = () => 1) {
        this.capacity_ = capacity;
        this.weigh_ = weigh;
        this.weight_ = 0;
        /** @type {Map<string, T>} the one used longest ago first */
        this.values_ = new Map();
    }

    /**
     * @param {string} key
     * @param {() => Promise<T>} make
     * @returns {Promise<T>}
     */
    async get(key, make) {
        if (this.values_.has(key)) {
            const known = /** @type {T} */ (this.values_.get(key));
            this.values_.delete(key);
            this.values_.set(key, known);
            return known;
        }
        const value = await make();
        this.weight_ += this.weigh_(value);
        this.values_.set(key, value);
        for (const [oldest, dropped] of this.values_) {
            if (this.weight_ <= this.capacity_) break;
            this.values_.delete(oldest);
            this.weight_ -= this.weigh_(dropped);
        }
        return value;
    }
}
