// The contents of a slow file system's files, kept in blocks. Who reads in order finds the next blocks asked for already.
import { cameInstead, wrongValue } from '../errors.mjs';
import { recordLength } from './keptAnswers.mjs';

/** @typedef {import('../fileSystem.mjs').FileSystem} FileSystem */
/** @typedef {import('../fileSystem.mjs').Stat} Stat */
/**
 * @typedef {object} OpenFile
 * @property {string} path
 * @property {Stat} stat
 * @property {Promise<any> | undefined} file that of the slow file system, once it was needed
 * @property {boolean} writes it is open for writing
 * @property {boolean} isDirect nothing of it is kept: it is open for writing, or was changed while it was open
 * @property {number} nextBlock the one that a reader in order asks for next
 * @property {number} streak how many times it did
 */

export const blockLength = 256 * 1024;

export class Contents {
    /**
     * @param {FileSystem} source
     * @param {import('./keptAnswers.mjs').KeptAnswers} kept
     * @param {number} ttl milliseconds for which what nothing dates is taken for true
     * @param {{inAdvance: import('./inAdvance.mjs').InAdvance, bytes: number}} ahead who asks ahead, and for how much
     * @param {(open: OpenFile) => Promise<any>} openFile opens the file of the slow file system, if it is not open
     */
    constructor(source, kept, ttl, ahead, openFile) {
        this.source_ = source;
        this.kept_ = kept;
        this.ttl_ = ttl;
        this.inAdvance_ = ahead.inAdvance;
        this.mostAhead_ = ahead.bytes;
        this.openFile_ = openFile;
    }

    /**
     * @param {OpenFile} open
     * @param {number} offset
     * @param {number} length
     * @param {Buffer} buffer
     * @returns {Promise<any>}
     */
    async read(open, offset, length, buffer) {
        if (open.isDirect) return this.source_.read(await this.openFile_(open), offset, length, buffer);
        const first = Math.floor(offset / blockLength);
        const last = Math.floor((offset + length - 1) / blockLength);
        const end = open.stat.size ?? 0; // what is not known to be there is asked for only when the block before was full
        const isThere = (/** @type {number} */ block) => block * blockLength < end;
        const asked = [];
        for (let block = first; block <= last && (block === first || isThere(block)); block++) {
            asked.push(this.block(open, block));
        }
        if (last >= open.nextBlock) this.readAhead_(open, first, last, isThere);
        const blocks = await Promise.all(asked);
        while (first + blocks.length <= last && blocks[blocks.length - 1].length === blockLength) {
            blocks.push(await this.block(open, first + blocks.length));
        }
        let count = 0;
        for (const [index, data] of blocks.entries()) {
            const from = Math.max(0, offset - (first + index) * blockLength);
            if (from >= data.length) break;
            count += data.copy(buffer, count, from, Math.min(data.length, from + length - count));
            if (data.length < blockLength) break;
        }
        return count;
    }

    /**
     * @param {OpenFile} open
     * @param {number} first
     * @param {number} last
     * @param {(block: number) => boolean} isThere
     */
    readAhead_(open, first, last, isThere) {
        open.streak = first <= open.nextBlock ? open.streak + 1 : 0;
        open.nextBlock = last + 1;
        if (open.streak === 0) return;
        const most = Math.min(this.inAdvance_.most, 2 ** open.streak, Math.floor(this.mostAhead_ / blockLength));
        for (let block = last + 1; block <= last + most && isThere(block); block++) {
            if (!this.has(open, block)) this.inAdvance_.run(() => this.block(open, block));
        }
    }

    /** @param {OpenFile} open @param {number} block */
    has(open, block) {
        return this.kept_.has(blockKey(open, block), this.blockTtl_(open));
    }

    /**
     * Without a size and a time of modification nothing shows that contents are still the same.
     * @param {OpenFile} open
     */
    blockTtl_({ stat: { size = -1, modifiedAt } }) {
        return size < 0 || modifiedAt === undefined ? this.ttl_ : Infinity;
    }

    /**
     * @param {OpenFile} open
     * @param {number} block
     * @param {() => Promise<void>} [release] gives the file back, where it was opened for that alone
     * @returns {Promise<Buffer>}
     */
    block(open, block, release = undefined) {
        const ask = async () => {
            try {
                return await this.fetch_(open, block);
            } finally {
                await release?.();
            }
        };
        const weigh = (/** @type {Buffer} */ data) => data.length + recordLength + 2 * open.path.length;
        return this.kept_.ask(blockKey(open, block), ask, weigh, this.blockTtl_(open));
    }

    /** @param {OpenFile} open @param {number} block */
    async fetch_(open, block) {
        const file = await this.openFile_(open);
        const room = Buffer.allocUnsafe(blockLength);
        const got = await this.source_.read(file, block * blockLength, blockLength, room);
        const data = typeof got === 'number' ? room.subarray(0, got) : got;
        const isRight = data instanceof Uint8Array && data.length <= blockLength && (data !== room || got >= 0);
        if (!isRight || (typeof got === 'number' && data.length !== got)) {
            const wanted = `at most ${blockLength} bytes, such as Buffer.from("text"), or how many were put in the buffer`;
            throw wrongValue(`what read of ${open.path} gave is ${cameInstead(got, wanted)}`);
        }
        const own = Buffer.allocUnsafeSlow(data.length); // not a view of something larger, which would stay with it
        own.set(data);
        return own;
    }
}

/** @param {OpenFile} open @param {number} block */
function blockKey({ path, stat }, block) {
    return `${block} of ${stat.size} bytes at ${Number(stat.modifiedAt)}:${path}`;
}
