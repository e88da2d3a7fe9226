// The codes by which the functions in the database refuse, as errors.
import { PosixError } from 'kemvi-helper';

/** @type {Record<string, (path: string) => string>} */
const messages = {
    ENOENT: (path) => `no such file or folder: ${path}`,
    EEXIST: (path) => `${path} exists`,
    ENOTDIR: (path) => `${path} leads through a file, or is one`,
    EISDIR: (path) => `${path} is a folder`,
    ENOTEMPTY: (path) => `${path} is not empty`,
    EINVAL: (path) => `${path} lies in what is to be moved there`,
};

/**
 * @param {string | null} code
 * @param {string} path
 * @throws {PosixError} unless the code is null
 */
export function throwRefusal(code, path) {
    if (code !== null) throw new PosixError(/** @type {any} */ (code), messages[code]?.(path) ?? path);
}
