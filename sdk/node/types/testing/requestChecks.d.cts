/** @param {import('./conversation.cjs').Conversation} talk */
export function checkRequests(talk: import('./conversation.cjs').Conversation): Promise<void>;
