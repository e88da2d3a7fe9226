// What a failure of the engine means for who asked.

const lostCodes = new Set([
    'CONNECTION_CLOSED', 'CONNECTION_DESTROYED', 'CONNECTION_ENDED', 'CONNECT_TIMEOUT', 'ECONNREFUSED', 'ECONNRESET',
    'ECONNABORTED', 'EPIPE', 'ETIMEDOUT', 'EHOSTUNREACH', 'EHOSTDOWN', 'ENETUNREACH', 'ENETDOWN', 'ENOENT', 'EAI_AGAIN',
    'ENOTFOUND',
    '25006', // read-only: the server has become a copy, or always was one
    '53300', // too many connections
    '57P01', '57P02', '57P03', '57P05', // shut down, crashed, starting, connection idle for too long
]);
const repeatedCodes = new Set([
    '40001', '40P01', // serialization failure, deadlock
    '23505', // somebody else has just made what was found missing
]);

/**
 * The connection or the server is gone, and another attempt may find one.
 * @param {any} error
 */
export function isLost(error) {
    const code = error?.code;
    return lostCodes.has(code) || (typeof code === 'string' && /^08\w{3}$/.test(code));
}

/**
 * Others were in the way, nothing was done, and another attempt may succeed at once.
 * @param {any} error
 */
export function isRepeatable(error) {
    return repeatedCodes.has(error?.code);
}

/**
 * The failure in one line.
 * @param {any} error
 */
export function failureLine(error) {
    const code = error?.code ? ` (${error.code})` : '';
    return `${String(error?.message ?? error).split('\n')[0]}${code}`;
}
