// A folder of this machine into a tree. A file appears whole, with its time, under its name: what is there was done, and
// what was broken off lies in a folder of its own, where the next attempt clears it away.
import fs from 'node:fs';
import { Names } from '../../names/names.mjs';
import { beneath } from '../treePath.mjs';
import { factsOf, localMembers, reasonOf } from './localTree.mjs';
import { isZeros, workThrough } from './workers.mjs';

/** @typedef {import('./localTree.mjs').Facts} Facts */
/** @typedef {import('./workers.mjs').Worker} Worker */
/** @typedef {import('../../names/names.mjs').Member} Member */
/** @typedef {{path: string, local: string, facts: Facts, there: Member | undefined}} Task */

const workshop = '.kemvi-import';
const usualMode = { file: 0o644, folder: 0o755 };
const ofOneFile = new Set(['ENAMETOOLONG', 'EINVAL', 'EISDIR', 'ENOTDIR', 'ENOTEMPTY', 'EEXIST']);

export class Importing {
    /**
     * @param {import('../openTree.mjs').OpenTree} open
     * @param {import('./tally.mjs').Tally} tally
     * @param {{replaces: boolean}} options whether files that are there and differ are replaced
     */
    constructor(open, tally, { replaces }) {
        this.open_ = open;
        this.names_ = new Names(open.engine, open.tree);
        this.tally_ = tally;
        this.replaces_ = replaces;
        /** @type {{path: string, facts: Facts, isNew: boolean}[]} whose times are set at last: each new member changes them */
        this.folders_ = [];
    }

    /**
     * @param {string} folder of this machine
     * @param {string} to folder of the tree
     */
    async run(folder, to) {
        await this.makeFolders_(to);
        this.workshop_ = beneath(to, workshop);
        await this.clearWorkshop_();
        await this.names_.mkdir(this.workshop_);
        await workThrough(this.open_, this.files_(folder, to), (worker, task) => this.take_(worker, task));
        await this.clearWorkshop_();
        await workThrough(this.open_, each(this.folders_), (_, made) => this.setFacts_(made.path, made.facts, made.isNew ? usualMode.folder : -1));
    }

    /** @param {string} path */
    async makeFolders_(path) {
        for (let end = path.indexOf('/', 1); path !== '/'; end = path.indexOf('/', end + 1)) {
            await this.mkdir_(end < 0 ? path : path.slice(0, end));
            if (end < 0) return;
        }
    }

    /** @param {string} path @returns {Promise<boolean>} whether it is new */
    async mkdir_(path) {
        try {
            if (path === '/') return false;
            await this.names_.mkdir(path);
            return true;
        } catch (error) {
            if (/** @type {any} */ (error).code === 'EEXIST') return false;
            throw error;
        }
    }

    /** Of an import that was broken off, or of this one. */
    async clearWorkshop_() {
        const folder = /** @type {string} */ (this.workshop_);
        try {
            for (const { name } of await this.names_.readdir(folder)) await this.names_.unlink(beneath(folder, name));
            await this.names_.unlink(folder);
        } catch (error) {
            if (/** @type {any} */ (error).code !== 'ENOENT') throw error;
        }
    }

    /**
     * Makes the folders on the way.
     * @param {string} folder
     * @param {string} to
     * @returns {AsyncGenerator<Task>}
     */
    async *files_(folder, to) {
        const root = factsOf(await fs.promises.stat(folder, { bigint: true }));
        for (const waiting = [{ local: folder, path: to, facts: root }]; waiting.length > 0; ) {
            const { local, path, facts } = /** @type {typeof waiting[0]} */ (waiting.pop());
            const members = await this.unless_(path, () => localMembers(local));
            const there = members && (await this.unless_(path, () => this.enter_(path, facts)));
            for (const member of (there && members) ?? []) {
                const inTree = beneath(path, member.name);
                if (inTree === this.workshop_) this.tally_.leaveOut(inTree, 'the import itself uses this name');
                else if ('problem' in member) this.tally_.leaveOut(inTree, member.problem);
                else if (member.kind === 'folder') waiting.push({ local: member.local, path: inTree, facts: member.facts });
                else yield { path: inTree, local: member.local, facts: member.facts, there: there?.get(member.name) };
            }
        }
    }

    /**
     * @param {string} path
     * @param {Facts} facts
     * @returns {Promise<Map<string, Member>>} what is there already
     */
    async enter_(path, facts) {
        const isNew = await this.mkdir_(path);
        const members = isNew ? [] : await this.names_.readdir(path);
        this.folders_.push({ path, facts, isNew });
        this.tally_.folders++;
        return new Map(members.map((member) => [member.name, member]));
    }

    /** @param {Worker} worker @param {Task} task */
    async take_(worker, task) {
        const { path, facts, there } = task;
        if (there && !there.isDirectory && there.size === facts.size && there.modifiedAt === facts.mtime) {
            this.tally_.wasThere(facts.size);
        } else if (there && (there.isDirectory || !this.replaces_)) {
            const what = there.isDirectory ? 'there is a folder of that name' : 'there is another file of that name (--replace replaces it)';
            this.tally_.leaveOut(path, what);
        } else {
            await this.unless_(path, () => this.importFile_(worker, task));
        }
    }

    /** @param {Worker} worker @param {Task} task */
    async importFile_(worker, { path, local, facts }) {
        const file = await fs.promises.open(local, fs.constants.O_RDONLY | fs.constants.O_NOFOLLOW);
        try {
            const unfinished = beneath(/** @type {string} */ (this.workshop_), String(worker.number));
            const node = await this.names_.open(unfinished, true);
            const handle = worker.contents.open(node, { write: true, truncate: node.size > 0 });
            await copyInto(handle, file, worker.buffer, (bytes) => this.tally_.passed(bytes));
            const after = factsOf(await file.stat({ bigint: true }));
            if (after.size !== facts.size || after.mtime !== facts.mtime) {
                this.tally_.leaveOut(path, 'it was changed while it was read');
                return;
            }
            await this.setFacts_(unfinished, facts, node.mode);
            await this.names_.rename(unfinished, path);
            this.tally_.done(facts.size);
        } finally {
            await file.close();
        }
    }

    /** @param {string} path @param {Facts} facts @param {number} mode that it has */
    async setFacts_(path, facts, mode) {
        if (facts.mode !== mode) await this.names_.chmod(path, facts.mode);
        await this.names_.utimes(path, facts.mtime);
    }

    /**
     * What concerns one file alone is told, and the others go on.
     * @template T
     * @param {string} path
     * @param {() => Promise<T>} work
     * @returns {Promise<T | undefined>}
     */
    async unless_(path, work) {
        try {
            return await work();
        } catch (error) {
            const { code, name, syscall, message } = /** @type {any} */ (error);
            const isLocal = syscall !== undefined;
            if (!isLocal && !(name === 'PosixError' && ofOneFile.has(code))) throw error;
            this.tally_.leaveOut(path, isLocal ? reasonOf(error) : message);
            return undefined;
        }
    }
}

/**
 * @param {import('../../contents/openFile.mjs').OpenFile} handle is released
 * @param {fs.promises.FileHandle} file
 * @param {Buffer} buffer
 * @param {(bytes: number) => void} passed
 */
async function copyInto(handle, file, buffer, passed) {
    try {
        let offset = 0;
        let written = 0;
        for (;;) {
            const { bytesRead } = await file.read(buffer, 0, buffer.length, offset);
            if (bytesRead === 0) break;
            const bytes = buffer.subarray(0, bytesRead);
            if (!isZeros(bytes)) {
                await handle.write(offset, bytes);
                written = offset + bytesRead;
            }
            offset += bytesRead;
            passed(bytesRead);
        }
        if (written < offset) await handle.write(offset - 1, Buffer.alloc(1));
    } finally {
        await handle.release();
    }
}

/** @template T @param {T[]} items @returns {AsyncGenerator<T>} */
export async function* each(items) {
    yield* items;
}
