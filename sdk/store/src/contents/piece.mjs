// What was written to one chunk and is not committed.

const smallest = 4096;
const growth = 8; // who writes in order fills a chunk with few copies

export class Piece {
    /** @param {number} capacity bytes of a whole chunk */
    constructor(capacity) {
        this.capacity_ = capacity;
        this.bytes_ = Buffer.alloc(0);
        /** Bytes up to the end of what was written. */
        this.end = 0;
        /** @type {number[]} where what was written begins and ends, in order and apart from each other */
        this.ranges_ = [];
        /** Counted with each change, so that whoever has taken the bytes sees whether they are still right. */
        this.edition = 0;
        this.isLent_ = false;
        /** @type {{object: string, at: number} | undefined} the object that has the bytes, and when it was put away */
        this.stored = undefined;
        /** @type {Promise<void> | undefined} while it is being put away */
        this.storing = undefined;
    }

    /** Bytes of memory. */
    get weight() {
        return this.bytes_.length;
    }

    /**
     * @param {number} at
     * @param {Uint8Array} data
     */
    write(at, data) {
        const end = at + data.length;
        this.makeRoom_(end);
        this.bytes_.set(data, at);
        this.add_(at, end);
        this.end = Math.max(this.end, end);
        this.edition++;
    }

    /**
     * Whether all of a range was written; an empty one always was.
     * @param {number} from
     * @param {number} to
     */
    covers(from, to) {
        if (from >= to) return true;
        for (let at = 0; at < this.ranges_.length; at += 2) {
            if (this.ranges_[at] <= from && to <= this.ranges_[at + 1]) return true;
        }
        return false;
    }

    /**
     * Puts old bytes, from the start of the chunk, under what was written; zeros where there are none.
     * @param {Uint8Array} old
     */
    fill(old) {
        if (this.covers(0, Math.max(this.end, old.length))) return;
        const bytes = Buffer.alloc(Math.max(this.end, old.length));
        bytes.set(old);
        this.copyTo(bytes, 0, 0, bytes.length);
        this.bytes_ = bytes;
        this.isLent_ = false;
        this.end = bytes.length;
        this.ranges_ = [0, this.end];
        this.edition++;
    }

    /**
     * Copies what was written of a range.
     * @param {Uint8Array} target
     * @param {number} targetAt where the range begins there
     * @param {number} from
     * @param {number} to
     */
    copyTo(target, targetAt, from, to) {
        for (let at = 0; at < this.ranges_.length; at += 2) {
            const begin = Math.max(from, this.ranges_[at]);
            const end = Math.min(to, this.ranges_[at + 1]);
            if (begin < end) target.set(this.bytes_.subarray(begin, end), targetAt + begin - from);
        }
    }

    /** The bytes, of which none changes any more: a write that follows makes a copy. For a piece that is filled. */
    lend() {
        this.isLent_ = true;
        return this.bytes_.subarray(0, this.end);
    }

    /** @param {number} end */
    makeRoom_(end) {
        if (end <= this.bytes_.length && !this.isLent_) return;
        let size = Math.max(smallest, this.bytes_.length);
        while (size < end) size *= growth;
        const bytes = Buffer.alloc(Math.max(end, Math.min(size, this.capacity_)));
        bytes.set(this.bytes_);
        this.bytes_ = bytes;
        this.isLent_ = false;
    }

    /** @param {number} from @param {number} to */
    add_(from, to) {
        const { ranges_: ranges } = this;
        let first = 0;
        while (first < ranges.length && ranges[first + 1] < from) first += 2;
        let last = first;
        while (last < ranges.length && ranges[last] <= to) last += 2;
        if (last > first) {
            from = Math.min(from, ranges[first]);
            to = Math.max(to, ranges[last - 1]);
        }
        ranges.splice(first, last - first, from, to);
    }
}
