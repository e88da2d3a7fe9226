// Asks a file system as a mount does: a request line in, an answer line out, through the session that a helper runs.
import { makeCodec } from '../base64/codec.mjs';
import { isPosixCode } from '../errors.mjs';
import { report } from '../report.mjs';
import { LineBuffer } from '../requestLines.mjs';
import { Session } from '../session.mjs';
import { Findings } from './findings.mjs';

const mostLost = 4; // answers that never came; then nothing more is asked, since each takes the whole time
const everydayLine = 64 * 1024;
const longest = 2 ** 31 - 1; // milliseconds

/**
 * One request with its answer.
 * @typedef {object} Answer
 * @property {string} request the line
 * @property {string} line the answer; empty when none came in time
 * @property {boolean} came whether there was an answer
 * @property {boolean} ok
 * @property {any} result undefined unless `ok`
 * @property {Buffer | undefined} bytes of a read that succeeded
 * @property {string} code of an error; empty where there is none
 * @property {string} message of an error
 * @property {number} took milliseconds
 * @property {string} said what the kit had to say to people meanwhile
 */

export class Conversation {
    /**
     * @param {import('../fileSystem.mjs').FileSystem} fileSystem
     * @param {number} limit milliseconds that one answer may take
     */
    constructor(fileSystem, limit) {
        const codec = makeCodec();
        this.limit_ = limit;
        this.lines_ = new LineBuffer(codec, everydayLine);
        /** @type {Buffer[]} */
        this.written_ = [];
        this.said_ = '';
        this.session_ = new Session(
            fileSystem,
            codec,
            (bytes, from, to) => this.written_.push(Buffer.from(bytes.subarray(from, to))),
            (text) => (this.said_ += text + '\n'),
            longest, // we have a limit of our own
        );
        this.lastID_ = 0;
        this.lost_ = 0;
        this.hasEnded_ = false;
        /** @type {Promise<unknown>} the exchange that was asked for last */
        this.last_ = Promise.resolve();
        /** What the answers are judged for, besides what whoever asks makes of them. */
        this.findings = new Findings();
    }

    /** False when too many answers never came. */
    available() {
        return this.lost_ < mostLost;
    }

    /**
     * One at a time, in order, as a mount asks.
     * @param {string} op
     * @param {object} [fields]
     * @returns {Promise<Answer>}
     */
    ask(op, fields = {}) {
        if (this.hasEnded_) throw new Error('the file system has ended');
        const id = String(++this.lastID_);
        const line = JSON.stringify({ id, op, ...fields }).replaceAll('/', '\\/');
        const answer = this.last_.then(() => this.exchange_(line));
        this.last_ = answer;
        return answer;
    }

    /**
     * @param {string} request
     * @returns {Promise<Answer>}
     */
    async exchange_(request) {
        this.written_ = [];
        this.said_ = '';
        this.lines_.prepareFill();
        this.lines_.append(Buffer.from(request + '\n'));
        this.lines_.nextLine();
        const began = performance.now();
        const later = this.session_.answer(this.lines_.bytes, this.lines_.lineStart, this.lines_.lineEnd);
        const came = later === undefined || (await this.inTime_(later));
        const answer = this.answer_(request, came, performance.now() - began);
        this.judge_(answer);
        if (answer.ok && answer.said !== '') report(answer.said.trimEnd()); // a failure carries it
        return answer;
    }

    /**
     * @param {Promise<void>} later
     * @returns {Promise<boolean>} whether it was in time; what was not has been given up
     */
    async inTime_(later) {
        let came = true;
        const timer = setTimeout(() => {
            came = false;
            this.session_.abandon(`it took longer than ${this.limit_} ms`);
        }, this.limit_);
        await later;
        clearTimeout(timer);
        return came;
    }

    /**
     * @param {string} request
     * @param {boolean} came
     * @param {number} took
     * @returns {Answer}
     */
    answer_(request, came, took) {
        const line = came ? Buffer.concat(this.written_).toString().trimEnd() : '';
        const { ok = false, result, dataBase64, error } = came ? JSON.parse(line) : /** @type {any} */ ({});
        const bytes = typeof dataBase64 === 'string' ? Buffer.from(dataBase64, 'base64') : undefined;
        const { code = '', message = '' } = error ?? {};
        return { request, line, came, ok, result, bytes, code, message, took, said: this.said_ };
    }

    /** @param {Answer} answer */
    judge_(answer) {
        if (!answer.came) {
            this.lost_++;
            const consequence = 'programs that need this answer hang';
            this.findings.add('inTime', 'error', `no answer within ${this.limit_} ms`, consequence, answer);
        } else if (!answer.ok && !isPosixCode(answer.code)) {
            const consequence = 'whatever was wrong shows as an input/output error';
            this.findings.add('errorsSpeak', 'error', 'the error has no code', consequence, answer);
        }
    }

    /**
     * Gives back what is open and ends the file system.
     * @param {number} limit milliseconds
     * @returns {Promise<{ended: boolean, said: string}>}
     */
    async end(limit) {
        this.hasEnded_ = true;
        await this.last_;
        this.said_ = '';
        let ended = true;
        await new Promise((resolve) => {
            const timer = setTimeout(() => resolve((ended = false)), limit);
            this.session_.end().then(() => resolve(clearTimeout(timer)));
        });
        return { ended, said: this.said_ };
    }
}
