// The driver for the tests of authors: what a mount would show, and every rule that can be broken found broken.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { GitFileSystem, LocalFileSystem, MemoryFileSystem, PosixError } from 'kemvi-helper';
import { CheckError, mountless } from 'kemvi-helper/testing';
import { checks, keptByTheKit, writingChecks } from '../src/testing/checks.mjs';
import { temporaryFolder } from './driver.mjs';
import { faults, faulty } from './servers/faulty.mjs';

test('memory keeps every rule', async () => {
    const { errors, warnings, examined } = await mountless(new MemoryFileSystem()).check();
    assert.deepEqual([errors, warnings.filter(({ problem }) => !problem.startsWith('it took'))], [[], []]);
    assert.ok(examined.includes(checks.manyEntries));
});

test('local keeps every rule, and the folder is as it was', async (t) => {
    const folder = temporaryFolder(t);
    fs.writeFileSync(path.join(folder, 'a.txt'), 'hello');
    const { errors, skipped } = await mountless(new LocalFileSystem(folder)).check();
    assert.deepEqual([errors, skipped], [[], []]);
    assert.deepEqual(fs.readdirSync(folder), ['a.txt']);
});

test('git keeps every rule of a read-only tree', async (t) => {
    const folder = temporaryFolder(t);
    const git = (...values) => execFileSync('git', ['-C', folder, '-c', 'user.name=t', '-c', 'user.email=t@localhost', ...values]);
    git('init', '-q', '-b', 'main');
    fs.writeFileSync(path.join(folder, 'a.txt'), 'hello');
    git('add', '.');
    git('commit', '-q', '-m', 'first');
    const { errors, skipped } = await mountless(new GitFileSystem(folder)).check();
    assert.deepEqual([errors, skipped], [[], writingChecks.map((check) => checks[check])]);
});

test('the file system to be broken is right as it is', async () => {
    const { errors, skipped } = await mountless(faulty('')).check();
    assert.deepEqual([errors, skipped], [[], []]);
});

test('a file whose size is not known breaks no rule, and is read whole', async () => {
    const text = Buffer.from('generated '.repeat(100_000));
    const generated = {
        getattr: (path) => (path === '/' ? { isDirectory: true } : path === '/all' ? { sizeUnknown: true } : missing()),
        readdir: () => [{ name: 'all', sizeUnknown: true }],
        read: (_, offset, length) => text.subarray(offset, offset + length),
    };
    assert.deepEqual((await mountless(generated).check()).errors, []);
    const driven = mountless(generated);
    assert.equal((await driven.stat('/all')).size, -1);
    assert.deepEqual(await driven.readFile('/all'), text);
});

function missing() {
    throw new PosixError('ENOENT', 'there is no such file');
}

test('each rule has a file system that breaks it, or is kept by the kit', () => {
    assert.deepEqual([...Object.keys(faults), ...keptByTheKit].sort(), Object.keys(checks).sort());
});

const warned = ['longLines', 'speed', 'opening'];
const quick = { inTime: { limit: 50 } }; // whose answer never comes
const needsNoWriting = Object.keys(checks).indexOf('folders');

for (const fault of Object.keys(faults)) {
    test(`a file system that breaks a rule is told so: ${checks[fault]}`, async () => {
        const driven = mountless(faulty(fault), quick[fault]);
        const isOfReading = Object.keys(checks).indexOf(fault) < needsNoWriting;
        const checked = driven.check({ write: isOfReading ? false : '/' });
        if (warned.includes(fault)) {
            const found = await checked.catch((error) => error);
            assert.ok(found.warnings.some(({ check }) => check === checks[fault]), JSON.stringify(found));
            return;
        }
        await assert.rejects(checked, (error) => {
            assert.ok(error instanceof CheckError);
            const found = error.errors.find(({ check }) => check === checks[fault]);
            assert.ok(found, error.message);
            for (const words of [checks[fault], `wrong:   ${found.problem.slice(0, 300)}`, `so:      ${found.consequence}`]) {
                assert.ok(error.message.includes(words), `${words} is missing in\n${error.message}`);
            }
            return true;
        });
    });
}

test('a mistake is told with its stack, where it is found and where a program meets it', async () => {
    const mistaken = () => ({
        ...faulty(''),
        read() {
            throw new Error('a mistake');
        },
    });
    const stack = /read of \/digits failed: Error: a mistake\n +at .*testing\.test\.mjs/;
    await assert.rejects(mountless(mistaken()).check({ write: false }), stack);
    await assert.rejects(mountless(mistaken()).readFile('/digits'), { code: 'EIO', message: stack });
});

test('nothing is written where names cannot be trusted', async () => {
    const driven = mountless(faulty('duplicates'));
    await assert.rejects(driven.check(), (error) => !error.message.includes('kemvi-check-'));
});

test('a program can do what it does on a mount', async () => {
    const fileSystem = mountless(new MemoryFileSystem());
    await fileSystem.mkdir('/a');
    await fileSystem.writeFile('/a/b', 'hello');
    await fileSystem.appendFile('/a/b', Buffer.from(', world'));
    assert.equal(await fileSystem.readFile('/a/b', 'utf8'), 'hello, world');
    await fileSystem.rename('/a/b', '/c');
    assert.deepEqual([await fileSystem.readdir('/'), await fileSystem.readdir('/a')], [['a', 'c'], []]);
    await fileSystem.truncate('/c', 5);
    await fileSystem.chmod('/c', 0o600);
    const time = new Date('2001-02-03T04:05:06.789Z');
    await fileSystem.utimes('/c', time);
    const stat = { name: 'c', path: '/c', isDirectory: false, size: 5, modifiedAt: time };
    assert.deepEqual(await fileSystem.stat('/c'), stat);
    assert.deepEqual((await fileSystem.list('/'))[1], stat);
    assert.deepEqual(await fileSystem.statfs(), { files: 1, directories: 2, bytes: 517 });
    await fileSystem.truncate('/c', 7);
    assert.deepEqual(await fileSystem.readFile('/c'), Buffer.from('hello\0\0'));
    const large = Buffer.alloc(300_000, 7);
    await Promise.all([fileSystem.writeFile('/large', large), fileSystem.writeFile('/other', 'x')]);
    assert.ok((await fileSystem.readFile('/large')).equals(large));
    for (const name of ['/c', '/large', '/other']) await fileSystem.unlink(name);
    await fileSystem.rmdir('/a');
    assert.deepEqual([await fileSystem.readdir('/'), await fileSystem.exists('/c')], [[], false]);
    await fileSystem.end();
});

test('an open file is read and written while its name is gone', async () => {
    const fileSystem = mountless(new MemoryFileSystem());
    const file = await fileSystem.open('/f', 'w');
    await file.write(0, 'hello');
    await file.sync();
    await fileSystem.rename('/f', '/g');
    assert.equal(String(await file.read(1, 3)), 'ell');
    await file.close();
    const reader = await fileSystem.open('/g');
    await assert.rejects(reader.write(0, 'x'), { code: 'EBADF' });
    await reader.close();
    await assert.rejects(reader.read(0, 1), { code: 'EBADF' });
});

for (const [what, code, act] of [
    ['a missing file', 'ENOENT', (on) => on.readFile('/none')],
    ['a missing folder', 'ENOENT', (on) => on.writeFile('/none/a', '')],
    ['a path through a file', 'ENOTDIR', (on) => on.stat('/digits/a')],
    ['a folder read as a file', 'EISDIR', (on) => on.readFile('/folder')],
    ['a folder written as a file', 'EISDIR', (on) => on.writeFile('/folder', '')],
    ['a file listed', 'ENOTDIR', (on) => on.readdir('/digits')],
    ['a folder that is there', 'EEXIST', (on) => on.mkdir('/folder')],
    ['unlink of a folder', 'EISDIR', (on) => on.unlink('/folder')],
    ['rmdir of a file', 'ENOTDIR', (on) => on.rmdir('/digits')],
    ['rmdir of a full folder', 'ENOTEMPTY', (on) => on.rmdir('/folder')],
    ['a file moved over a folder', 'EISDIR', (on) => on.rename('/digits', '/folder')],
    ['a folder moved over a file', 'ENOTDIR', (on) => on.rename('/folder', '/digits')],
    ['a folder moved into itself', 'EINVAL', (on) => on.rename('/folder', '/folder/a')],
]) {
    test(`a program sees ${code} of ${what}`, async () => {
        await assert.rejects(act(mountless(faulty(''))), { code });
    });
}

test('a code that programs cannot be told is EIO, with the reason', async () => {
    const full = { ...faulty(''), write: () => { throw new PosixError('ENOSPC', 'all is full'); } };
    await assert.rejects(mountless(full).writeFile('/new', 'x'), {
        code: 'EIO', message: 'EIO: write of /new: all is full (of the code ENOSPC programs see EIO)',
    });
    await assert.rejects(mountless({ ...full, write: undefined }).writeFile('/digits', 'x'), { code: 'EROFS' });
    const readOnly = mountless({ getattr: full.getattr, readdir: full.readdir, open: full.open, read: full.read });
    await assert.rejects(readOnly.mkdir('/d'), { code: 'EROFS', message: /this file system is read-only/ });
});

for (const [fault, act, rule] of [
    ['wholeSize', (on) => on.readFile('/digits'), /gives 10 bytes and has the size 12; rule: a file has as many bytes/],
    ['duplicates', (on) => on.readdir('/folder'), /"inner" stands twice in \/folder; rule: no name stands twice/],
    ['removing', (on) => on.mkdir('/full').then(() => on.writeFile('/full/file', '')).then(() => on.unlink('/full/file')),
        /\/full\/file is still there; rule: unlink removes files/],
    ['renaming', (on) => on.rename('/digits', '/folder/inner'), /\/digits is still there; rule: rename replaces a file/],
    ['settingTimes', (on) => on.utimes('/digits', new Date(1234)), /the time of \/digits is .*01\.000Z, not .*01\.234Z/],
]) {
    test(`a call that breaks a rule names it: ${fault}`, async () => {
        await assert.rejects(act(mountless(faulty(fault))), { message: rule });
    });
}

test('a folder that is full is not removed by a file system that would', async () => {
    const fileSystem = mountless(faulty('fullFolders'));
    await assert.rejects(fileSystem.rmdir('/folder'), { code: 'ENOTEMPTY' });
    assert.deepEqual(await fileSystem.readdir('/folder'), ['inner']);
});

test('a file system that cannot replace is renamed in steps', async () => {
    const right = faulty('');
    const refuses = {
        ...right,
        rename(from, to) {
            if (right.readdir('/').some(({ name }) => '/' + name === to)) throw new PosixError('EEXIST', 'it is there');
            right.rename(from, to);
        },
    };
    const fileSystem = mountless(refuses);
    await fileSystem.rename('/folder/inner', '/digits');
    assert.equal(await fileSystem.readFile('/digits', 'utf8'), 'deep');
    assert.deepEqual(await fileSystem.readdir('/'), ['folder', 'digits']);
});

test('an answer that never comes is an error after the limit', async () => {
    const fileSystem = mountless({ ...faulty(''), getattr: () => new Promise(() => {}) }, { limit: 20 });
    await assert.rejects(fileSystem.stat('/'), { code: 'EIO', message: /getattr of \/ was not answered in time/ });
});

test('what cannot be used is refused at once', async () => {
    assert.throws(() => mountless({}), /mountless: the file system has no function getattr/);
    const fileSystem = mountless(new MemoryFileSystem());
    for (const odd of ['a', '', '/a//b', '/a/', '/../a', 5]) {
        await assert.rejects(fileSystem.stat(odd), { name: 'TypeError', message: /is no path of the tree; expected one/ });
    }
    await assert.rejects(fileSystem.check({ write: 'here' }), TypeError);
    await fileSystem.end();
    await assert.rejects(fileSystem.stat('/'), /the file system has ended/);
});

test('requests go as the protocol has them', async () => {
    const fileSystem = mountless(faulty(''));
    assert.deepEqual((await fileSystem.request('statfs')).result, { files: 2, directories: 2, bytes: 782 });
    const { ok, error } = await fileSystem.request('nonsense');
    assert.deepEqual([ok, error.code], [false, 'EINVAL']);
});
