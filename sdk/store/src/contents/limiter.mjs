// So many at a time.

export class Limiter {
    /** @param {number} most */
    constructor(most) {
        this.free_ = most;
        /** @type {(() => void)[]} */
        this.waiting_ = [];
    }

    /**
     * @template T
     * @param {() => Promise<T>} work
     * @returns {Promise<T>}
     */
    async run(work) {
        if (this.free_ > 0) this.free_--;
        else await new Promise((/** @type {(value: void) => void} */ go) => this.waiting_.push(go));
        try {
            return await work();
        } finally {
            const next = this.waiting_.shift();
            if (next) next();
            else this.free_++;
        }
    }
}
