/// <reference types="node" />
export class Session {
    /**
     * @param {import('./fileSystem.cjs').FileSystem} fileSystem
     * @param {import('./base64/codec.cjs').Codec} codec
     * @param {(bytes: Buffer, from: number, to: number) => void} send
     * @param {(text: string) => void} report takes lines for people
     * @param {number} [lateAfter] milliseconds, after which an answer that is still awaited is told
     */
    constructor(fileSystem: import('./fileSystem.cjs').FileSystem, codec: import('./base64/codec.cjs').Codec, send: (bytes: Buffer, from: number, to: number) => void, report: (text: string) => void, lateAfter?: number | undefined);
    fileSystem: import("./fileSystem.cjs").FileSystem<any>;
    line_: AnswerLine;
    codec_: import("./base64/codec.cjs").Codec;
    report_: (text: string) => void;
    openFiles: OpenFiles;
    firstCalls_: FirstCalls;
    lateAnswers_: LateAnswers;
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
     * @param {boolean} isFirst of its operation
     */
    answerLater_(request: Request, operation: Operation, promise: PromiseLike<any>, isFirst: boolean): Promise<void>;
    /**
     * What a function leaves going on may be what an await was meant for. In the blocking loop it would never end, so a
     * promise is returned then, for which the loop changes.
     * @param {Request} request
     * @returns {Promise<void> | undefined}
     */
    lookAfterFirst_(request: Request): Promise<void> | undefined;
    /** Others may have begun something meanwhile too: only what is most likely of the function counts. */
    leavesFileWork_(): boolean;
    /**
     * @param {Request} request
     * @param {string[]} names of what goes on
     */
    tellOfForgotten_(request: Request, names: string[]): void;
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
     * Makes the answer that is awaited an error.
     * @param {string} reason
     */
    abandon(reason: string): void;
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
     * @param {Iterable<import('./fileSystem.cjs').Entry>} entries
     * @param {import('./statText.cjs').EntryTexts} texts
     */
    answerEntries(request: Request, entries: Iterable<import('./fileSystem.cjs').Entry>, texts: import('./statText.cjs').EntryTexts): void;
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
     * @param {Request} request
     * @returns {number}
     */
    byteCount_(got: any, length: number, request: Request): number;
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
     * What a request was about, for people: "read of /a.txt".
     * @param {Request} request
     */
    subject_(request: Request): string;
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
     * @param {import('./fileSystem.cjs').OpenFlags} flags with which it was opened
     * @param {string} path with which it was opened
     * @returns {number} its handle
     */
    addFile(file: any, flags: import('./fileSystem.cjs').OpenFlags, path: string): number;
    /** Gives back what is still open, then ends the file system. What fails is reported, and the rest goes on. */
    end(): Promise<void>;
    /**
     * @param {string} what
     * @param {() => unknown} step
     */
    attempt_(what: string, step: () => unknown): Promise<void>;
}
export type Request = import('./requestLines.cjs').Request;
export type Operation = import('./operations.cjs').Operation;
import { AnswerLine } from "./answerLine.cjs";
import { OpenFiles } from "./openFiles.cjs";
import { FirstCalls } from "./firstCalls.cjs";
import { LateAnswers } from "./lateAnswers.cjs";
