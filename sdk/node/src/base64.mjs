// Base64 inside a request line. The requester may escape every slash, so about one character in 64 of random data is
// preceded by a backslash.

const sliceLength = 65536; // keeps the strings below the size from which the engine allocates them slowly
const backslashes = /\\\//g;

/**
 * Decodes the base64 text at [from, to) of a buffer in place: the bytes are put at `from`.
 * @param {Buffer} buffer
 * @param {number} from
 * @param {number} to
 * @returns {number} where the bytes end, or -1 when the text is not padded standard base64
 */
export function decodeInPlace(buffer, from, to) {
    let write = from;
    let rest = '';
    for (let read = from; read < to; read += sliceLength) {
        const last = read + sliceLength >= to;
        let text = rest + buffer.latin1Slice(read, last ? to : read + sliceLength);
        let usable = text.length;
        if (!last && text.charCodeAt(usable - 1) === 92) usable -= 1; // keep an escape together
        if (text.includes('\\')) {
            const cut = text.slice(usable);
            text = text.slice(0, usable).replace(backslashes, '/');
            usable = text.length;
            text += cut;
        }
        if (!last) usable -= usable % 4;
        rest = text.slice(usable);
        const group = rest === '' ? text : text.slice(0, usable);
        const expected = decodedLength(group, last);
        if (expected < 0 || buffer.base64Write(group, write) !== expected) return -1;
        write += expected;
    }
    return write;
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
