// A tree, or a part of it, into a folder of this machine. As with an import, a file appears whole under its name.
import fs from 'node:fs';
import path from 'node:path';
import { Names } from '../../names/names.mjs';
import { beneath } from '../treePath.mjs';
import { factsOf, reasonOf } from './localTree.mjs';
import { isZeros, workerCount, workThrough } from './workers.mjs';

/** @typedef {import('./workers.mjs').Worker} Worker */
/** @typedef {import('../../names/names.mjs').Member} Member */
/** @typedef {import('../../names/names.mjs').Facts} Facts */
/** @typedef {{path: string, local: string, member: Member}} Task */

const permissions = 0o777;
const { O_WRONLY, O_CREAT, O_TRUNC, O_NOFOLLOW } = fs.constants;
const goesOnWithout = new Set(['EACCES', 'EPERM', 'ENOENT', 'EISDIR', 'ENOTDIR', 'EEXIST', 'ENAMETOOLONG', 'EINVAL', 'EILSEQ', 'ENOTEMPTY']);

export class Exporting {
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
        /** @type {{local: string, facts: Facts}[]} the innermost last */
        this.folders_ = [];
    }

    /**
     * Fails where there is no folder to export.
     * @param {string} from
     */
    async lookAt(from) {
        await this.names_.readdir(from);
    }

    /** @param {string} from folder of the tree @param {string} folder of this machine, which is there */
    async run(from, folder) {
        this.root_ = folder;
        try {
            await workThrough(this.open_, this.files_(from, folder), (worker, task) => this.take_(worker, task));
        } finally {
            await this.clear_();
        }
        // A folder that may not be written to is closed after those in it.
        for (const { local, facts } of this.folders_.reverse()) await this.unless_(local, () => setFacts(local, facts));
    }

    /** @param {string} from @param {string} folder @returns {AsyncGenerator<Task>} */
    async *files_(from, folder) {
        for (const waiting = [{ inTree: from, local: folder }]; waiting.length > 0; ) {
            const { inTree, local } = /** @type {typeof waiting[0]} */ (waiting.pop());
            const members = await this.unless_(inTree, () => this.enter_(inTree, local, inTree === from));
            for (const member of members ?? []) {
                const at = beneath(inTree, member.name);
                const isPlain = member.name !== '' && member.name !== '.' && member.name !== '..' && !member.name.includes('/');
                if (!isPlain) this.tally_.leaveOut(at, 'no file can have that name (kemvi-store fsck --repair gives it another one)');
                else if (member.isDirectory) waiting.push({ inTree: at, local: path.join(local, member.name) });
                else yield { path: at, local: path.join(local, member.name), member };
            }
        }
    }

    /** @param {string} inTree @param {string} local @param {boolean} isRoot */
    async enter_(inTree, local, isRoot) {
        const facts = await this.names_.getattr(inTree);
        const members = await this.names_.readdir(inTree);
        if (!isRoot) await makeFolder(local);
        this.folders_.push({ local, facts });
        this.tally_.folders++;
        return members;
    }

    /** @param {Worker} worker @param {Task} task */
    async take_(worker, { path: inTree, local, member }) {
        await this.unless_(inTree, async () => {
            const there = await fs.promises.lstat(local, { bigint: true }).catch(() => undefined);
            const facts = there?.isFile() ? factsOf(there) : undefined;
            if (facts && facts.size === member.size && facts.mtime === member.modifiedAt) {
                this.tally_.wasThere(member.size);
            } else if (there && !(facts && this.replaces_)) {
                this.tally_.leaveOut(inTree, `there is ${facts ? 'another file of that name (--replace replaces it)' : 'something of that name'}: ${local}`);
            } else {
                await this.exportFile_(worker, inTree, local);
            }
        });
    }

    /** @param {Worker} worker @param {string} inTree @param {string} local */
    async exportFile_(worker, inTree, local) {
        const facts = await this.names_.open(inTree, false);
        const unfinished = this.unfinished_(worker.number);
        const file = await fs.promises.open(unfinished, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0o600);
        try {
            const handle = worker.contents.open(facts, { write: false, truncate: false });
            await copyOut(handle, file, worker.buffer, (bytes) => this.tally_.passed(bytes));
        } finally {
            await file.close();
        }
        await setFacts(unfinished, facts);
        await fs.promises.rename(unfinished, local);
        this.tally_.done(facts.size);
    }

    /** @param {number} worker */
    unfinished_(worker) {
        return path.join(/** @type {string} */ (this.root_), `.kemvi-export-${worker}`);
    }

    async clear_() {
        for (let worker = 0; worker < workerCount; worker++) await fs.promises.rm(this.unfinished_(worker), { force: true });
    }

    /**
     * What concerns one file alone is told, and the others go on: also a file whose bytes are lost.
     * @template T
     * @param {string} inTree
     * @param {() => Promise<T>} work
     * @returns {Promise<T | undefined>}
     */
    async unless_(inTree, work) {
        try {
            return await work();
        } catch (error) {
            const { code, name, syscall, message } = /** @type {any} */ (error);
            const isLost = name === 'PosixError' && (code === 'ESTALE' || /there is no object|should have/.test(message));
            if (!isLost && !goesOnWithout.has(code)) throw error;
            this.tally_.leaveOut(inTree, syscall === undefined ? message : reasonOf(error));
            return undefined;
        }
    }
}

/** @param {string} local */
async function makeFolder(local) {
    try {
        await fs.promises.mkdir(local, 0o700);
    } catch (error) {
        const there = await fs.promises.lstat(local).catch(() => undefined);
        if (!there?.isDirectory()) throw error;
    }
}

/** @param {string} local @param {Facts} facts */
async function setFacts(local, { mode, mtime }) {
    await fs.promises.chmod(local, mode & permissions);
    // Half a microsecond more: fractions of a second are cut off behind the sixth digit.
    const seconds = mtime / 1000 + 0.0000005;
    await fs.promises.utimes(local, seconds, seconds);
}

/**
 * @param {import('../../contents/openFile.mjs').OpenFile} handle is released
 * @param {fs.promises.FileHandle} file that is empty
 * @param {Buffer} buffer
 * @param {(bytes: number) => void} passed
 */
async function copyOut(handle, file, buffer, passed) {
    try {
        let offset = 0;
        for (;;) {
            const count = await handle.read(offset, buffer.length, buffer);
            if (count === 0) break;
            const bytes = buffer.subarray(0, count);
            if (!isZeros(bytes)) await file.write(bytes, 0, count, offset);
            offset += count;
            passed(count);
        }
        await file.truncate(offset);
    } finally {
        await handle.release();
    }
}
