// Keeps the configuration that a mount was made from out of reach of those who use the mount: whoever can change it
// chooses the program that the next mount runs.
import fs from 'node:fs';
import { PosixError } from '../errors.mjs';

const fileName = 'mount-config.json';
const mostLinks = 40; // as many as the kernel follows
const believedMilliseconds = 1000;
const othersMayWrite = 0o022;
const asBigInts = { bigint: /** @type {true} */ (true), throwIfNoEntry: false };

/** @typedef {{ino: number, dev: number}} Identity as node's fs.Stats have it, so rounded where it is large */
/**
 * What is used of node's fs.BigIntStats.
 * @typedef {object} Exact
 * @property {bigint} ino
 * @property {bigint} dev
 * @property {() => boolean} isDirectory
 * @property {() => boolean} isFile
 * @property {() => boolean} isSymbolicLink
 */
/**
 * One name on the way to the configuration: that of the file, of a folder above it or of a link that leads to it.
 * @typedef {object} Entry
 * @property {string} folder real
 * @property {string} name
 * @property {Exact | undefined} stat of what has the name, links not followed; undefined when nothing has it
 */
/**
 * @typedef {object} Way
 * @property {Entry[]} entries those that lie in the served folder
 * @property {Exact | undefined} file the configuration itself, when it is there
 * @property {boolean} exact whether other spellings of a name are known to be other files
 * @property {number} since
 */

export class ConfigurationGuard {
    /**
     * @param {string} root the real path of the served folder
     * @param {string} [source] the folder of the configuration; the served folder when it is not told
     */
    constructor(root, source = root) {
        this.root_ = root;
        this.prefix_ = root === '/' ? '/' : root + '/';
        try {
            this.source_ = fs.realpathSync.native(source);
        } catch {
            this.source_ = source; // gone, and to be kept from coming back through the mount
        }
        this.way_ = this.walk_();
    }

    /**
     * To be called before a name is made, removed, replaced or given to something else.
     * @param {string} real its real path, of which only the last component may be a link
     * @param {string} path for the message
     * @throws {PosixError} EPERM when it is a name on the way to the configuration
     */
    checkName(real, path) {
        const { entries, exact } = this.current_();
        const slash = real.lastIndexOf('/');
        const name = real.slice(slash + 1);
        for (const entry of entries) {
            if (name === entry.name || (!exact && folded(name) === folded(entry.name))) {
                if (isSameFolder(real.slice(0, slash) || '/', entry.folder, exact)) throw isGuarded(path);
            } else if (!exact && isStill(entry.folder + '/' + entry.name, entry.stat, lookAt(real))) {
                throw isGuarded(path); // a short name, or a spelling that only the store knows to be the same
            }
        }
    }

    /**
     * To be called before a file is changed, whatever name it was reached by.
     * @param {Identity} stat of the file
     * @param {() => Exact | undefined} lookAgain for the unrounded numbers
     * @param {string} path for the message
     * @throws {PosixError} EPERM when it is the configuration
     */
    checkFile(stat, lookAgain, path) {
        const { file } = this.current_();
        if (file === undefined || Number(file.ino) !== stat.ino || Number(file.dev) !== stat.dev) return;
        this.way_ = this.walk_(); // the number of a file that is gone may have been given to a new one
        if (isSame(lookAgain(), this.way_.file)) throw isGuarded(path);
    }

    /**
     * To be called before a folder's mode is set: others who may write there replace the configuration past the mount.
     * @param {string} real
     * @param {number} before its mode
     * @param {number} after
     * @param {string} path for the message
     */
    checkFolderMode(real, before, after, path) {
        if ((after & ~before & othersMayWrite) === 0) return;
        const { entries, exact } = this.current_();
        if (!entries.some((entry) => isSameFolder(real, entry.folder, exact))) return;
        throw new PosixError('EPERM', `${path} leads to the configuration of this mount; others may not write there`);
    }

    current_() {
        const age = Date.now() - this.way_.since;
        if (age < 0 || age >= believedMilliseconds) this.way_ = this.walk_();
        return this.way_;
    }

    /** @param {string} real */
    isServed_(real) {
        return real === this.root_ || real.startsWith(this.prefix_);
    }

    /**
     * Goes from the served folder, or else from the source directory, to the configuration as the kernel would.
     * @returns {Way}
     */
    walk_() {
        /** @type {Way} */
        const way = { entries: [], file: undefined, exact: true, since: Date.now() };
        const inside = this.isServed_(this.source_);
        let folder = inside ? this.root_ : this.source_;
        const names = inside ? this.source_.slice(this.root_.length).split('/') : [];
        names.push(fileName);
        for (let links = 0; names.length > 0; ) {
            const name = /** @type {string} */ (names.shift());
            if (name === '' || name === '.') continue;
            if (name === '..') {
                folder = folder.slice(0, folder.lastIndexOf('/')) || '/';
                continue;
            }
            const real = folder === '/' ? folder + name : folder + '/' + name;
            const stat = lookAt(real);
            if (this.isServed_(folder)) {
                way.entries.push({ folder, name, stat });
                way.exact &&= stat !== undefined && isExact(folder, name);
            }
            if (stat?.isSymbolicLink() && links++ < mostLinks) {
                const target = fs.readlinkSync(real);
                if (target.startsWith('/')) folder = '/';
                names.unshift(...target.split('/'));
            } else if (stat?.isDirectory()) {
                folder = real;
            } else {
                if (stat?.isFile() && names.length === 0) way.file = stat;
                break;
            }
        }
        return way;
    }
}

/** @param {string} real */
function lookAt(real) {
    try {
        return fs.lstatSync(real, asBigInts);
    } catch {
        return undefined;
    }
}

/**
 * Whether a folder tells upper from lower case, as far as the name shows it.
 * @param {string} folder
 * @param {string} name
 */
function isExact(folder, name) {
    const other = name === name.toUpperCase() ? name.toLowerCase() : name.toUpperCase();
    return other === name || lookAt(folder + '/' + other) === undefined;
}

/**
 * One spelling for all that a store may take for the same name: case, composition, ligatures, invisible characters, dots
 * and spaces at the end.
 * @param {string} name
 */
function folded(name) {
    return foldedText(name).replace(/[. ]+$/, '');
}

/**
 * The same but for the end. The helper in C++ has a table of what becomes ASCII by it (sdk/cpp/local/foldings.mjs).
 * @param {string} text
 */
export function foldedText(text) {
    return text.normalize('NFKC').replace(/\p{Default_Ignorable_Code_Point}/gu, '').toLowerCase();
}

/**
 * @param {Exact | undefined} one
 * @param {Exact | undefined} other
 */
function isSame(one, other) {
    return one !== undefined && other !== undefined && one.ino === other.ino && one.dev === other.dev;
}

/**
 * Whether what was seen at a path is what is to be changed, and is still at that path.
 * @param {string} real
 * @param {Exact | undefined} seen
 * @param {Exact | undefined} changed
 */
function isStill(real, seen, changed) {
    return isSame(seen, changed) && isSame(lookAt(real), changed);
}

/**
 * Also where one of them is another spelling of the other, or the same folder mounted a second time.
 * @param {string} one
 * @param {string} other
 * @param {boolean} exact whether other spellings are other folders
 */
function isSameFolder(one, other, exact) {
    return one === other || (!exact && folded(one) === folded(other)) || isSame(lookAt(one), lookAt(other));
}

/** @param {string} path */
function isGuarded(path) {
    return new PosixError('EPERM', `${path} is the configuration of this mount or leads to it; change it behind the mount`);
}
