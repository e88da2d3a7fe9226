export class Session {
    /**
     * @param {import('./fileSystem.mjs').FileSystem} fileSystem
     * @param {import('./base64/codec.mjs').Codec} codec
     * @param {(bytes: Buffer, from: number, to: number) => void} send
     * @param {(text: string) => void} report takes lines for people
     */
    constructor(fileSystem: import('./fileSystem.mjs').FileSystem, codec: import('./base64/codec.mjs').Codec, send: (bytes: Buffer, from: number, to: number) => void, report: (text: string) => void);
    fileSystem: import("./fileSystem.mjs").FileSystem<any>;
    line_: AnswerLine;
    codec_: import("./base64/codec.mjs").Codec;
    report_: (text: string) => void;
    /** @type {Map<number, OpenFile>} */
    handles_: Map<number, OpenFile>;
    lastHandle_: number;
    scratch_: Buffer;
    /** What closes the value that is being written, should the line have to end with an error. */
    closing_: string;
    /** @type {Request | undefined} the request that is being answered */
    current_: Request | undefined;
    /**
     * Makes the answer that is awaited an error.
     * @type {(error: unknown) => void}
     */
    abandon_: (error: unknown) => void;
    /**
     * Answers one request line.
     * @param {Buffer} bytes
     * @param {number} from
     * @param {number} to
     * @returns {Promise<void> | undefined} a promise when the answer comes later; it never rejects
     */
    answer(bytes: Buffer, from: number, to: number): Promise<void> | undefined;
    /**
     * @param {Request} request
     * @param {Operation} operation
     * @param {PromiseLike<any>} promise
     */
    answerLater_(request: Request, operation: Operation, promise: PromiseLike<any>): Promise<void>;
    /**
     * Something failed where nobody waits for it: in a timer, an event, a promise left alone. If an answer is awaited,
     * it may never come now, so it becomes an error; a mount would wait for ever.
     * @param {unknown} error
     */
    strayFailure(error: unknown): void;
    /**
     * The input has ended and nothing is going on in the process any more, so that a promise that is still awaited stays
     * as it is for ever. Node would end the process without a word.
     */
    abandonHopeless(): void;
    /**
     * @param {Request} request
     * @param {Operation} operation
     * @param {any} result
     */
    finish_(request: Request, operation: Operation, result: any): void;
    /**
     * @param {Request} request
     * @param {string} json
     */
    answerResult(request: Request, json: string): void;
    /**
     * Writes a listing while it is being made. "ok" comes last, since a member far down may still fail.
     * @param {Request} request
     * @param {Iterable<import('./fileSystem.mjs').Entry>} entries
     * @param {import('./statText.mjs').EntryTexts} texts
     */
    answerEntries(request: Request, entries: Iterable<import('./fileSystem.mjs').Entry>, texts: import('./statText.mjs').EntryTexts): void;
    /**
     * Asks for the bytes of a read. Returns those of a short one; writes a long one's as they come.
     * @param {any} file
     * @param {number} offset
     * @param {number} length
     * @param {Request} request
     * @returns {any}
     */
    read(file: any, offset: number, length: number, request: Request): any;
    /**
     * @param {Request} request
     * @param {any} got what the file system's `read` returned
     */
    answerRead(request: Request, got: any): void;
    /**
     * @param {any} file
     * @param {number} offset
     * @param {number} length
     * @param {Request} request
     * @returns {Generator<any, symbol, any>}
     */
    readLong_(file: any, offset: number, length: number, request: Request): Generator<any, symbol, any>;
    /**
     * @param {any} got
     * @param {number} length
     * @returns {number}
     */
    byteCount_(got: any, length: number): number;
    /**
     * Begins an answer that may have to end with an error after all: "ok" comes last.
     * @param {Request} request
     * @param {string} opening
     * @param {string} closing
     */
    begin_(request: Request, opening: string, closing: string): void;
    /**
     * @param {Request} request
     * @param {unknown} error
     */
    fail_(request: Request, error: unknown): void;
    /**
     * @param {Request} request
     * @param {unknown} error
     */
    fault_(request: Request, error: unknown): string;
    /**
     * A line that is no JSON object: its sender waits all the same, so it is answered when it shows an id.
     * @param {string} head
     * @param {unknown} error
     */
    answerMalformed_(head: string, error: unknown): void;
    /** @param {Request} request an object without an id or an op that are strings */
    answerIncomplete_(request: Request): void;
    /**
     * @param {any} file
     * @param {import('./fileSystem.mjs').OpenFlags} flags with which it was opened
     * @returns {number} a number that was never used before
     */
    addHandle(file: any, { read, write }: import('./fileSystem.mjs').OpenFlags): number;
    /** @param {unknown} handle @returns {OpenFile} */
    openFile(handle: unknown): OpenFile;
    /**
     * Forgets a handle and gives its file back.
     * @param {unknown} handle
     */
    release(handle: unknown): import("./fileSystem.mjs").MaybeAsync<void> | undefined;
    /** Gives back what is still open, then ends the file system. What fails is reported, and the rest goes on. */
    end(): Promise<void>;
    /**
     * @param {string} what
     * @param {() => unknown} step
     */
    attempt_(what: string, step: () => unknown): Promise<void>;
}
export type Request = import('./requestLines.mjs').Request;
export type Operation = import('./operations.mjs').Operation;
export type OpenFile = {
    file: any;
    read: boolean;
    write: boolean;
};
import { AnswerLine } from "./answerLine.mjs";
