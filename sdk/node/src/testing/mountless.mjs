// Drives a file system as the host of a mount does: the same requests in the same order, and what programs would see.
import { checkFileSystem, misnamed } from '../fileSystem.mjs';
import { report } from '../report.mjs';
import { checks } from './checks.mjs';
import { Conversation } from './conversation.mjs';
import { examine, longestEnd } from './examination.mjs';
import { CheckError } from './findings.mjs';
import { readOn } from './readChecks.mjs';
import { brokenRule, refusal, seenError } from './seenErrors.mjs';
import { childPath } from './treeChecks.mjs';

/** @typedef {import('../fileSystem.mjs').FileSystem} FileSystem */
/** @typedef {{name: string, path: string, isDirectory: boolean, size: number, modifiedAt: Date}} KnownEntry */
/**
 * @typedef {object} MountlessOptions
 * @property {number} [limit] milliseconds that one answer may take; 10,000 when left out
 */
/**
 * @typedef {object} CheckOptions
 * @property {string | false} [write] the folder in which changes are tried, in a new folder that is removed again; false:
 *     none. When left out, "/" for a file system with `write`.
 */

const piece = 128 * 1024; // bytes of one read or write of the kernel
const surplus = 4096; // a file is read that far beyond its size, to see that it ends
const keepFlags = ['write', 'create'];
const emptyFlags = ['write', 'create', 'truncate'];

/**
 * Makes a file system usable in tests without a mount and without a process of its own.
 * @param {FileSystem} fileSystem
 * @param {MountlessOptions} [options]
 * @throws {TypeError} when the file system is not what it must be
 */
export function mountless(fileSystem, options) {
    return new Mountless(fileSystem, options);
}

/**
 * The calls of programs on a mount. They reject with what a program sees (`code`: ENOENT, EIO, ...) and the reason, or,
 * where an answer breaks a rule, with the rule. Paths are absolute within the tree.
 */
export class Mountless {
    /**
     * @param {FileSystem} fileSystem
     * @param {MountlessOptions} [options]
     */
    constructor(fileSystem, options = {}) {
        checkFileSystem(fileSystem, 'mountless');
        for (const line of misnamed(fileSystem)) report(`mountless: ${line}`);
        this.isWritable_ = fileSystem.write !== undefined;
        this.talk_ = new Conversation(fileSystem, options.limit ?? 10_000);
    }

    /** @param {string} path @returns {Promise<KnownEntry>} */
    async stat(path) {
        const parts = checkedParts(path);
        let stat = await this.getattr_('/');
        for (let count = 0; count < parts.length; count++) {
            if (!stat.isDirectory) throw seenError('ENOTDIR', `${stat.path} is not a folder`);
            stat = await this.getattr_('/' + parts.slice(0, count + 1).join('/'));
        }
        return stat;
    }

    /** @param {string} path */
    async exists(path) {
        return (await this.statIfThere_(path)) !== undefined;
    }

    /**
     * The names in a folder.
     * @param {string} path
     * @returns {Promise<string[]>}
     */
    async readdir(path) {
        return (await this.list(path)).map(({ name }) => name);
    }

    /**
     * What is known of the members of a folder.
     * @param {string} path
     * @returns {Promise<KnownEntry[]>}
     */
    async list(path) {
        await this.folder_(path);
        const answer = await this.ask_('readdir', path, { path });
        const names = new Set();
        for (const { name } of answer.result) {
            if (names.has(name)) {
                const consequence = 'one of the two cannot be reached; rm -r and copies stumble over it';
                throw brokenRule(checks.duplicates, `"${name}" stands twice in ${path}`, consequence);
            }
            names.add(name);
        }
        return answer.result.map(known);
    }

    /**
     * @template {BufferEncoding | undefined} [Encoding=undefined]
     * @param {string} path
     * @param {Encoding} [encoding]
     * @returns {Promise<Encoding extends string ? string : Buffer>} a text where an encoding is given
     */
    async readFile(path, encoding) {
        const { size } = await this.file_(path);
        const opened = await this.ask_('open', path, { path, flags: ['read'] });
        const handle = opened.result.handle;
        const bytes = await readOn(this.talk_, handle, piece, size < 0 ? Infinity : size + surplus, (answer) => {
            throw refusal(answer, `read of ${path}`);
        });
        await this.ask_('release', path, { handle });
        const data = /** @type {Buffer} */ (bytes);
        if (size >= 0 && data.length !== size && (await this.getattr_(path)).size === size) {
            const problem = `${path} gives ${data.length} bytes and has the size ${size}`;
            throw brokenRule(checks.wholeSize, problem, 'programs read too little, or zeros at the end');
        }
        return /** @type {any} */ (encoding === undefined ? data : data.toString(encoding));
    }

    /**
     * Replaces or makes a file.
     * @param {string} path
     * @param {string | Uint8Array} data
     */
    async writeFile(path, data) {
        await this.placeForFile_(path);
        await this.written_(path, emptyFlags, 0, Buffer.from(data));
    }

    /** @param {string} path @param {string | Uint8Array} data */
    async appendFile(path, data) {
        const stat = await this.placeForFile_(path);
        await this.written_(path, keepFlags, stat?.size ?? 0, Buffer.from(data));
    }

    /**
     * Makes a file shorter or longer. There is no request for that: what is to stay is written anew.
     * @param {string} path
     * @param {number} [size]
     */
    async truncate(path, size = 0) {
        await this.file_(path);
        const head = size > 0 ? (await this.readFile(path)).subarray(0, size) : Buffer.alloc(0);
        await this.written_(path, emptyFlags, 0, Buffer.concat([head, Buffer.alloc(size - head.length)]));
    }

    /**
     * Opens a file and keeps it open.
     * @param {string} path
     * @param {'r' | 'r+' | 'w'} [mode] to read; to read and write; the same, made or emptied first
     */
    async open(path, mode = 'r') {
        if (mode === 'w') await this.writeFile(path, '');
        else await this.file_(path);
        const handles = { read: await this.handle_(path, ['read']), write: /** @type {number | undefined} */ (undefined) };
        if (mode !== 'r') handles.write = await this.handle_(path, keepFlags);
        return new OpenedFile(this.talk_, path, handles);
    }

    /** @param {string} path */
    async mkdir(path) {
        await this.placeFor_(path);
        if (await this.statIfThere_(path)) throw seenError('EEXIST', `${path} exists`);
        await this.ask_('mkdir', path, { path });
        const made = await this.getattr_(path);
        if (!made.isDirectory) throw brokenRule(checks.folders, `the new ${path} is no folder`, 'mkdir -p fails');
    }

    /**
     * Removes a file.
     * @param {string} path
     */
    async unlink(path) {
        await this.file_(path);
        await this.remove_(path);
    }

    /**
     * Removes an empty folder.
     * @param {string} path
     */
    async rmdir(path) {
        await this.folder_(path);
        await this.refuseIfNotEmpty_(path); // first, because a file system may remove a folder with all that is in it
        await this.remove_(path);
    }

    /** @param {string} oldPath @param {string} newPath */
    async rename(oldPath, newPath) {
        const source = await this.stat(oldPath);
        await this.placeFor_(newPath);
        if (oldPath === newPath) return;
        if (newPath.startsWith(oldPath + '/')) throw seenError('EINVAL', `${newPath} lies in ${oldPath}`);
        const target = await this.statIfThere_(newPath);
        if (target !== undefined) await this.refuseToReplace_(source, target);
        const answer = await this.talk_.ask('rename', { oldPath, newPath });
        if (answer.code === 'EEXIST' && target !== undefined) await this.renameInSteps_(oldPath, newPath);
        else if (!answer.ok) throw refusal(answer, `rename of ${oldPath} to ${newPath}`);
        const lost = 'editors that save by renaming lose the file';
        if (!(await this.isThere_(newPath))) throw brokenRule(checks.renaming, `${newPath} is not there`, lost);
        if (await this.isThere_(oldPath)) {
            throw brokenRule(checks.renaming, `${oldPath} is still there`, 'moved files show twice');
        }
    }

    /** @param {string} path @param {number} mode */
    async chmod(path, mode) {
        await this.stat(path);
        await this.ask_('chmod', path, { path, mode });
    }

    /** @param {string} path @param {Date} mtime */
    async utimes(path, mtime) {
        await this.stat(path);
        await this.ask_('utimes', path, { path, mtime: mtime.toISOString() });
        const { modifiedAt } = await this.getattr_(path);
        if (modifiedAt.getTime() === mtime.getTime()) return;
        const problem = `the time of ${path} is ${modifiedAt.toISOString()}, not ${mtime.toISOString()}`;
        throw brokenRule(checks.settingTimes, problem, 'rsync and make take files for changed');
    }

    /** @returns {Promise<{files: number, directories: number, bytes: number}>} */
    async statfs() {
        return (await this.ask_('statfs', '/', {})).result;
    }

    /**
     * Sends one request, as it stands in docs/protocol.md.
     * @param {string} op
     * @param {object} [fields]
     * @returns {Promise<any>} the whole answer
     */
    async request(op, fields) {
        const answer = await this.talk_.ask(op, fields);
        if (!answer.came) throw refusal(answer, op);
        return JSON.parse(answer.line);
    }

    /**
     * Examines the file system by the rules of `kemvi check`, then ends it: nothing can be asked of it afterwards.
     * @param {CheckOptions} [options]
     * @returns {Promise<import('./findings.mjs').CheckResult>} with the warnings
     * @throws {CheckError} with everything that is wrong
     */
    async check(options = {}) {
        const { write = this.isWritable_ && '/' } = options;
        const result = await examine(this.talk_, write === false ? write : checkedPath(write));
        if (result.errors.length > 0) throw new CheckError(result);
        return result;
    }

    /** Gives back what is open and ends the file system, as an unmount does. */
    async end() {
        const { ended, said } = await this.talk_.end(longestEnd);
        if (!ended || said !== '') throw new Error(said.trimEnd() || 'release or end is not done after 5 s');
    }

    /** @param {string} op @param {string} subject @param {object} fields */
    async ask_(op, subject, fields) {
        const answer = await this.talk_.ask(op, fields);
        if (!answer.ok) throw refusal(answer, `${op} of ${subject}`);
        return answer;
    }

    /** @param {string} path */
    async getattr_(path) {
        return known((await this.ask_('getattr', path, { path })).result);
    }

    /** @param {string} path */
    async isThere_(path) {
        const answer = await this.talk_.ask('getattr', { path });
        if (!answer.ok && answer.code !== 'ENOENT') throw refusal(answer, `getattr of ${path}`);
        return answer.ok;
    }

    /** @param {string} path */
    async statIfThere_(path) {
        try {
            return await this.stat(path);
        } catch (error) {
            if (/** @type {any} */ (error).code !== 'ENOENT') throw error;
            return undefined;
        }
    }

    /** @param {string} path */
    async folder_(path) {
        const stat = await this.stat(path);
        if (!stat.isDirectory) throw seenError('ENOTDIR', `${path} is not a folder`);
        return stat;
    }

    /** @param {string} path */
    async file_(path) {
        const stat = await this.stat(path);
        if (stat.isDirectory) throw seenError('EISDIR', `${path} is a folder`);
        return stat;
    }

    /** @param {string} path of what is to be made */
    async placeFor_(path) {
        if (path !== '/') await this.folder_(path.slice(0, checkedPath(path).lastIndexOf('/')) || '/');
    }

    /** @param {string} path */
    async placeForFile_(path) {
        await this.placeFor_(path);
        const stat = await this.statIfThere_(path);
        if (stat?.isDirectory) throw seenError('EISDIR', `${path} is a folder`);
        return stat;
    }

    /** @param {string} path @param {string[]} flags @returns {Promise<number>} */
    async handle_(path, flags) {
        return (await this.ask_('open', path, { path, flags })).result.handle;
    }

    /**
     * @param {string} path
     * @param {string[]} flags
     * @param {number} offset
     * @param {Buffer} data
     */
    async written_(path, flags, offset, data) {
        const handle = await this.handle_(path, flags);
        const file = new OpenedFile(this.talk_, path, { read: undefined, write: handle });
        try {
            await file.write(offset, data);
            await file.sync();
        } finally {
            await file.close();
        }
        const { size } = await this.getattr_(path);
        if (size < 0 || size === offset + data.length) return;
        const problem = `${path} has the size ${size} after ${data.length} bytes were written at ${offset}`;
        throw brokenRule(checks.writing, problem, 'what programs write is lost or changed');
    }

    /** @param {string} path */
    async remove_(path) {
        await this.ask_('unlink', path, { path });
        if (await this.isThere_(path)) {
            throw brokenRule(checks.removing, `${path} is still there`, 'removed files come back');
        }
    }

    /** @param {string} path */
    async refuseIfNotEmpty_(path) {
        if ((await this.list(path)).length > 0) throw seenError('ENOTEMPTY', `${path} is not empty`);
    }

    /** @param {KnownEntry} source @param {KnownEntry} target */
    async refuseToReplace_(source, target) {
        if (target.isDirectory && !source.isDirectory) throw seenError('EISDIR', `${target.path} is a folder`);
        if (!target.isDirectory && source.isDirectory) throw seenError('ENOTDIR', `${target.path} is not a folder`);
        if (target.isDirectory) await this.refuseIfNotEmpty_(target.path);
    }

    /**
     * For a file system that cannot replace: what is to be replaced gets another name first.
     * @param {string} oldPath
     * @param {string} newPath
     */
    async renameInSteps_(oldPath, newPath) {
        const away = childPath(newPath.slice(0, newPath.lastIndexOf('/')) || '/', '.kemvi-replaced');
        await this.ask_('rename', newPath, { oldPath: newPath, newPath: away });
        await this.ask_('rename', oldPath, { oldPath, newPath });
        await this.ask_('unlink', away, { path: away });
    }
}

/** A file that a program has open. */
export class OpenedFile {
    /**
     * @param {Conversation} talk
     * @param {string} path
     * @param {{read: number | undefined, write: number | undefined}} handles
     */
    constructor(talk, path, handles) {
        this.talk_ = talk;
        this.path_ = path;
        this.handles_ = handles;
    }

    /** @param {number} offset @param {number} length @returns {Promise<Buffer>} fewer bytes only at the end */
    async read(offset, length) {
        if (this.handles_.read === undefined) throw seenError('EBADF', `${this.path_} is not open for reading`);
        const { bytes } = await this.ask_('read', { handle: this.handles_.read, offset, length });
        return /** @type {Buffer} */ (bytes);
    }

    /** @param {number} offset @param {string | Uint8Array} data */
    async write(offset, data) {
        if (this.handles_.write === undefined) throw seenError('EBADF', `${this.path_} is not open for writing`);
        const bytes = Buffer.from(data);
        for (let from = 0; from < bytes.length; from += piece) {
            const dataBase64 = bytes.subarray(from, from + piece).toString('base64');
            await this.ask_('write', { handle: this.handles_.write, offset: offset + from, dataBase64 });
        }
    }

    /** Makes what was written durable. */
    async sync() {
        if (this.handles_.write !== undefined) await this.ask_('flush', { handle: this.handles_.write });
    }

    async close() {
        const { read, write } = this.handles_;
        this.handles_ = { read: undefined, write: undefined };
        for (const handle of [read, write]) if (handle !== undefined) await this.ask_('release', { handle });
    }

    /** @param {string} op @param {object} fields */
    async ask_(op, fields) {
        const answer = await this.talk_.ask(op, fields);
        if (!answer.ok) throw refusal(answer, `${op} of ${this.path_}`);
        return answer;
    }
}

/** @param {any} stat as answered @returns {KnownEntry} */
function known({ name, path, isDirectory, size, modifiedAt }) {
    return { name, path, isDirectory, size, modifiedAt: new Date(modifiedAt) };
}

/** @param {unknown} path */
function checkedPath(path) {
    checkedParts(path);
    return /** @type {string} */ (path);
}

/** @param {unknown} path @returns {string[]} its names */
function checkedParts(path) {
    if (path === '/') return [];
    const parts = typeof path === 'string' && path.startsWith('/') ? path.slice(1).split('/') : [''];
    if (!parts.some((part) => part === '' || part === '.' || part === '..')) return parts;
    throw new TypeError(`${JSON.stringify(path)} is no path of the tree; expected one such as "/folder/a.txt"`);
}
