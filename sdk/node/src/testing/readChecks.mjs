// Reads files in several ways and compares.

/** @typedef {import('./conversation.mjs').Conversation} Conversation */
/** @typedef {import('./conversation.mjs').Answer} Answer */

const mostBytes = 16 << 20; // a longer file is read to here
const surplus = 4096; // no file is read further than this beyond its size: it may never end
const piece = 65536;

/**
 * @param {Conversation} talk
 * @param {{path: string, size: number}[]} files
 */
export async function checkReading(talk, files) {
    for (const file of files) if (talk.available()) await new ReadExamination(talk, file).run();
}

/**
 * Everything from the start of an open file, until a read gives none or `limit` bytes have come.
 * @param {Conversation} talk
 * @param {number} handle
 * @param {number} length of one read
 * @param {number} limit
 * @param {(answer: Answer) => void} [onFailure] of a read
 * @returns {Promise<Buffer | undefined>} undefined when a read fails
 */
export async function readOn(talk, handle, length, limit, onFailure) {
    const pieces = [];
    for (let offset = 0; offset < limit; ) {
        const answer = await talk.ask('read', { handle, offset, length });
        const { bytes } = answer;
        if (bytes === undefined) {
            onFailure?.(answer);
            return undefined;
        }
        if (bytes.length === 0) break;
        pieces.push(bytes);
        offset += bytes.length;
    }
    return Buffer.concat(pieces);
}

class ReadExamination {
    /**
     * @param {Conversation} talk
     * @param {{path: string, size: number}} file
     */
    constructor(talk, { path, size }) {
        this.talk_ = talk;
        this.path_ = path;
        this.size_ = size;
    }

    /** @param {string} check @param {string} problem @param {string} consequence @param {Answer} answer */
    error_(check, problem, consequence, answer) {
        this.talk_.findings.add(check, 'error', problem, consequence, answer);
    }

    async run() {
        const handle = await this.open_();
        if (handle === undefined) return;
        const other = await this.open_();
        if (other !== undefined) await this.talk_.ask('release', { handle: other });
        await this.readWhole_(handle);
        await this.release_(handle);
    }

    /** @returns {Promise<number | undefined>} */
    async open_() {
        const answer = await this.talk_.ask('open', { path: this.path_, flags: ['read'] });
        if (answer.came && !answer.ok) {
            const problem = `${this.path_}: a listed file cannot be opened`;
            this.talk_.findings.add('opening', 'warning', problem, 'its reader gets this error', answer);
        }
        return answer.result?.handle;
    }

    /** @param {number} handle */
    async readWhole_(handle) {
        const first = await this.talk_.ask('read', { handle, offset: 0, length: piece });
        if (first.bytes === undefined) {
            if (!first.came) return;
            const consequence = 'its reader gets an error after open(2) has promised otherwise';
            this.error_('data', `${this.path_}: a file that was opened cannot be read`, consequence, first);
            return;
        }
        const limit = this.size_ < 0 ? mostBytes : Math.min(mostBytes, this.size_ + surplus);
        const whole = await readOn(this.talk_, handle, piece, limit);
        const again = await readOn(this.talk_, handle, piece, limit);
        if (!whole || !again || !whole.equals(again)) return; // it changes while it is read: nothing can be compared
        await this.checkSize_(whole);
        await this.checkEnd_(handle, whole.length);
        await this.checkOffsets_(handle, whole);
    }

    /** @param {Buffer} whole */
    async checkSize_(whole) {
        const answer = await this.talk_.ask('getattr', { path: this.path_ });
        if (whole.length >= mostBytes || !answer.ok || answer.result.size < 0 || answer.result.size === whole.length) return;
        const consequence = 'programs read too little, or zeros at the end';
        this.error_('wholeSize', `${this.path_} gives ${whole.length} bytes`, consequence, answer);
    }

    /** @param {number} handle @param {number} size */
    async checkEnd_(handle, size) {
        for (const offset of [size, size + 1000]) {
            const answer = await this.talk_.ask('read', { handle, offset, length: piece });
            if (!answer.came || size >= mostBytes || answer.bytes?.length === 0) continue;
            const problem = answer.bytes ? `${answer.bytes.length} bytes` : 'no bytes, but no success either';
            const consequence = 'programs that read to the end never stop, or get an error there';
            this.error_('pastTheEnd', problem, consequence, answer);
        }
    }

    /** @param {number} handle @param {Buffer} whole */
    async checkOffsets_(handle, whole) {
        const offsets = [1, Math.floor(whole.length / 3), whole.length - Math.min(whole.length, 7)];
        for (const offset of offsets) {
            const length = Math.min(whole.length - Math.min(offset, whole.length), 4097);
            const answer = await this.talk_.ask('read', { handle, offset, length });
            if (answer.bytes === undefined) continue;
            const expected = whole.subarray(offset, offset + Math.min(answer.bytes.length, length));
            if (answer.bytes.subarray(0, length).equals(expected)) continue;
            const problem = 'other bytes than at the same place of the whole';
            this.error_('offsets', problem, 'programs that seek read wrong data', answer);
        }
    }

    /** @param {number} handle */
    async release_(handle) {
        const answer = await this.talk_.ask('release', { handle });
        if (!answer.came || answer.ok) return;
        this.error_('released', 'giving the handle back failed', 'close(2) reports an error', answer);
    }
}
