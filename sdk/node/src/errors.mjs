// Errors that a file system throws on purpose, and what any thrown value becomes in an answer.
import os from 'node:os';

const posixNames = new Set(Object.keys(os.constants.errno));

/**
 * An error that the program using the mount sees as a POSIX error. It carries no stack: it is an answer, not a fault,
 * and collecting a stack would cost more than the whole exchange.
 */
export class PosixError extends Error {
    /**
     * @param {string} code a POSIX name. ENOENT, EEXIST, EINVAL, EISDIR, ENOTDIR, ENOTEMPTY, EACCES, EPERM and EROFS
     *     reach the program as they are, any other as EIO.
     * @param {string} message one line for people
     */
    constructor(code, message) {
        const limit = Error.stackTraceLimit;
        Error.stackTraceLimit = 0;
        super(message);
        Error.stackTraceLimit = limit;
        this.name = 'PosixError';
        /** @type {string} */
        this.code = code;
    }
}

/**
 * Whether a thrown value is an error of the file system (as those of node:fs are) and not a fault of the program.
 * @param {unknown} error
 * @returns {error is Error & {code: string}}
 */
export function isPosixError(error) {
    return error instanceof Error && posixNames.has(/** @type {any} */ (error).code);
}
