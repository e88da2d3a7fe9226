import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { Driver, helperCommand, temporaryFolder } from './driver.mjs';

/** @param {import('node:test').TestContext} t */
function mountedTree(t) {
    const folder = temporaryFolder(t);
    const root = path.join(folder, 'root');
    fs.mkdirSync(root);
    return { folder, root, helper: new Driver(t, helperCommand('local'), { KEMVI_REPO_ROOT: root }) };
}

test('the fourteen operations work on the served folder', async (t) => {
    const { root, helper } = mountedTree(t);
    assert.equal(await helper.ok('ping'), undefined);
    assert.equal(typeof (await helper.ok('statfs')).files, 'number');
    await helper.ok('mkdir', { path: '/d' });
    const { handle } = await helper.ok('open', { path: '/d/f', flags: ['write', 'create', 'truncate'] });
    await helper.ok('write', { handle, offset: 0, dataBase64: Buffer.from('hello').toString('base64') });
    await helper.ok('flush', { handle });
    await helper.ok('utimes', { path: '/d/f', mtime: '2024-05-01T12:34:56.789Z' });
    await helper.ok('chmod', { path: '/d/f', mode: 0o640 });
    await helper.ok('release', { handle });
    const expected = {
        path: '/d/f', name: 'f', isDirectory: false, size: 5, modifiedAt: '2024-05-01T12:34:56.789Z',
    };
    assert.deepEqual(await helper.ok('getattr', { path: '/d/f' }), expected);
    assert.deepEqual(await helper.ok('readdir', { path: '/d' }), [expected]);
    assert.equal(fs.statSync(path.join(root, 'd/f')).mode & 0o7777, 0o640);
    await helper.ok('rename', { oldPath: '/d/f', newPath: '/g' });
    const reading = await helper.ok('open', { path: '/g', flags: ['read'] });
    assert.equal(String(await helper.ok('read', { handle: reading.handle, offset: 1, length: 100 })), 'ello');
    assert.equal((await helper.ok('read', { handle: reading.handle, offset: 5, length: 100 })).length, 0);
    await helper.ok('unlink', { path: '/g' });
    await helper.ok('unlink', { path: '/d' });
    assert.deepEqual(await helper.ok('readdir', { path: '/' }), []);
    assert.equal(await helper.end(), 0);
});

test('nothing outside of the served folder is reached', async (t) => {
    const { folder, root, helper } = mountedTree(t);
    fs.mkdirSync(path.join(folder, 'outside'));
    fs.writeFileSync(path.join(folder, 'outside/secret'), 'secret');
    fs.mkdirSync(path.join(folder, 'root2'));
    fs.mkdirSync(path.join(root, 'd'));
    fs.symlinkSync('../outside', path.join(root, 'folder'));
    fs.symlinkSync(path.join(folder, 'outside/secret'), path.join(root, 'd/file'));
    fs.symlinkSync('../root2', path.join(root, 'sibling'));
    const inside = ['/folder/secret', '/d/../../outside/secret', '/../outside/secret', '/..', '/d/..', '/sibling/new'];
    for (const each of inside) {
        assert.equal(await helper.code('getattr', { path: each }), 'EACCES', each);
        assert.equal(await helper.code('readdir', { path: each }), 'EACCES', each);
        assert.equal(await helper.code('open', { path: each, flags: ['read'] }), 'EACCES', each);
        assert.equal(await helper.code('open', { path: each, flags: ['write', 'create'] }), 'EACCES', each);
        assert.equal(await helper.code('mkdir', { path: each }), 'EACCES', each);
        assert.equal(await helper.code('unlink', { path: each }), 'EACCES', each);
        assert.equal(await helper.code('rename', { oldPath: each, newPath: '/x' }), 'EACCES', each);
        assert.equal(await helper.code('rename', { oldPath: '/d', newPath: each }), 'EACCES', each);
        assert.equal(await helper.code('chmod', { path: each, mode: 0 }), 'EACCES', each);
        assert.equal(await helper.code('utimes', { path: each, mtime: '2024-05-01T12:34:56.789Z' }), 'EACCES', each);
    }
    for (const link of ['/folder', '/d/file', '/sibling']) {
        const { size, isDirectory } = await helper.ok('getattr', { path: link });
        assert.deepEqual([size, isDirectory], [0, false], 'a link that leads out shows as an empty file');
        for (const flags of [['read'], ['write', 'create'], ['write', 'create', 'truncate']]) {
            assert.equal(await helper.code('open', { path: link, flags }), 'EACCES', link);
        }
        assert.equal(await helper.code('readdir', { path: link }), 'EACCES', link);
        assert.equal(await helper.code('chmod', { path: link, mode: 0 }), 'EACCES', link);
    }
    assert.equal(fs.readFileSync(path.join(folder, 'outside/secret'), 'utf8'), 'secret');
    assert.deepEqual(fs.readdirSync(path.join(folder, 'root2')), []);
});

test('a folder that becomes a link out of the tree while it is served is noticed', async (t) => {
    const { folder, root, helper } = mountedTree(t);
    fs.mkdirSync(path.join(folder, 'outside'));
    fs.writeFileSync(path.join(folder, 'outside/f'), 'secret');
    fs.mkdirSync(path.join(root, 'd'));
    fs.writeFileSync(path.join(root, 'd/f'), 'x');
    assert.equal((await helper.ok('getattr', { path: '/d/f' })).size, 1);
    fs.renameSync(path.join(root, 'd'), path.join(root, 'e'));
    fs.symlinkSync('../outside', path.join(root, 'd'));
    const deadline = Date.now() + 10_000;
    while ((await helper.request('getattr', { path: '/d/f' })).ok) assert.ok(Date.now() < deadline);
    assert.equal(await helper.code('getattr', { path: '/d/f' }), 'EACCES');
});

test('requests that go to and fro between folders reach the right one', async (t) => {
    const { root, helper } = mountedTree(t);
    for (const folder of ['a', 'b', 'ab', 'a/b', 'a/bb']) fs.mkdirSync(path.join(root, folder));
    const files = ['/f', '/a/f', '/b/f', '/ab/f', '/a/b/f', '/a/bb/f'];
    files.forEach((file, index) => fs.writeFileSync(path.join(root, file), 'x'.repeat(index)));
    for (const first of files) {
        for (const second of files) {
            assert.equal((await helper.ok('getattr', { path: first })).size, files.indexOf(first), first);
            assert.equal((await helper.ok('getattr', { path: second })).size, files.indexOf(second), second);
        }
    }
});

test('links that stay inside are followed, and removed themselves', async (t) => {
    const { root, helper } = mountedTree(t);
    fs.mkdirSync(path.join(root, 'd'));
    fs.writeFileSync(path.join(root, 'd/f'), 'hello');
    fs.symlinkSync('d', path.join(root, 'toFolder'));
    fs.symlinkSync(path.join(root, 'd/f'), path.join(root, 'toFile'));
    assert.equal((await helper.ok('getattr', { path: '/toFile' })).size, 5);
    assert.equal((await helper.ok('getattr', { path: '/toFolder' })).isDirectory, true);
    assert.equal((await helper.ok('getattr', { path: '/toFolder/f' })).path, '/toFolder/f');
    assert.deepEqual((await helper.ok('readdir', { path: '/toFolder' })).map((entry) => entry.path), ['/toFolder/f']);
    const { handle } = await helper.ok('open', { path: '/toFile', flags: ['write', 'create'] });
    await helper.ok('write', { handle, offset: 0, dataBase64: Buffer.from('J').toString('base64') });
    assert.equal(fs.readFileSync(path.join(root, 'd/f'), 'utf8'), 'Jello');
    await helper.ok('chmod', { path: '/toFile', mode: 0o600 });
    assert.equal(fs.statSync(path.join(root, 'd/f')).mode & 0o7777, 0o600);
    await helper.ok('rename', { oldPath: '/toFile', newPath: '/moved' });
    assert.ok(fs.lstatSync(path.join(root, 'moved')).isSymbolicLink());
    await helper.ok('unlink', { path: '/moved' });
    await helper.ok('unlink', { path: '/toFolder' });
    assert.deepEqual(fs.readdirSync(path.join(root, 'd')), ['f']);
});

test('links that lead nowhere or in a circle show as empty files, so that no walk is endless', async (t) => {
    const { root, helper } = mountedTree(t);
    fs.mkdirSync(path.join(root, 'd/e'), { recursive: true });
    fs.symlinkSync('nowhere', path.join(root, 'dangling'));
    fs.symlinkSync('self', path.join(root, 'self'));
    fs.symlinkSync('../..', path.join(root, 'd/e/up'));
    for (const [link, code] of [['/dangling', 'ENOENT'], ['/self', 'ELOOP'], ['/d/e/up', 'ELOOP']]) {
        assert.equal((await helper.ok('getattr', { path: link })).isDirectory, false, link);
        assert.equal(await helper.code('open', { path: link, flags: ['read'] }), code);
        assert.equal(await helper.code('open', { path: link, flags: ['write', 'create'] }), code);
    }
    assert.equal(fs.existsSync(path.join(root, 'nowhere')), false);
});

test('special files are shown, and refused at once', async (t) => {
    const { root, helper } = mountedTree(t);
    const fifo = path.join(root, 'fifo');
    execFileSync('mkfifo', [fifo]);
    fs.symlinkSync('fifo', path.join(root, 'link'));
    for (const name of ['/fifo', '/link']) {
        assert.equal((await helper.ok('getattr', { path: name })).size, 0);
        for (const flags of [['read'], ['write', 'create'], ['read', 'write']]) {
            assert.equal(await helper.code('open', { path: name, flags }), 'EACCES');
        }
    }
    assert.equal((await helper.ok('readdir', { path: '/' })).length, 2);
    await helper.ok('unlink', { path: '/fifo' });
});

test('names that are not UTF-8 are left out with one warning, odd ones are kept', async (t) => {
    const { root, helper } = mountedTree(t);
    const odd = ['a"b', 'back\\slash', 'line\nbreak', 'tab\t', 'gr\u00fc\u00df', '\u{1f600}', '\ufffd', ' ', '-'];
    for (const name of odd) fs.writeFileSync(path.join(root, name), 'x');
    fs.writeFileSync(Buffer.concat([Buffer.from(root + '/bad'), Buffer.from([0xff])]), 'x');
    for (let i = 0; i < 2; i++) {
        const names = (await helper.ok('readdir', { path: '/' })).map((entry) => entry.name);
        assert.deepEqual(names.sort(), [...odd].sort());
    }
    for (const name of odd) assert.equal((await helper.ok('getattr', { path: '/' + name })).name, name);
    await helper.end();
    assert.equal(helper.stderr.match(/not UTF-8/g)?.length, 1);
});

test('opening for writing keeps what is there unless it is to be emptied', async (t) => {
    const { root, helper } = mountedTree(t);
    const file = path.join(root, 'f');
    fs.writeFileSync(file, 'hello');
    assert.equal(await helper.code('open', { path: '/new', flags: ['write'] }), 'ENOENT');
    const { handle } = await helper.ok('open', { path: '/f', flags: ['write', 'create'] });
    assert.equal(fs.readFileSync(file, 'utf8'), 'hello');
    await helper.ok('write', { handle, offset: 8, dataBase64: Buffer.from('!').toString('base64') });
    assert.equal(fs.readFileSync(file, 'latin1'), 'hello\0\0\0!');
    await helper.ok('open', { path: '/f', flags: ['write', 'create', 'truncate'] });
    assert.equal(fs.statSync(file).size, 0);
});

test('a handle outlives the name of its file', async (t) => {
    const { root, helper } = mountedTree(t);
    fs.writeFileSync(path.join(root, 'f'), 'hello');
    const { handle } = await helper.ok('open', { path: '/f', flags: ['read'] });
    await helper.ok('rename', { oldPath: '/f', newPath: '/g' });
    assert.equal(String(await helper.ok('read', { handle, offset: 0, length: 9 })), 'hello');
    await helper.ok('unlink', { path: '/g' });
    assert.equal(String(await helper.ok('read', { handle, offset: 0, length: 9 })), 'hello');
});

test('times are kept to the millisecond, before 1970 too, and survive release', async (t) => {
    const { helper } = mountedTree(t);
    const { handle } = await helper.ok('open', { path: '/f', flags: ['write', 'create'] });
    await helper.ok('write', { handle, offset: 0, dataBase64: 'AAAA' });
    const times = ['1969-12-31T23:43:20.000Z', '1969-12-31T23:59:59.999Z', '2024-05-01T12:34:56.789Z'];
    for (const mtime of [...times, '2001-01-01T00:00:00.001Z', '2038-01-19T03:14:08.123Z']) {
        await helper.ok('utimes', { path: '/f', mtime });
        assert.equal((await helper.ok('getattr', { path: '/f' })).modifiedAt, mtime);
    }
    await helper.ok('release', { handle });
    assert.equal((await helper.ok('getattr', { path: '/f' })).modifiedAt, '2038-01-19T03:14:08.123Z');
});

test('setting the time of the last change keeps that of the last access', async (t) => {
    const { root, helper } = mountedTree(t);
    const file = path.join(root, 'f');
    fs.writeFileSync(file, '');
    fs.utimesSync(file, 1_000_000_000, 5);
    await helper.ok('utimes', { path: '/f', mtime: '2024-05-01T12:34:56.789Z' });
    assert.ok(Math.abs(fs.statSync(file).atimeMs - 1_000_000_000_000) < 0.01);
});

test('unlink removes a file or an empty folder, rename replaces as rename(2) does', async (t) => {
    const { root, helper } = mountedTree(t);
    fs.mkdirSync(path.join(root, 'full'));
    fs.writeFileSync(path.join(root, 'full/f'), 'x');
    fs.writeFileSync(path.join(root, 'g'), 'new');
    fs.mkdirSync(path.join(root, 'empty'));
    assert.equal(await helper.code('unlink', { path: '/full' }), 'ENOTEMPTY');
    assert.equal(await helper.code('unlink', { path: '/none' }), 'ENOENT');
    assert.equal(await helper.code('unlink', { path: '/' }), 'EPERM');
    assert.equal(await helper.code('mkdir', { path: '/full' }), 'EEXIST');
    assert.equal(await helper.code('mkdir', { path: '/' }), 'EPERM');
    assert.equal(await helper.code('rename', { oldPath: '/empty', newPath: '/full' }), 'ENOTEMPTY');
    assert.equal(await helper.code('rename', { oldPath: '/g', newPath: '/empty' }), 'EISDIR');
    assert.equal(await helper.code('rename', { oldPath: '/full', newPath: '/full/in' }), 'EINVAL');
    await helper.ok('rename', { oldPath: '/g', newPath: '/full/f' });
    assert.equal(fs.readFileSync(path.join(root, 'full/f'), 'utf8'), 'new');
    await helper.ok('rename', { oldPath: '/full', newPath: '/empty' });
    assert.equal((await helper.ok('getattr', { path: '/empty/f' })).size, 3);
    assert.equal(await helper.code('getattr', { path: '/full/f' }), 'ENOENT');
});

test('errors name the path of the tree, and never where it lies', async (t) => {
    const { folder, root, helper } = mountedTree(t);
    fs.writeFileSync(path.join(root, 'f'), 'x');
    const requests = [
        ['getattr', { path: '/none' }], ['readdir', { path: '/f' }], ['getattr', { path: '/f/x' }],
        ['open', { path: '/d/x', flags: ['write', 'create'] }], ['mkdir', { path: '/f' }],
        ['getattr', { path: '/a\0b' }],
        ['getattr', { path: '/' + 'x'.repeat(256) }], ['getattr', { path: '/f/' }], ['getattr', { path: '//f' }],
    ];
    const codes = [];
    for (const [op, fields] of requests) {
        const { error } = await helper.request(op, fields);
        assert.ok(!error.message.includes(folder), error.message);
        codes.push(error.code);
    }
    assert.deepEqual(codes, [
        'ENOENT', 'ENOTDIR', 'ENOTDIR', 'ENOENT', 'EEXIST', 'EINVAL', 'ENAMETOOLONG', 'EINVAL', 'EINVAL',
    ]);
});

const noFolders = [['missing', undefined], ['empty', ''], ['no folder', '/dev/null'], ['nowhere', '/no/where']];
for (const [name, value] of noFolders) {
    test(`a served folder that is ${name} is said in one line`, async (t) => {
        const environment = value === undefined ? {} : { KEMVI_REPO_ROOT: value };
        const helper = new Driver(t, helperCommand('local'), environment);
        assert.equal(await helper.exit, 1);
        assert.match(helper.stderr, /^kemvi-helper: cannot serve the folder in KEMVI_REPO_ROOT \(.*\): .*\n$/);
    });
}

test('no bit beyond the permissions is set, and a folder keeps those that it has', async (t) => {
    const { root, helper } = mountedTree(t);
    fs.writeFileSync(path.join(root, 'f'), '');
    fs.mkdirSync(path.join(root, 'd'));
    const mode = (/** @type {string} */ name) => fs.statSync(path.join(root, name)).mode & 0o7777;
    for (const asked of [0o4755, 0o2755, 0o1755, 0o6755, 0o7777]) {
        await helper.ok('chmod', { path: '/f', mode: asked });
        assert.equal(mode('f'), asked & 0o777);
        await helper.ok('chmod', { path: '/d', mode: asked });
        assert.equal(mode('d'), asked & 0o777);
    }
    fs.chmodSync(path.join(root, 'd'), 0o3770);
    await helper.ok('chmod', { path: '/d', mode: 0o755 });
    assert.equal(mode('d'), 0o3755);
    fs.chmodSync(path.join(root, 'f'), 0o6770);
    await helper.ok('chmod', { path: '/f', mode: 0o755 });
    assert.equal(mode('f'), 0o755);
});

test('a program that is opened for writing no longer runs with the rights of its owner', async (t) => {
    const { root, helper } = mountedTree(t);
    const file = path.join(root, 'program');
    const modes = [[0o6755, 0o755], [0o4711, 0o711], [0o2775, 0o775], [0o3640, 0o1640]];
    for (const [before, after] of modes) {
        for (const flags of [['write'], ['read', 'write', 'create'], ['write', 'create', 'truncate']]) {
            fs.writeFileSync(file, 'x');
            fs.chmodSync(file, before);
            const { handle } = await helper.ok('open', { path: '/program', flags });
            assert.equal(fs.statSync(file).mode & 0o7777, after, flags.join());
            await helper.ok('release', { handle });
        }
    }
    fs.chmodSync(file, 0o6755);
    const { handle } = await helper.ok('open', { path: '/program', flags: ['read'] });
    await helper.ok('release', { handle });
    assert.equal(fs.statSync(file).mode & 0o7777, 0o6755);
});
