/// <reference types="node" />
/** @typedef {import('./codec.cjs').Codec} Codec */
/** @implements {Codec} */
export class PlainCodec implements Codec {
    /** @param {number} size */
    allocate(size: number): Buffer;
    /**
     * @param {Buffer} source
     * @param {number} from
     * @param {number} to
     * @param {Buffer} target
     * @param {number} at
     */
    encode(source: Buffer, from: number, to: number, target: Buffer, at: number): number;
    /**
     * @param {Buffer} buffer
     * @param {number} from
     * @param {number} to
     */
    decodeInPlace(buffer: Buffer, from: number, to: number): number;
}
export type Codec = import('./codec.cjs').Codec;
