// What a helper says when its tree changes by itself.
import { ChangeNotices } from './changeNotices.mjs';
import { report } from './report.mjs';

/** @type {ChangeNotices | undefined} */
let notices;
let isUsed = false;
let isBlocking = false;
/** @type {Set<string>} */
const said = new Set();
/** @type {Set<(path: string) => void>} */
const heeders = new Set();

/**
 * Tells the mount that something was made, removed, replaced or written at these paths, or beneath them, otherwise than
 * through the mount: what it and the kernel remember of them is dropped, within some milliseconds. With that a mount may
 * remember for long (`-o entry_timeout=3600,attr_timeout=3600`). Returns at once and throws nothing; what it cannot do
 * it says on standard error, once. Needs node's event loop: `serve(fileSystem, {loop: 'events'})`.
 * @param {string | Iterable<string>} paths of the served tree, as `getattr` is given them; they need not exist any more
 * @returns {void}
 */
export function changed(paths) {
    isUsed = true;
    try {
        for (const path of typeof paths === 'string' ? [paths] : paths) tell(path);
    } catch (error) {
        sayOnce(`changed: expected a path, or several, not ${describe(paths)} (${error})`);
    }
}

/**
 * Has a function called with each path that is told, before the mount is told.
 * @param {(path: string) => void} take
 */
export function heedChanges(take) {
    heeders.add(take);
    return { end: () => void heeders.delete(take) };
}

/** Whether the helper uses `changed`, as far as is known. */
export function usesChanged() {
    return isUsed;
}

/**
 * What `serve` waits with from now on.
 * @param {'blocking' | 'events'} loop
 */
export function noteLoop(loop) {
    isBlocking = loop === 'blocking';
}

/** For the end of `serve`. */
export function endNotices() {
    notices?.end();
}

/** @param {string} path */
function tell(path) {
    const problem = problemOf(path);
    if (problem === undefined) for (const take of heeders) take('/' + path.split('/').filter(Boolean).join('/'));
    if (problem !== undefined) {
        sayOnce(`changed: ${describe(path)} ${problem}`);
    } else if (isBlocking) {
        sayOnce("changed: nobody is told while the loop is blocking; use serve(fileSystem, {loop: 'events'})");
    } else if (!process.env.KEMVI_CONTROL) {
        sayOnce('changed: there is no mount to tell (KEMVI_CONTROL names no socket)');
    } else {
        notices ??= new ChangeNotices(process.env.KEMVI_CONTROL, report);
        notices.add(path);
    }
}

/**
 * @param {unknown} path
 * @returns {string | undefined}
 */
function problemOf(path) {
    if (typeof path !== 'string') return 'is no path';
    if (path === '') return 'is empty; "/" is the whole tree';
    if (path.includes('\0')) return 'holds a NUL, which no name can';
    if (/\p{Surrogate}/u.test(path)) return 'is no well-formed text';
    if (path.split('/').some((part) => part === '.' || part === '..')) return 'has a part "." or ".."';
    return undefined;
}

/** @param {unknown} value */
function describe(value) {
    try {
        return typeof value === 'string' ? JSON.stringify(value) : String(value);
    } catch {
        return 'that'; // what has no text
    }
}

/** @param {string} text */
function sayOnce(text) {
    if (said.has(text) || said.size >= 20) return;
    said.add(text);
    report(text);
}
