// The main loop of a helper.
import { makeCodec } from './base64/codec.mjs';
import { endNotices, noteLoop, usesChanged } from './changed.mjs';
import { asyncFunctions, checkFileSystem, misnamed } from './fileSystem.mjs';
import { runBlocking, runInEventLoop, writerTo } from './loops.mjs';
import { report } from './report.mjs';
import { LineBuffer } from './requestLines.mjs';
import { Session } from './session.mjs';
import { takeStandardStreams } from './standardStreams.mjs';

/**
 * @typedef {object} ServeOptions
 * @property {'blocking' | 'events'} [loop] how to wait for requests. When left out: blocking for a file system of plain
 *     functions in a process where nothing else is going on, otherwise node's event loop.
 * @property {boolean} [debug] say on standard error which loop is used and why; also set by KEMVI_HELPER_DEBUG=1
 */

const graceMilliseconds = 2000;
const standardStreams = new Set(['PipeWrap', 'TTYWrap']); // show up as soon as something was printed

// Started by a mount: nothing that is printed may reach the answers, not even before serve is called.
if (process.env.KEMVI_DRIVE_ID !== undefined) takeStandardStreams();

/**
 * Serves a file system over standard input and output until the input ends; then gives back what is open. What the
 * program prints meanwhile goes to standard error.
 * @param {import('./fileSystem.mjs').FileSystem} fileSystem
 * @param {ServeOptions} [options]
 * @returns {Promise<void>} done when the input has ended. The process then ends by itself; if something still keeps it
 *     two seconds later, it is ended, because an unmount waits for it.
 * @throws {TypeError} when the file system or an option is not what it must be
 */
export async function serve(fileSystem, options = {}) {
    checkFileSystem(fileSystem);
    for (const line of misnamed(fileSystem)) report(`serve: ${line}`);
    const { input, output } = takeStandardStreams();
    const codec = makeCodec();
    const session = new Session(fileSystem, codec, writerTo(output), report);
    // One turn of the event loop, so that what the program starts right after calling serve is noticed.
    await new Promise((resolve) => setImmediate(resolve));
    const { loop, reason } = chooseLoop(fileSystem, options);
    const debug = options.debug ?? process.env.KEMVI_HELPER_DEBUG === '1';
    const say = (/** @type {string} */ text) => debug && report(text);
    say(`${loop} loop: ${reason}`);
    noteLoop(loop);
    const lines = new LineBuffer(codec);
    const onStray = (/** @type {unknown} */ error) => session.strayFailure(error);
    const onNothingLeft = () => session.abandonHopeless();
    process.on('uncaughtException', onStray); // promises left alone arrive here too
    process.on('beforeExit', onNothingLeft);
    try {
        if (loop === 'events') {
            await runInEventLoop(input, lines, session);
        } else {
            const underWay = runBlocking(input, lines, session);
            if (underWay !== undefined) {
                const reason = 'a function returned a promise, or began something that goes on';
                if (options.loop === 'blocking') report(`serve: not in the blocking loop from here on: ${reason}`);
                say(`events loop from here on: ${reason}`);
                noteLoop('events');
                await runInEventLoop(input, lines, session, underWay);
            }
        }
        if (lines.leftover > 0) report('the input ended within a line');
    } catch (error) {
        if (/** @type {any} */ (error).code !== 'EPIPE') throw error; // nobody reads the answers any more: the end too
    } finally {
        endNotices();
        const grace = setTimeout(endNow, graceMilliseconds);
        await session.end();
        grace.unref();
        process.off('uncaughtException', onStray);
        process.off('beforeExit', onNothingLeft);
    }
}

function endNow() {
    const busy = process.getActiveResourcesInfo().filter((name) => name !== 'Timeout' && !standardStreams.has(name));
    const reason = busy.length > 0 ? ` (${busy.join(', ')})` : '';
    report(`still busy ${graceMilliseconds / 1000} s after the end of the input${reason}; ending`);
    process.exit();
}

/**
 * @param {import('./fileSystem.mjs').FileSystem} fileSystem
 * @param {ServeOptions} options
 * @returns {{loop: 'blocking' | 'events', reason: string}}
 */
function chooseLoop(fileSystem, options) {
    if (options.loop !== undefined) {
        if (options.loop === 'blocking' || options.loop === 'events') return { loop: options.loop, reason: 'as asked' };
        throw new TypeError(`serve: loop must be "blocking" or "events", not ${JSON.stringify(options.loop)}`);
    }
    const async = asyncFunctions(fileSystem);
    if (async.length > 0) return { loop: 'events', reason: `${async.join(', ')} async` };
    const active = new Set(process.getActiveResourcesInfo().filter((name) => !standardStreams.has(name)));
    if (usesChanged()) return { loop: 'events', reason: 'changed is used' };
    if (active.size > 0) return { loop: 'events', reason: `${[...active].join(', ')} active` };
    return { loop: 'blocking', reason: 'plain functions, nothing else active' };
}
