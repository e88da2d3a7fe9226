// Errors that a file system throws on purpose, and what any thrown value becomes in an answer.
import os from 'node:os';
import { inspect } from 'node:util';

/**
 * The names of POSIX errors.
 * @typedef {'E2BIG' | 'EACCES' | 'EADDRINUSE' | 'EADDRNOTAVAIL' | 'EAFNOSUPPORT' | 'EAGAIN' | 'EALREADY' | 'EBADF' |
 *     'EBADMSG' | 'EBUSY' | 'ECANCELED' | 'ECHILD' | 'ECONNABORTED' | 'ECONNREFUSED' | 'ECONNRESET' | 'EDEADLK' |
 *     'EDESTADDRREQ' | 'EDOM' | 'EDQUOT' | 'EEXIST' | 'EFAULT' | 'EFBIG' | 'EHOSTUNREACH' | 'EIDRM' | 'EILSEQ' |
 *     'EINPROGRESS' | 'EINTR' | 'EINVAL' | 'EIO' | 'EISCONN' | 'EISDIR' | 'ELOOP' | 'EMFILE' | 'EMLINK' | 'EMSGSIZE' |
 *     'EMULTIHOP' | 'ENAMETOOLONG' | 'ENETDOWN' | 'ENETRESET' | 'ENETUNREACH' | 'ENFILE' | 'ENOBUFS' | 'ENODATA' |
 *     'ENODEV' | 'ENOENT' | 'ENOEXEC' | 'ENOLCK' | 'ENOLINK' | 'ENOMEM' | 'ENOMSG' | 'ENOPROTOOPT' | 'ENOSPC' |
 *     'ENOSR' | 'ENOSTR' | 'ENOSYS' | 'ENOTCONN' | 'ENOTDIR' | 'ENOTEMPTY' | 'ENOTSOCK' | 'ENOTSUP' | 'ENOTTY' |
 *     'ENXIO' | 'EOPNOTSUPP' | 'EOVERFLOW' | 'EPERM' | 'EPIPE' | 'EPROTO' | 'EPROTONOSUPPORT' | 'EPROTOTYPE' |
 *     'ERANGE' | 'EROFS' | 'ESPIPE' | 'ESRCH' | 'ESTALE' | 'ETIME' | 'ETIMEDOUT' | 'ETXTBSY' | 'EWOULDBLOCK' |
 *     'EXDEV'} PosixCode
 */

const posixNames = new Set(Object.keys(os.constants.errno));

/**
 * An error that the program using the mount sees as a POSIX error. It carries no stack: it is an answer, not a fault,
 * and collecting a stack would cost more than the whole exchange.
 */
export class PosixError extends Error {
    /**
     * @param {PosixCode} code a POSIX name. ENOENT, EEXIST, EINVAL, EISDIR, ENOTDIR, ENOTEMPTY, EACCES, EPERM and EROFS
     *     reach the program as they are, any other as EIO.
     * @param {string} [message] one line for people
     */
    constructor(code, message) {
        const limit = Error.stackTraceLimit;
        Error.stackTraceLimit = 0;
        super(message);
        Error.stackTraceLimit = limit;
        this.name = 'PosixError';
        /** @type {PosixCode} */
        this.code = code;
    }
}

/**
 * A value of the file system that is not what it must be. It carries no stack: where in the kit that was noticed helps
 * nobody.
 * @param {string} message
 */
export function wrongValue(message) {
    const limit = Error.stackTraceLimit;
    Error.stackTraceLimit = 0;
    const error = new TypeError(message);
    Error.stackTraceLimit = limit;
    return error;
}

/** @param {unknown} code */
export function isPosixCode(code) {
    return posixNames.has(/** @type {string} */ (code));
}

/**
 * Whether a thrown value is an error of the file system (as those of node:fs are) and not a fault of the program.
 * @param {unknown} error an Error, or any object with a code
 * @returns {error is {code: string, message?: unknown, name?: unknown}}
 */
export function isPosixError(error) {
    return typeof error === 'object' && error !== null && isPosixCode(/** @type {any} */ (error).code);
}

/**
 * What is wrong with the way in which a thrown value names its code; nothing where it names none.
 * @param {unknown} error
 * @returns {string | undefined}
 */
export function codeProblem(error) {
    const isObject = typeof error === 'object' && error !== null;
    const text = isObject ? /** @type {any} */ (error).message : error;
    if (isPosixCode(text)) return `the code "${text}" was thrown as a text; throw new PosixError('${text}', 'why')`;
    const code = isObject ? /** @type {any} */ (error).code : undefined;
    const isMeant = error instanceof PosixError || !(error instanceof Error) || looksPosix(code);
    if (code === undefined || !isMeant) return undefined;
    const upper = String(code).toUpperCase();
    const remedy = isPosixCode(upper) ? `write "${upper}"` : 'the program sees EIO';
    return `${describe(code)} is no POSIX code; ${remedy}`;
}

/**
 * Such as ENOTFOUND, of a name that no server knows; ERR_INVALID_ARG_TYPE and the like are faults.
 * @param {unknown} code
 */
function looksPosix(code) {
    return typeof code === 'string' && /^E[A-Z0-9_]+$/i.test(code) && !code.startsWith('ERR_');
}

/**
 * Any value for people, in one short line.
 * @param {unknown} value
 */
export function describe(value) {
    if (typeof value === 'string' && value.length > 60) return JSON.stringify(value.slice(0, 57)) + '...';
    if (typeof value === 'string') return JSON.stringify(value);
    return inspect(value, { depth: 0, breakLength: Infinity, maxArrayLength: 3, maxStringLength: 60 })
        .replace(/\s+/g, ' ')
        .slice(0, 120);
}

/** @param {unknown} value */
function article(value) {
    if (value === null || typeof value === 'undefined') return '';
    if (Array.isArray(value)) return ' (an array)';
    if (typeof value === 'object') return ` (an object)`;
    return ` (a ${typeof value})`;
}

/**
 * What came instead of what was wanted: `"12" (a string); it must be a number of bytes, such as 12`. A forgotten await
 * is named.
 * @param {unknown} value
 * @param {string} wanted
 */
export function cameInstead(value, wanted) {
    const isPromise = typeof (/** @type {any} */ (value)?.then) === 'function';
    const came = isPromise ? 'a promise (is an await missing?)' : describe(value) + article(value);
    return `${came}; it must be ${wanted}`;
}

/**
 * A thrown value for people, with its stack where it has one.
 * @param {unknown} error
 */
export function thrownText(error) {
    if (error instanceof Error) return error.stack || String(error);
    return typeof error === 'string' ? error : inspect(error, { depth: 1 });
}
