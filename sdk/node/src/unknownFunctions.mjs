// Functions of a file system that are never called, and seem to be meant for one that is.

/**
 * @typedef {{right: string, text?: string}} Meant `text`: what to know; then it is told even where there is the right one
 */

/**
 * What others call it, or what is done otherwise here.
 * @type {Map<string, Meant>}
 */
const others = new Map(Object.entries({
    rmdir: { right: 'unlink', text: 'unlink removes files and empty folders' },
    rm: { right: 'unlink' },
    remove: { right: 'unlink' },
    truncate: { right: 'open', text: 'open with flags.truncate empties a file, and write writes what is to stay' },
    ftruncate: { right: 'open', text: 'open with flags.truncate empties a file, and write writes what is to stay' },
    create: { right: 'open' },
    stat: { right: 'getattr' },
    lstat: { right: 'getattr' },
    getattributes: { right: 'getattr' },
    fgetattr: { right: 'getattr' },
    list: { right: 'readdir' },
    opendir: { right: 'readdir', text: 'readdir gives all members of a folder at once' },
    fsync: { right: 'flush' },
    close: { right: 'release' },
    setattr: { right: 'chmod', text: 'chmod sets the mode, utimes the time, open with flags.truncate empties' },
    utimens: { right: 'utimes' },
    utime: { right: 'utimes' },
    destroy: { right: 'end' },
    chown: { right: 'chmod', text: 'owners are not kept; the mount shows the user who mounted' },
    symlink: { right: 'mkdir', text: 'there are no links; the mount refuses them by itself' },
    readlink: { right: 'read', text: 'there are no links; the mount refuses them by itself' },
    mknod: { right: 'open', text: 'a file is made by open with flags.create' },
}));

/**
 * @param {any} fileSystem
 * @param {string[]} known the functions that are called
 * @returns {string[]} a line for each function of the file system that looks like a mistake
 */
export function unknownFunctions(fileSystem, known) {
    const lines = [];
    for (const name of functionNames(fileSystem)) {
        const meant = known.includes(name) ? undefined : meantBy(name, known);
        if (meant === undefined || (meant.text === undefined && fileSystem[meant.right] !== undefined)) continue;
        const instead = meant.text ?? `did you mean ${meant.right}?`;
        lines.push(`the file system's function ${name} is never called: ${instead}`);
    }
    return lines;
}

/** @param {any} fileSystem */
function functionNames(fileSystem) {
    /** @type {Set<string>} */
    const names = new Set();
    for (let object = fileSystem; object && object !== Object.prototype; object = Object.getPrototypeOf(object)) {
        for (const [name, { value }] of Object.entries(Object.getOwnPropertyDescriptors(object))) {
            if (typeof value === 'function' && name !== 'constructor') names.add(name);
        }
    }
    return names;
}

/**
 * @param {string} name
 * @param {string[]} known
 * @returns {Meant | undefined}
 */
function meantBy(name, known) {
    const lower = name.toLowerCase().replaceAll('_', '');
    if (name.startsWith('_') || name.endsWith('_')) return undefined; // the author's own business
    if (known.includes(lower)) return { right: lower };
    if (others.has(lower)) return others.get(lower);
    const near = known.find((each) => each.length > 3 && isOneSlipFrom(lower, each));
    return near === undefined ? undefined : { right: near };
}

/**
 * Whether one letter is too many, missing, another one, or changed places with the next.
 * @param {string} word
 * @param {string} right
 */
function isOneSlipFrom(word, right) {
    if (Math.abs(word.length - right.length) > 1) return false;
    let start = 0;
    while (start < right.length && word[start] === right[start]) start++;
    const [rest, wanted] = [word.slice(start), right.slice(start)];
    const swapped = wanted.length > 1 && wanted[1] + wanted[0] + wanted.slice(2) === rest;
    return swapped || rest.slice(1) === wanted || rest === wanted.slice(1) || rest.slice(1) === wanted.slice(1);
}
