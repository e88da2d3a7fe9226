// The documents' code and the example in another language, run.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { Driver, helperCommand, packageFolder, temporaryFolder } from './driver.mjs';

const top = path.join(packageFolder, '..', '..');
const tutorial = fs.readFileSync(path.join(top, 'docs/writing-a-helper.md'), 'utf8');
const blocks = [...tutorial.matchAll(/^```js\n([^]*?)^```$/gm)].map((match) => match[1]);

for (const [index, name] of ['hello.mjs', 'clock.mjs'].entries()) {
    test(`the tutorial shows ${name} as it ships, in about forty lines`, () => {
        const shipped = fs.readFileSync(path.join(packageFolder, 'helpers', name), 'utf8');
        assert.equal(blocks[index], shipped);
        assert.ok(shipped.split('\n').length <= 50);
    });
}

test('the tutorial\'s file system over a ready one works from a folder of its own', async (t) => {
    const folder = temporaryFolder(t);
    fs.mkdirSync(path.join(folder, 'node_modules'));
    fs.symlinkSync(packageFolder, path.join(folder, 'node_modules/kemvi-helper'));
    fs.writeFileSync(path.join(folder, 'shouting.mjs'), blocks.find((block) => block.includes('class Shouting')) ?? '');
    fs.writeFileSync(path.join(folder, 'text'), 'quiet');
    const helper = new Driver(t, [process.execPath, path.join(folder, 'shouting.mjs')], { KEMVI_REPO_ROOT: folder });
    const { handle } = await helper.ok('open', { path: '/text', flags: ['read'] });
    assert.equal(String(await helper.ok('read', { handle, offset: 0, length: 10 })), 'QUIET');
    assert.equal(await helper.end(), 0);
});

test('the tutorial\'s test passes in a folder of its own', (t) => {
    const folder = temporaryFolder(t);
    fs.mkdirSync(path.join(folder, 'node_modules'));
    fs.symlinkSync(packageFolder, path.join(folder, 'node_modules/kemvi-helper'));
    const text = blocks.find((block) => block.includes("'kemvi-helper/testing'")) ?? '';
    fs.writeFileSync(path.join(folder, 'tree.test.mjs'), text);
    const { NODE_TEST_CONTEXT: _, ...environment } = process.env; // else it would report to this test's runner
    const command = ['--test', '--test-reporter=tap', 'tree.test.mjs'];
    assert.match(execFileSync(process.execPath, command, { cwd: folder, env: environment, encoding: 'utf8' }), /^# pass [12]$/m);
});

/**
 * Everything that a helper shows, each file read whole; listing and getattr must agree.
 * @param {Driver} helper
 */
async function walk(helper, folder = '/', found = {}) {
    for (const entry of await helper.ok('readdir', { path: folder })) {
        assert.equal(entry.path, (folder === '/' ? '' : folder) + '/' + entry.name);
        assert.deepEqual(await helper.ok('getattr', { path: entry.path }), entry);
        if (entry.isDirectory) {
            await walk(helper, entry.path, found);
            continue;
        }
        const { handle } = await helper.ok('open', { path: entry.path, flags: ['read'] });
        found[entry.path] = String(await helper.ok('read', { handle, offset: 0, length: 1 << 20 }));
        assert.equal(Buffer.byteLength(found[entry.path]), entry.size);
        assert.equal((await helper.ok('read', { handle, offset: entry.size, length: 10 })).length, 0);
        await helper.ok('release', { handle });
    }
    return found;
}

test('hello shows its two files', async (t) => {
    const helper = new Driver(t, helperCommand('hello'));
    const files = await walk(helper);
    assert.equal(files['/hello.txt'], 'Hello from a file system in JavaScript.\n');
    assert.match(files['/numbers.txt'], /^0\n1\n[^]*\n999\n$/);
    assert.equal(await helper.code('getattr', { path: '/none' }), 'ENOENT');
    assert.equal(await helper.code('readdir', { path: '/hello.txt' }), 'ENOTDIR');
    assert.equal(await helper.code('open', { path: '/hello.txt', flags: ['write', 'create'] }), 'EROFS');
    assert.equal(await helper.end(), 0);
});

test('clock changes with time, and an open file does not', async (t) => {
    const helper = new Driver(t, helperCommand('clock'));
    const { handle } = await helper.ok('open', { path: '/now.txt', flags: ['read'] });
    const read = async () => String(await helper.ok('read', { handle, offset: 0, length: 100 }));
    const first = await read();
    const before = await helper.ok('getattr', { path: '/seconds.txt' });
    let after = before;
    while (after.size === before.size) after = await helper.ok('getattr', { path: '/seconds.txt' });
    assert.ok(after.modifiedAt > before.modifiedAt);
    assert.equal(await read(), first);
    assert.match(first, /^20\d\d-.*\.000Z\n$/);
    assert.equal(await helper.code('getattr', { path: '/toString' }), 'ENOENT');
    assert.equal(await helper.end(), 0);
});

const zipHelper = ['python3', path.join(top, 'examples/python/zip_helper.py')];

test('the example in Python serves a zip archive over the bare protocol', async (t) => {
    const archive = path.join(temporaryFolder(t), 'archive.zip');
    const script = [
        'import sys, zipfile',
        'with zipfile.ZipFile(sys.argv[1], "w") as z:',
        '    z.writestr("top.txt", "top")',
        '    z.writestr("gr\u00fc\u00df/deep/slash.txt", "/" * 1000)',
        '    z.writestr("empty/", "")',
        '    z.writestr("top.txt/beneath", "nothing lies beneath a file")',
    ].join('\n');
    execFileSync('python3', ['-c', script, archive]);
    const helper = new Driver(t, zipHelper, { KEMVI_REPO_ROOT: archive });
    await helper.ok('ping');
    assert.deepEqual(await walk(helper), { '/top.txt': 'top', '/gr\u00fc\u00df/deep/slash.txt': '/'.repeat(1000) });
    assert.deepEqual(await helper.ok('readdir', { path: '/empty' }), []);
    assert.deepEqual(await helper.ok('statfs'), { files: 2, directories: 4, bytes: 1003 });
    assert.equal(await helper.code('getattr', { path: '/none' }), 'ENOENT');
    assert.equal(await helper.code('readdir', { path: '/top.txt' }), 'ENOTDIR');
    assert.equal(await helper.code('open', { path: '/empty', flags: ['read'] }), 'EISDIR');
    assert.equal(await helper.code('open', { path: '/top.txt', flags: ['write', 'create'] }), 'EROFS');
    assert.equal(await helper.code('mkdir', { path: '/new' }), 'EROFS');
    assert.equal(await helper.code('read', { handle: 99, offset: 0, length: 1 }), 'EBADF');
    assert.equal(await helper.code('nonsense'), 'EINVAL');
    assert.equal(await helper.code('getattr'), undefined);
    await helper.ok('ping');
    assert.equal(await helper.end(), 0);
});

test('the example in Python says what is wrong with its archive', async (t) => {
    const helper = new Driver(t, zipHelper, { KEMVI_REPO_ROOT: '/dev/null' });
    assert.equal(await helper.exit, 1);
    assert.match(helper.stderr, /^zip_helper: KEMVI_REPO_ROOT must name a zip archive: .*\n$/);
});

test('the example in Python uses the standard library alone, in under 150 lines', () => {
    const text = fs.readFileSync(path.join(top, 'examples/python/zip_helper.py'), 'utf8');
    assert.ok(text.split('\n').length <= 150);
    const imported = [...text.matchAll(/^(?:import|from) (\w+)/gm)].map((match) => match[1]);
    assert.deepEqual(imported, ['base64', 'json', 'os', 'sys', 'zipfile', 'datetime']);
});
