// Errors as a program on the mount sees them, with what the author wants to know of them.

const told = new Set([
    'ENOENT', 'EEXIST', 'EINVAL', 'EISDIR', 'ENOTDIR', 'ENOTEMPTY', 'EACCES', 'EPERM', 'EROFS',
]);

/**
 * @param {string} code that the program sees
 * @param {string} message
 */
export function seenError(code, message) {
    return Object.assign(new Error(`${code}: ${message}`), { code });
}

/**
 * The error for an answer that is none of success.
 * @param {import('./conversation.mjs').Answer} answer
 * @param {string} subject such as "read of /a.txt"
 */
export function refusal(answer, subject) {
    if (told.has(answer.code)) return seenError(answer.code, `${subject}: ${answer.message}`);
    if (!answer.came) return seenError('EIO', `${subject} was not answered in time: is its promise ever settled?`);
    if (answer.code === '') return seenError('EIO', answer.said.trimEnd()); // the mistake with its stack
    return seenError('EIO', `${subject}: ${answer.message} (of the code ${answer.code} programs see EIO)`);
}

/**
 * The error for an answer that breaks a rule, in the words of `kemvi check`.
 * @param {string} rule
 * @param {string} problem
 * @param {string} consequence
 */
export function brokenRule(rule, problem, consequence) {
    return new Error(`${problem}; rule: ${rule}; so: ${consequence}`);
}
