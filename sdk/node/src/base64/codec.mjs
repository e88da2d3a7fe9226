// Base64 between buffers, with no string in between.
import { base64Module } from './base64Module.mjs';
import { PlainCodec } from './plain.mjs';

/**
 * @typedef {object} Codec
 * @property {(size: number) => Buffer} allocate a buffer from which and to which the codec works without copying
 * @property {(source: Buffer, from: number, to: number, target: Buffer, at: number) => number} encode puts the base64
 *     text of a part of `source` into `target`, which has room for 16 bytes more; gives the length of the text
 * @property {(buffer: Buffer, from: number, to: number) => number} decodeInPlace decodes padded base64, in which
 *     slashes may be escaped as in JSON, and puts the bytes at `from`; gives where they end, -1 when it is not base64
 */

/** @returns {Codec} the fastest that there is here */
export function makeCodec() {
    try {
        return new VectorCodec();
    } catch {
        return new PlainCodec();
    }
}

const memorySize = 6 << 20;
const pageSize = 65536;
const stagingSize = 48 * 1024;
const slack = 32; // vectors are loaded and stored whole

/** @type {WebAssembly.Module | undefined} */
let compiled;

/** @implements {Codec} */
export class VectorCodec {
    /** @throws when the engine or the processor has no vectors */
    constructor() {
        compiled ??= new WebAssembly.Module(Buffer.from(base64Module, 'base64'));
        const memory = new WebAssembly.Memory({ initial: memorySize / pageSize, maximum: memorySize / pageSize });
        const instance = new WebAssembly.Instance(compiled, { env: { memory } });
        this.functions_ = /** @type {any} */ (instance.exports);
        this.memory_ = memory.buffer;
        this.free_ = pageSize; // the module's own data and stack lie below
        this.decodeStaging_ = this.allocate(stagingSize);
        this.sourceStaging_ = this.allocate(stagingSize);
        this.targetStaging_ = this.allocate((stagingSize / 3) * 4);
    }

    /** @param {number} size */
    allocate(size) {
        const start = this.free_;
        const next = start + size + slack;
        if (next > memorySize) return Buffer.allocUnsafeSlow(size);
        this.free_ = (next + 63) & ~63;
        return Buffer.from(this.memory_, start, size);
    }

    /**
     * @param {Buffer} source
     * @param {number} from
     * @param {number} to
     * @param {Buffer} target
     * @param {number} at
     */
    encode(source, from, to, target, at) {
        if (source.buffer === this.memory_ && target.buffer === this.memory_) {
            return this.functions_.encode(source.byteOffset + from, to - from, target.byteOffset + at);
        }
        const start = at;
        const staged = this.sourceStaging_;
        const text = this.targetStaging_;
        for (; from < to; from += stagingSize) {
            const count = source.copy(staged, 0, from, Math.min(from + stagingSize, to));
            if (target.buffer === this.memory_) {
                at += this.functions_.encode(staged.byteOffset, count, target.byteOffset + at);
            } else {
                at += text.copy(target, at, 0, this.functions_.encode(staged.byteOffset, count, text.byteOffset));
            }
        }
        return at - start;
    }

    /**
     * @param {Buffer} buffer
     * @param {number} from
     * @param {number} to
     */
    decodeInPlace(buffer, from, to) {
        if (buffer.buffer === this.memory_) {
            const start = buffer.byteOffset + from;
            const count = this.functions_.decode(start, to - from, start, 1);
            return count < 0 ? -1 : from + count;
        }
        const staged = this.decodeStaging_;
        let write = from;
        do {
            const length = buffer.copy(staged, 0, from, Math.min(from + stagingSize, to));
            const last = from + length === to;
            const count = this.functions_.decode(staged.byteOffset, length, staged.byteOffset, last ? 1 : 0);
            if (count < 0) return -1;
            from += last ? length : this.functions_.consumedByDecode();
            write += staged.copy(buffer, write, 0, count);
        } while (from < to);
        return write;
    }
}
