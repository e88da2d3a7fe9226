// A path as a folder and a name in it.
import { PosixError } from 'kemvi-helper';

const longestName = 255; // bytes

/**
 * @param {string} path
 * @returns {[folder: string, name: string]}
 * @throws {PosixError} when no file can have that name
 */
export function placeOf(path) {
    const cut = path.lastIndexOf('/');
    const name = path.slice(cut + 1);
    if (path === '/') throw new PosixError('EPERM', 'the root cannot be made, removed or moved');
    if (name === '' || name === '.' || name === '..' || name.includes('\0')) {
        throw new PosixError('EINVAL', `${JSON.stringify(path)} is not a plain path`);
    }
    if (name.length > longestName / 4 && Buffer.byteLength(name) > longestName) {
        throw new PosixError('ENAMETOOLONG', `the name is too long: ${name}`);
    }
    return [path.slice(0, cut) || '/', name];
}
