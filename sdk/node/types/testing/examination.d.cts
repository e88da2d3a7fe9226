/**
 * Examines a file system, and ends it.
 * @param {import('./conversation.cjs').Conversation} talk
 * @param {string | false} directory in which changes are tried
 * @returns {Promise<import('./findings.cjs').CheckResult>}
 */
export function examine(talk: import('./conversation.cjs').Conversation, directory: string | false): Promise<import('./findings.cjs').CheckResult>;
export const longestEnd: 5000;
