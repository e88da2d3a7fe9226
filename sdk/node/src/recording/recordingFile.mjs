// The lines of a recording, by where they lie in its file.
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import zlib from 'node:zlib';

/**
 * @typedef {object} Line
 * @property {number} from where it begins, in bytes
 * @property {number} to where it ends, its line feed excluded
 * @property {string} text
 */

const pieceSize = 1 << 20;
const lineFeed = 10;
const zstdMagic = 0xfd2fb528;
const extension = /\.kemvi-record(\.zst)?$/;

/** A recording whose parts can be read in any order. One that is compressed is unpacked in memory. */
export class RecordingFile {
    /**
     * @param {string} name
     * @throws {Error} when it cannot be read or unpacked
     */
    constructor(name) {
        this.name = name;
        this.descriptor_ = fs.openSync(name, 'r');
        this.size_ = fs.fstatSync(this.descriptor_).size;
        /** @type {Buffer | undefined} */
        this.unpacked_ = undefined;
        if (this.size_ >= 4 && this.bytes(0, 4).readUInt32LE(0) === zstdMagic) {
            this.unpacked_ = unpack(name);
            this.size_ = this.unpacked_.length;
        }
    }

    /**
     * @param {number} from
     * @param {number} to
     * @returns {Buffer}
     */
    bytes(from, to) {
        if (this.unpacked_) return this.unpacked_.subarray(from, to);
        const bytes = Buffer.allocUnsafe(to - from);
        for (let done = 0; done < bytes.length; ) {
            const count = fs.readSync(this.descriptor_, bytes, done, bytes.length - done, from + done);
            if (count === 0) throw new Error(`${this.name} has become shorter`);
            done += count;
        }
        return bytes;
    }

    /**
     * All whole lines, in order: one that was cut off at the end is left out.
     * @returns {Generator<Line, void, void>}
     */
    *lines() {
        /** @type {Buffer[]} */
        let begun = [];
        let from = 0;
        for (let at = 0; at < this.size_; at += pieceSize) {
            const piece = this.bytes(at, Math.min(at + pieceSize, this.size_));
            let start = 0;
            for (let end; (end = piece.indexOf(lineFeed, start)) >= 0; start = end + 1) {
                const rest = piece.subarray(start, end);
                const bytes = begun.length > 0 ? Buffer.concat([...begun, rest]) : rest;
                begun = [];
                yield { from, to: at + end, text: bytes.toString() };
                from = at + end + 1;
            }
            begun.push(piece.subarray(start));
        }
    }
}

/**
 * @param {string} name
 * @returns {Buffer}
 */
function unpack(name) {
    const decompress = /** @type {any} */ (zlib).zstdDecompressSync;
    if (typeof decompress === 'function') {
        try {
            return decompress(fs.readFileSync(name));
        } catch {
            // cut off: the program gives what there is
        }
    }
    const { error, stdout } = spawnSync('zstd', ['-dcq', name], { maxBuffer: 2 ** 31, stdio: ['ignore', 'pipe', 'ignore'] });
    if (error || stdout.length === 0) {
        throw new Error('it is compressed, and neither this node nor a program zstd can unpack it: zstd -d it elsewhere');
    }
    return stdout;
}

/**
 * The recording that a place names: a file, or the only recording in a folder.
 * @param {string} place
 * @returns {string}
 * @throws {Error} when there is none, or more than one
 */
export function findRecording(place) {
    if (!fs.statSync(place).isDirectory()) return place;
    const found = fs.readdirSync(place).filter((name) => extension.test(name));
    if (found.length === 1) return path.join(place, found[0]);
    throw new Error(
        found.length === 0
            ? `${place} holds no recording (a file named *.kemvi-record or *.kemvi-record.zst)`
            : `${place} holds ${found.length} recordings (${found.sort().join(', ')}); name one with KEMVI_RECORDING`,
    );
}
