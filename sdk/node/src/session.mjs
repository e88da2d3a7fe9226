// One run of a helper: its open files, and the answer to each request line.
import { AnswerLine, failureText } from './answerLine.mjs';
import { isPosixError, PosixError } from './errors.mjs';
import { quote } from './jsonText.mjs';
import { operations } from './operations.mjs';
import { parseRequest } from './requestLines.mjs';

/** @typedef {import('./requestLines.mjs').Request} Request */
/** @typedef {import('./operations.mjs').Operation} Operation */
/** @typedef {{file: any, read: boolean, write: boolean}} OpenFile */

// Longer reads are asked of the file system in pieces of this size, so that no length is too long for the memory. A
// multiple of 3, so that the pieces' base64 texts make one.
const readPiece = 3 << 19;

export class Session {
    /**
     * @param {import('./fileSystem.mjs').FileSystem} fileSystem
     * @param {import('./base64/codec.mjs').Codec} codec
     * @param {(bytes: Buffer, from: number, to: number) => void} send
     * @param {(text: string) => void} report takes lines for people
     */
    constructor(fileSystem, codec, send, report) {
        this.fileSystem = fileSystem;
        this.line_ = new AnswerLine(codec, send);
        this.codec_ = codec;
        this.report_ = report;
        /** @type {Map<number, OpenFile>} */
        this.handles_ = new Map();
        this.lastHandle_ = 0;
        this.scratch_ = codec.allocate(readPiece);
        /** What closes the value that is being written, should the line have to end with an error. */
        this.closing_ = '';
        /** @type {Request | undefined} the request that is being answered */
        this.current_ = undefined;
        /**
         * Makes the answer that is awaited an error.
         * @type {(error: unknown) => void}
         */
        this.abandon_ = () => {};
    }

    /**
     * Answers one request line.
     * @param {Buffer} bytes
     * @param {number} from
     * @param {number} to
     * @returns {Promise<void> | undefined} a promise when the answer comes later; it never rejects
     */
    answer(bytes, from, to) {
        let request;
        try {
            request = parseRequest(bytes, from, to, this.codec_);
        } catch (error) {
            this.answerMalformed_(bytes.toString('utf8', from, Math.min(to, from + 200)), error);
            return undefined;
        }
        if (typeof request.id !== 'string' || typeof request.op !== 'string') {
            this.answerIncomplete_(request);
            return undefined;
        }
        const operation = operations[request.op];
        this.current_ = request;
        try {
            if (operation === undefined) {
                throw new PosixError('EINVAL', `unknown operation ${JSON.stringify(request.op)}`);
            }
            const result = operation.call(this, request);
            if (result !== undefined && typeof result?.then === 'function') {
                return this.answerLater_(request, operation, result);
            }
            this.finish_(request, operation, result);
        } catch (error) {
            this.fail_(request, error);
        }
        return undefined;
    }

    /**
     * @param {Request} request
     * @param {Operation} operation
     * @param {PromiseLike<any>} promise
     */
    async answerLater_(request, operation, promise) {
        /** @type {Promise<never>} */
        const abandoned = new Promise((resolve, reject) => (this.abandon_ = reject));
        try {
            this.finish_(request, operation, await Promise.race([promise, abandoned]));
        } catch (error) {
            this.fail_(request, error);
        }
        this.abandon_ = () => {};
    }

    /**
     * Something failed where nobody waits for it: in a timer, an event, a promise left alone. If an answer is awaited,
     * it may never come now, so it becomes an error; a mount would wait for ever.
     * @param {unknown} error
     */
    strayFailure(error) {
        this.report_(`unhandled: ${error instanceof Error ? error.stack : String(error)}`);
        this.abandon_(new Error('the file system failed while this request was under way'));
    }

    /**
     * The input has ended and nothing is going on in the process any more, so that a promise that is still awaited stays
     * as it is for ever. Node would end the process without a word.
     */
    abandonHopeless() {
        this.abandon_(new Error('its promise was never settled, and nothing is left that could settle it'));
    }

    /**
     * @param {Request} request
     * @param {Operation} operation
     * @param {any} result
     */
    finish_(request, operation, result) {
        if (operation.answer) operation.answer(this, request, result);
        else this.line_.end('{"id":' + quote(/** @type {string} */ (request.id)) + ',"ok":true}');
    }

    /**
     * @param {Request} request
     * @param {string} json
     */
    answerResult(request, json) {
        this.line_.end('{"id":' + quote(/** @type {string} */ (request.id)) + ',"ok":true,"result":' + json + '}');
    }

    /**
     * Writes a listing while it is being made. "ok" comes last, since a member far down may still fail.
     * @param {Request} request
     * @param {Iterable<import('./fileSystem.mjs').Entry>} entries
     * @param {import('./statText.mjs').EntryTexts} texts
     */
    answerEntries(request, entries, texts) {
        this.begin_(request, '"result":[', ']');
        let batch = '';
        let separator = '';
        for (const entry of entries) {
            batch += separator + texts.text(entry);
            separator = ',';
            if (batch.length > 16384) {
                this.line_.text(batch);
                batch = '';
            }
        }
        this.line_.end(batch + '],"ok":true}');
    }

    /**
     * Asks for the bytes of a read. Returns those of a short one; writes a long one's as they come.
     * @param {any} file
     * @param {number} offset
     * @param {number} length
     * @param {Request} request
     * @returns {any}
     */
    read(file, offset, length, request) {
        if (length > readPiece) return drive(this.readLong_(file, offset, length, request));
        return length === 0 ? 0 : this.fileSystem.read(file, offset, length, this.scratch_);
    }

    /**
     * @param {Request} request
     * @param {any} got what the file system's `read` returned
     */
    answerRead(request, got) {
        if (got === alreadyWritten) {
            this.line_.end('","ok":true}');
            return;
        }
        const count = this.byteCount_(got, /** @type {number} */ (request.length));
        this.line_.text('{"id":' + quote(/** @type {string} */ (request.id)) + ',"ok":true,"dataBase64":"');
        this.line_.base64(typeof got === 'number' ? this.scratch_ : got, 0, count);
        this.line_.end('"}');
    }

    /**
     * @param {any} file
     * @param {number} offset
     * @param {number} length
     * @param {Request} request
     * @returns {Generator<any, symbol, any>}
     */
    *readLong_(file, offset, length, request) {
        this.begin_(request, '"dataBase64":"', '"');
        for (let done = 0; done < length; ) {
            const piece = Math.min(length - done, readPiece);
            const got = yield this.fileSystem.read(file, offset + done, piece, this.scratch_);
            if (this.current_ !== request) return alreadyWritten; // abandoned, and answered, while this was awaited
            const count = this.byteCount_(got, piece);
            this.line_.base64(typeof got === 'number' ? this.scratch_ : got, 0, count);
            if (count < piece) break;
            done += count;
        }
        return alreadyWritten;
    }

    /**
     * @param {any} got
     * @param {number} length
     * @returns {number}
     */
    byteCount_(got, length) {
        if (got instanceof Uint8Array) return Math.min(got.length, length);
        if (Number.isInteger(got) && got >= 0 && got <= length) return got;
        throw new TypeError(`read of the file system gave ${String(got)}, expected bytes or a count of 0 to ${length}`);
    }

    /**
     * Begins an answer that may have to end with an error after all: "ok" comes last.
     * @param {Request} request
     * @param {string} opening
     * @param {string} closing
     */
    begin_(request, opening, closing) {
        this.closing_ = closing;
        this.line_.text('{"id":' + quote(/** @type {string} */ (request.id)) + ',' + opening);
    }

    /**
     * @param {Request} request
     * @param {unknown} error
     */
    fail_(request, error) {
        const text = isPosixError(error)
            ? failureText(error.message, error.code, error.name)
            : this.fault_(request, error);
        if (this.line_.partlySent) {
            this.line_.end(this.closing_ + ',"ok":false,' + text + '}');
        } else {
            this.line_.discard();
            this.line_.end('{"id":' + quote(/** @type {string} */ (request.id)) + ',"ok":false,' + text + '}');
        }
    }

    /**
     * @param {Request} request
     * @param {unknown} error
     */
    fault_(request, error) {
        const isError = error instanceof Error;
        const path = request.path ?? request.oldPath ?? request.handle;
        this.report_(`${request.op} ${path ?? ''} failed: ${isError ? error.stack : String(error)}`);
        const message = (isError && error.message) || String(error);
        return failureText(message, undefined, isError ? error.name : undefined);
    }

    /**
     * A line that is no JSON object: its sender waits all the same, so it is answered when it shows an id.
     * @param {string} head
     * @param {unknown} error
     */
    answerMalformed_(head, error) {
        const message = `the request line cannot be read: ${/** @type {Error} */ (error).message}`;
        this.report_(`${message}: ${JSON.stringify(head)}`);
        const id = /^\s*\{\s*"id"\s*:\s*("(?:[^"\\]|\\.)*")/.exec(head)?.[1];
        if (id !== undefined) this.line_.end(`{"id":${id},"ok":false,${failureText(message, 'EINVAL')}}`);
    }

    /** @param {Request} request an object without an id or an op that are strings */
    answerIncomplete_(request) {
        const { id, op } = request;
        const message = `${typeof id !== 'string' ? 'id' : 'op'} of the request must be a string`;
        this.report_(`${message}: ${JSON.stringify({ id, op }).slice(0, 200)}`);
        if (typeof id === 'string' || typeof id === 'number') {
            this.line_.end(`{"id":${quote(String(id))},"ok":false,${failureText(message, 'EINVAL')}}`);
        }
    }

    /**
     * @param {any} file
     * @param {import('./fileSystem.mjs').OpenFlags} flags with which it was opened
     * @returns {number} a number that was never used before
     */
    addHandle(file, { read, write }) {
        this.handles_.set(++this.lastHandle_, { file, read, write });
        return this.lastHandle_;
    }

    /** @param {unknown} handle @returns {OpenFile} */
    openFile(handle) {
        const open = this.handles_.get(/** @type {number} */ (handle));
        if (open === undefined) throw new PosixError('EBADF', `handle ${String(handle)} is not open`);
        return open;
    }

    /**
     * Forgets a handle and gives its file back.
     * @param {unknown} handle
     */
    release(handle) {
        const { file } = this.openFile(handle);
        this.handles_.delete(/** @type {number} */ (handle));
        return this.fileSystem.release?.(file);
    }

    /** Gives back what is still open, then ends the file system. What fails is reported, and the rest goes on. */
    async end() {
        for (const handle of [...this.handles_.keys()]) {
            await this.attempt_(`release of handle ${handle}`, () => this.release(handle));
        }
        await this.attempt_('end', () => this.fileSystem.end?.());
    }

    /**
     * @param {string} what
     * @param {() => unknown} step
     */
    async attempt_(what, step) {
        try {
            await step();
        } catch (error) {
            this.report_(`${what} failed: ${error instanceof Error ? error.stack : String(error)}`);
        }
    }
}

const alreadyWritten = Symbol('alreadyWritten');

/**
 * Runs steps that may each be a promise, without one when none is.
 * @param {Generator<any, any, any>} steps
 * @param {any} [value]
 * @returns {any}
 */
function drive(steps, value) {
    for (;;) {
        const step = steps.next(value);
        if (step.done) return step.value;
        if (typeof step.value?.then === 'function') {
            return step.value.then((/** @type {any} */ settled) => drive(steps, settled));
        }
        value = step.value;
    }
}
