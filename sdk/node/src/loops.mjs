// The two ways to wait for requests. Both answer one line after the other, in order.
import fs from 'node:fs';
import net from 'node:net';

/** @typedef {import('./requestLines.mjs').LineBuffer} LineBuffer */
/** @typedef {import('./session.mjs').Session} Session */

/**
 * Waits in blocking reads: the fastest way by far, and nothing else runs in the process meanwhile.
 * @param {number} input descriptor
 * @param {LineBuffer} lines
 * @param {Session} session
 * @returns {Promise<void> | undefined} undefined at the end of the input; the promise of the answer under way when the
 *     file system turned out to be async
 */
export function runBlocking(input, lines, session) {
    for (;;) {
        while (lines.nextLine()) {
            const later = session.answer(lines.bytes, lines.lineStart, lines.lineEnd);
            if (later !== undefined) return later;
        }
        const position = lines.prepareFill();
        const count = readSome(input, lines.bytes, position, lines.room);
        if (count === 0) return undefined;
        lines.filled(count);
    }
}

/**
 * Waits in node's event loop, so that timers, sockets and promises of the file system go on.
 * @param {number} input descriptor
 * @param {LineBuffer} lines may hold requests already
 * @param {Session} session
 * @param {Promise<void>} [underWay] the answer to wait for before the next request
 * @returns {Promise<void>} done at the end of the input
 */
export async function runInEventLoop(input, lines, session, underWay) {
    const stream = inputStream(input);
    stream.read(0); // begins to read: a process that waits for nothing but a promise would be ended by node
    await underWay;
    await answerLines(lines, session);
    for await (const chunk of stream) {
        lines.append(chunk);
        await answerLines(lines, session);
    }
}

/**
 * @param {LineBuffer} lines
 * @param {Session} session
 */
async function answerLines(lines, session) {
    while (lines.nextLine()) {
        await session.answer(lines.bytes, lines.lineStart, lines.lineEnd);
    }
}

/** @param {number} input */
function inputStream(input) {
    try {
        return new net.Socket({ fd: input, readable: true, writable: false });
    } catch {
        return fs.createReadStream('', { fd: input }); // a file or a terminal
    }
}

/**
 * @param {number} descriptor
 * @param {Buffer} bytes
 * @param {number} position
 * @param {number} length
 * @returns {number} 0 at the end of the input
 */
function readSome(descriptor, bytes, position, length) {
    for (;;) {
        try {
            return fs.readSync(descriptor, bytes, position, length, null);
        } catch (error) {
            waitOrThrow(error);
        }
    }
}

/**
 * @param {number} descriptor
 * @returns {(bytes: Buffer, from: number, to: number) => void} writes all of the bytes given
 */
export function writerTo(descriptor) {
    return (bytes, from, to) => {
        while (from < to) {
            try {
                from += fs.writeSync(descriptor, bytes, from, to - from);
            } catch (error) {
                waitOrThrow(error);
            }
        }
    };
}

const sleeper = new Int32Array(new SharedArrayBuffer(4));

/**
 * The other side may have made a descriptor non-blocking; there is nothing to wait with but time.
 * @param {unknown} error
 */
function waitOrThrow(error) {
    const code = /** @type {any} */ (error).code;
    if (code !== 'EAGAIN' && code !== 'EINTR') throw error;
    Atomics.wait(sleeper, 0, 0, 1);
}
