// Cuts the bytes that arrive into lines and lines into requests.

/** @typedef {import('./base64/codec.mjs').Codec} Codec */

const lineFeed = 10;
const startSize = 2 << 20; // of which most lines use a small part; memory that is not used costs nothing

/** Gathers bytes in one buffer, which grows with the longest line and shrinks again after it. */
export class LineBuffer {
    /**
     * @param {Codec} codec
     * @param {number} [size] bytes to start with
     */
    constructor(codec, size = startSize) {
        this.first_ = codec.allocate(size);
        this.bytes = this.first_;
        this.start_ = 0; // of the line that is being gathered
        this.scanned_ = 0; // up to here there is no line feed
        this.end_ = 0; // of what has arrived
        this.lineStart = 0; // the line found last
        this.lineEnd = 0;
    }

    /**
     * Makes room for more bytes, which may move what is held.
     * @returns {number} where in `bytes` they go; at least one fits from there, with one left to spare
     */
    prepareFill() {
        if (this.start_ === this.end_) {
            this.start_ = this.scanned_ = this.end_ = 0;
            this.bytes = this.first_;
        } else if (this.end_ + 1 >= this.bytes.length) {
            this.makeRoom_();
        }
        return this.end_;
    }

    /** How many bytes fit where the last `prepareFill` said. */
    get room() {
        return this.bytes.length - 1 - this.end_; // one byte for the mark that `nextLine` sets
    }

    /** @param {number} count bytes that were put where the last `prepareFill` said */
    filled(count) {
        this.end_ += count;
    }

    /** @param {Uint8Array} chunk bytes to take over by copying */
    append(chunk) {
        for (let taken = 0; taken < chunk.length; ) {
            const position = this.prepareFill();
            const count = Math.min(this.room, chunk.length - taken);
            this.bytes.set(chunk.subarray(taken, taken + count), position);
            this.filled(count);
            taken += count;
        }
    }

    /** Finds the next whole line: `bytes` from `lineStart` to `lineEnd`, without its line feed. It stays in place until
     * the next call or fill. */
    nextLine() {
        const bytes = this.bytes;
        bytes[this.end_] = lineFeed; // so that the search never runs on into stale bytes
        const found = bytes.indexOf(lineFeed, this.scanned_);
        if (found === this.end_) {
            this.scanned_ = found;
            return false;
        }
        this.lineStart = this.start_;
        this.lineEnd = found;
        this.start_ = this.scanned_ = found + 1;
        return true;
    }

    /** Bytes after the last whole line. */
    get leftover() {
        return this.end_ - this.start_;
    }

    makeRoom_() {
        const used = this.end_ - this.start_;
        const target = used * 2 > this.bytes.length ? Buffer.allocUnsafeSlow(this.bytes.length * 2) : this.bytes;
        this.bytes.copy(target, 0, this.start_, this.end_);
        this.bytes = target;
        this.scanned_ -= this.start_;
        this.start_ = 0;
        this.end_ = used;
    }
}

/**
 * A request as it came; the operations check the fields that they use.
 * @typedef {object} Request
 * @property {unknown} id
 * @property {unknown} op
 * @property {unknown} [path]
 * @property {unknown} [oldPath]
 * @property {unknown} [newPath]
 * @property {unknown} [flags]
 * @property {unknown} [handle]
 * @property {unknown} [offset]
 * @property {unknown} [length]
 * @property {unknown} [mode]
 * @property {unknown} [mtime]
 * @property {unknown} [dataBase64] the text, or `true` when the bytes are in `data`
 * @property {Buffer} [data] the decoded bytes, valid while the line is in its buffer
 */

const shortLine = 512;
const dataKey = Buffer.from('"dataBase64":"');
const quoteMark = 34;

/**
 * @param {Buffer} bytes
 * @param {number} from
 * @param {number} to
 * @param {Codec} codec
 * @returns {Request}
 * @throws {SyntaxError} when the line is not a JSON object
 */
export function parseRequest(bytes, from, to, codec) {
    const long = to - from > shortLine;
    const request = long ? parseLongRequest(bytes, from, to, codec) : JSON.parse(bytes.utf8Slice(from, to));
    if (typeof request !== 'object' || request === null || Array.isArray(request)) {
        throw new SyntaxError('the line is not a JSON object');
    }
    return request;
}

// The payload of a write never becomes part of a JSON text: it is cut out and decoded where it lies.
/**
 * @param {Buffer} bytes
 * @param {number} from
 * @param {number} to
 * @param {Codec} codec
 * @returns {Request}
 */
function parseLongRequest(bytes, from, to, codec) {
    const key = bytes.indexOf(dataKey, from);
    const before = key > from && key < to ? bytes[key - 1] : 0;
    if (before !== 0x2c && before !== 0x7b) return JSON.parse(bytes.utf8Slice(from, to)); // not after a comma or brace
    const dataFrom = key + dataKey.length;
    const dataTo = bytes.indexOf(quoteMark, dataFrom);
    if (dataTo < 0 || dataTo >= to) throw new SyntaxError('the line ends within "dataBase64"');
    const request = JSON.parse(bytes.utf8Slice(from, dataFrom) + bytes.utf8Slice(dataTo, to));
    const end = codec.decodeInPlace(bytes, dataFrom, dataTo);
    if (end >= 0) {
        request.dataBase64 = true;
        request.data = bytes.subarray(dataFrom, end);
    } else {
        request.dataBase64 = false;
    }
    return request;
}
