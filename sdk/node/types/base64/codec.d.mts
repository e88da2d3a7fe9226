/// <reference types="node" />
/**
 * @typedef {object} Codec
 * @property {(size: number) => Buffer} allocate a buffer from which and to which the codec works without copying
 * @property {(source: Buffer, from: number, to: number, target: Buffer, at: number) => number} encode puts the base64
 *     text of a part of `source` into `target`, which has room for 16 bytes more; gives the length of the text
 * @property {(buffer: Buffer, from: number, to: number) => number} decodeInPlace decodes padded base64, in which
 *     slashes may be escaped as in JSON, and puts the bytes at `from`; gives where they end, -1 when it is not base64
 */
/** @returns {Codec} the fastest that there is here */
export function makeCodec(): Codec;
/** @implements {Codec} */
export class VectorCodec implements Codec {
    functions_: any;
    memory_: ArrayBuffer;
    free_: number;
    decodeStaging_: Buffer;
    sourceStaging_: Buffer;
    targetStaging_: Buffer;
    /** @param {number} size */
    allocate(size: number): Buffer;
    /**
     * @param {Buffer} source
     * @param {number} from
     * @param {number} to
     * @param {Buffer} target
     * @param {number} at
     */
    encode(source: Buffer, from: number, to: number, target: Buffer, at: number): any;
    /**
     * @param {Buffer} buffer
     * @param {number} from
     * @param {number} to
     */
    decodeInPlace(buffer: Buffer, from: number, to: number): any;
}
export type Codec = {
    /**
     * a buffer from which and to which the codec works without copying
     */
    allocate: (size: number) => Buffer;
    /**
     * puts the base64
     * text of a part of `source` into `target`, which has room for 16 bytes more; gives the length of the text
     */
    encode: (source: Buffer, from: number, to: number, target: Buffer, at: number) => number;
    /**
     * decodes padded base64, in which
     * slashes may be escaped as in JSON, and puts the bytes at `from`; gives where they end, -1 when it is not base64
     */
    decodeInPlace: (buffer: Buffer, from: number, to: number) => number;
};
