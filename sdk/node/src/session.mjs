// One run of a helper: its open files, and the answer to each request line.
import { AnswerLine, failureText } from './answerLine.mjs';
import { cameInstead, codeProblem, isPosixError, PosixError, thrownText, wrongValue } from './errors.mjs';
import { FirstCalls } from './firstCalls.mjs';
import { quote } from './jsonText.mjs';
import { LateAnswers } from './lateAnswers.mjs';
import { OpenFiles } from './openFiles.mjs';
import { operations } from './operations.mjs';
import { parseRequest } from './requestLines.mjs';

/** @typedef {import('./requestLines.mjs').Request} Request */
/** @typedef {import('./operations.mjs').Operation} Operation */

// Longer reads are asked of the file system in pieces of this size, so that no length is too long for the memory. A
// multiple of 3, so that the pieces' base64 texts make one.
const readPiece = 3 << 19;

export class Session {
    /**
     * @param {import('./fileSystem.mjs').FileSystem} fileSystem
     * @param {import('./base64/codec.mjs').Codec} codec
     * @param {(bytes: Buffer, from: number, to: number) => void} send
     * @param {(text: string) => void} report takes lines for people
     * @param {number} [lateAfter] milliseconds, after which an answer that is still awaited is told
     */
    constructor(fileSystem, codec, send, report, lateAfter = 10_000) {
        this.fileSystem = fileSystem;
        this.line_ = new AnswerLine(codec, send);
        this.codec_ = codec;
        this.report_ = report;
        this.openFiles = new OpenFiles(fileSystem);
        this.firstCalls_ = new FirstCalls();
        this.lateAnswers_ = new LateAnswers(lateAfter, report);
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
            const isFirst = this.firstCalls_.begin(request.op);
            const result = operation.call(this, request);
            if (result !== undefined && typeof result?.then === 'function') {
                return this.answerLater_(request, operation, result, isFirst);
            }
            this.finish_(request, operation, result);
            if (isFirst) return this.lookAfterFirst_(request);
        } catch (error) {
            this.fail_(request, error);
        }
        return undefined;
    }

    /**
     * @param {Request} request
     * @param {Operation} operation
     * @param {PromiseLike<any>} promise
     * @param {boolean} isFirst of its operation
     */
    async answerLater_(request, operation, promise, isFirst) {
        /** @type {Promise<never>} */
        const abandoned = new Promise((resolve, reject) => (this.abandon_ = reject));
        this.lateAnswers_.await(() => this.subject_(request));
        try {
            const result = await Promise.race([promise, abandoned]);
            if (isFirst && this.leavesFileWork_()) {
                await new Promise((resolve) => setImmediate(resolve)); // what was awaited is still there until then
                if (this.leavesFileWork_()) this.tellOfForgotten_(request, ['FSReqPromise']);
            }
            this.finish_(request, operation, result);
        } catch (error) {
            this.fail_(request, error);
        }
        this.lateAnswers_.came();
        this.abandon_ = () => {};
    }

    /**
     * What a function leaves going on may be what an await was meant for. In the blocking loop it would never end, so a
     * promise is returned then, for which the loop changes.
     * @param {Request} request
     * @returns {Promise<void> | undefined}
     */
    lookAfterFirst_(request) {
        const names = this.firstCalls_.end();
        if (names.some((name) => name.startsWith('FSReq'))) this.tellOfForgotten_(request, names);
        return names.length > 0 ? Promise.resolve() : undefined;
    }

    /** Others may have begun something meanwhile too: only what is most likely of the function counts. */
    leavesFileWork_() {
        return this.firstCalls_.end().includes('FSReqPromise');
    }

    /**
     * @param {Request} request
     * @param {string[]} names of what goes on
     */
    tellOfForgotten_(request, names) {
        this.report_(
            `${this.subject_(request)} was answered while something that it began still goes on (${names.join(', ')}): ` +
                'is an await or a return missing?',
        );
    }

    /**
     * Something failed where nobody waits for it: in a timer, an event, a promise left alone. If an answer is awaited,
     * it may never come now, so it becomes an error; a mount would wait for ever.
     * @param {unknown} error
     */
    strayFailure(error) {
        this.report_(`unhandled: ${thrownText(error)}`);
        this.abandon_(new Error('the file system failed while this request was under way'));
    }

    /**
     * The input has ended and nothing is going on in the process any more, so that a promise that is still awaited stays
     * as it is for ever. Node would end the process without a word.
     */
    abandonHopeless() {
        this.abandon('its promise was never settled, and nothing is left that could settle it');
    }

    /**
     * Makes the answer that is awaited an error.
     * @param {string} reason
     */
    abandon(reason) {
        this.abandon_(new Error(reason));
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
        const count = this.byteCount_(got, /** @type {number} */ (request.length), request);
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
            const count = this.byteCount_(got, piece, request);
            this.line_.base64(typeof got === 'number' ? this.scratch_ : got, 0, count);
            if (count < piece) break;
            done += count;
        }
        return alreadyWritten;
    }

    /**
     * @param {any} got
     * @param {number} length
     * @param {Request} request
     * @returns {number}
     */
    byteCount_(got, length, request) {
        if (got instanceof Uint8Array) return Math.min(got.length, length);
        if (Number.isInteger(got) && got >= 0 && got <= length) return got;
        const hint = typeof got?.bytesRead === 'number' ? '; return its bytesRead' : '';
        const wanted = `bytes, such as Buffer.from("text"), or how many were put in the buffer, 0 to ${length}${hint}`;
        throw wrongValue(`what ${this.subject_(request)} gave is ${cameInstead(got, wanted)}`);
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
        const text = isPosixError(error) ? refusalText(error) : this.fault_(request, error);
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
        const problem = codeProblem(error);
        const named = problem === undefined ? '' : problem + ': ';
        this.report_(`${this.subject_(request)} failed: ${named}${thrownText(error)}`);
        const isError = error instanceof Error;
        const message = (isError && error.message && String(error.message)) || thrownText(error);
        return failureText(message, undefined, isError ? String(error.name) : undefined);
    }

    /**
     * What a request was about, for people: "read of /a.txt".
     * @param {Request} request
     */
    subject_(request) {
        const path = request.path ?? this.openFiles.pathOf(request.handle);
        if (path !== undefined) return `${request.op} of ${path}`;
        if (request.oldPath !== undefined) return `${request.op} of ${request.oldPath} to ${request.newPath}`;
        return request.handle === undefined ? String(request.op) : `${request.op} of the handle ${request.handle}`;
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
     * @param {string} path with which it was opened
     * @returns {number} its handle
     */
    addFile(file, flags, path) {
        if (file === undefined && this.openFiles.isFresh) {
            this.report_(`open of ${path} gave nothing, which is what read and the others get: is a return missing?`);
        }
        return this.openFiles.add(file, flags, path);
    }

    /** Gives back what is still open, then ends the file system. What fails is reported, and the rest goes on. */
    async end() {
        for (const handle of this.openFiles.handles()) {
            await this.attempt_(`release of ${this.openFiles.pathOf(handle)}`, () => this.openFiles.release(handle));
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
            this.report_(`${what} failed: ${thrownText(error)}`);
        }
    }
}

const alreadyWritten = Symbol('alreadyWritten');

/** @param {{code: string, message?: unknown, name?: unknown}} error */
function refusalText({ code, message, name }) {
    return failureText(message ? String(message) : code, code, typeof name === 'string' ? name : undefined);
}

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
