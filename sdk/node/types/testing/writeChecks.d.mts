/**
 * Begins only where no name and no path was found wrong, and removes what it made and nothing else.
 * @param {Conversation} talk
 * @param {string} directory
 * @returns {Promise<boolean>} whether it began
 */
export function checkWriting(talk: Conversation, directory: string): Promise<boolean>;
export type Conversation = import('./conversation.mjs').Conversation;
export type Answer = import('./conversation.mjs').Answer;
