// Serves the folder in KEMVI_REPO_ROOT with plain calls of node:fs, wrong in the one way that kemviHome names. Whatever is
// to be made, changed or removed outside a folder of `kemvi check` is noted and not done, so that no test can harm anything.
import fs from 'node:fs';
import { posix } from 'node:path';
import { forever, note, notes, serve } from '../helpers/answering.mjs';

const root = process.env.KEMVI_REPO_ROOT;
const fault = process.env.KEMVI_HOME;
const is = (name) => fault === name;
const isScratch = (path) => path.includes('/kemvi-check-');
const handles = new Map();
let lastHandle = 0;

const fail = (code) => {
    throw Object.assign(new Error('refused'), { code });
};

/** Where a served path is on the disk. */
function place(path) {
    if (is('flat')) return root + '/' + posix.basename(path);
    return is('normalises') ? posix.join(root, posix.join('/', path)) : root + path;
}

/** The same for a path that is about to be changed; nothing for one that is no business of a check. */
function placeToChange(path) {
    const found = place(path);
    const resolved = posix.resolve(found);
    if (resolved.startsWith(root + '/') && isScratch(resolved.slice(root.length))) return found;
    note('reached for ' + resolved);
    return undefined;
}

function stat(path, shown = path) {
    const found = fs.statSync(place(path));
    const name = is('slash') && shown === '/a.txt' ? 'a/txt' : shown.slice(shown.lastIndexOf('/') + 1);
    return {
        path: shown,
        name,
        isDirectory: found.isDirectory(),
        size: found.isDirectory() ? 0 : found.size,
        modifiedAt: new Date(found.mtimeMs).toISOString(),
    };
}

/** The names that a listing has beside or instead of the right ones. */
function names(path) {
    const dots = is('dots') || is('normalises') || (is('dots inside') && isScratch(path));
    if (is('hides inside') && isScratch(path)) return [];
    if (is('root inside') && isScratch(path)) return fs.readdirSync(root);
    const found = fs.readdirSync(place(path));
    if (is('climbs inside') && isScratch(path)) found.push('../a.txt');
    return dots ? ['.', '..', ...found] : found;
}

function list(path) {
    const base = path === '/' ? '' : path;
    return names(path).map((name) => {
        const child = base + '/' + name;
        return stat(is('root inside') && isScratch(path) ? '/' + name : child, child);
    });
}

const change = (path, act) => {
    const found = placeToChange(path);
    if (found !== undefined) act(found);
    return {};
};

const operations = {
    ping: () => ({}),
    statfs: () => ({ result: { files: 1, directories: 1, bytes: 1 } }),
    getattr: ({ path }) => ({ result: stat(path) }),
    readdir: ({ path }) => ({ result: list(path) }),
    mkdir: ({ path }) => {
        if (fault !== '' && path.endsWith('/many')) fail('EDQUOT'); // the many files are tried with a right helper only
        if (is('takes and fails') && fs.readdirSync(root).some((name) => isScratch('/' + name))) fail('EIO');
        change(path, (found) => fs.mkdirSync(found));
        if (is('removes whole folders') && path.endsWith('/names')) fs.writeFileSync(place(posix.dirname(path)) + '/precious', '');
        return is('takes and fails') ? fail('EIO') : {};
    },
    open({ path, flags }) {
        let descriptor = -1;
        if (!flags.includes('write')) descriptor = fs.openSync(place(path), 'r');
        else {
            const { O_RDWR, O_CREAT, O_TRUNC } = fs.constants;
            const kinds = O_RDWR | (flags.includes('create') ? O_CREAT : 0) | (flags.includes('truncate') ? O_TRUNC : 0);
            change(path, (found) => (descriptor = fs.openSync(found, kinds)));
        }
        handles.set(++lastHandle, descriptor);
        return { result: { handle: lastHandle } };
    },
    read({ handle, offset, length }) {
        const data = Buffer.alloc(length);
        const count = fs.readSync(handles.get(handle) ?? fail('EBADF'), data, 0, length, offset);
        return { dataBase64: data.toString('base64', 0, count) };
    },
    write({ handle, offset, dataBase64 }) {
        const descriptor = handles.get(handle) ?? fail('EBADF');
        if (descriptor >= 0) fs.writeSync(descriptor, Buffer.from(dataBase64, 'base64'), 0, undefined, offset);
        return {};
    },
    flush: () => ({}),
    release({ handle }) {
        const descriptor = handles.get(handle);
        if (descriptor >= 0) fs.closeSync(descriptor);
        handles.delete(handle);
        return {};
    },
    unlink({ path }) {
        if (is('removes nothing')) return {};
        if (is('refuses to remove')) fail('EPERM');
        return change(path, (found) => {
            if (fs.statSync(found).isFile()) fs.unlinkSync(found);
            else if (is('removes whole folders')) fs.rmSync(found, { recursive: true });
            else fs.rmdirSync(found);
        });
    },
    rename: ({ oldPath, newPath }) => change(oldPath, (from) => change(newPath, (to) => fs.renameSync(from, to))),
    chmod: ({ path, mode }) => change(path, (found) => fs.chmodSync(found, mode)),
    utimes: ({ path, mtime }) => change(path, (found) => fs.utimesSync(found, new Date(mtime), new Date(mtime))),
};

/** "hangs at unlink", "hangs once at write": so in the named operation, every time or in the first run only. */
function hang(op) {
    const told = 'hangs at ' + op;
    if (is(told) || (is('hangs once at ' + op) && !notes().includes(told))) {
        note(told);
        forever();
    }
}

process.on('SIGTERM', () => {});
note('started ' + process.pid);
serve(
    Object.fromEntries(
        Object.entries(operations).map(([op, act]) => [
            op,
            (request, answer) => {
                hang(op);
                try {
                    answer(request, act(request));
                } catch (error) {
                    answer(request, { ok: false, error: { message: error.message, code: error.code } });
                }
            },
        ]),
    ),
);
