// Puts one answer line together and hands it to the reader, in pieces when it is long.
import { quote } from './jsonText.mjs';

const bufferSize = 192 * 1024;
const flushSize = 64 * 1024; // the reader starts on the first piece while the next is made
const encodeSlice = 48 * 1024; // a multiple of 3
const shortText = 4096; // characters
const slack = 16; // the codec's last write may be longer than its text

export class AnswerLine {
    /**
     * @param {import('./base64/codec.mjs').Codec} codec
     * @param {(bytes: Buffer, from: number, to: number) => void} send writes all of the bytes given
     */
    constructor(codec, send) {
        this.codec_ = codec;
        this.send_ = send;
        this.bytes_ = codec.allocate(bufferSize + slack);
        this.used_ = 0;
        /** Whether a part of the line is already on its way, so that the line can only be completed. */
        this.partlySent = false;
    }

    /** @param {string} text */
    text(text) {
        if (text.length * 3 > bufferSize - this.used_) this.flush_();
        if (text.length * 3 > bufferSize) {
            const bytes = Buffer.from(text);
            this.send_(bytes, 0, bytes.length);
            return;
        }
        this.used_ += this.bytes_.utf8Write(text, this.used_);
        if (this.used_ > flushSize) this.flush_();
    }

    /**
     * @param {Uint8Array} bytes
     * @param {number} from
     * @param {number} to all pieces of one base64 text but the last must be a multiple of 3 long
     */
    base64(bytes, from, to) {
        const source = Buffer.isBuffer(bytes) ? bytes : Buffer.from(bytes.buffer, bytes.byteOffset, bytes.byteLength);
        for (let position = from; position < to; position += encodeSlice) {
            const end = Math.min(position + encodeSlice, to);
            this.used_ += this.codec_.encode(source, position, end, this.bytes_, this.used_);
            if (this.used_ >= flushSize) this.flush_(); // so that there is always room for one slice more
        }
    }

    /**
     * Sends what is left of the line.
     * @param {string} text the last of it, without the line feed
     */
    end(text) {
        if (this.used_ === 0 && text.length < shortText) {
            this.send_(this.bytes_, 0, this.bytes_.utf8Write(text + '\n', 0)); // most answers, so with few calls
        } else {
            this.text(text + '\n');
            this.flush_();
        }
        this.partlySent = false;
    }

    /** Takes back the line begun. Only when nothing of it has been sent. */
    discard() {
        this.used_ = 0;
    }

    flush_() {
        if (this.used_ === 0) return;
        this.send_(this.bytes_, 0, this.used_);
        this.used_ = 0;
        this.partlySent = true;
    }
}

/**
 * The `error` member of an answer.
 * @param {string} message
 * @param {string} [code]
 * @param {string} [name]
 */
export function failureText(message, code, name) {
    return (
        '"error":{"message":' + quote(message) + (code === undefined ? '' : ',"code":' + quote(code)) +
        (name === undefined ? '' : ',"name":' + quote(name)) + '}'
    );
}
