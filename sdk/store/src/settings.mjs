// What a store is told by its environment: where the tree is, where contents are, how long to wait, how much to keep.
import { parseAddress } from './engine/address.mjs';

/** @typedef {import('./engine/address.mjs').Address} Address */
/** @typedef {{kind: 'database'} | {kind: 's3', bucket: string, prefix: string}} ContentsPlace */
/**
 * @typedef {object} Settings
 * @property {Address} store
 * @property {string} tree its name
 * @property {string} contents where they are, in the form in which the tree keeps it
 * @property {ContentsPlace} contentsPlace the same, taken apart
 * @property {number} reconnect seconds for which operations wait for a lost engine
 * @property {number} memory bytes of chunks that are kept in memory
 * @property {{folder: string, bytes: number} | undefined} disk the same on disk
 */

/** A setting that cannot be used; the message names it and says what was expected. */
export class SettingError extends Error {}

const mebibyte = 1 << 20;
// A commit that waits for the database names objects that were put away before: within the age that garbage must have.
const longestReconnect = 1200;

/**
 * @param {Record<string, string | undefined>} environment
 * @returns {Settings}
 * @throws {SettingError}
 */
export function readSettings(environment) {
    const value = (/** @type {string} */ name) => environment[name] || undefined;
    const contents = value('KEMVI_STORE_CONTENTS') ?? 'database';
    const contentsPlace = inSetting('KEMVI_STORE_CONTENTS', () => parseContents(contents));
    return {
        store: inSetting('KEMVI_STORE', () => parseAddress(value('KEMVI_STORE'))),
        tree: inSetting('KEMVI_STORE_TREE', () => treeName(value('KEMVI_STORE_TREE') ?? 'main')),
        contents: contentsText(contentsPlace),
        contentsPlace,
        reconnect: number('KEMVI_STORE_RECONNECT', value('KEMVI_STORE_RECONNECT'), 30, 1, longestReconnect, 'seconds'),
        memory: mebibyte * number('KEMVI_STORE_MEMORY', value('KEMVI_STORE_MEMORY'), 64, 1, 1 << 20, 'MiB'),
        disk: inSetting('KEMVI_STORE_DISK', () => parseDisk(value('KEMVI_STORE_DISK'))),
    };
}

/**
 * @template T
 * @param {string} name
 * @param {() => T} read
 */
function inSetting(name, read) {
    try {
        return read();
    } catch (error) {
        throw new SettingError(`${name}: ${/** @type {Error} */ (error).message}`);
    }
}

/**
 * @param {string} name
 * @param {string | undefined} text
 * @param {number} usual
 * @param {number} least
 * @param {number} most
 * @param {string} unit
 */
function number(name, text, usual, least, most, unit) {
    if (text === undefined) return usual;
    const value = /^\d{1,9}$/.test(text) ? Number(text) : NaN;
    if (value >= least && value <= most) return value;
    throw new SettingError(`${name}: "${text}" must be a whole number of ${unit} from ${least} to ${most}, such as ${usual}`);
}

/** @param {string} name */
function treeName(name) {
    if (/^[^\u0000-\u001f\u007f]{1,100}$/u.test(name)) return name;
    throw new Error(`${JSON.stringify(name.slice(0, 100))} must be a name of at most 100 characters in one line, such as main`);
}

/**
 * @param {string} text
 * @returns {ContentsPlace}
 */
export function parseContents(text) {
    if (text === 'database') return { kind: 'database' };
    const match = /^s3:\/\/([a-z0-9][a-z0-9.-]{1,61}[a-z0-9])(?:\/([^?#\s]*))?$/.exec(text);
    const prefix = match?.[2]?.replace(/\/+$/, '') ?? '';
    if (match && prefix.length <= 500 && !prefix.startsWith('/')) return { kind: 's3', bucket: match[1], prefix };
    throw new Error(`"${text}" must be "database" or s3://BUCKET/PREFIX, such as s3://files/kemvi`);
}

/** @param {ContentsPlace} place */
function contentsText(place) {
    if (place.kind === 'database') return 'database';
    return `s3://${place.bucket}${place.prefix === '' ? '' : `/${place.prefix}`}`;
}

/** @param {string | undefined} text */
function parseDisk(text) {
    if (text === undefined) return undefined;
    const match = /^(\/.*):(\d{1,9})$/.exec(text);
    if (match && Number(match[2]) >= 1) return { folder: match[1], bytes: Number(match[2]) * mebibyte };
    throw new Error(`"${text}" must be an absolute folder and a number of MiB, such as /var/cache/kemvi:1024`);
}
