// The JSON text of what is known of a file, and the checks that keep a mistake from becoming a silent 0 or 1970.
import { quote } from './jsonText.mjs';
import { timeText } from './times.mjs';

const startOfHelper = Date.now();

/** @typedef {import('./fileSystem.mjs').Stat} Stat */

/**
 * @param {Stat} stat
 * @param {string} quotedPath
 * @param {string} quotedName
 * @returns {string}
 */
export function statText(stat, quotedPath, quotedName) {
    if (typeof stat !== 'object' || stat === null) throw wrong(quotedPath, 'an object', stat);
    const isDirectory = stat.isDirectory ?? false;
    if (typeof isDirectory !== 'boolean') throw wrong(quotedPath, 'isDirectory as a boolean', isDirectory);
    const size = stat.size ?? (isDirectory ? 0 : undefined);
    if (!Number.isSafeInteger(size) || /** @type {number} */ (size) < 0) {
        throw wrong(quotedPath, 'size as a whole number of bytes', size);
    }
    return (
        '{"path":' + quotedPath + ',"name":' + quotedName + ',"isDirectory":' + isDirectory + ',"size":' + size +
        ',"modifiedAt":"' + timeText(milliseconds(stat.modifiedAt, quotedPath)) + '"}'
    );
}

/**
 * @param {Date | number | undefined} time
 * @param {string} quotedPath
 */
function milliseconds(time, quotedPath) {
    if (time === undefined) return startOfHelper;
    const value = typeof time === 'number' ? time : time instanceof Date ? time.getTime() : NaN;
    if (!Number.isFinite(value)) throw wrong(quotedPath, 'modifiedAt as a valid Date or milliseconds', time);
    return value;
}

/**
 * @param {string} quotedPath
 * @param {string} expected
 * @param {unknown} got
 */
function wrong(quotedPath, expected, got) {
    return new TypeError(`the file system gave ${String(JSON.stringify(got))} for ${quotedPath}, expected ${expected}`);
}

/**
 * @param {string} path
 * @returns {string} its last component; "/" for the root
 */
export function baseName(path) {
    return path === '/' ? '/' : path.slice(path.lastIndexOf('/') + 1);
}

// A name that is its own JSON text: without control characters, quotes, backslashes, slashes, surrogates, a first dot.
const plainName = /^[^\u0000-\u001f"\\/.\ud800-\udfff][^\u0000-\u001f"\\/\ud800-\udfff]*$/;

/** Makes the texts of the members of one folder. */
export class EntryTexts {
    /** @param {string} folder */
    constructor(folder) {
        this.quotedPrefix_ = quote(folder === '/' ? '/' : folder + '/').slice(0, -1);
    }

    /** @param {import('./fileSystem.mjs').Entry} entry */
    text(entry) {
        const name = entry?.name;
        const plain = typeof name === 'string' && plainName.test(name);
        const inQuotes = plain ? name + '"' : this.checkedName_(name);
        return statText(entry, this.quotedPrefix_ + inQuotes, '"' + inQuotes);
    }

    /**
     * @param {unknown} name
     * @returns {string} its JSON text without the first quote
     */
    checkedName_(name) {
        if (typeof name !== 'string' || name === '' || name === '.' || name === '..' || /[/\0]/.test(name)) {
            throw wrong(this.quotedPrefix_ + '"', 'members with the name of one file', name);
        }
        return quote(name).slice(1);
    }
}
