/**
 * Whether a thrown value is an error of the file system (as those of node:fs are) and not a fault of the program.
 * @param {unknown} error
 * @returns {error is Error & {code: string}}
 */
export function isPosixError(error: unknown): error is Error & {
    code: string;
};
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
    constructor(code: string, message: string);
    /** @type {string} */
    code: string;
}
