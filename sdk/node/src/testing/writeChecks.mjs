// Makes, changes and removes things in a new folder of the tree, and looks what has come of it.
import { randomUUID } from 'node:crypto';
import { readOn } from './readChecks.mjs';
import { Scratch } from './scratch.mjs';
import { checkFolder, childPath } from './treeChecks.mjs';

/** @typedef {import('./conversation.mjs').Conversation} Conversation */
/** @typedef {import('./conversation.mjs').Answer} Answer */

const manyFiles = 10_000;
const longestListing = 1000; // milliseconds
const writeSizes = [768 << 10, 12 << 20]; // lines of 1 and 16 MiB
const createFlags = ['write', 'create', 'truncate'];
const keepFlags = ['write', 'create'];

// Where one of these fails, a path may lead elsewhere than it says: then nothing is changed in the tree.
const neededToWrite = ['missingNames', 'listings', 'names', 'duplicates', 'agreement'];

/**
 * Begins only where no name and no path was found wrong, and removes what it made and nothing else.
 * @param {Conversation} talk
 * @param {string} directory
 * @returns {Promise<boolean>} whether it began
 */
export async function checkWriting(talk, directory) {
    if (!talk.available()) return false;
    const answer = await talk.ask('getattr', { path: directory });
    if (!answer.result?.isDirectory) {
        const problem = `${directory} is no folder of the served tree`;
        talk.findings.add('folders', 'error', problem, 'nothing can be tried there; name one that exists', answer);
        return false;
    }
    await checkFolder(talk, directory);
    if (neededToWrite.some((check) => talk.findings.failed(check))) return false;
    const scratch = new Scratch(talk, childPath(directory, 'kemvi-check-' + randomUUID()));
    try {
        await new WriteExamination(talk, scratch).run();
    } finally {
        const problem = await scratch.remove();
        if (problem !== undefined) {
            const text = `${scratch.path} stays in the served tree: ${problem}`;
            talk.findings.add('cleanedUp', 'error', text, 'somebody has to remove it');
        }
    }
    return true;
}

class WriteExamination {
    /** @param {Conversation} talk @param {Scratch} scratch */
    constructor(talk, scratch) {
        this.talk_ = talk;
        this.scratch_ = scratch;
        this.stopped_ = false; // what is written may land on what is not ours
    }

    async run() {
        if (!(await this.makeScratch_())) return;
        const examinations = [
            this.checkFolders_, this.checkWriting_, this.checkCreating_, this.checkRenaming_, this.checkRemoving_,
            this.checkAttributes_, this.checkNames_, this.checkLongWrites_, this.checkManyEntries_,
        ];
        for (const examine of examinations) if (!this.stopped_ && this.talk_.available()) await examine.call(this);
    }

    /** @param {string} check @param {string} problem @param {string} consequence @param {Answer} [answer] */
    error_(check, problem, consequence, answer) {
        this.talk_.findings.add(check, 'error', problem, consequence, answer);
    }

    /**
     * Notes an error unless the answer is a success.
     * @param {string} check
     * @param {Answer} answer
     * @param {string} consequence
     * @returns {boolean} whether it is
     */
    succeeds_(check, answer, consequence) {
        if (answer.came && !answer.ok) this.error_(check, 'it was refused', consequence, answer);
        return answer.ok;
    }

    /** @param {string} name */
    path_(name) {
        return childPath(this.scratch_.path, name);
    }

    /** @param {string} name */
    async exists_(name) {
        return (await this.talk_.ask('getattr', { path: this.path_(name) })).ok;
    }

    /**
     * @param {string} check
     * @param {string} path
     * @param {'file' | 'folder'} kind
     * @returns {Promise<boolean>} whether what is to be made is ours; otherwise nothing more is written
     */
    async claim_(check, path, kind) {
        const claim = await this.scratch_.claim(path, kind);
        if (claim === 'taken') {
            this.stopped_ = true;
            const problem = `"${path}" is there before it was made; nothing more is written`;
            this.error_(check, problem, 'files are overwritten that have another name');
        } else if (claim === 'unknown') {
            this.error_(check, `the helper does not say whether there is a "${path}"`, 'no new file can be made');
        }
        return claim === 'ours';
    }

    /** @param {string} check @param {string} name */
    async makeFolder_(check, name) {
        const path = this.path_(name);
        if (!(await this.claim_(check, path, 'folder'))) return false;
        return this.succeeds_(check, await this.talk_.ask('mkdir', { path }), 'no folder can be made');
    }

    async makeScratch_() {
        const path = this.scratch_.path;
        if (!(await this.claim_('folders', path, 'folder'))) return false;
        const answer = await this.talk_.ask('mkdir', { path });
        if (answer.code === 'EEXIST') this.scratch_.forget(path);
        return this.succeeds_('folders', answer, 'no folder can be made') && (await this.isNewAndEmpty_(path));
    }

    /** @param {string} path */
    async isNewAndEmpty_(path) {
        const attributes = await this.talk_.ask('getattr', { path });
        if (!attributes.result?.isDirectory) {
            this.error_('folders', 'the new folder is no folder of that path', 'mkdir -p fails', attributes);
            return false;
        }
        const listing = await this.talk_.ask('readdir', { path });
        if (listing.result?.length === 0) return true;
        const problem = listing.ok ? 'the new folder is not empty' : 'the new folder cannot be listed';
        this.error_('folders', problem, 'what is made in a new folder may land among other files', listing);
        return false;
    }

    /**
     * @param {string} check
     * @param {string} name
     * @param {string[]} flags
     * @param {number} offset
     * @param {string | Buffer} data
     */
    async write_(check, name, flags, offset, data) {
        const path = this.path_(name);
        if (!(await this.claim_(check, path, 'file'))) return false;
        const handle = (await this.talk_.ask('open', { path, flags })).result?.handle;
        if (handle === undefined) {
            this.error_(check, `"${name}" could not be opened for writing`, 'no file can be written');
            return false;
        }
        let kept = true;
        if (data.length > 0) {
            const dataBase64 = Buffer.from(data).toString('base64');
            const answer = await this.talk_.ask('write', { handle, offset, dataBase64 });
            kept = this.succeeds_(check, answer, 'writing fails');
        }
        const flushed = await this.talk_.ask('flush', { handle });
        kept = this.succeeds_(check, flushed, 'close and fsync report an error') && kept;
        const released = await this.talk_.ask('release', { handle });
        return this.succeeds_(check, released, 'close reports an error') && kept;
    }

    /**
     * @param {string} check
     * @param {string} name
     * @param {string | Buffer} bytes
     * @param {string} consequence
     */
    async expect_(check, name, bytes, consequence) {
        const expected = Buffer.from(bytes);
        const found = await this.contents_(name);
        if (found?.equals(expected)) return;
        const holds = found ? `${found.length} bytes that differ` : 'nothing readable';
        this.error_(check, `"${name}" holds ${holds}; expected ${expected.length} bytes`, consequence);
    }

    /** @param {string} name */
    async contents_(name) {
        const opened = await this.talk_.ask('open', { path: this.path_(name), flags: ['read'] });
        if (!opened.ok) return undefined;
        const { handle } = opened.result;
        const bytes = await readOn(this.talk_, handle, 1 << 20, 32 << 20);
        await this.talk_.ask('release', { handle });
        return bytes;
    }

    async checkFolders_() {
        const again = await this.talk_.ask('mkdir', { path: this.scratch_.path });
        if (!again.came || again.code === 'EEXIST') return;
        const consequence = 'mkdir -p and locks made by mkdir fail';
        this.error_('folders', 'making it again is not answered with EEXIST', consequence, again);
    }

    async checkWriting_() {
        const lost = 'what programs write is lost or changed';
        if (!(await this.write_('writing', 'file', createFlags, 0, 'hello, world'))) return;
        await this.write_('writing', 'file', keepFlags, 7, 'there');
        await this.expect_('writing', 'file', 'hello, there', lost);
        await this.write_('writing', 'file', keepFlags, 14, '!');
        await this.expect_('writing', 'file', 'hello, there\0\0!', lost);
    }

    async checkCreating_() {
        if (!(await this.write_('creating', 'kept', createFlags, 0, 'precious'))) return;
        await this.write_('creating', 'kept', keepFlags, 0, '');
        await this.expect_('creating', 'kept', 'precious', 'opening a file for writing destroys it');
        await this.write_('creating', 'kept', createFlags, 0, '');
        const consequence = 'rewriting a file with something shorter leaves its old end';
        await this.expect_('creating', 'kept', '', consequence);
    }

    async checkRenaming_() {
        const consequence = 'editors that save by renaming lose the file';
        if (!(await this.write_('renaming', 'from', createFlags, 0, 'new'))) return;
        if (!(await this.write_('renaming', 'to', createFlags, 0, 'the old one'))) return;
        const answer = await this.talk_.ask('rename', { oldPath: this.path_('from'), newPath: this.path_('to') });
        if (answer.code === 'EEXIST') {
            const steps = "a save by renaming is two steps, and a crash between them loses the file's name";
            this.talk_.findings.add('renaming', 'warning', 'rename over a file is refused', steps, answer);
        } else if (this.succeeds_('renaming', answer, consequence)) {
            await this.expect_('renaming', 'to', 'new', consequence);
            const isDouble = await this.exists_('from');
            if (isDouble) this.error_('renaming', 'the old name is still there', 'moved files show twice');
        }
    }

    async checkRemoving_() {
        if (!(await this.makeFolder_('fullFolders', 'full'))) return;
        if (!(await this.write_('fullFolders', 'full/file', createFlags, 0, 'precious'))) return;
        const answer = await this.talk_.ask('unlink', { path: this.path_('full') });
        if (answer.ok || !(await this.exists_('full/file'))) {
            const consequence = 'removing a folder destroys what was just put into it';
            this.error_('fullFolders', 'the folder is gone with what was in it', consequence, answer);
            return;
        }
        if (answer.came && answer.code !== 'ENOTEMPTY') {
            const problem = 'the code is not ENOTEMPTY';
            this.talk_.findings.add('fullFolders', 'warning', problem, 'the message misleads', answer);
        }
        for (const name of ['full/file', 'full']) {
            const removed = await this.talk_.ask('unlink', { path: this.path_(name) });
            if (this.succeeds_('removing', removed, 'nothing can be removed') && (await this.exists_(name))) {
                this.error_('removing', `"${name}" is still there`, 'removed files come back');
            }
        }
    }

    async checkAttributes_() {
        if (!(await this.write_('modes', 'attributes', createFlags, 0, 'x'))) return;
        const path = this.path_('attributes');
        const chmod = await this.talk_.ask('chmod', { path, mode: 0o600 });
        this.succeeds_('modes', chmod, 'cp -p, tar and rsync report errors');
        const mtime = '2001-02-03T04:05:06.789Z';
        const utimes = await this.talk_.ask('utimes', { path, mtime });
        if (!this.succeeds_('settingTimes', utimes, 'touch, cp -p, tar and rsync report errors')) return;
        const stat = await this.talk_.ask('getattr', { path });
        if (stat.result?.modifiedAt === mtime) return;
        const consequence = 'rsync and make take files for changed';
        this.error_('settingTimes', `the time is not ${mtime}`, consequence, stat);
    }

    async checkNames_() {
        if (!(await this.makeFolder_('oddNames', 'names'))) return;
        const wanted = ['two words', '"quoted"', 'back\\slash', 'line\nbreak', 'gr\u00fc\u00df', '-x'].sort();
        for (const name of wanted) {
            if (!(await this.write_('oddNames', 'names/' + name, createFlags, 0, 'x'))) return;
        }
        const answer = await this.talk_.ask('readdir', { path: this.path_('names') });
        const found = (answer.result ?? []).map((/** @type {{name: string}} */ { name }) => name).sort();
        if (JSON.stringify(found) === JSON.stringify(wanted)) return;
        const problem = 'the names listed are not those that were made';
        this.error_('oddNames', problem, 'files with such names cannot be found again', answer);
    }

    async checkLongWrites_() {
        for (const size of writeSizes) {
            const bytes = Buffer.alloc(size);
            for (let i = 0; i < size; i++) bytes[i] = (i * 131) >> 3;
            if (!this.talk_.available()) return;
            if (!(await this.write_('longWrites', 'long', createFlags, 0, bytes))) return;
            await this.expect_('longWrites', 'long', bytes, 'large files arrive damaged');
        }
    }

    async checkManyEntries_() {
        if (!(await this.makeFolder_('manyEntries', 'many'))) return;
        for (let number = 0; number < manyFiles && this.talk_.available(); number++) {
            const path = this.path_(`many/${number}`);
            if (!(await this.claim_('manyEntries', path, 'file'))) return;
            const opened = await this.talk_.ask('open', { path, flags: createFlags });
            if (!opened.ok) {
                const problem = `file ${number} could not be made`;
                this.error_('manyEntries', problem, 'large folders cannot be filled');
                return;
            }
            await this.talk_.ask('release', { handle: opened.result.handle });
        }
        const answer = await this.talk_.ask('readdir', { path: this.path_('many') });
        if (answer.result?.length !== manyFiles) {
            this.error_('manyEntries', 'not every file is listed', 'files in large folders are not seen', answer);
        } else if (answer.took > longestListing) {
            const problem = `it took ${(answer.took / 1000).toFixed(6)} s`;
            const consequence = 'ls waits noticeably in large folders';
            this.talk_.findings.add('manyEntries', 'warning', problem, consequence, answer);
        }
    }
}
