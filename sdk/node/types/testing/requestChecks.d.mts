/** @param {import('./conversation.mjs').Conversation} talk */
export function checkRequests(talk: import('./conversation.mjs').Conversation): Promise<void>;
