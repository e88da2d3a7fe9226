// Serves a folder of this machine.
import fs from 'node:fs';
import { isPosixError, PosixError } from '../errors.mjs';
import { ConfigurationGuard } from './configurationGuard.mjs';
import { Containment, withoutRealPath } from './containment.mjs';
import { LastLook } from './lastLook.mjs';

const { O_RDONLY, O_WRONLY, O_RDWR, O_CREAT, O_EXCL, O_NOFOLLOW, O_NONBLOCK } = fs.constants;
const { S_IFMT, S_IFDIR, S_IFREG, S_IFLNK } = fs.constants;
const noThrow = { throwIfNoEntry: false };
const replacementCharacter = '\ufffd';
const permissionBits = 0o777;
const asAnotherUser = 0o6000; // set-user-id and set-group-id: a program runs with the rights of the file's owner or group

/** @typedef {import('../fileSystem.mjs').Entry} Entry */
/** @typedef {import('../fileSystem.mjs').OpenFlags} OpenFlags */
/** @typedef {{descriptor: number, path: string}} LocalFile */
/**
 * What is used of node's fs.Stats.
 * @typedef {object} LocalStat
 * @property {number} mode
 * @property {number} ino
 * @property {number} dev
 * @property {number} size
 * @property {number} atimeMs
 * @property {number} mtimeMs
 * @property {() => boolean} isDirectory
 * @property {() => boolean} isFile
 * @property {() => boolean} isSymbolicLink
 */

/**
 * A folder of this machine as a file system. Nothing outside of the folder is reached: links that stay inside are
 * followed; one that leads out, nowhere or in a circle shows as an empty file that cannot be opened. Special files are
 * shown, not opened. Names that are not UTF-8 cannot be told in the protocol and are left out of listings.
 *
 * The configuration of the mount is shown, and never changed, moved or removed. No file gets a set-user-id or set-group-id
 * bit, and one that is opened for writing loses them.
 */
export class LocalFileSystem {
    /**
     * @param {string} root the folder to serve
     * @param {string} [source] the folder with the configuration of the mount; the served one where it is not told
     */
    constructor(root, source = process.env.KEMVI_SOURCE) {
        this.tree_ = new Containment(root);
        this.guard_ = new ConfigurationGuard(this.tree_.root, source || undefined);
        this.warned_ = false;
        this.lastLook_ = new LastLook();
    }

    /** @param {string} path */
    getattr(path) {
        const real = this.tree_.locate(path);
        const stat = this.lookAt_(real, path);
        this.lastLook_.saw(real, stat === undefined ? 0 : stat.mode);
        if (stat === undefined) throw missing(path);
        return this.shown_(stat, path);
    }

    /** @param {string} path @returns {Iterable<Entry>} */
    readdir(path) {
        const folder = this.tree_.folder(path);
        let names;
        try {
            names = fs.readdirSync(folder);
        } catch (error) {
            throw withoutRealPath(error, path);
        }
        if (names.some((name) => name.includes(replacementCharacter))) names = this.utf8Names_(folder, path);
        return this.entries_(names, folder === '/' ? folder : folder + '/', path === '/' ? path : path + '/');
    }

    /**
     * @param {string[]} names
     * @param {string} folder real, with a slash
     * @param {string} prefix in the tree, with a slash
     * @returns {Generator<Entry>}
     */
    *entries_(names, folder, prefix) {
        for (const name of names) {
            const stat = this.lookAt_(folder + name, prefix + name);
            if (stat === undefined) continue; // removed meanwhile
            const { isDirectory, size, modifiedAt } = this.shown_(stat, prefix + name);
            yield { name, isDirectory, size, modifiedAt };
        }
    }

    /**
     * @param {string} real
     * @param {string} path
     * @returns {LocalStat | undefined} undefined when nothing is there
     */
    lookAt_(real, path) {
        try {
            return fs.lstatSync(real, noThrow);
        } catch (error) {
            throw withoutRealPath(error, path);
        }
    }

    /**
     * @param {LocalStat} stat of what is at the path, links not followed
     * @param {string} path
     */
    shown_(stat, path) {
        if ((stat.mode & S_IFMT) === S_IFLNK) stat = this.throughLink_(path) ?? stat;
        const type = stat.mode & S_IFMT;
        return {
            isDirectory: type === S_IFDIR,
            size: type === S_IFREG ? stat.size : 0,
            modifiedAt: shownTime(stat.mtimeMs),
        };
    }

    /**
     * @param {string} path of a link
     * @returns {LocalStat | undefined} what it leads to; undefined when it leads out, nowhere or in a circle
     */
    throughLink_(path) {
        try {
            return fs.lstatSync(this.followLink_(path));
        } catch (error) {
            if (isPosixError(error)) return undefined;
            throw withoutRealPath(error, path);
        }
    }

    /**
     * @param {string} path of a link
     * @returns {string} the real path of what it leads to
     */
    followLink_(path) {
        const target = this.tree_.follow(path);
        // A link to a folder that the path came through would be a tree without end.
        for (let slash = path.lastIndexOf('/'); slash >= 0; slash = path.lastIndexOf('/', slash - 1)) {
            if (this.tree_.folder(path.slice(0, slash) || '/') === target) {
                throw new PosixError('ELOOP', `${path} leads back to a folder that it lies in`);
            }
            if (slash === 0) break;
        }
        return target;
    }

    /**
     * @param {string} folder
     * @param {string} path
     */
    utf8Names_(folder, path) {
        const all = fs.readdirSync(folder, { encoding: 'buffer' });
        const names = all.map((name) => name.toString());
        const faithful = names.filter((name, index) => Buffer.from(name).equals(all[index]));
        if (faithful.length < names.length && !this.warned_) {
            this.warned_ = true;
            console.error(`kemvi-helper: names that are not UTF-8 are left out of listings, first in ${path}`);
        }
        return faithful;
    }

    /** @param {string} path @param {OpenFlags} flags @returns {LocalFile} */
    open(path, flags) {
        const real = this.tree_.locate(path);
        try {
            return { descriptor: this.openAsLastSeen_(real, path, flags) ?? this.openAnew_(real, path, flags), path };
        } catch (error) {
            throw withoutRealPath(error, path);
        }
    }

    /**
     * Opens what the last look was at, without another one.
     * @param {string} real
     * @param {string} path
     * @param {OpenFlags} flags
     * @returns {number | undefined} undefined when it was not looked at, or is something else by now
     */
    openAsLastSeen_(real, path, flags) {
        if (flags.create && this.lastLook_.foundNothing(real)) return this.make_(real, path, flags);
        if (!this.lastLook_.foundPlainFile(real)) return undefined;
        try {
            return this.openChecked_(real, path, flags);
        } catch {
            return undefined;
        }
    }

    /**
     * @param {string} real
     * @param {string} path
     * @param {OpenFlags} flags
     */
    openAnew_(real, path, flags) {
        let stat = fs.lstatSync(real, noThrow);
        if (stat !== undefined && (stat.mode & S_IFMT) === S_IFLNK) {
            real = this.followLink_(path);
            stat = fs.lstatSync(real, noThrow);
        }
        if (stat !== undefined) {
            checkOpenable(stat, path);
        } else {
            if (!flags.create) throw missing(path);
            const made = this.make_(real, path, flags);
            if (made !== undefined) return made;
        }
        return this.openChecked_(real, path, flags);
    }

    /**
     * Opens a file that this very call makes: empty, a plain one, and none that was there before under another name.
     * @param {string} real
     * @param {string} path
     * @param {OpenFlags} flags
     * @returns {number | undefined} undefined when there is something by now, whatever it is
     */
    make_(real, path, flags) {
        this.lastLook_.forget();
        this.guard_.checkName(real, path);
        try {
            return fs.openSync(real, accessMode(flags) | O_CREAT | O_EXCL, 0o666);
        } catch (error) {
            if (/** @type {NodeJS.ErrnoException} */ (error).code !== 'EEXIST') throw error;
            return undefined;
        }
    }

    /**
     * Something else may have taken the file's place since it was looked at: the open never waits, follows no link,
     * and what was opened is looked at once more before it is emptied.
     * @param {string} real
     * @param {string} path
     * @param {OpenFlags} flags
     */
    openChecked_(real, path, flags) {
        if (flags.write) this.guard_.checkName(real, path);
        const create = flags.create ? O_CREAT : 0;
        const descriptor = fs.openSync(real, accessMode(flags) | create | O_NOFOLLOW | O_NONBLOCK, 0o666);
        try {
            const stat = fs.fstatSync(descriptor);
            checkOpenable(stat, path);
            if (flags.write) {
                this.guard_.checkFile(stat, () => fs.fstatSync(descriptor, { bigint: true }), path);
                if (stat.mode & asAnotherUser) dropOtherUsersRights(descriptor, stat.mode);
            }
            if (flags.truncate) fs.ftruncateSync(descriptor, 0);
            return descriptor;
        } catch (error) {
            fs.closeSync(descriptor);
            throw error;
        }
    }

    /** @param {LocalFile} file @param {number} offset @param {number} length @param {Buffer} buffer */
    read(file, offset, length, buffer) {
        return fs.readSync(file.descriptor, buffer, 0, length, offset);
    }

    /** @param {LocalFile} file @param {number} offset @param {Buffer} data */
    write(file, offset, data) {
        for (let done = 0; done < data.length; ) {
            done += fs.writeSync(file.descriptor, data, done, data.length - done, offset + done);
        }
    }

    /** @param {LocalFile} file */
    flush(file) {
        fs.fdatasyncSync(file.descriptor);
    }

    /** @param {LocalFile} file */
    release(file) {
        fs.closeSync(file.descriptor);
    }

    /** @param {string} path */
    mkdir(path) {
        this.change_(path, (real) => fs.mkdirSync(real));
    }

    /**
     * Removes a file, a link or an empty folder.
     * @param {string} path
     */
    unlink(path) {
        this.change_(path, (real) => {
            if (this.lastLook_.foundPlainFile(real) && unlinkPlainFile(real)) return;
            const stat = fs.lstatSync(real, noThrow);
            if (stat === undefined) throw missing(path);
            if (!stat.isDirectory()) return fs.unlinkSync(real);
            fs.rmdirSync(real);
            this.tree_.forget();
        });
    }

    /** @param {string} oldPath @param {string} newPath */
    rename(oldPath, newPath) {
        const newReal = this.tree_.locate(newPath);
        if (newPath === '/') throw isRoot(newPath);
        this.guard_.checkName(newReal, newPath);
        this.change_(oldPath, (real) => fs.renameSync(real, newReal));
        this.tree_.forget();
    }

    /**
     * Sets the permission bits and no others. A folder keeps the bits that decide who removes from it and what group new
     * files get.
     * @param {string} path
     * @param {number} mode
     */
    chmod(path, mode) {
        const asked = mode & permissionBits;
        this.onTarget_(path, (real, stat) => {
            if (!stat.isDirectory()) return fs.chmodSync(real, asked);
            this.guard_.checkFolderMode(real, stat.mode, asked, path);
            fs.chmodSync(real, asked | (stat.mode & ~S_IFMT & ~permissionBits));
        });
    }

    /**
     * Sets the time of the last change; that of the last access stays.
     * @param {string} path
     * @param {Date} mtime
     */
    utimes(path, mtime) {
        const modified = settableTime(mtime.getTime());
        this.onTarget_(path, (real, stat) => fs.utimesSync(real, settableTime(stat.atimeMs), modified));
    }

    /** The figures of the file system that the folder lies on. */
    statfs() {
        const { bsize, blocks, bfree, files, ffree } = fs.statfsSync(this.tree_.root);
        return { files: files - ffree, directories: 0, bytes: (blocks - bfree) * bsize };
    }

    /**
     * Changes what is at a path itself, not what a link there leads to.
     * @param {string} path
     * @param {(real: string) => void} change
     */
    change_(path, change) {
        if (path === '/') throw isRoot(path);
        const real = this.tree_.locate(path);
        this.guard_.checkName(real, path);
        try {
            change(real);
        } catch (error) {
            throw withoutRealPath(error, path);
        }
        this.lastLook_.forget();
    }

    /**
     * @param {string} path
     * @param {(real: string, stat: LocalStat) => void} change
     */
    onTarget_(path, change) {
        let real = this.tree_.locate(path);
        try {
            let stat = fs.lstatSync(real);
            if (stat.isSymbolicLink()) {
                real = this.followLink_(path);
                stat = fs.lstatSync(real);
            }
            if (!stat.isDirectory()) {
                this.guard_.checkName(real, path);
                this.guard_.checkFile(stat, () => fs.lstatSync(real, { bigint: true }), path);
            }
            change(real, stat);
        } catch (error) {
            throw withoutRealPath(error, path);
        }
    }
}

/**
 * A time is stored a fraction of a microsecond short when it went through a floating-point number of seconds.
 * @param {number} mtimeMs
 */
function shownTime(mtimeMs) {
    return Math.floor(mtimeMs + 0.0005);
}

/**
 * Seconds as node takes them: as a text, since it takes a negative number for the current time. A quarter of a
 * microsecond keeps them from being cut to the millisecond before.
 * @param {number} milliseconds
 */
function settableTime(milliseconds) {
    return String((milliseconds + 0.00025) / 1000);
}

/**
 * What another user's program becomes must not run with that user's rights. Where the file is not ours to change, the
 * system does this itself when it is written to.
 * @param {number} descriptor
 * @param {number} mode
 */
function dropOtherUsersRights(descriptor, mode) {
    try {
        fs.fchmodSync(descriptor, mode & ~S_IFMT & ~asAnotherUser);
    } catch (error) {
        if (/** @type {NodeJS.ErrnoException} */ (error).code !== 'EPERM') throw error;
    }
}

/**
 * @param {string} real
 * @returns {boolean} false when it was none, or cannot be removed
 */
function unlinkPlainFile(real) {
    try {
        fs.unlinkSync(real);
        return true;
    } catch {
        return false;
    }
}

/** @param {OpenFlags} flags */
function accessMode(flags) {
    if (!flags.write) return O_RDONLY;
    return flags.read ? O_RDWR : O_WRONLY;
}

/** @param {LocalStat} stat @param {string} path */
function checkOpenable(stat, path) {
    const type = stat.mode & S_IFMT;
    if (type === S_IFREG) return;
    if (type === S_IFDIR) throw new PosixError('EISDIR', `${path} is a folder`);
    throw new PosixError('EACCES', `${path} is a special file and is not opened`);
}

/** @param {string} path */
function missing(path) {
    return new PosixError('ENOENT', `no such file or folder: ${path}`);
}

/** @param {string} path */
function isRoot(path) {
    return new PosixError('EPERM', `${path} is the root of the served folder`);
}
