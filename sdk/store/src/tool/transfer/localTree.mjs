// The files of a folder of this machine.
import fs from 'node:fs';
import path from 'node:path';

/** @typedef {{size: number, mtime: number, mode: number}} Facts `mtime` in milliseconds since 1970, rounded down */
/** @typedef {{name: string, local: string, kind: 'file' | 'folder', facts: Facts} | {name: string, problem: string}} LocalMember */

const kinds = /** @type {const} */ ([
    ['isSymbolicLink', 'a symbolic link'], ['isFIFO', 'a pipe'], ['isSocket', 'a socket'], ['isBlockDevice', 'a device'],
    ['isCharacterDevice', 'a device'],
]);
const permissions = 0o777;
const million = 1_000_000n;

/** @param {fs.BigIntStats} stat @returns {Facts} */
export function factsOf({ size, mtimeNs, mode }) {
    const remainder = ((mtimeNs % million) + million) % million;
    return { size: Number(size), mtime: Number((mtimeNs - remainder) / million), mode: Number(mode) & permissions };
}

/**
 * @param {string} folder
 * @returns {Promise<LocalMember[]>} in the order of their names
 */
export async function localMembers(folder) {
    const names = await fs.promises.readdir(folder, { encoding: 'buffer' });
    const members = await Promise.all(names.map((name) => memberOf(folder, name)));
    return members.sort((a, b) => (a.name < b.name ? -1 : 1));
}

/** @param {string} folder @param {Buffer} bytes @returns {Promise<LocalMember>} */
async function memberOf(folder, bytes) {
    const name = bytes.toString();
    if (!Buffer.from(name).equals(bytes)) return { name, problem: 'its name is not UTF-8' };
    const local = path.join(folder, name);
    try {
        const stat = await fs.promises.lstat(local, { bigint: true });
        if (stat.isFile()) return { name, local, kind: 'file', facts: factsOf(stat) };
        if (stat.isDirectory()) return { name, local, kind: 'folder', facts: factsOf(stat) };
        const [, what] = kinds.find(([is]) => stat[is]()) ?? ['', 'of an unknown kind'];
        return { name, problem: `is ${what}, which a tree does not hold` };
    } catch (error) {
        return { name, problem: reasonOf(error) };
    }
}

/**
 * All that lies in a folder, for a bar that knows where it ends.
 * @param {string} folder
 * @returns {Promise<import('../progress.mjs').Amount>}
 */
export async function localAmount(folder) {
    const amount = { files: 0, bytes: 0 };
    for (const folders = [folder]; folders.length > 0; ) {
        for (const member of await localMembers(/** @type {string} */ (folders.pop())).catch(() => [])) {
            if ('problem' in member) continue;
            if (member.kind === 'folder') folders.push(member.local);
            else {
                amount.files++;
                amount.bytes += member.facts.size;
            }
        }
    }
    return amount;
}

/** @param {any} error */
export function reasonOf(error) {
    const words = /** @type {Record<string, string>} */ ({
        EACCES: 'permission denied', EPERM: 'not permitted', ENOENT: 'it has just gone', ENOSPC: 'no space is left',
        EDQUOT: 'the quota is used up', EROFS: 'the file system is read-only',
    });
    return words[error.code] ?? error.message;
}
