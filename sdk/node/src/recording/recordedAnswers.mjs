// Which of the answers in a recording is the one to a request. A mount that is repeated asks nearly the same again, in
// nearly the same order: what it looks at can come more often, less often or not at all, since that depends on what the
// kernel still remembers. What it changes comes in the recorded order. So the changes are the clock: between two of them
// all looks at one thing are answered from what was recorded between the same two.

/**
 * @typedef {object} Recorded one exchange
 * @property {number} from where its line lies
 * @property {number} to
 * @property {number} time how many changes were recorded before it
 */

/**
 * @typedef {object} Series all that was asked in the same words, in order
 * @property {Recorded[]} all
 * @property {number} next the first that has not answered anything yet
 */

const changing = new Set(['chmod', 'mkdir', 'rename', 'unlink', 'utimes', 'write']);
const ownNames = /\.kemvi-hidden-[0-9A-F]{8}-/g; // differ from mount to mount

/** @param {string} text */
export function withoutOwnNames(text) {
    return text.replace(ownNames, '.kemvi-hidden--');
}

/**
 * Puts the names that this mount gives to hidden files in the place of those of the recorded one.
 * @param {string} text
 * @param {string | undefined} name how they begin now
 */
export function withOwnNames(text, name) {
    return name === undefined ? text : text.replace(ownNames, name);
}

/** @param {string} text @returns {string | undefined} how the names of hidden files begin in it */
export function ownName(text) {
    return text.match(ownNames)?.[0];
}

/** @param {any} request */
export function isChange(request) {
    return request.op === 'open' ? Boolean(request.flags?.includes?.('write')) : changing.has(request.op);
}

/**
 * What a request asks for, whatever number a handle has.
 * @param {any} request
 * @param {string} file the path of its handle, if it has one
 */
export function keyOf(request, file) {
    const { op, path = '', oldPath = '', newPath = '', flags = '', offset = '', length = '', mode = '' } = request;
    const size = op === 'write' ? payloadLength(request) : length;
    return withoutOwnNames([op, path, oldPath, newPath, file, flags, offset, size, mode].join('\0'));
}

/** @param {any} request */
function payloadLength({ dataBase64, dataLength }) {
    if (typeof dataBase64 !== 'string') return dataLength ?? 0;
    return (dataBase64.length / 4) * 3 - (dataBase64.endsWith('==') ? 2 : dataBase64.endsWith('=') ? 1 : 0);
}

/** @param {any} request @param {string} file */
function pathsOf(request, file) {
    const paths = [request.path, request.oldPath, request.newPath, file];
    return paths.filter((path) => typeof path === 'string' && path !== '').map(withoutOwnNames);
}

export class RecordedAnswers {
    constructor() {
        /** @type {Map<string, Series>} by what was asked */
        this.byKey_ = new Map();
        this.changes_ = 0; // how many there are
        /** @type {Map<string, number[]>} when a path was changed */
        this.changesAt_ = new Map();
        /** @type {Map<string, number[]>} when something was made at a path */
        this.madeAt_ = new Map();
        /** @type {Map<string, number[]>} when a member of a folder was changed */
        this.changesIn_ = new Map();
        this.time_ = 0; // the recorded time at which the requests have arrived
    }

    /**
     * Takes in the next exchange of the recording.
     * @param {any} request
     * @param {string} file the path of its handle
     * @param {number} from where its line lies
     * @param {number} to
     */
    add(request, file, from, to) {
        const recorded = { from, to, time: this.changes_ };
        listAt(this.byKey_, keyOf(request, file), () => /** @type {Series} */ ({ all: [], next: 0 })).all.push(recorded);
        if (!isChange(request)) return;
        for (const path of pathsOf(request, file)) {
            listAt(this.changesAt_, path, () => /** @type {number[]} */ ([])).push(this.changes_);
            listAt(this.changesIn_, folderOf(path), () => /** @type {number[]} */ ([])).push(this.changes_);
        }
        if (makes(request)) {
            const made = withoutOwnNames(request.newPath ?? request.path);
            listAt(this.madeAt_, made, () => /** @type {number[]} */ ([])).push(this.changes_);
        }
        this.changes_++;
    }

    /**
     * Whether an exchange tells of a path that, by now, was still to be made: its answer was recorded later.
     * @param {string} path
     * @param {Recorded} recorded
     */
    isToCome(path, recorded) {
        return isAmong(this.madeAt_.get(withoutOwnNames(path)), this.time_, recorded.time);
    }

    /**
     * @param {any} request
     * @param {string} file the path of its handle
     * @returns {Recorded | undefined} the exchange that answers it
     */
    find(request, file) {
        const series = this.byKey_.get(keyOf(request, file));
        if (!series) return undefined;
        if (!isChange(request)) return this.nearestOf_(series, pathsOf(request, file));
        const found = this.nextOf_(series);
        this.time_ = Math.max(this.time_, found.time + 1);
        return found;
    }

    /**
     * The first that is not over. Once all have answered, the last: what is repeated then is the program's.
     * @param {Series} series
     */
    nextOf_(series) {
        const { all } = series;
        const index = Math.max(series.next, firstFrom(all.length, (i) => all[i].time, this.time_));
        if (index < all.length) series.next = index + 1;
        return all[Math.min(index, all.length - 1)];
    }

    /**
     * @param {Series} series
     * @param {string[]} paths what is looked at
     */
    nearestOf_(series, paths) {
        const { all } = series;
        const begin = firstFrom(all.length, (i) => all[i].time, this.time_);
        const end = firstFrom(all.length, (i) => all[i].time, this.time_ + 1);
        if (begin < end) {
            const index = Math.min(Math.max(begin, series.next), end - 1);
            series.next = index + 1;
            return all[index];
        }
        if (begin === 0 || end === all.length) return all[begin === 0 ? end : begin - 1];
        const [before, after] = [all[begin - 1], all[end]];
        const changedSince = paths.some((path) => this.changed_(path, before.time, this.time_));
        const changesUntil = paths.some((path) => this.changed_(path, this.time_, after.time));
        return changedSince && !changesUntil ? after : before;
    }

    /**
     * Whether a change between the two times can show at a path: one of itself, of a folder above it, or of a member.
     * @param {string} path
     * @param {number} from
     * @param {number} to
     */
    changed_(path, from, to) {
        if (isAmong(this.changesIn_.get(path), from, to)) return true;
        for (let at = path; ; at = folderOf(at)) {
            if (isAmong(this.changesAt_.get(at), from, to)) return true;
            if (at === '/') return false;
        }
    }
}

/** @param {any} request */
function makes({ op, flags }) {
    return op === 'mkdir' || op === 'rename' || (op === 'open' && Boolean(flags?.includes?.('create')));
}

/**
 * @param {number[] | undefined} times in order
 * @param {number} from
 * @param {number} to
 */
function isAmong(times, from, to) {
    if (times === undefined) return false;
    const index = firstFrom(times.length, (i) => times[i], from);
    return index < times.length && times[index] < to;
}

/** @param {string} path */
function folderOf(path) {
    return path.slice(0, Math.max(0, path.lastIndexOf('/'))) || '/';
}

/**
 * @template T
 * @param {Map<string, T>} map
 * @param {string} key
 * @param {() => T} make
 */
function listAt(map, key, make) {
    let found = map.get(key);
    if (found === undefined) map.set(key, (found = make()));
    return found;
}

/**
 * The first of `count` numbers in order that is not below `least`; `count` if none is.
 * @param {number} count
 * @param {(index: number) => number} number
 * @param {number} least
 */
function firstFrom(count, number, least) {
    let low = 0;
    for (let high = count; low < high; ) {
        const middle = (low + high) >> 1;
        if (number(middle) < least) low = middle + 1;
        else high = middle;
    }
    return low;
}
