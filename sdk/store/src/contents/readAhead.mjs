// Fetches the next chunks of a file for a handle that reads it in order.

export class ReadAhead {
    /**
     * @param {(from: number, to: number) => void} fetch chunks at positions from `from` to before `to`
     * @param {{chunkSize: number, most: number}} limits `most`: chunks that are fetched ahead
     */
    constructor(fetch, { chunkSize, most }) {
        this.fetch_ = fetch;
        this.chunkSize_ = chunkSize;
        this.most_ = most;
        this.position_ = -1;
        this.depth_ = 0;
        this.asked_ = 0;
    }

    /**
     * Who reads goes on to here. Twice as far ahead with each chunk that is read in order, nothing after a leap.
     * @param {number} offset
     * @param {number} length at least 1
     */
    read(offset, length) {
        const first = Math.floor(offset / this.chunkSize_);
        const last = Math.floor((offset + length - 1) / this.chunkSize_);
        // Requests of one reader may overtake each other a little.
        const isInOrder = first >= this.position_ - 1 && first <= this.position_ + 2;
        if (!isInOrder) {
            this.depth_ = 0;
            this.asked_ = 0;
        } else if (last > this.position_) {
            this.depth_ = Math.min(this.most_, Math.max(1, this.depth_ * 2));
        }
        this.position_ = isInOrder ? Math.max(this.position_, last) : last;
        const from = Math.max(this.asked_, this.position_ + 1);
        const to = this.position_ + 1 + this.depth_;
        // Some together: chunks in the database come in one round trip then.
        if (to - from < Math.max(1, this.depth_ / 4)) return;
        this.asked_ = to;
        this.fetch_(from, to);
    }
}
