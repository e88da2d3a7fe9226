// The JSON text of what is known of a file, and the checks that keep a mistake from becoming a silent 0 or 1970.
import { cameInstead, wrongValue } from './errors.mjs';
import { quote } from './jsonText.mjs';
import { timeText } from './times.mjs';

const startOfHelper = Date.now();
const unknownSize = -1; // what the protocol has for it

/** @typedef {import('./fileSystem.mjs').Stat} Stat */

/**
 * @param {Stat} stat
 * @param {string} quotedPath
 * @param {string} quotedName
 * @returns {string}
 */
export function statText(stat, quotedPath, quotedName) {
    if (typeof stat !== 'object' || stat === null) throw noStat(stat, quotedPath);
    const isDirectory = stat.isDirectory ?? false;
    if (typeof isDirectory !== 'boolean') throw wrongFlag(isDirectory, quotedPath);
    const size = stat.sizeUnknown === true ? unknownSize : (stat.size ?? (isDirectory ? 0 : undefined));
    if (size !== unknownSize && !isWhole(size)) throw wrongSize(size, quotedPath);
    return (
        '{"path":' + quotedPath + ',"name":' + quotedName + ',"isDirectory":' + isDirectory + ',"size":' + size +
        ',"modifiedAt":"' + timeText(milliseconds(stat.modifiedAt, quotedPath)) + '"}'
    );
}

/** @param {unknown} size */
function isWhole(size) {
    return Number.isSafeInteger(size) && /** @type {number} */ (size) >= 0;
}

/**
 * @param {unknown} size
 * @param {string} quotedPath
 */
function wrongSize(size, quotedPath) {
    const hint = size === undefined ? '; with sizeUnknown: true the file is read to its end' : '';
    return wrong(quotedPath, 'size', size, 'a number of bytes, such as 12' + hint);
}

/**
 * @param {Date | number | undefined} time
 * @param {string} quotedPath
 */
function milliseconds(time, quotedPath) {
    if (time === undefined) return startOfHelper;
    const value = typeof time === 'number' ? time : time instanceof Date ? time.getTime() : NaN;
    if (!Number.isFinite(value)) {
        throw wrong(quotedPath, 'modifiedAt', time, 'a valid Date or milliseconds since 1970, such as new Date()');
    }
    return value;
}

/**
 * @param {string} quotedPath
 * @param {string} member
 * @param {unknown} got
 * @param {string} wanted
 */
function wrong(quotedPath, member, got, wanted) {
    return wrongValue(`stat of ${JSON.parse(quotedPath)}: ${member} is ${cameInstead(got, wanted)}`);
}

/**
 * @param {unknown} stat
 * @param {string} quotedPath
 */
function noStat(stat, quotedPath) {
    const missing = stat === undefined || stat === null;
    const hint = missing ? "; of what does not exist, throw new PosixError('ENOENT', 'there is no such file')" : '';
    const wanted = 'an object, such as {size: 12}' + hint;
    return wrongValue(`stat of ${JSON.parse(quotedPath)} is ${cameInstead(stat, wanted)}`);
}

/**
 * @param {unknown} flag
 * @param {string} quotedPath
 */
function wrongFlag(flag, quotedPath) {
    const ofNode = typeof flag === 'function'; // what the functions of node:fs give
    const example = ofNode ? 'isDirectory: stat.isDirectory(), modifiedAt: stat.mtime' : 'isDirectory: true';
    return wrong(quotedPath, 'isDirectory', flag, `true or false, such as {${example}}`);
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
        this.folder_ = folder;
        this.quotedPrefix_ = quote(folder === '/' ? '/' : folder + '/').slice(0, -1);
    }

    /** @param {import('./fileSystem.mjs').Entry} entry */
    text(entry) {
        const name = entry?.name;
        const plain = typeof name === 'string' && plainName.test(name);
        const inQuotes = plain ? name + '"' : this.checkedName_(name, entry);
        return statText(entry, this.quotedPrefix_ + inQuotes, '"' + inQuotes);
    }

    /**
     * @param {unknown} name
     * @param {unknown} entry
     * @returns {string} its JSON text without the first quote
     */
    checkedName_(name, entry) {
        if (typeof name === 'string' && name !== '' && name !== '.' && name !== '..' && !/[/\0]/.test(name)) {
            return quote(name).slice(1);
        }
        const isEntry = typeof entry === 'object' && entry !== null && !(/** @type {any} */ (entry).then);
        const problem = isEntry
            ? `the name of a member is ${cameInstead(name, 'the name of one file, such as "a.txt", without "/"')}`
            : `a member is ${cameInstead(entry, 'an object, such as {name: "a.txt", size: 12}')}`;
        throw wrongValue(`listing of ${this.folder_}: ${problem}`);
    }
}
