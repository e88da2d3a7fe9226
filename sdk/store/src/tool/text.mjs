// Numbers as people read them, and as they write them.
import { UsageError } from './failures.mjs';

const units = ['bytes', 'KiB', 'MiB', 'GiB', 'TiB', 'PiB'];

/** @param {number} bytes */
export function bytesText(bytes) {
    let value = bytes;
    let unit = 0;
    while (value >= 1024 && unit < units.length - 1) {
        value /= 1024;
        unit++;
    }
    return `${unit === 0 ? value : value.toFixed(1)} ${units[unit]}`;
}

/** @param {number} count @param {string} one @param {string} [many] */
export function countText(count, one, many = `${one}s`) {
    return `${count.toLocaleString('en')} ${count === 1 ? one : many}`;
}

/**
 * Lines with columns of equal width; those of numbers to the right.
 * @param {(string | number)[][]} rows
 */
export function table(rows) {
    const widths = rows[0].map((_, column) => Math.max(...rows.map((row) => String(row[column]).length)));
    const cell = (/** @type {string | number} */ value, /** @type {number} */ column) =>
        typeof value === 'number' ? String(value).padStart(widths[column]) : value.padEnd(widths[column]);
    return rows.map((row) => row.map(cell).join('  ').trimEnd()).join('\n');
}

const durations = /** @type {Record<string, number>} */ ({ s: 1000, m: 60_000, h: 3_600_000, d: 86_400_000 });

/**
 * @param {string} option
 * @param {string} text
 * @returns {number} milliseconds
 */
export function parseDuration(option, text) {
    const match = /^(\d{1,6})([smhd])$/.exec(text);
    if (match) return Number(match[1]) * durations[match[2]];
    throw new UsageError(`--${option}: "${text}" must be a number and s, m, h or d, such as 90m or 2h`);
}

const sizes = /** @type {Record<string, number>} */ ({ '': 1, K: 1024, M: 1 << 20 });

/**
 * @param {string} option
 * @param {string} text
 * @param {{least: number, most: number}} limits bytes
 */
export function parseSize(option, text, { least, most }) {
    const match = /^(\d{1,9})([KM]?)$/.exec(text);
    const size = match ? Number(match[1]) * sizes[match[2]] : NaN;
    if (size >= least && size <= most && size % 4096 === 0) return size;
    throw new UsageError(`--${option}: "${text}" must be a number of bytes, K or M from ${least / 1024}K to ${most / (1 << 20)}M ` +
        'that is divisible by 4K, such as 256K');
}
