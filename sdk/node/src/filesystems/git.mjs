// Shows a git repository: branches/NAME/..., tags/NAME/..., commits/HASH/...
import { PosixError } from '../errors.mjs';
import { GitObjects } from './gitObjects.mjs';

/** @typedef {import('../fileSystem.mjs').Entry} Entry */
/** @typedef {{commit: string, time: number}} Reference */
/** @typedef {{members: Map<string, Group | Reference>}} Group of references, since their names may contain slashes */
/**
 * What a path leads to. `members` is left out for a blob, `blob` for a folder.
 * @typedef {object} Node
 * @property {number} time
 * @property {() => Promise<Entry[]>} [members]
 * @property {string} [blob]
 */

const folderMode = '40000';
const submoduleMode = '160000';
const listedCommits = 1000;
const believedMilliseconds = 1000; // how long the list of references is believed
const referenceFields = [
    'refname', 'objecttype', 'objectname', 'committerdate:unix', '*objecttype', '*objectname', '*committerdate:unix',
];

/**
 * A repository, read-only. Every file and folder of a commit has the time of the commit. A symbolic link shows as a
 * file with its target as text, a submodule as an empty folder. `commits` lists the latest thousand and leads to all.
 */
export class GitFileSystem {
    /** @param {string} root a repository, or a folder in its work tree */
    constructor(root) {
        this.objects_ = new GitObjects(root);
        this.references_ = { branches: newGroup(), tags: newGroup(), latest: 0 };
        this.believedUntil_ = 0;
        this.isId_ = new RegExp(`^[0-9a-f]{${this.objects_.idBytes * 2}}$`);
    }

    /** @param {string} path */
    async getattr(path) {
        return this.statOf_(await this.find_(path));
    }

    /** @param {string} path */
    async readdir(path) {
        const { members } = await this.find_(path);
        if (members === undefined) throw new PosixError('ENOTDIR', `${path} is not a folder`);
        return members();
    }

    /** @param {string} path @returns {Promise<Buffer>} */
    async open(path) {
        const { blob } = await this.find_(path);
        if (blob === undefined) throw new PosixError('EISDIR', `${path} is a folder`);
        return this.objects_.blob(blob);
    }

    /** @param {Buffer} contents @param {number} offset @param {number} length */
    async read(contents, offset, length) {
        return contents.subarray(offset, offset + length);
    }

    end() {
        this.objects_.end();
    }

    /** @param {string} path @returns {Promise<Node>} */
    async find_(path) {
        const references = await this.currentReferences_();
        const [area, ...names] = path === '/' ? [''] : path.slice(1).split('/');
        if (area === '') return this.topFolder_(references.latest);
        if (area === 'commits') return this.findInCommits_(names, path, references.latest);
        if (area !== 'branches' && area !== 'tags') throw missing(path);
        /** @type {Group | Reference | undefined} */
        let found = references[area];
        while ('members' in found) {
            const name = names.shift();
            if (name === undefined) return groupNode(found, references.latest);
            found = found.members.get(name);
            if (found === undefined) throw missing(path);
        }
        return this.findInCommit_(found.commit, names, path);
    }

    /** @param {number} time @returns {Node} */
    topFolder_(time) {
        const names = ['branches', 'tags', 'commits'];
        return { time, members: async () => names.map((name) => ({ name, isDirectory: true, modifiedAt: time })) };
    }

    /** @param {string[]} names @param {string} path @param {number} time @returns {Promise<Node>} */
    async findInCommits_(names, path, time) {
        if (names.length === 0) return { time, members: () => this.latestCommits_() };
        if (!this.isId_.test(names[0])) throw missing(path);
        return this.findInCommit_(names[0], names.slice(1), path);
    }

    /** @returns {Promise<Entry[]>} */
    async latestCommits_() {
        const options = ['log', '--all', `--max-count=${listedCommits}`, '--format=%H %ct'];
        const lines = (await this.objects_.run(options)).split('\n').filter((line) => line !== '');
        return lines.map((line) => {
            const [name, time] = line.split(' ');
            return { name, isDirectory: true, modifiedAt: Number(time) * 1000 };
        });
    }

    /** @param {string} id @param {string[]} names @param {string} path @returns {Promise<Node>} */
    async findInCommit_(id, names, path) {
        const commit = await this.objects_.commit(id);
        if (commit === undefined) throw missing(path);
        let entry = { mode: folderMode, name: '', id: commit.tree };
        for (const name of names) {
            if (entry.mode === submoduleMode) throw missing(path);
            if (entry.mode !== folderMode) throw new PosixError('ENOTDIR', `${path} leads through a file`);
            const member = (await this.objects_.tree(entry.id)).find((each) => each.name === name);
            if (member === undefined) throw missing(path);
            entry = member;
        }
        return this.entryNode_(entry, commit.time);
    }

    /** @param {import('./gitObjects.mjs').TreeEntry} entry @param {number} time @returns {Node} */
    entryNode_({ mode, id }, time) {
        if (mode === submoduleMode) return { time, members: async () => [] };
        if (mode !== folderMode) return { time, blob: id };
        return {
            time,
            members: async () => {
                const entries = await this.objects_.tree(id);
                const stats = await Promise.all(entries.map((entry) => this.statOf_(this.entryNode_(entry, time))));
                return entries.map(({ name }, index) => ({ name, ...stats[index] }));
            },
        };
    }

    /** @param {Node} node */
    async statOf_({ time, blob }) {
        if (blob === undefined) return { isDirectory: true, size: 0, modifiedAt: time };
        return { isDirectory: false, size: await this.objects_.blobSize(blob), modifiedAt: time };
    }

    async currentReferences_() {
        if (performance.now() < this.believedUntil_) return this.references_;
        const format = referenceFields.map((field) => `%(${field})`).join('%00');
        const text = await this.objects_.run(['for-each-ref', `--format=${format}`, 'refs/heads', 'refs/tags']);
        const references = { branches: newGroup(), tags: newGroup(), latest: 0 };
        for (const line of text.split('\n')) {
            const [name, type, id, time, taggedType, taggedId, taggedTime] = line.split('\0');
            const reference = { commit: taggedId || id, time: Number(taggedTime || time) * 1000 };
            if ((taggedType || type) !== 'commit') continue; // a tag may name anything; and the last line is empty
            const [, kind, ...names] = name.split('/');
            put(kind === 'heads' ? references.branches : references.tags, names, reference);
            references.latest = Math.max(references.latest, reference.time);
        }
        this.references_ = references;
        this.believedUntil_ = performance.now() + believedMilliseconds;
        return references;
    }
}

/** @returns {Group} */
function newGroup() {
    return { members: new Map() };
}

/** @param {Group} group @param {string[]} names @param {Reference} reference */
function put(group, names, reference) {
    for (const name of names.slice(0, -1)) {
        let inner = group.members.get(name);
        if (inner === undefined || !('members' in inner)) {
            inner = newGroup();
            group.members.set(name, inner);
        }
        group = inner;
    }
    group.members.set(names[names.length - 1], reference);
}

/** @param {Group} group @param {number} latest @returns {Node} */
function groupNode(group, latest) {
    const entries = Array.from(group.members, ([name, member]) => {
        return { name, isDirectory: true, modifiedAt: 'members' in member ? latest : member.time };
    });
    return { time: latest, members: async () => entries };
}

/** @param {string} path */
function missing(path) {
    return new PosixError('ENOENT', `no such file or folder: ${path}`);
}
