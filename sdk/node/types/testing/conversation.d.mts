/// <reference types="node" />
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
    constructor(fileSystem: import('../fileSystem.mjs').FileSystem, limit: number);
    limit_: number;
    lines_: LineBuffer;
    /** @type {Buffer[]} */
    written_: Buffer[];
    said_: string;
    session_: Session;
    lastID_: number;
    lost_: number;
    hasEnded_: boolean;
    /** @type {Promise<unknown>} the exchange that was asked for last */
    last_: Promise<unknown>;
    /** What the answers are judged for, besides what whoever asks makes of them. */
    findings: Findings;
    /** False when too many answers never came. */
    available(): boolean;
    /**
     * One at a time, in order, as a mount asks.
     * @param {string} op
     * @param {object} [fields]
     * @returns {Promise<Answer>}
     */
    ask(op: string, fields?: object | undefined): Promise<Answer>;
    /**
     * @param {string} request
     * @returns {Promise<Answer>}
     */
    exchange_(request: string): Promise<Answer>;
    /**
     * @param {Promise<void>} later
     * @returns {Promise<boolean>} whether it was in time; what was not has been given up
     */
    inTime_(later: Promise<void>): Promise<boolean>;
    /**
     * @param {string} request
     * @param {boolean} came
     * @param {number} took
     * @returns {Answer}
     */
    answer_(request: string, came: boolean, took: number): Answer;
    /** @param {Answer} answer */
    judge_(answer: Answer): void;
    /**
     * Gives back what is open and ends the file system.
     * @param {number} limit milliseconds
     * @returns {Promise<{ended: boolean, said: string}>}
     */
    end(limit: number): Promise<{
        ended: boolean;
        said: string;
    }>;
}
/**
 * One request with its answer.
 */
export type Answer = {
    /**
     * the line
     */
    request: string;
    /**
     * the answer; empty when none came in time
     */
    line: string;
    /**
     * whether there was an answer
     */
    came: boolean;
    ok: boolean;
    /**
     * undefined unless `ok`
     */
    result: any;
    /**
     * of a read that succeeded
     */
    bytes: Buffer | undefined;
    /**
     * of an error; empty where there is none
     */
    code: string;
    /**
     * of an error
     */
    message: string;
    /**
     * milliseconds
     */
    took: number;
    /**
     * what the kit had to say to people meanwhile
     */
    said: string;
};
import { LineBuffer } from "../requestLines.mjs";
import { Session } from "../session.mjs";
import { Findings } from "./findings.mjs";
