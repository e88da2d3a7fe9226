// Keeps the protocol's two streams to itself. The descriptors 0 and 1 are exchanged for harmless ones, so that
// console.log, a library's chatter or a child process that inherits them cannot write into an answer or eat a request.
import fs from 'node:fs';

/** @typedef {{input: number, output: number}} Streams descriptors for requests and answers */

// One for the process, which may hold the kit more than once: imported, and required where node cannot require what is
// imported. The second to take the streams would get the harmless ones.
const takenKey = Symbol.for('kemvi-helper.streams');
/** @type {Record<symbol, Streams | undefined>} */
const ofProcess = /** @type {any} */ (globalThis);

/**
 * The descriptors of the requests and the answers. The first call takes them; afterwards what the program writes to
 * standard output goes to standard error.
 * @returns {Streams}
 */
export function takeStandardStreams() {
    return (ofProcess[takenKey] ??= { input: exchange(0, '/dev/null', 'r', 'r'), output: takeOutput() });
}

function takeOutput() {
    const output = isFile(2) ? 1 : exchange(1, '/dev/fd/2', 'w', 'w');
    if (output !== 1) return output;
    // Standard error cannot be opened a second time: it is a socket, or a file, in which two writers would overwrite
    // each other. What goes through node's stream can be led there all the same; what is written to the descriptor is
    // lost.
    Object.defineProperty(process, 'stdout', { configurable: true, enumerable: true, get: () => process.stderr });
    return exchange(1, '/dev/null', 'w', 'w');
}

/**
 * Opens what a standard descriptor refers to a second time and puts something else in its place.
 * @param {number} descriptor
 * @param {string} replacement
 * @param {string} replacementFlags
 * @param {string} flags
 * @returns {number} the new descriptor, or the old one where the system refuses (a socket, another user's terminal)
 */
function exchange(descriptor, replacement, replacementFlags, flags) {
    /** @type {number[]} */
    const opened = [];
    try {
        if (isFile(descriptor)) return descriptor; // opened again it would start at its beginning
        opened.push(fs.openSync(`/dev/fd/${descriptor}`, flags));
        opened.push(fs.openSync(replacement, replacementFlags));
        fs.closeSync(descriptor);
        const lowest = fs.openSync(replacement, replacementFlags); // takes the number that has just become free
        fs.closeSync(/** @type {number} */ (opened.pop()));
        if (lowest !== descriptor) fs.closeSync(lowest);
        return /** @type {number} */ (opened.pop());
    } catch {
        for (const extra of opened) fs.closeSync(extra);
        return descriptor;
    }
}

/** @param {number} descriptor */
function isFile(descriptor) {
    try {
        return fs.fstatSync(descriptor).isFile();
    } catch {
        return false; // it is closed
    }
}
