import assert from 'node:assert/strict';
import test from 'node:test';
import { Driver, helperCommand } from './driver.mjs';

const text = (value) => Buffer.from(value).toString('base64');

/** @param {Driver} helper */
async function write(helper, path, value, flags = ['write', 'create', 'truncate']) {
    const { handle } = await helper.ok('open', { path, flags });
    await helper.ok('write', { handle, offset: 0, dataBase64: text(value) });
    await helper.ok('release', { handle });
}

/** @param {Driver} helper */
async function read(helper, path) {
    const { handle } = await helper.ok('open', { path, flags: ['read'] });
    const data = await helper.ok('read', { handle, offset: 0, length: 1 << 20 });
    await helper.ok('release', { handle });
    return String(data);
}

test('a tree in memory behaves as one on disk', async (t) => {
    const helper = new Driver(t, helperCommand('memory'));
    await helper.ok('mkdir', { path: '/d' });
    await write(helper, '/d/f', 'hello');
    assert.equal(await read(helper, '/d/f'), 'hello');
    const { handle } = await helper.ok('open', { path: '/d/f', flags: ['read', 'write', 'create'] });
    await helper.ok('write', { handle, offset: 8, dataBase64: text('!') });
    assert.equal(await read(helper, '/d/f'), 'hello\0\0\0!');
    await helper.ok('utimes', { path: '/d/f', mtime: '2024-05-01T12:34:56.789Z' });
    await helper.ok('release', { handle });
    const stat = await helper.ok('getattr', { path: '/d/f' });
    assert.deepEqual([stat.size, stat.modifiedAt], [9, '2024-05-01T12:34:56.789Z']);
    assert.deepEqual(await helper.ok('readdir', { path: '/d' }), [stat]);
    await helper.ok('chmod', { path: '/d/f', mode: 0o600 });
    await write(helper, '/g', 'other');
    await helper.ok('rename', { oldPath: '/g', newPath: '/d/f' });
    assert.equal(await read(helper, '/d/f'), 'other');
    assert.deepEqual(await helper.ok('statfs'), { files: 1, directories: 2, bytes: 5 + 2 * 256 });
    await helper.ok('rename', { oldPath: '/d', newPath: '/e' });
    assert.equal(await read(helper, '/e/f'), 'other');
    await helper.ok('unlink', { path: '/e/f' });
    await helper.ok('unlink', { path: '/e' });
    assert.deepEqual(await helper.ok('statfs'), { files: 0, directories: 1, bytes: 0 });
    assert.equal(await helper.end(), 0);
});

test('what a tree on disk refuses, one in memory refuses alike', async (t) => {
    const helper = new Driver(t, helperCommand('memory'));
    await helper.ok('mkdir', { path: '/d' });
    await helper.ok('mkdir', { path: '/e' });
    await write(helper, '/d/f', 'x');
    const refused = [
        ['ENOENT', 'getattr', { path: '/none' }], ['ENOTDIR', 'getattr', { path: '/d/f/x' }],
        ['ENOTDIR', 'readdir', { path: '/d/f' }], ['EISDIR', 'open', { path: '/d', flags: ['read'] }],
        ['EISDIR', 'open', { path: '/', flags: ['read'] }], ['ENOENT', 'open', { path: '/n', flags: ['write'] }],
        ['ENOENT', 'open', { path: '/n/n', flags: ['write', 'create'] }], ['EEXIST', 'mkdir', { path: '/d' }],
        ['EEXIST', 'mkdir', { path: '/' }], ['ENOTEMPTY', 'unlink', { path: '/d' }], ['EPERM', 'unlink', { path: '/' }],
        ['ENOTEMPTY', 'rename', { oldPath: '/e', newPath: '/d' }],
        ['EINVAL', 'rename', { oldPath: '/d', newPath: '/d/e' }],
        ['EISDIR', 'rename', { oldPath: '/d/f', newPath: '/e' }],
        ['ENOTDIR', 'rename', { oldPath: '/e', newPath: '/d/f' }],
        ['EINVAL', 'mkdir', { path: '/d/..' }], ['ENAMETOOLONG', 'mkdir', { path: '/' + 'x'.repeat(256) }],
    ];
    for (const [code, op, fields] of refused) {
        assert.equal(await helper.code(op, fields), code, JSON.stringify([op, fields]));
    }
});

test('a removed file lives until it is released, and counts until then', async (t) => {
    const helper = new Driver(t, helperCommand('memory'));
    await write(helper, '/f', 'hello');
    const { handle } = await helper.ok('open', { path: '/f', flags: ['read'] });
    await helper.ok('unlink', { path: '/f' });
    assert.equal(String(await helper.ok('read', { handle, offset: 0, length: 9 })), 'hello');
    assert.equal((await helper.ok('statfs')).bytes, 256 + 5);
    await helper.ok('release', { handle });
    assert.equal((await helper.ok('statfs')).bytes, 0);
});

test('beyond the limit writing is ENOSPC, and removing makes room again', async (t) => {
    const helper = new Driver(t, helperCommand('memory'), { KEMVI_MEMORY_LIMIT: '2K' });
    await write(helper, '/f', 'x'.repeat(1500));
    const { handle } = await helper.ok('open', { path: '/f', flags: ['write', 'create'] });
    assert.equal(await helper.code('write', { handle, offset: 1500, dataBase64: text('x'.repeat(500)) }), 'ENOSPC');
    assert.equal(await helper.code('write', { handle, offset: 2 ** 50, dataBase64: text('x') }), 'ENOSPC');
    assert.equal((await helper.ok('getattr', { path: '/f' })).size, 1500);
    await helper.ok('mkdir', { path: '/a' });
    assert.equal(await helper.code('mkdir', { path: '/b' }), 'ENOSPC');
    assert.equal(await helper.code('open', { path: '/g', flags: ['write', 'create'] }), 'ENOSPC');
    await helper.ok('release', { handle });
    await helper.ok('unlink', { path: '/f' });
    await write(helper, '/g', 'x'.repeat(1500));
});

for (const limit of ['', '0', '-1', '1.5M', '10T', 'much']) {
    test(`a limit that is none is said in one line: "${limit}"`, async (t) => {
        const helper = new Driver(t, helperCommand('memory'), { KEMVI_MEMORY_LIMIT: limit });
        assert.equal(await helper.exit, 1);
        const line = `kemvi-helper: KEMVI_MEMORY_LIMIT must be a number of bytes or like 512M, not "${limit}"\n`;
        assert.equal(helper.stderr, line);
    });
}
