/**
 * @param {string} code that the program sees
 * @param {string} message
 */
export function seenError(code: string, message: string): Error & {
    code: string;
};
/**
 * The error for an answer that is none of success.
 * @param {import('./conversation.cjs').Answer} answer
 * @param {string} subject such as "read of /a.txt"
 */
export function refusal(answer: import('./conversation.cjs').Answer, subject: string): Error & {
    code: string;
};
/**
 * The error for an answer that breaks a rule, in the words of `kemvi check`.
 * @param {string} rule
 * @param {string} problem
 * @param {string} consequence
 */
export function brokenRule(rule: string, problem: string, consequence: string): Error;
