// The helper kit for C++, from the outside: processes that are made with it.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { betweenPipes, Driver, helperCommand, temporaryFolder } from '../../../sdk/node/test/driver.mjs';

const chatty = process.env.KEMVI_TEST_CHATTY;
const example = process.env.KEMVI_TEST_FOLDER;
const top = path.join(import.meta.dirname ?? path.dirname(new URL(import.meta.url).pathname), '../../..');

test('what is printed goes to standard error, and the input is empty for everybody else', async (t) => {
    for (const wrapped of [[chatty], betweenPipes([chatty])]) {
        const helper = new Driver(t, wrapped);
        assert.equal((await helper.ok('getattr', { path: '/' })).isDirectory, true);
        assert.equal(await helper.code('getattr', { path: '/fault' }), undefined);
        await helper.ok('ping');
        await helper.end();
        assert.equal(helper.stderr.match(/printed\nstreamed\nfrom a child\n/g).length, 2);
        assert.match(helper.stderr, /kemvi-helper: getattr of \/fault failed: something was thrown/);
        assert.match(helper.stderr, /ended\n/);
    }
});

test('under a mount nothing that is printed before serving reaches the answers', async (t) => {
    const helper = new Driver(t, [chatty, 'before'], { KEMVI_DRIVE_ID: 'd' });
    await helper.ok('ping');
    assert.equal(await helper.end(), 0);
    assert.match(helper.stderr, /^before serving\n/);
});

test('a helper ends when nobody reads its answers', async (t) => {
    const helper = new Driver(t, [chatty]);
    await helper.ok('ping');
    helper.child.stdout.destroy();
    while (helper.child.exitCode === null && helper.child.signalCode === null) {
        helper.send(Driver.requestLine('2', 'ping', {}));
        await new Promise((resolve) => setImmediate(resolve));
    }
    assert.equal(await helper.exit, 0);
    assert.match(helper.stderr, /ended\n$/);
});

test('a line that the end of the input cuts off is told', async (t) => {
    const helper = new Driver(t, [chatty]);
    helper.send('{"id":"1",');
    assert.equal(await helper.end(), 0);
    assert.match(helper.stderr, /kemvi-helper: the input ended within a line\n/);
});

test('a helper does not outlive the launcher that stays beside it', async (t) => {
    const source = temporaryFolder(t);
    fs.writeFileSync(path.join(source, 'mount-config.json'), JSON.stringify({ helperCommand: [chatty] }));
    const told = { KEMVI_SOURCE: source, KEMVI_BECOME: '', KEMVI_DRIVE_ID: 'd' };
    const launcher = new Driver(t, helperCommand('program'), told);
    await launcher.ok('ping');
    const own = Number(launcher.stderr.match(/process (\d+)/)[1]);
    assert.notEqual(own, launcher.child.pid);
    launcher.child.kill('SIGKILL');
    await launcher.exit; // its streams are closed by then, which the helper would keep open
    const deadline = Date.now() + 10_000;
    while (fs.existsSync(`/proc/${own}`) && !/^State:\tZ/m.test(fs.readFileSync(`/proc/${own}/status`, 'utf8'))) {
        assert.ok(Date.now() < deadline);
    }
});

test('the example serves a folder and stays in it, in under 150 lines', async (t) => {
    assert.ok(fs.readFileSync(path.join(top, 'examples/cpp/folder.cpp'), 'utf8').split('\n').length <= 150);
    const folder = temporaryFolder(t);
    const root = path.join(folder, 'root');
    fs.mkdirSync(root);
    fs.symlinkSync('..', path.join(root, 'up'));
    const helper = new Driver(t, [example], { KEMVI_REPO_ROOT: root });
    await helper.ok('mkdir', { path: '/d' });
    const { handle } = await helper.ok('open', { path: '/d/f', flags: ['write', 'create'] });
    await helper.ok('write', { handle, offset: 1, dataBase64: Buffer.from('ello').toString('base64') });
    await helper.ok('flush', { handle });
    await helper.ok('release', { handle });
    await helper.ok('utimes', { path: '/d/f', mtime: '1969-12-31T23:59:59.999Z' });
    await helper.ok('chmod', { path: '/d/f', mode: 0o600 });
    const expected = { path: '/d/f', name: 'f', isDirectory: false, size: 5, modifiedAt: '1969-12-31T23:59:59.999Z' };
    assert.deepEqual(await helper.ok('getattr', { path: '/d/f' }), expected);
    assert.deepEqual(await helper.ok('readdir', { path: '/d' }), [expected]);
    await helper.ok('rename', { oldPath: '/d/f', newPath: '/g' });
    const reading = await helper.ok('open', { path: '/g', flags: ['read'] });
    assert.equal(String(await helper.ok('read', { handle: reading.handle, offset: 0, length: 9 })), '\0ello');
    await helper.ok('unlink', { path: '/g' });
    await helper.ok('unlink', { path: '/d' });
    for (const away of ['/..', '/../x', '/up/x', '/up/..']) {
        for (const op of ['getattr', 'readdir', 'mkdir', 'unlink']) await helper.code(op, { path: away });
        await helper.code('chmod', { path: away, mode: 0 });
        await helper.code('open', { path: away, flags: ['write', 'create'] });
        await helper.code('rename', { oldPath: away, newPath: '/y' });
    }
    assert.deepEqual(fs.readdirSync(folder), ['root']);
    assert.equal((await helper.ok('getattr', { path: '/up' })).isDirectory, false);
    assert.equal(await helper.end(), 0);
    const lost = new Driver(t, [example], { KEMVI_REPO_ROOT: path.join(folder, 'none') });
    assert.equal(await lost.exit, 1);
    assert.match(lost.stderr, /^folder: KEMVI_REPO_ROOT must name .*\n$/);
});

test('the README\'s helper is built by its command, from nothing but the kit', { skip: !process.env.KEMVI_TEST_LIBRARY }, async (t) => {
    const readme = fs.readFileSync(path.join(top, 'sdk/cpp/README.md'), 'utf8');
    const folder = temporaryFolder(t);
    fs.writeFileSync(path.join(folder, 'tree.cpp'), readme.match(/^```cpp\n([^]*?)^```$/m)[1]);
    const command = readme.match(/^ {4}(g\+\+ .*)$/m)[1];
    const library = path.dirname(process.env.KEMVI_TEST_LIBRARY);
    execFileSync('sh', ['-euc', command.replace('"$KEMVI/build/release/lib"', `'${library}'`)],
        { cwd: folder, env: { PATH: process.env.PATH, KEMVI: top } });
    const helper = new Driver(t, [path.join(folder, 'tree')]);
    assert.deepEqual((await helper.ok('readdir', { path: '/' })).map((entry) => entry.path), ['/hello.txt']);
    const { handle } = await helper.ok('open', { path: '/hello.txt', flags: ['read'] });
    assert.equal(String(await helper.ok('read', { handle, offset: 1, length: 3 })), 'ell');
    assert.equal((await helper.ok('read', { handle, offset: 6, length: 3 })).length, 0);
    assert.equal(await helper.code('open', { path: '/hello.txt', flags: ['write', 'create'] }), 'EROFS');
    assert.equal(await helper.end(), 0);
});
