// What was written to a file since its last commit, and becomes one commit.
import { randomInt } from 'node:crypto';
import { requestId } from '../engine/requestId.mjs';
import { Piece } from './piece.mjs';

export class Layer {
    /** @param {number} chunkSize @param {import('./room.mjs').Room} room */
    constructor(chunkSize, room) {
        this.chunkSize_ = chunkSize;
        this.room_ = room;
        this.batch = requestId();
        /** @type {Map<number, Piece>} by position; the ones first that were begun first */
        this.pieces = new Map();
        /** Whether what the file had before is gone. */
        this.isTruncated = false;
        /** Bytes up to the end of what was written. */
        this.extent = 0;
        /** @type {number | null} null: the file keeps the one that it has */
        this.mtime = null;
        /** @type {number | null} where pieces are put away before the commit */
        this.upload = null;
        /** Chunks from here on are not in the upload. */
        this.uploadEnd = 0;
        /** @type {string[]} objects that were put away for nothing */
        this.unused = [];
        /** @type {number[]} uploads that were made for nothing */
        this.unusedUploads = [];
        /** Bytes that programs have written. */
        this.written = 0;
        /** Bytes of memory. */
        this.weight = 0;
        /** Counted with each attempt to put something into the upload. */
        this.turn = 0;
        /** The last of them that has succeeded. */
        this.lastTurn = 0;
        /** @type {Promise<void>} */
        this.staging = Promise.resolve();
        /** Whether the database is known to have the upload. One that was asked for in vain holds nothing that is not here. */
        this.isUploadMade = false;
        /** Whether its commit has begun, after which it does not change any more. */
        this.isFrozen = false;
    }

    /**
     * @param {number} offset
     * @param {Uint8Array} data
     */
    write(offset, data) {
        this.mtime = Date.now();
        this.written += data.length;
        for (let done = 0; done < data.length; ) {
            const position = Math.floor((offset + done) / this.chunkSize_);
            const at = offset + done - position * this.chunkSize_;
            const count = Math.min(data.length - done, this.chunkSize_ - at);
            const piece = this.piece_(position);
            const before = piece.weight;
            piece.write(at, data.subarray(done, done + count));
            this.weigh_(piece.weight - before);
            this.outdate(piece);
            done += count;
        }
        if (data.length > 0) this.extent = Math.max(this.extent, offset + data.length);
    }

    /** Nothing stays of what was there and of what was written. */
    truncate() {
        for (const piece of this.pieces.values()) this.outdate(piece);
        if (this.upload !== null) this.unusedUploads.push(this.upload);
        this.clear();
        this.upload = null;
        this.uploadEnd = 0;
        this.extent = 0;
        this.written = 0;
        this.isTruncated = true;
        this.mtime = Date.now();
    }

    /**
     * The piece is done with: its bytes lie elsewhere.
     * @param {number} position
     */
    remove(position) {
        this.weigh_(-(this.pieces.get(position)?.weight ?? 0));
        this.pieces.delete(position);
    }

    /** Lets go of the memory. */
    clear() {
        this.pieces.clear();
        this.weigh_(-this.weight);
    }

    /**
     * @param {Piece} piece
     * @param {Uint8Array} old
     */
    fill(piece, old) {
        const before = piece.weight;
        piece.fill(old);
        this.weigh_(piece.weight - before);
    }

    newUpload() {
        this.upload = randomInt(1, 2 ** 48 - 1);
        this.isUploadMade = false;
        this.lastTurn = 0;
        return this.upload;
    }

    /** @param {number} difference */
    weigh_(difference) {
        this.weight += difference;
        this.room_.used += difference;
    }

    /** @param {number} position */
    piece_(position) {
        const known = this.pieces.get(position);
        if (known) return known;
        const piece = new Piece(this.chunkSize_);
        this.pieces.set(position, piece);
        return piece;
    }

    /**
     * What was put away of a piece is not what the piece holds now.
     * @param {Piece} piece
     */
    outdate(piece) {
        if (piece.stored) this.unused.push(piece.stored.object);
        piece.stored = undefined;
    }
}
