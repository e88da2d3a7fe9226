// Base64 with what node itself offers, for processors and settings without WebAssembly's vectors.

const sliceLength = 65536; // keeps the strings below the size from which the engine allocates them slowly
const encodeSlice = 48 * 1024; // a multiple of 3
const escapedSlashes = /\\\//g;

/** @typedef {import('./codec.mjs').Codec} Codec */

/** @implements {Codec} */
export class PlainCodec {
    /** @param {number} size */
    allocate(size) {
        return Buffer.allocUnsafeSlow(size);
    }

    /**
     * @param {Buffer} source
     * @param {number} from
     * @param {number} to
     * @param {Buffer} target
     * @param {number} at
     */
    encode(source, from, to, target, at) {
        const start = at;
        for (; from < to; from += encodeSlice) {
            at += target.latin1Write(source.base64Slice(from, Math.min(from + encodeSlice, to)), at);
        }
        return at - start;
    }

    /**
     * @param {Buffer} buffer
     * @param {number} from
     * @param {number} to
     */
    decodeInPlace(buffer, from, to) {
        let write = from;
        let rest = '';
        for (let read = from; read < to; read += sliceLength) {
            const last = read + sliceLength >= to;
            let text = rest + buffer.latin1Slice(read, last ? to : read + sliceLength);
            rest = !last && text.endsWith('\\') ? '\\' : ''; // keep an escape together
            text = text.slice(0, text.length - rest.length).replace(escapedSlashes, '/');
            const usable = last ? text.length : text.length - (text.length % 4);
            rest = text.slice(usable) + rest;
            const group = text.slice(0, usable);
            const expected = decodedLength(group, last);
            if (expected < 0 || /[-_]/.test(group) || buffer.base64Write(group, write) !== expected) return -1;
            write += expected;
        }
        return write;
    }
}

/**
 * @param {string} text
 * @param {boolean} last only the last piece may be padded
 * @returns {number} how many bytes a faultless text of this length gives, -1 when no text of this length is faultless
 */
function decodedLength(text, last) {
    if (text.length % 4 !== 0) return -1;
    const padding = text.endsWith('==') ? 2 : text.endsWith('=') ? 1 : 0;
    return padding > 0 && !last ? -1 : (text.length / 4) * 3 - padding;
}
