// How often the local file system calls the operating system for a request, and that it is as careful as if it called
// more often. Each function of node:fs that is counted makes one system call, `realpath` one or more.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { LocalFileSystem } from '../src/filesystems/local.mjs';
import { temporaryFolder } from './driver.mjs';

const reading = { read: true, write: false, create: false, truncate: false };
const writing = { read: false, write: true, create: false, truncate: false };
const making = { read: false, write: true, create: true, truncate: true };

/**
 * A served folder, its configuration elsewhere, and a clock that stands still: what is believed stays so.
 * @param {import('node:test').TestContext} t
 */
function served(t) {
    const folder = temporaryFolder(t);
    const root = path.join(folder, 'root');
    fs.mkdirSync(path.join(root, 'd'), { recursive: true });
    const { now } = Date;
    const clock = { time: now() };
    Date.now = () => clock.time;
    t.after(() => (Date.now = now));
    const local = new LocalFileSystem(root, folder);
    local.readdir('/d'); // where the folder lies is known from here on
    return { root, real: (/** @type {string} */ name) => path.join(root, 'd', name), local, clock };
}

/**
 * @param {() => unknown} request
 * @returns {string[]} the functions of node:fs that were called, in order
 */
function calls(request) {
    /** @type {any} */
    const functions = fs;
    /** @type {string[]} */
    const made = [];
    const kept = Object.entries(functions).filter(([name, value]) => name.endsWith('Sync') && typeof value === 'function');
    for (const [name, original] of kept) {
        functions[name] = (/** @type {any[]} */ ...given) => {
            made.push(name.slice(0, -4));
            return original(...given);
        };
        functions[name].native = (/** @type {any[]} */ ...given) => {
            made.push('realpath');
            return original.native(...given);
        };
    }
    try {
        request();
    } catch (error) {
        made.push(/** @type {any} */ (error).code);
    } finally {
        for (const [name, original] of kept) functions[name] = original;
    }
    return made;
}

/** @param {() => unknown} request */
function codeOf(request) {
    try {
        request();
    } catch (error) {
        return /** @type {any} */ (error).code;
    }
    return 'no error';
}

test('a request makes no more system calls than it needs', (t) => {
    const { local } = served(t);
    /** @type {any} */
    let file;
    const open = (/** @type {any} */ flags) => () => (file = local.open('/d/f', flags));
    assert.deepEqual(calls(() => local.getattr('/d/f')), ['lstat', 'ENOENT']);
    assert.deepEqual(calls(open(making)), ['open']);
    assert.deepEqual(calls(() => local.release(file)), ['close']);
    assert.deepEqual(calls(() => local.getattr('/d/f')), ['lstat']);
    assert.deepEqual(calls(open(writing)), ['open', 'fstat']);
    assert.deepEqual(calls(() => local.write(file, 0, Buffer.from('text'))), ['write']);
    local.release(file);
    assert.deepEqual(calls(open(reading)), ['open', 'fstat']);
    assert.deepEqual(calls(() => local.read(file, 0, 4, Buffer.alloc(4))), ['read']);
    local.release(file);
    assert.deepEqual(calls(open(making)), ['open', 'fstat', 'ftruncate']);
    local.release(file);
    assert.deepEqual(calls(() => local.chmod('/d/f', 0o600)), ['lstat', 'chmod']);
    assert.deepEqual(calls(() => local.utimes('/d/f', new Date())), ['lstat', 'utimes']);
    assert.deepEqual(calls(() => local.unlink('/d/f')), ['unlink']);
    assert.deepEqual(calls(() => local.mkdir('/d/e')), ['mkdir']);
    assert.deepEqual(calls(() => local.getattr('/d/e')), ['lstat']);
    assert.deepEqual(calls(() => local.unlink('/d/e')), ['lstat', 'rmdir']);
});

test('what was not looked at just before is looked at first', (t) => {
    const { real, local, clock } = served(t);
    fs.writeFileSync(real('f'), 'text');
    const open = () => local.release(local.open('/d/f', reading));
    const looking = ['lstat', 'open', 'fstat', 'close'];
    assert.deepEqual(calls(open), looking);
    local.getattr('/d/f');
    local.getattr('/d'); // another look takes the place of the last one
    assert.deepEqual(calls(open), looking);
    local.getattr('/d/f');
    clock.time += 99;
    assert.deepEqual(calls(open), looking.slice(1));
    clock.time += 1; // and where the folder lies is asked anew
    assert.deepEqual(calls(open), ['realpath', ...looking]);
    local.getattr('/d/f');
    clock.time -= 1;
    assert.deepEqual(calls(open), ['realpath', ...looking]);
    local.getattr('/d/f');
    local.mkdir('/d/e'); // names have changed
    assert.deepEqual(calls(open), looking);
});

test('something else in the place of a file that was looked at is not opened as one', (t) => {
    const { root, real, local } = served(t);
    fs.writeFileSync(path.join(root, '../secret'), 'secret');
    fs.writeFileSync(real('kept'), 'kept');
    const others = /** @type {[string, () => void][]} */ ([
        ['EACCES', () => execFileSync('mkfifo', [real('f')])],
        ['EACCES', () => fs.symlinkSync('../../secret', real('f'))],
        ['EISDIR', () => fs.mkdirSync(real('f'))],
        ['ENOENT', () => {}],
    ]);
    for (const flags of [reading, writing]) {
        for (const [expected, replace] of others) {
            fs.writeFileSync(real('f'), 'text');
            local.getattr('/d/f');
            fs.unlinkSync(real('f'));
            replace();
            assert.equal(codeOf(() => local.open('/d/f', flags)), expected);
            fs.rmSync(real('f'), { recursive: true, force: true });
        }
    }
    fs.writeFileSync(real('f'), 'text');
    local.getattr('/d/f');
    fs.unlinkSync(real('f'));
    fs.symlinkSync('kept', real('f'));
    const file = local.open('/d/f', reading); // a link that stays inside is followed as ever
    const buffer = Buffer.alloc(10);
    assert.equal(buffer.toString('latin1', 0, local.read(file, 0, 10, buffer)), 'kept');
    local.release(file);
    local.unlink('/d/f');
    assert.equal(fs.readFileSync(real('kept'), 'latin1'), 'kept');
});

test('something else in the place of a file that was looked at is removed as what it is', (t) => {
    const { real, local } = served(t);
    fs.writeFileSync(real('f'), 'text');
    local.getattr('/d/f');
    fs.unlinkSync(real('f'));
    fs.mkdirSync(real('f'));
    local.unlink('/d/f');
    assert.equal(fs.existsSync(real('f')), false);
    fs.writeFileSync(real('f'), 'text');
    local.getattr('/d/f');
    fs.unlinkSync(real('f'));
    assert.equal(codeOf(() => local.unlink('/d/f')), 'ENOENT');
});

test('what has appeared where nothing was is treated as what it is', (t) => {
    const { root, real, local } = served(t);
    fs.writeFileSync(path.join(root, '../secret'), 'secret');
    const create = { ...making, truncate: false };
    const appear = (/** @type {() => void} */ make) => {
        fs.rmSync(real('f'), { recursive: true, force: true });
        assert.equal(codeOf(() => local.getattr('/d/f')), 'ENOENT');
        make();
    };
    appear(() => fs.writeFileSync(real('f'), 'theirs'));
    local.release(local.open('/d/f', create));
    assert.equal(fs.readFileSync(real('f'), 'latin1'), 'theirs');
    appear(() => fs.writeFileSync(real('f'), 'theirs'));
    local.release(local.open('/d/f', making));
    assert.equal(fs.readFileSync(real('f'), 'latin1'), '');
    appear(() => fs.symlinkSync('../../secret', real('f')));
    assert.equal(codeOf(() => local.open('/d/f', making)), 'EACCES');
    assert.equal(fs.readFileSync(path.join(root, '../secret'), 'latin1'), 'secret');
    appear(() => fs.symlinkSync('../../none', real('f')));
    assert.equal(codeOf(() => local.open('/d/f', making)), 'ENOENT');
    assert.equal(fs.existsSync(path.join(root, '../none')), false);
    appear(() => fs.mkdirSync(real('f')));
    assert.equal(codeOf(() => local.open('/d/f', making)), 'EISDIR');
});

test('the configuration is not made where none was', (t) => {
    const { root } = served(t);
    const local = new LocalFileSystem(root, root);
    assert.equal(codeOf(() => local.getattr('/mount-config.json')), 'ENOENT');
    assert.equal(codeOf(() => local.open('/mount-config.json', making)), 'EPERM');
    assert.equal(fs.existsSync(path.join(root, 'mount-config.json')), false);
    fs.writeFileSync(path.join(root, 'mount-config.json'), '{}');
    local.getattr('/mount-config.json');
    assert.equal(codeOf(() => local.open('/mount-config.json', writing)), 'EPERM');
    local.getattr('/mount-config.json');
    assert.equal(codeOf(() => local.unlink('/mount-config.json')), 'EPERM');
});
