// Objects of a repository, from long-lived `git cat-file` processes.
import { execFile, execFileSync, spawn } from 'node:child_process';
import { PosixError } from '../errors.mjs';
import { RecentlyUsed } from './recentlyUsed.mjs';

/** @typedef {{type: string, size: number, data: Buffer}} GitObject `data` is empty when only the size was asked */
/** @typedef {{resolve: (object: GitObject | undefined) => void, reject: (error: Error) => void}} Waiter */
/** @typedef {{ask: (id: string) => Promise<GitObject | undefined>, end: () => void}} ObjectSource */
/** @typedef {{mode: string, name: string, id: string}} TreeEntry */
/** @typedef {{tree: string, time: number}} Commit time in milliseconds */

const largestObject = 1 << 30;
const lineFeed = 10;

/**
 * The environment without what would point git at another repository.
 * @returns {NodeJS.ProcessEnv}
 */
function environment() {
    const { GIT_DIR, GIT_WORK_TREE, GIT_INDEX_FILE, GIT_OBJECT_DIRECTORY, ...rest } = process.env;
    return { ...rest, LC_ALL: 'C' };
}

/** One `git cat-file` that answers in the order it is asked. It is started when it is first needed. */
class CatFile {
    /** @param {string} root @param {'--batch' | '--batch-check'} mode */
    constructor(root, mode) {
        this.root_ = root;
        this.mode_ = mode;
        /** @type {import('node:child_process').ChildProcess | undefined} */
        this.child_ = undefined;
        /** @type {Waiter[]} */
        this.waiting_ = [];
        this.header_ = Buffer.alloc(0);
        /** @type {{object: GitObject, filled: number} | undefined} the object whose contents are arriving */
        this.arriving_ = undefined;
    }

    /** @param {string} id @returns {Promise<GitObject | undefined>} undefined when there is none */
    ask(id) {
        this.child_ ??= this.start_();
        return new Promise((resolve, reject) => {
            this.waiting_.push({ resolve, reject });
            this.child_?.stdin?.write(id + '\n');
        });
    }

    end() {
        this.child_?.stdin?.end();
    }

    start_() {
        const child = spawn('git', ['-C', this.root_, 'cat-file', this.mode_], {
            env: environment(),
            stdio: ['pipe', 'pipe', 'inherit'],
        });
        const failed = (/** @type {string} */ text) => this.fail_(child, new PosixError('EIO', `git cat-file ${text}`));
        child.on('error', (error) => failed(`cannot be used: ${error.message}`));
        child.stdin.on('error', () => {}); // its end is told by "close"
        child.on('close', (status) => failed(`ended with status ${status}`));
        child.stdout.on('data', (chunk) => this.take_(chunk));
        return child;
    }

    /** @param {import('node:child_process').ChildProcess} child @param {Error} error */
    fail_(child, error) {
        if (this.child_ !== child) return;
        this.child_ = undefined; // the next question starts another
        this.header_ = Buffer.alloc(0);
        this.arriving_ = undefined;
        for (const { reject } of this.waiting_.splice(0)) reject(error);
    }

    /** @param {Buffer} chunk */
    take_(chunk) {
        while (chunk.length > 0) {
            chunk = this.arriving_ === undefined ? this.takeHeader_(chunk) : this.takeContents_(this.arriving_, chunk);
        }
    }

    /** @param {Buffer} chunk @returns {Buffer} the rest */
    takeHeader_(chunk) {
        const end = chunk.indexOf(lineFeed);
        this.header_ = Buffer.concat([this.header_, end < 0 ? chunk : chunk.subarray(0, end)]);
        if (end < 0) return chunk.subarray(chunk.length);
        const [, type, size] = this.header_.toString().split(' ');
        this.header_ = Buffer.alloc(0);
        if (size === undefined) {
            this.waiting_.shift()?.resolve(undefined); // "missing", "ambiguous"
        } else {
            const object = { type, size: Number(size), data: Buffer.alloc(0) };
            if (this.mode_ === '--batch-check') this.waiting_.shift()?.resolve(object);
            else this.arriving_ = { object, filled: 0 };
            if (this.arriving_) object.data = Buffer.allocUnsafe(Math.min(object.size, largestObject));
        }
        return chunk.subarray(end + 1);
    }

    /** @param {{object: GitObject, filled: number}} arriving @param {Buffer} chunk @returns {Buffer} the rest */
    takeContents_(arriving, chunk) {
        const { object } = arriving;
        const count = Math.min(chunk.length, object.size - arriving.filled);
        if (object.size <= largestObject) chunk.copy(object.data, arriving.filled, 0, count);
        arriving.filled += count;
        if (count === chunk.length) return chunk.subarray(count);
        this.arriving_ = undefined; // the line feed after the contents has come too
        const waiter = this.waiting_.shift();
        if (object.size <= largestObject) waiter?.resolve(object);
        else waiter?.reject(new PosixError('EFBIG', `objects of more than ${largestObject} bytes are not served`));
        return chunk.subarray(count + 1);
    }
}

/** Reads the objects of one repository. What was read is kept, since an object never changes. */
export class GitObjects {
    /**
     * @param {string} root a repository, or a folder in its work tree
     * @throws {Error} with what git says when it is none
     */
    constructor(root) {
        this.root_ = root;
        const hashName = this.runSync_(['rev-parse', '--show-object-format']).trim();
        this.idBytes = hashName === 'sha256' ? 32 : 20;
        /** @type {ObjectSource} */
        this.contents_ = new CatFile(root, '--batch');
        /** @type {ObjectSource} */
        this.sizes_ = new CatFile(root, '--batch-check');
        /** @type {RecentlyUsed<Commit | undefined>} */
        this.commitCache_ = new RecentlyUsed(10_000);
        /** @type {RecentlyUsed<TreeEntry[]>} */
        this.treeCache_ = new RecentlyUsed(2000);
        /** @type {RecentlyUsed<number>} */
        this.sizeCache_ = new RecentlyUsed(200_000);
        /** @type {RecentlyUsed<Buffer>} */
        this.blobCache_ = new RecentlyUsed(64 << 20, (data) => data.length + 100);
    }

    /** @param {string} id @returns {Promise<Commit | undefined>} undefined when there is no such commit */
    async commit(id) {
        return this.commitCache_.get(id, async () => {
            const object = await this.sizes_.ask(id); // first the type: an id of a blob may be asked for
            if (object?.type !== 'commit') return undefined;
            const text = (await this.contents_.ask(id))?.data.toString() ?? '';
            const tree = /^tree ([0-9a-f]+)$/m.exec(text)?.[1];
            const time = /^committer .* (\d+) [+-]\d+$/m.exec(text)?.[1];
            return tree === undefined ? undefined : { tree, time: Number(time ?? 0) * 1000 };
        });
    }

    /** @param {string} id @returns {Promise<TreeEntry[]>} */
    async tree(id) {
        return this.treeCache_.get(id, async () => parseTree((await this.contents_.ask(id))?.data, this.idBytes));
    }

    /** @param {string} id @returns {Promise<number>} bytes of a blob */
    async blobSize(id) {
        return this.sizeCache_.get(id, async () => (await this.sizes_.ask(id))?.size ?? 0);
    }

    /** @param {string} id @returns {Promise<Buffer>} */
    async blob(id) {
        return this.blobCache_.get(id, async () => {
            const object = await this.contents_.ask(id);
            if (object === undefined) throw new PosixError('EIO', `the repository lacks the object ${id}`);
            return object.data;
        });
    }

    /** @param {string[]} options @returns {Promise<string>} what git prints */
    run(options) {
        return new Promise((resolve, reject) => {
            const settings = { env: environment(), maxBuffer: 1 << 30 };
            execFile('git', ['-C', this.root_, ...options], settings, (error, output, complaint) => {
                if (error) reject(new PosixError('EIO', `git ${options[0]}: ${complaint.trim() || error.message}`));
                else resolve(output);
            });
        });
    }

    end() {
        this.contents_.end();
        this.sizes_.end();
    }

    /** @param {string[]} options */
    runSync_(options) {
        try {
            const settings = { env: environment(), encoding: /** @type {'utf8'} */ ('utf8'), stdio: 'pipe' };
            return execFileSync('git', ['-C', this.root_, ...options], /** @type {any} */ (settings));
        } catch (error) {
            const { stderr, message } = /** @type {any} */ (error);
            throw new Error(String(stderr ?? '').trim().split('\n')[0] || message);
        }
    }
}

/**
 * @param {Buffer | undefined} data entries of "MODE NAME\0" and the bytes of an id
 * @param {number} idBytes
 * @returns {TreeEntry[]}
 */
function parseTree(data, idBytes) {
    /** @type {TreeEntry[]} */
    const entries = [];
    for (let at = 0; data !== undefined && at < data.length; ) {
        const space = data.indexOf(32, at);
        const end = data.indexOf(0, space);
        const name = data.toString('utf8', space + 1, end);
        if (Buffer.byteLength(name) === end - space - 1 || !name.includes('\ufffd')) {
            const id = data.toString('hex', end + 1, end + 1 + idBytes);
            entries.push({ mode: data.toString('latin1', at, space), name, id });
        }
        at = end + 1 + idBytes;
    }
    return entries;
}
