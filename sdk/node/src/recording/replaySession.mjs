// Answers requests from a recording.
import { failureText } from '../answerLine.mjs';
import { quote } from '../jsonText.mjs';
import { ownName, RecordedAnswers, withOwnNames } from './recordedAnswers.mjs';

const formatVersion = 1;
const harmless = new Set(['ping', 'flush', 'release']);

/**
 * @typedef {import('./recordingFile.mjs').RecordingFile} RecordingFile
 * @typedef {{from: number, to: number, entry: any}} Listed a member of a recorded listing
 */

export class ReplaySession {
    /**
     * @param {RecordingFile} file
     * @param {(bytes: Buffer, from: number, to: number) => void} send
     * @param {(text: string) => void} report
     * @throws {Error} when it is no recording
     */
    constructor(file, send, report) {
        this.file_ = file;
        this.send_ = send;
        this.report_ = report;
        this.answers_ = new RecordedAnswers();
        /** @type {Map<string, string>} attributes of names that were listed, as JSON */
        this.listed_ = new Map();
        /** @type {Map<number, string>} paths by handle, of this helper's own numbers */
        this.files_ = new Map();
        this.lastHandle_ = 0;
        /** @type {string | undefined} */
        this.ownName_ = undefined;
        this.exchanges = 0;
        /** What the recording holds of payloads: full, hash, none. */
        this.payloads = 'full';
        this.read_();
    }

    read_() {
        const lines = this.file_.lines();
        this.readHeader_(lines.next().value?.text);
        /** @type {Map<number, string>} paths by recorded handle */
        const paths = new Map();
        for (const { from, to, text } of lines) {
            const { q: request, a: answer } = parse(text, this.file_.name);
            if (typeof request !== 'object' || request === null) continue;
            if (request.id === '1') paths.clear();
            this.answers_.add(request, paths.get(request.handle) ?? '', from, to);
            this.exchanges++;
            if (request.op === 'open' && answer?.ok) paths.set(answer.result?.handle, request.path);
            if (request.op === 'readdir' && answer?.ok) this.takeListing_(answer.result);
        }
    }

    /** @param {string | undefined} text */
    readHeader_(text) {
        const header = text === undefined ? undefined : parse(text, this.file_.name);
        if (typeof header?.recording !== 'number') throw new Error(`${this.file_.name} is no recording`);
        if (header.recording !== formatVersion) {
            throw new Error(`${this.file_.name} is a recording of format ${header.recording}; this helper reads ${formatVersion}`);
        }
        this.payloads = header.payloads;
    }

    /** @param {unknown} entries */
    takeListing_(entries) {
        if (!Array.isArray(entries)) return;
        for (const entry of entries) {
            if (typeof entry?.path === 'string' && !this.listed_.has(entry.path)) {
                this.listed_.set(entry.path, JSON.stringify(entry));
            }
        }
    }

    /**
     * Answers one request line.
     * @param {Buffer} bytes
     * @param {number} start
     * @param {number} end
     */
    answer(bytes, start, end) {
        const text = bytes.utf8Slice(start, end);
        const request = parse(text, 'the request');
        this.ownName_ ??= ownName(text);
        const path = this.files_.get(request.handle) ?? '';
        const found = this.answers_.find(request, path);
        this.write_(found ? this.recorded_(request, found) : this.invented_(request, path));
        if (request.op === 'release') this.files_.delete(request.handle);
        return undefined;
    }

    /** @param {string} line */
    write_(line) {
        const bytes = Buffer.from(line + '\n');
        this.send_(bytes, 0, bytes.length);
    }

    /**
     * @param {any} request
     * @param {import('./recordedAnswers.mjs').Recorded} found
     * @returns {string}
     */
    recorded_(request, found) {
        const text = this.file_.bytes(found.from, found.to).toString();
        const { a: answer, unreadable } = JSON.parse(withOwnNames(text, this.ownName_));
        if (answer === null && unreadable !== undefined) return unreadable.replaceAll('\n', ' ');
        if (answer === null) {
            this.report_(`the recorded helper gave no answer to ${request.op} and ended; so does this one`);
            process.exit(1);
        }
        const { dataLength, dataSHA256, dataInvalid, ...rest } = answer;
        rest.id = request.id;
        if (request.op === 'getattr' && rest.ok && this.answers_.isToCome(request.path, found)) return failed(request, 'ENOENT');
        if (request.op === 'readdir' && Array.isArray(rest.result)) {
            rest.result = rest.result.filter((/** @type {any} */ entry) => !this.answers_.isToCome(String(entry?.path), found));
        }
        if (request.op === 'open' && rest.ok && typeof rest.result?.handle === 'number') {
            rest.result.handle = ++this.lastHandle_;
            this.files_.set(this.lastHandle_, request.path);
        }
        if (dataInvalid) rest.dataBase64 = '?';
        if (dataLength !== undefined) rest.dataBase64 = Buffer.alloc(dataLength).toString('base64');
        return JSON.stringify(rest);
    }

    /**
     * The answer to what was not asked when it was recorded.
     * @param {any} request
     * @param {string} file
     * @returns {string}
     */
    invented_(request, file) {
        const { op, path = file } = request;
        const head = `{"id":${quote(String(request.id))}`;
        if (harmless.has(op)) return `${head},"ok":true}`;
        if (op === 'statfs') return `${head},"ok":true,"result":{}}`;
        if (op === 'getattr') {
            const entry = this.listed_.get(path);
            return entry ? `${head},"ok":true,"result":${withOwnNames(entry, this.ownName_)}}` : failed(request, 'ENOENT');
        }
        const isLook = op === 'readdir' || op === 'read' || (op === 'open' && !request.flags?.includes?.('write'));
        this.report_(`was asked what the recording does not tell: ${op} ${path || request.oldPath}`);
        return failed(request, isLook ? 'EIO' : 'EROFS');
    }
}

/**
 * @param {any} request
 * @param {string} code
 */
function failed({ id, op, path, oldPath }, code) {
    return `{"id":${quote(String(id))},"ok":false,${failureText(`the recording does not tell: ${op} ${path ?? oldPath ?? ''}`, code)}}`;
}

/**
 * @param {string} text
 * @param {string} where
 * @returns {any}
 */
function parse(text, where) {
    try {
        const value = JSON.parse(text);
        if (typeof value === 'object' && value !== null) return value;
    } catch {
        // told below
    }
    throw new Error(`${where} has a line that is no JSON object: ${text.slice(0, 80)}`);
}
