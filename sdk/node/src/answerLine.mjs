// Puts one answer line together and hands it to the reader, in pieces when it is long.
import { quote } from './jsonText.mjs';

const bufferSize = 256 * 1024;
const flushSize = 64 * 1024; // the reader starts on the first piece while the next is made
const encodeSlice = 48 * 1024; // a multiple of 3, and its base64 text stays a small string

export class AnswerLine {
    /** @param {(bytes: Buffer, from: number, to: number) => void} send writes all of the bytes given */
    constructor(send) {
        this.send_ = send;
        this.bytes_ = Buffer.allocUnsafeSlow(bufferSize);
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
            const text = source.base64Slice(position, Math.min(position + encodeSlice, to));
            if (text.length > bufferSize - this.used_) this.flush_();
            this.used_ += this.bytes_.latin1Write(text, this.used_);
            if (this.used_ > flushSize) this.flush_();
        }
    }

    /** Sends what is left of the line. @param {string} text the last of it, without the line feed */
    end(text) {
        this.text(text + '\n');
        this.flush_();
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
