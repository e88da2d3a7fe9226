/// <reference types="node" />
/** @typedef {import('./requestLines.cjs').LineBuffer} LineBuffer */
/** @typedef {import('./session.cjs').Session} Session */
/**
 * Waits in blocking reads: the fastest way by far, and nothing else runs in the process meanwhile.
 * @param {number} input descriptor
 * @param {LineBuffer} lines
 * @param {Session} session
 * @returns {Promise<void> | undefined} undefined at the end of the input; the promise of the answer under way when the
 *     file system turned out to be async
 */
export function runBlocking(input: number, lines: LineBuffer, session: Session): Promise<void> | undefined;
/**
 * Waits in node's event loop, so that timers, sockets and promises of the file system go on.
 * @param {number} input descriptor
 * @param {LineBuffer} lines may hold requests already
 * @param {Session} session
 * @param {Promise<void>} [underWay] the answer to wait for before the next request
 * @returns {Promise<void>} done at the end of the input
 */
export function runInEventLoop(input: number, lines: LineBuffer, session: Session, underWay?: Promise<void> | undefined): Promise<void>;
/**
 * @param {number} descriptor
 * @returns {(bytes: Buffer, from: number, to: number) => void} writes all of the bytes given
 */
export function writerTo(descriptor: number): (bytes: Buffer, from: number, to: number) => void;
export type LineBuffer = import('./requestLines.cjs').LineBuffer;
export type Session = import('./session.cjs').Session;
