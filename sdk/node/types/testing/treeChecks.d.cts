/**
 * @param {Conversation} talk
 * @returns {Promise<Stat[]>} some files to read
 */
export function checkTree(talk: Conversation): Promise<Stat[]>;
/**
 * Looks at one folder in the same way.
 * @param {Conversation} talk
 * @param {string} path
 */
export function checkFolder(talk: Conversation, path: string): Promise<void>;
/** @param {string} folder @param {string} name */
export function childPath(folder: string, name: string): string;
export type Conversation = import('./conversation.cjs').Conversation;
export type Answer = import('./conversation.cjs').Answer;
/**
 * as answered
 */
export type Stat = {
    path: string;
    name: string;
    isDirectory: boolean;
    size: number;
    modifiedAt: string;
};
