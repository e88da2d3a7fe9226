// A file system in memory that is right in everything but one thing, named in kemviHome of the configuration.
import { readSync, writeSync } from 'node:fs';

const fault = process.env.KEMVI_HOME;
const is = (name) => fault === name;
const when = '2024-05-01T12:34:56.789Z';
const files = new Map([['/a.txt', { data: Buffer.from('hello, world'), at: when }], ['/folder', { folder: true, at: when }]]);
const handles = new Map();
let lastHandle = 0;

const fail = (code, message = 'no success: ' + code) => {
    throw { code, message: is('no message') ? '' : message };
};
const parent = (path) => path.slice(0, path.lastIndexOf('/')) || '/';
const base = (path) => path.slice(path.lastIndexOf('/') + 1);

function stat(path, listed) {
    const file = path === '/' ? { folder: true, at: when } : files.get(path) ?? fail(is('wrong code') ? 'EIO' : 'ENOENT');
    const all = { path, name: base(path), isDirectory: !!file.folder, size: file.folder ? 0 : file.data.length, modifiedAt: file.at };
    if (is('no fraction')) all.modifiedAt = '2024-05-01T12:34:56Z';
    if (is('number as time')) all.modifiedAt = 1714566896;
    if (is('no time')) delete all.modifiedAt;
    if (is('text as size')) all.size = String(all.size);
    if (is('fractional size')) all.size += 0.5;
    if (is('negative size')) all.size = -2;
    if (is('unknown size') && !file.folder) all.size = -1;
    if (is('huge size')) all.size = 1e30;
    if (is('wrong size') && !file.folder) all.size += 1;
    if (is('number as boolean')) all.isDirectory = Number(all.isDirectory);
    if (is('number as name')) all.name = 7;
    if (is('relative path') && listed) all.path = all.path.slice(1);
    if (is('other size in listing') && listed && !file.folder) all.size += 1;
    return all;
}

const remove = (path) => files.delete(path);
const list = (path) => [...files.keys()].filter((name) => parent(name) === path);

const operations = {
    ping: () => (is('ping fails') ? fail('EACCES') : {}),
    statfs: () => ({ result: is('statfs text') ? 'fine' : { files: 1, directories: 1, bytes: 1 } }),
    readdir({ path }) {
        const names = list(path);
        const entries = names.map((name) => stat(name, true));
        if (is('dot') && path === '/') entries.push({ ...stat('/', true), path: '/.', name: '.' });
        if (is('twice') && path === '/') entries.push(entries[0]);
        if (is('object as listing')) return { result: {} };
        return { result: entries };
    },
    getattr: ({ path }) => ({ result: stat(path) }),
    open({ path, flags }) {
        const write = flags.includes('write');
        if (!files.has(path)) {
            if (!flags.includes('create')) fail('ENOENT');
            files.set(path, { data: Buffer.alloc(0), at: when });
        }
        const file = files.get(path);
        if (flags.includes('truncate') || (is('create empties') && write)) file.data = Buffer.alloc(0);
        if (is('truncate keeps') && flags.includes('truncate')) file.data = file.old ?? file.data;
        const handle = is('one handle') ? 1 : ++lastHandle;
        handles.set(handle, file);
        return { result: { handle: is('text as handle') ? String(handle) : handle } };
    },
    read({ handle, offset, length }) {
        const file = handles.get(handle) ?? fail('EBADF');
        let data = file.data.subarray(offset, is('more than asked') ? undefined : offset + length);
        if (is('endless') && data.length === 0) data = Buffer.from('x');
        if (is('wrong offset') && offset === 1) data = file.data.subarray(0, length);
        const text = data.toString('base64');
        return is('data in result') ? { result: text } : { dataBase64: is('line breaks') ? text + '\n' : text };
    },
    write({ handle, offset, dataBase64 }) {
        const file = handles.get(handle);
        const data = Buffer.from(dataBase64, 'base64');
        const all = Buffer.alloc(Math.max(file.data.length, offset + data.length));
        file.data.copy(all);
        data.copy(all, is('append only') ? file.data.length : offset);
        file.data = all;
        file.old = all;
        return {};
    },
    flush: () => (is('flush fails') ? fail('EIO') : {}),
    release: ({ handle }) => (is('use after release') || handles.delete(handle), {}),
    mkdir({ path }) {
        if (is('mkdir fails')) fail('EROFS');
        if (files.has(path) && !is('mkdir twice')) fail('EEXIST');
        files.set(path, { folder: true, at: when });
        return {};
    },
    unlink({ path }) {
        if (is('nothing removed')) return {};
        const inside = [...files.keys()].filter((name) => name.startsWith(path + '/'));
        if (inside.length > 0 && !is('recursive unlink')) fail('ENOTEMPTY');
        inside.forEach(remove);
        remove(path);
        return {};
    },
    rename({ oldPath, newPath }) {
        files.set(newPath, files.get(oldPath));
        if (!is('rename copies')) remove(oldPath);
        return {};
    },
    chmod: () => (is('chmod fails') ? fail('EPERM') : {}),
    utimes({ path, mtime }) {
        files.get(path).at = is('whole seconds') ? mtime.replace(/\.\d+/, '.000') : mtime;
        return {};
    },
};

function answerTo(request) {
    if (is('hangs') && request.op === 'statfs') for (;;) Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0);
    if (is('dies') && request.op === 'statfs') process.exit(1);
    try {
        if (!Object.hasOwn(operations, request.op)) {
            if (is('unknown is fine')) return { ok: true };
            fail('ENOSYS');
        }
        return { ok: true, ...operations[request.op](request) };
    } catch (error) {
        return is('no error record') ? { ok: false } : { ok: false, error: { message: error.message, code: error.code } };
    }
}

function writeAll(text) {
    const bytes = Buffer.from(text);
    for (let done = 0; done < bytes.length; ) done += writeSync(1, bytes, done);
}

if (is('floods')) for (;;) writeAll('x'.repeat(65536));
let pending = [];
const chunk = Buffer.alloc(1 << 20);
if (is('greets')) writeAll('Welcome!\n');
for (let count; (count = readSync(0, chunk, 0, chunk.length, null)) > 0; ) {
    pending.push(Buffer.from(chunk.subarray(0, count)));
    if (chunk[count - 1] !== 10) continue;
    const line = Buffer.concat(pending).toString();
    pending = [];
    if (is('refuses long lines') && line.length > 1e6) process.exit(1);
    const request = JSON.parse(line);
    let id = request.id;
    if (is('number as id')) id = Number(id);
    if (is('own id')) id = 'x' + id;
    if (is('talks')) writeAll('debug: ' + request.op + '\n');
    if (is('depends on order') && !line.startsWith('{"id"')) writeAll(JSON.stringify({ id, ok: false, error: { message: 'what?' } }) + '\n');
    else writeAll(JSON.stringify({ id, ...answerTo(request) }) + '\n');
    if (is('answers twice')) writeAll(JSON.stringify({ id, ok: true }) + '\n');
}
if (is('stays')) for (;;) Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0);
