/**
 * A value of the file system that is not what it must be. It carries no stack: where in the kit that was noticed helps
 * nobody.
 * @param {string} message
 */
export function wrongValue(message: string): TypeError;
/** @param {unknown} code */
export function isPosixCode(code: unknown): boolean;
/**
 * Whether a thrown value is an error of the file system (as those of node:fs are) and not a fault of the program.
 * @param {unknown} error an Error, or any object with a code
 * @returns {error is {code: string, message?: unknown, name?: unknown}}
 */
export function isPosixError(error: unknown): error is {
    code: string;
    message?: unknown;
    name?: unknown;
};
/**
 * What is wrong with the way in which a thrown value names its code; nothing where it names none.
 * @param {unknown} error
 * @returns {string | undefined}
 */
export function codeProblem(error: unknown): string | undefined;
/**
 * Any value for people, in one short line.
 * @param {unknown} value
 */
export function describe(value: unknown): string;
/**
 * What came instead of what was wanted: `"12" (a string); it must be a number of bytes, such as 12`. A forgotten await
 * is named.
 * @param {unknown} value
 * @param {string} wanted
 */
export function cameInstead(value: unknown, wanted: string): string;
/**
 * A thrown value for people, with its stack where it has one.
 * @param {unknown} error
 */
export function thrownText(error: unknown): string;
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
    constructor(code: PosixCode, message?: string | undefined);
    /** @type {PosixCode} */
    code: PosixCode;
}
/**
 * The names of POSIX errors.
 */
export type PosixCode = 'E2BIG' | 'EACCES' | 'EADDRINUSE' | 'EADDRNOTAVAIL' | 'EAFNOSUPPORT' | 'EAGAIN' | 'EALREADY' | 'EBADF' | 'EBADMSG' | 'EBUSY' | 'ECANCELED' | 'ECHILD' | 'ECONNABORTED' | 'ECONNREFUSED' | 'ECONNRESET' | 'EDEADLK' | 'EDESTADDRREQ' | 'EDOM' | 'EDQUOT' | 'EEXIST' | 'EFAULT' | 'EFBIG' | 'EHOSTUNREACH' | 'EIDRM' | 'EILSEQ' | 'EINPROGRESS' | 'EINTR' | 'EINVAL' | 'EIO' | 'EISCONN' | 'EISDIR' | 'ELOOP' | 'EMFILE' | 'EMLINK' | 'EMSGSIZE' | 'EMULTIHOP' | 'ENAMETOOLONG' | 'ENETDOWN' | 'ENETRESET' | 'ENETUNREACH' | 'ENFILE' | 'ENOBUFS' | 'ENODATA' | 'ENODEV' | 'ENOENT' | 'ENOEXEC' | 'ENOLCK' | 'ENOLINK' | 'ENOMEM' | 'ENOMSG' | 'ENOPROTOOPT' | 'ENOSPC' | 'ENOSR' | 'ENOSTR' | 'ENOSYS' | 'ENOTCONN' | 'ENOTDIR' | 'ENOTEMPTY' | 'ENOTSOCK' | 'ENOTSUP' | 'ENOTTY' | 'ENXIO' | 'EOPNOTSUPP' | 'EOVERFLOW' | 'EPERM' | 'EPIPE' | 'EPROTO' | 'EPROTONOSUPPORT' | 'EPROTOTYPE' | 'ERANGE' | 'EROFS' | 'ESPIPE' | 'ESRCH' | 'ESTALE' | 'ETIME' | 'ETIMEDOUT' | 'ETXTBSY' | 'EWOULDBLOCK' | 'EXDEV';
