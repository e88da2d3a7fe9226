/// <reference types="node" />
/**
 * The `error` member of an answer.
 * @param {string} message
 * @param {string} [code]
 * @param {string} [name]
 */
export function failureText(message: string, code?: string | undefined, name?: string | undefined): string;
export class AnswerLine {
    /**
     * @param {import('./base64/codec.mjs').Codec} codec
     * @param {(bytes: Buffer, from: number, to: number) => void} send writes all of the bytes given
     */
    constructor(codec: import('./base64/codec.mjs').Codec, send: (bytes: Buffer, from: number, to: number) => void);
    codec_: import("./base64/codec.mjs").Codec;
    send_: (bytes: Buffer, from: number, to: number) => void;
    bytes_: Buffer;
    used_: number;
    /** Whether a part of the line is already on its way, so that the line can only be completed. */
    partlySent: boolean;
    /** @param {string} text */
    text(text: string): void;
    /**
     * @param {Uint8Array} bytes
     * @param {number} from
     * @param {number} to all pieces of one base64 text but the last must be a multiple of 3 long
     */
    base64(bytes: Uint8Array, from: number, to: number): void;
    /**
     * Sends what is left of the line.
     * @param {string} text the last of it, without the line feed
     */
    end(text: string): void;
    /** Takes back the line begun. Only when nothing of it has been sent. */
    discard(): void;
    flush_(): void;
}
