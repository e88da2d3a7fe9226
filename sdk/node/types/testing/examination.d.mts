/**
 * Examines a file system, and ends it.
 * @param {import('./conversation.mjs').Conversation} talk
 * @param {string | false} directory in which changes are tried
 * @returns {Promise<import('./findings.mjs').CheckResult>}
 */
export function examine(talk: import('./conversation.mjs').Conversation, directory: string | false): Promise<import('./findings.mjs').CheckResult>;
export const longestEnd: 5000;
