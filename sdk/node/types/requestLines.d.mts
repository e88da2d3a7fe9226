/// <reference types="node" />
/**
 * @param {Buffer} bytes
 * @param {number} from
 * @param {number} to
 * @param {Codec} codec
 * @returns {Request}
 * @throws {SyntaxError} when the line is not a JSON object
 */
export function parseRequest(bytes: Buffer, from: number, to: number, codec: Codec): Request;
/** Gathers bytes in one buffer, which grows with the longest line and shrinks again after it. */
export class LineBuffer {
    /**
     * @param {Codec} codec
     * @param {number} [size] bytes to start with
     */
    constructor(codec: Codec, size?: number | undefined);
    first_: Buffer;
    bytes: Buffer;
    start_: number;
    scanned_: number;
    end_: number;
    lineStart: number;
    lineEnd: number;
    /**
     * Makes room for more bytes, which may move what is held.
     * @returns {number} where in `bytes` they go; at least one fits from there, with one left to spare
     */
    prepareFill(): number;
    /** How many bytes fit where the last `prepareFill` said. */
    get room(): number;
    /** @param {number} count bytes that were put where the last `prepareFill` said */
    filled(count: number): void;
    /** @param {Uint8Array} chunk bytes to take over by copying */
    append(chunk: Uint8Array): void;
    /** Finds the next whole line: `bytes` from `lineStart` to `lineEnd`, without its line feed. It stays in place until
     * the next call or fill. */
    nextLine(): boolean;
    /** Bytes after the last whole line. */
    get leftover(): number;
    makeRoom_(): void;
}
export type Codec = import('./base64/codec.mjs').Codec;
/**
 * A request as it came; the operations check the fields that they use.
 */
export type Request = {
    id: unknown;
    op: unknown;
    path?: unknown;
    oldPath?: unknown;
    newPath?: unknown;
    flags?: unknown;
    handle?: unknown;
    offset?: unknown;
    length?: unknown;
    mode?: unknown;
    mtime?: unknown;
    /**
     * the text, or `true` when the bytes are in `data`
     */
    dataBase64?: unknown;
    /**
     * the decoded bytes, valid while the line is in its buffer
     */
    data?: Buffer | undefined;
};
