// Arrays as PostgreSQL writes them in text, whatever their type: the library knows those only that it has asked for.

/**
 * @param {any[]} values texts, numbers, Buffers, null
 * @returns {string}
 */
export function arrayText(values) {
    return `{${values.map(elementText).join(',')}}`;
}

/** @param {any} value */
function elementText(value) {
    if (value === null || value === undefined) return 'NULL';
    if (value instanceof Uint8Array) return `"\\\\x${Buffer.from(value.buffer, value.byteOffset, value.length).toString('hex')}"`;
    if (typeof value === 'number' || typeof value === 'boolean') return String(value);
    return `"${String(value).replace(/[\\"]/g, '\\$&')}"`;
}
