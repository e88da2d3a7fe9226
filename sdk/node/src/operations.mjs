// The fourteen operations: which fields each one needs, what it calls, how its result is written.
import { cameInstead, PosixError, wrongValue } from './errors.mjs';
import { quote } from './jsonText.mjs';
import { parseTime } from './times.mjs';
import { baseName, EntryTexts, statText } from './statText.mjs';

/** @typedef {import('./requestLines.mjs').Request} Request */
/** @typedef {import('./session.mjs').Session} Session */
/**
 * @typedef {object} Operation
 * @property {(session: Session, request: Request) => any} call asks the file system; may return a promise
 * @property {(session: Session, request: Request, result: any) => void} [answer] writes the answer; when left out, the
 *     answer is success alone
 */

/**
 * @param {unknown} value
 * @param {string} field
 * @returns {string}
 */
function pathField(value, field) {
    if (typeof value === 'string' && value.startsWith('/')) return value;
    throw new PosixError('EINVAL', `${field} must be a string that starts with "/"`);
}

/**
 * @param {unknown} value
 * @param {string} field
 * @returns {number}
 */
function countField(value, field) {
    if (Number.isSafeInteger(value) && /** @type {number} */ (value) >= 0) return /** @type {number} */ (value);
    throw new PosixError('EINVAL', `${field} must be a whole number, 0 or more`);
}

/**
 * @param {unknown} words
 * @returns {import('./fileSystem.mjs').OpenFlags}
 */
function openFlags(words) {
    if (!Array.isArray(words)) throw new PosixError('EINVAL', 'flags must be an array of strings');
    const flags = { read: false, write: false, create: false, truncate: false };
    for (let i = 0; i < words.length; i += 1) {
        const word = words[i];
        if (word === 'read') flags.read = true;
        else if (word === 'write') flags.write = true;
        else if (word === 'create') flags.create = true;
        else if (word === 'truncate') flags.truncate = true;
        else throw new PosixError('EINVAL', `unknown flag ${JSON.stringify(word)}`);
    }
    if (!flags.read && !flags.write) throw new PosixError('EINVAL', 'flags must contain "read" or "write"');
    if (!flags.write && (flags.create || flags.truncate)) {
        throw new PosixError('EINVAL', 'the flags "create" and "truncate" need "write"');
    }
    return flags;
}

/**
 * The function of the file system for a change, or the error that tells why there is none.
 * @param {Session} session
 * @param {string} name
 */
function changing(session, name) {
    const fileSystem = /** @type {any} */ (session.fileSystem);
    if (fileSystem.write === undefined) throw new PosixError('EROFS', 'this file system is read-only');
    if (fileSystem[name] === undefined) throw new PosixError('EPERM', `this file system has no ${name}`);
    return fileSystem;
}

/**
 * Without a function `open` a file is its path, after a look that there is one.
 * @param {Session} session
 * @param {string} path
 */
function openByPath(session, path) {
    /** @param {import('./fileSystem.mjs').Stat} stat */
    const check = (stat) => {
        if (stat.isDirectory) throw new PosixError('EISDIR', `${path} is a folder`);
        return path;
    };
    const stat = session.fileSystem.getattr(path);
    return stat instanceof Promise ? stat.then(check) : check(stat);
}

/** @type {Record<string, Operation>} */
export const operations = {
    __proto__: /** @type {any} */ (null), // so that an operation named "constructor" is unknown

    ping: { call: () => undefined },

    statfs: {
        call: (session) => session.fileSystem.statfs?.(),
        answer(session, request, result) {
            const figure = (/** @type {unknown} */ value) => (Number.isSafeInteger(value) ? value : 0);
            session.answerResult(
                request,
                `{"files":${figure(result?.files)},"directories":${figure(result?.directories)},` +
                    `"bytes":${figure(result?.bytes)}}`,
            );
        },
    },

    getattr: {
        call: (session, request) => session.fileSystem.getattr(pathField(request.path, 'path')),
        answer(session, request, stat) {
            const path = /** @type {string} */ (request.path);
            session.answerResult(request, statText(stat, quote(path), quote(baseName(path))));
        },
    },

    readdir: {
        call: (session, request) => session.fileSystem.readdir(pathField(request.path, 'path')),
        answer(session, request, entries) {
            if (typeof entries?.[Symbol.iterator] !== 'function') {
                throw noListing(String(request.path), entries);
            }
            session.answerEntries(request, entries, new EntryTexts(/** @type {string} */ (request.path)));
        },
    },

    open: {
        call(session, request) {
            const path = pathField(request.path, 'path');
            const flags = openFlags(request.flags);
            request.flags = flags;
            if (flags.write) changing(session, 'write');
            return session.fileSystem.open ? session.fileSystem.open(path, flags) : openByPath(session, path);
        },
        answer(session, request, file) {
            const flags = /** @type {import('./fileSystem.mjs').OpenFlags} */ (request.flags);
            const handle = session.addFile(file, flags, /** @type {string} */ (request.path));
            session.answerResult(request, '{"handle":' + handle + '}');
        },
    },

    read: {
        call(session, request) {
            const open = session.openFiles.get(request.handle);
            const offset = countField(request.offset, 'offset');
            const length = countField(request.length, 'length');
            if (!open.read) throw new PosixError('EBADF', `handle ${request.handle} is not open for reading`);
            return session.read(open.file, offset, length, request);
        },
        answer: (session, request, got) => session.answerRead(request, got),
    },

    write: {
        call(session, request) {
            const open = session.openFiles.get(request.handle);
            const offset = countField(request.offset, 'offset');
            if (!open.write) throw new PosixError('EBADF', `handle ${request.handle} is not open for writing`);
            return /** @type {any} */ (session.fileSystem).write(open.file, offset, dataField(request));
        },
    },

    flush: {
        call: (session, request) => session.fileSystem.flush?.(session.openFiles.get(request.handle).file),
    },

    release: {
        call(session, request) {
            request.path = session.openFiles.get(request.handle).path; // by which a failure is told
            return session.openFiles.release(request.handle);
        },
    },

    mkdir: {
        call: (session, request) => changing(session, 'mkdir').mkdir(pathField(request.path, 'path')),
    },

    unlink: {
        call: (session, request) => changing(session, 'unlink').unlink(pathField(request.path, 'path')),
    },

    rename: {
        call: (session, request) =>
            changing(session, 'rename').rename(
                pathField(request.oldPath, 'oldPath'),
                pathField(request.newPath, 'newPath'),
            ),
    },

    chmod: {
        call(session, request) {
            const path = pathField(request.path, 'path');
            const mode = countField(request.mode, 'mode');
            if (mode > 0o7777) throw new PosixError('EINVAL', 'mode must be 0 to 4095');
            return changing(session, 'chmod').chmod(path, mode);
        },
    },

    utimes: {
        call(session, request) {
            const path = pathField(request.path, 'path');
            const time = typeof request.mtime === 'string' ? parseTime(request.mtime) : undefined;
            if (!time) throw new PosixError('EINVAL', 'mtime must be a time like 2024-05-01T12:34:56.789Z');
            return changing(session, 'utimes').utimes(path, time);
        },
    },
};

/**
 * @param {string} path
 * @param {unknown} entries
 */
function noListing(path, entries) {
    const isAsync = typeof (/** @type {any} */ (entries)?.[Symbol.asyncIterator]) === 'function';
    const hint = isAsync ? '; gather what comes with "for await" in an array' : '';
    const wanted = `an array of the folder's members, such as [{name: "a.txt", size: 12}]${hint}`;
    return wrongValue(`listing of ${path} is ${cameInstead(entries, wanted)}`);
}

/** @param {Request} request */
function dataField(request) {
    if (request.data) return request.data;
    const text = request.dataBase64;
    if (typeof text !== 'string') {
        const what = text === false ? 'is not padded base64' : 'must be a string';
        throw new PosixError('EINVAL', `dataBase64 ${what}`);
    }
    if (!/^[A-Za-z0-9+/]*={0,2}$/.test(text) || text.length % 4 !== 0) {
        throw new PosixError('EINVAL', 'dataBase64 is not padded base64');
    }
    return Buffer.from(text, 'base64');
}
