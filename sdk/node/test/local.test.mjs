import assert from 'node:assert/strict';
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
