/// <reference types="node" />
/**
 * @param {Conversation} talk
 * @param {{path: string, size: number}[]} files
 */
export function checkReading(talk: Conversation, files: {
    path: string;
    size: number;
}[]): Promise<void>;
/**
 * Everything from the start of an open file, until a read gives none or `limit` bytes have come.
 * @param {Conversation} talk
 * @param {number} handle
 * @param {number} length of one read
 * @param {number} limit
 * @param {(answer: Answer) => void} [onFailure] of a read
 * @returns {Promise<Buffer | undefined>} undefined when a read fails
 */
export function readOn(talk: Conversation, handle: number, length: number, limit: number, onFailure?: ((answer: Answer) => void) | undefined): Promise<Buffer | undefined>;
export type Conversation = import('./conversation.mjs').Conversation;
export type Answer = import('./conversation.mjs').Answer;
