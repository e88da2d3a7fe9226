// Looks at the listings of a tree, from the root down, and at what is known of its members.

/** @typedef {import('./conversation.mjs').Conversation} Conversation */
/** @typedef {import('./conversation.mjs').Answer} Answer */
/** @typedef {{path: string, name: string, isDirectory: boolean, size: number, modifiedAt: string}} Stat as answered */

// A tree is looked at until one of these is reached.
const mostFolders = 40;
const mostCompared = 200;
const mostSamples = 8;
const longestName = 255; // bytes
const slowPerEntry = 0.1; // milliseconds: a listing of 10,000 entries takes a second
const measuredFrom = 1000; // entries; shorter listings say nothing of speed

const noRoot = 'the root "/" does not exist';
const nothingServed = 'there is nothing to mount; does "repoRoot" name the right directory?';

/**
 * @param {Conversation} talk
 * @returns {Promise<Stat[]>} some files to read
 */
export async function checkTree(talk) {
    const tree = new TreeExamination(talk);
    await tree.checkStatfs();
    await tree.checkRoot();
    for (let seen = 0; seen < mostFolders && tree.folders.length > 0 && talk.available(); seen++) {
        await tree.checkFolder(/** @type {string} */ (tree.folders.shift()));
    }
    return tree.samples;
}

/**
 * Looks at one folder in the same way.
 * @param {Conversation} talk
 * @param {string} path
 */
export async function checkFolder(talk, path) {
    await new TreeExamination(talk).checkFolder(path);
}

/** @param {string} folder @param {string} name */
export function childPath(folder, name) {
    return (folder === '/' ? '' : folder) + '/' + name;
}

class TreeExamination {
    /** @param {Conversation} talk */
    constructor(talk) {
        this.talk_ = talk;
        this.folders = ['/'];
        /** @type {Stat[]} */
        this.samples = [];
        this.compared_ = 0;
    }

    /** @param {string} check @param {string} problem @param {string} consequence @param {Answer} answer */
    error_(check, problem, consequence, answer) {
        this.talk_.findings.add(check, 'error', problem, consequence, answer);
    }

    async checkStatfs() {
        const answer = await this.talk_.ask('statfs');
        if (!answer.came || answer.ok) return;
        const consequence = 'sync and the end of a mount report an input/output error';
        this.error_('statfs', 'the result is no object', consequence, answer);
    }

    async checkRoot() {
        const answer = await this.talk_.ask('getattr', { path: '/' });
        if (answer.code === 'ENOENT') {
            this.error_('listings', noRoot, nothingServed, answer);
        } else if (answer.came && !answer.ok) {
            const consequence = 'nothing on the mount can be reached';
            this.error_('listings', 'the root "/" gives no attributes', consequence, answer);
        } else if (answer.came && !answer.result.isDirectory) {
            this.error_('listings', '"/" is no folder', 'tools that ask for the root see no folder', answer);
        }
    }

    /** @param {string} path */
    async checkFolder(path) {
        const answer = await this.talk_.ask('readdir', { path });
        if (!answer.came) return;
        if (!answer.ok) {
            await this.reportUnlisted_(path, answer);
            return;
        }
        const entries = /** @type {Stat[]} */ (answer.result);
        if (entries.length >= measuredFrom && answer.took > slowPerEntry * entries.length) {
            const problem = `${entries.length} entries took ${(answer.took / 1000).toFixed(6)} s`;
            this.talk_.findings.add('speed', 'warning', problem, 'ls waits noticeably in large folders', answer);
        }
        const seen = new Set();
        for (const entry of entries) {
            await this.checkEntry_(path, entry, answer);
            if (seen.has(entry.name)) {
                const consequence = 'one of the two cannot be reached; rm -r and copies stumble over it';
                this.error_('duplicates', `"${entry.name}" stands twice`, consequence, answer);
            }
            seen.add(entry.name);
        }
    }

    /** @param {string} path @param {Answer} answer */
    async reportUnlisted_(path, answer) {
        if (path === '/' && answer.code === 'ENOENT') {
            this.error_('listings', noRoot, nothingServed, answer);
            return;
        }
        const parent = path.slice(0, path.lastIndexOf('/')) || '/';
        if (answer.code === 'ENOENT' && !(await this.listedAgain_(parent, path))) return; // removed meanwhile
        const consequence =
            'programs cannot look into the folder; those that walk the tree (find, cp -r, rsync) report an error';
        this.error_('listings', `"${path}": a folder that was listed cannot be listed`, consequence, answer);
    }

    /** @param {string} folder @param {Stat} entry @param {Answer} answer */
    async checkEntry_(folder, entry, answer) {
        if (Buffer.byteLength(entry.name) > longestName) {
            const start = Buffer.from(entry.name).subarray(0, longestName).toString();
            const problem = `"${start}" is empty, ".", "..", too long, or has a slash or NUL`;
            this.error_('names', problem, 'the entry is left out of the listing', answer);
            return;
        }
        if (entry.isDirectory) this.folders.push(entry.path);
        else if (this.samples.length < mostSamples) this.samples.push(entry);
        if (this.compared_++ < mostCompared && this.talk_.available()) await this.compare_(folder, entry);
    }

    /**
     * Things may change while they are looked at: only a difference that stays, with a listing that does not change,
     * counts.
     * @param {string} folder
     * @param {Stat} listed
     */
    async compare_(folder, listed) {
        let current = listed;
        for (let attempt = 0; attempt < 3; attempt++) {
            const answer = await this.talk_.ask('getattr', { path: listed.path });
            const problem = answer.came ? difference(current, answer) : undefined;
            if (problem === undefined) return;
            const again = await this.listedAgain_(folder, listed.path);
            if (again === undefined) return; // removed meanwhile
            if (JSON.stringify(again) === JSON.stringify(current)) {
                const consequence = 'what ls shows changes from call to call, and reads stop at a wrong place';
                this.error_('agreement', problem, consequence, answer);
                return;
            }
            current = again;
        }
    }

    /**
     * @param {string} folder
     * @param {string} path
     * @returns {Promise<Stat | undefined>}
     */
    async listedAgain_(folder, path) {
        const answer = await this.talk_.ask('readdir', { path: folder });
        return answer.ok ? answer.result.find((/** @type {Stat} */ entry) => entry.path === path) : undefined;
    }
}

/**
 * @param {Stat} listed
 * @param {Answer} answer
 */
function difference(listed, answer) {
    if (!answer.ok) return `getattr gives no attributes for the listed "${listed.path}"`;
    const stat = /** @type {Stat} */ (answer.result);
    if (stat.isDirectory !== listed.isDirectory) return `"${listed.path}" is a folder here and a file there`;
    if (!stat.isDirectory && stat.size !== listed.size) {
        return `"${listed.path}" has ${listed.size} bytes in the listing and ${stat.size} by getattr`;
    }
    if (stat.modifiedAt !== listed.modifiedAt) return `"${listed.path}" has another time in the listing than by getattr`;
    return undefined;
}
