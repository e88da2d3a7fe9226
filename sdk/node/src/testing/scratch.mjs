// A new folder for what an examination makes, with a record of all that. Nothing but what is in the record is removed.
import { childPath } from './treeChecks.mjs';

export class Scratch {
    /**
     * @param {import('./conversation.mjs').Conversation} talk
     * @param {string} path of a name that nobody has
     */
    constructor(talk, path) {
        this.talk_ = talk;
        this.path = path;
        /** @type {Map<string, 'file' | 'folder'>} in the order of making */
        this.made_ = new Map();
        /** @type {string | undefined} why something stayed */
        this.problem_ = undefined;
    }

    /**
     * Takes a path into the record before it is made.
     * @param {string} path
     * @param {'file' | 'folder'} kind
     * @returns {Promise<'ours' | 'taken' | 'unknown'>} whether what will be there is ours
     */
    async claim(path, kind) {
        if (this.made_.has(path)) return 'ours';
        const answer = await this.talk_.ask('getattr', { path });
        if (answer.ok) return 'taken';
        if (answer.code !== 'ENOENT') return 'unknown';
        this.made_.set(path, kind);
        return 'ours';
    }

    /**
     * The path turned out to be somebody else's.
     * @param {string} path
     */
    forget(path) {
        this.made_.delete(path);
    }

    /**
     * Removes what is in the record, last made first, and no folder in which there is anything else.
     * @returns {Promise<string | undefined>} why something stayed
     */
    async remove() {
        if (!this.made_.has(this.path)) return undefined;
        for (const [path, kind] of [...this.made_].reverse()) {
            if (!this.talk_.available()) return 'the helper does not answer';
            await this.removeOne_(path, kind);
        }
        return this.problem_;
    }

    /** @param {string} path @param {'file' | 'folder'} kind */
    async removeOne_(path, kind) {
        if (kind === 'folder' && !(await this.isEmpty_(path))) return;
        const answer = await this.talk_.ask('unlink', { path });
        if (!answer.came) {
            this.stayed_('the helper does not answer');
        } else if (!answer.ok && answer.code !== 'ENOENT') {
            this.stayed_(`"${path}" cannot be removed: ${answer.message}`);
        } else if (kind === 'folder' && (await this.talk_.ask('getattr', { path })).ok) {
            this.stayed_(`"${path}" is still there after it was removed`);
        }
    }

    /** @param {string} path */
    async isEmpty_(path) {
        const answer = await this.talk_.ask('readdir', { path });
        if (answer.code === 'ENOENT' || answer.result?.length === 0) return true;
        if (!answer.ok) {
            this.stayed_(`"${path}" cannot be listed, so it may hold what the check did not make`);
            return false;
        }
        const name = /** @type {string} */ (answer.result[0].name);
        const isOurs = this.made_.has(childPath(path, name));
        this.stayed_(`"${path}" holds "${name}"${isOurs ? ', which was not removed' : ', which the check did not make'}`);
        return false;
    }

    /** @param {string} why */
    stayed_(why) {
        this.problem_ ??= why;
    }
}
