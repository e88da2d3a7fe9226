// What a helper tells its mount of changes, over the mount's control channel.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import test from 'node:test';
import { Driver, packageFolder, serverCommand, temporaryFolder } from './driver.mjs';

/** A mount's end of the channel. The test takes each request and answers it. */
class Channel {
    /** @param {import('node:test').TestContext} t */
    constructor(t) {
        this.address = path.join(temporaryFolder(t), 'socket');
        /** @type {{paths: string[], answer: (said?: object) => void, drop: () => void}[]} */
        this.requests = [];
        this.wake = () => {};
        /** @type {Set<net.Socket>} */
        this.peers = new Set();
        this.connections = 0;
        t.after(() => this.close());
    }

    async listen() {
        this.server = net.createServer((socket) => this.serve_(socket));
        await new Promise((resolve) => this.server?.listen(this.address, () => resolve(undefined)));
    }

    async close() {
        for (const peer of this.peers) peer.destroy();
        await new Promise((resolve) => (this.server ? this.server.close(resolve) : resolve(undefined)));
        this.server = undefined;
    }

    /** @param {net.Socket} socket */
    serve_(socket) {
        this.connections++;
        this.peers.add(socket);
        socket.on('error', () => {}).on('close', () => this.peers.delete(socket));
        socket.write('{"kemvi":"0.1.0","channel":1,"mountPoint":"/mnt"}\n');
        let received = '';
        socket.setEncoding('utf8').on('data', (text) => {
            received += text;
            for (let end = received.indexOf('\n'); end >= 0; end = received.indexOf('\n')) {
                const request = JSON.parse(received.slice(0, end));
                received = received.slice(end + 1);
                assert.deepEqual(Object.keys(request), ['op', 'paths']);
                assert.equal(request.op, 'invalidate');
                const answer = (said = { ok: true, forgotten: 1 }) => socket.write(JSON.stringify(said) + '\n');
                this.requests.push({ paths: request.paths, answer, drop: () => socket.destroy() });
                this.wake();
            }
        });
    }

    async request() {
        while (this.requests.length === 0) {
            let timer;
            await new Promise((resolve, reject) => {
                this.wake = () => resolve(undefined);
                timer = setTimeout(() => reject(new Error('nothing was told')), 20_000);
            });
            clearTimeout(timer);
        }
        return /** @type {any} */ (this.requests.shift());
    }
}

/** A helper, and the function that has it call `changed`. */
function start(t, channel, ...values) {
    const helper = new Driver(t, serverCommand('changing', ...values), { KEMVI_CONTROL: channel?.address ?? '' });
    const tell = (paths) => helper.ok('getattr', { path: `/tell/${encodeURIComponent(JSON.stringify(paths))}` });
    return { helper, tell };
}

test('what has changed is told, in its order and once', async (t) => {
    const channel = new Channel(t);
    await channel.listen();
    const { helper, tell } = start(t, channel);
    await tell(['/b', '/a', 'c/d', '/b']);
    const first = await channel.request();
    assert.deepEqual(first.paths, ['/b', '/a', 'c/d']);
    await tell('/while it is under way');
    await tell(['/too', '/b']);
    first.answer();
    const second = await channel.request();
    assert.deepEqual(second.paths, ['/while it is under way', '/too', '/b']);
    second.answer();
    assert.equal(channel.connections, 1);
    assert.match(helper.stderr, /^kemvi-helper: events loop: changed is used\n$/);
    assert.equal(await helper.end(), 0, 'an open connection does not keep it');
});

test('nothing is asked for before something has changed', async (t) => {
    const channel = new Channel(t);
    await channel.listen();
    const { helper, tell } = start(t, channel);
    await tell([]);
    assert.equal(await helper.end(), 0);
    assert.equal(channel.connections, 0);
});

test('very many paths are one: everything', async (t) => {
    const channel = new Channel(t);
    await channel.listen();
    const { helper } = start(t, channel);
    await helper.ok('getattr', { path: '/tellMany' });
    assert.deepEqual((await channel.request()).paths, ['/']);
});

test('many bytes of paths are several requests', async (t) => {
    const channel = new Channel(t);
    await channel.listen();
    const { tell } = start(t, channel);
    const paths = Array.from({ length: 500 }, (_, number) => `/${number}/${'x'.repeat(200)}`);
    await tell(paths);
    const told = [];
    while (told.length < paths.length) {
        const request = await channel.request();
        assert.ok(request.paths.join('/').length <= 64 * 1024);
        told.push(...request.paths);
        request.answer();
    }
    assert.deepEqual(told, paths);
});

test('what was not answered is told again on a new connection', async (t) => {
    const channel = new Channel(t);
    await channel.listen();
    const { helper, tell } = start(t, channel);
    await tell('/a');
    (await channel.request()).drop();
    await tell('/b');
    const again = await channel.request();
    assert.deepEqual(again.paths.sort(), ['/a', '/b']);
    again.answer();
    assert.equal(await helper.end(), 0);
});

test('a mount that is not there yet is told when it is', async (t) => {
    const channel = new Channel(t);
    const { helper, tell } = start(t, channel);
    await tell('/a');
    await helper.said(/changed: the mount is not to be reached at .*socket \(ENOENT\); goes on trying\n/);
    await channel.listen();
    const request = await channel.request();
    assert.deepEqual(request.paths, ['/a']);
    request.answer();
    assert.equal(await helper.end(), 0);
    assert.equal(helper.stderr.match(/not to be reached/g)?.length, 1, 'it is said once');
});

test('a refusal is said, and the next is told', async (t) => {
    const channel = new Channel(t);
    await channel.listen();
    const { helper, tell } = start(t, channel);
    await tell('/a');
    (await channel.request()).answer({ ok: false, error: { message: 'not this one', code: 'badMember' } });
    await tell('/b');
    assert.deepEqual((await channel.request()).paths, ['/b']);
    await helper.said(/changed: not this one\n/);
});

test('what is no path is said once, thrown never, and harms no other', async (t) => {
    const channel = new Channel(t);
    await channel.listen();
    const { helper, tell } = start(t, channel);
    await helper.ok('getattr', { path: '/tellOdd' });
    await tell(['', '/a/../b', '/nul\0', '/./a', '\ud800', '/good', '/..a']);
    await tell(['/a/../b']);
    assert.deepEqual((await channel.request()).paths, ['/good', '/..a']);
    for (const pattern of [
        /changed: expected a path, or several, not 3 /,
        /changed: 4 is no path/,
        /changed: "" is empty/,
        /changed: "\/a\/..\/b" has a part/,
        /changed: "\/nul\\u0000" holds a NUL/,
        /changed: "\/.\/a" has a part/,
        /changed: "\\ud800" is no well-formed text/,
    ]) {
        assert.equal(helper.stderr.match(new RegExp(pattern.source, 'g'))?.length, 1, `${pattern} in ${helper.stderr}`);
    }
});

test('without a mount, nothing is done and that is said once', async (t) => {
    const { helper, tell } = start(t, undefined);
    await tell('/a');
    await tell('/b');
    assert.equal(await helper.end(), 0);
    assert.equal(helper.stderr.match(/there is no mount to tell/g)?.length, 1);
});

test('in the blocking loop nobody is told, which is said once', async (t) => {
    const channel = new Channel(t);
    await channel.listen();
    const { helper, tell } = start(t, channel, 'blocking');
    await tell('/a');
    await tell('/b');
    assert.equal(await helper.end(), 0);
    assert.equal(helper.stderr.match(/nobody is told while the loop is blocking/g)?.length, 1);
    assert.equal(channel.connections, 0);
});

test('the tutorial\'s watching helper tells of a file that is made', async (t) => {
    const channel = new Channel(t);
    await channel.listen();
    const tutorial = fs.readFileSync(path.join(packageFolder, '../../docs/writing-a-helper.md'), 'utf8');
    const blocks = [...tutorial.matchAll(/^```js\n([^]*?)^```$/gm)].map((match) => match[1]);
    const folder = temporaryFolder(t);
    const served = temporaryFolder(t);
    fs.mkdirSync(path.join(folder, 'node_modules'));
    fs.symlinkSync(packageFolder, path.join(folder, 'node_modules/kemvi-helper'));
    fs.writeFileSync(path.join(folder, 'watching.mjs'), blocks.find((block) => block.includes('watch(root')) ?? '');
    const helper = new Driver(t, [process.execPath, path.join(folder, 'watching.mjs')], {
        KEMVI_CONTROL: channel.address,
        KEMVI_REPO_ROOT: served,
    });
    await helper.ok('ping');
    fs.writeFileSync(path.join(served, 'made'), '');
    const request = await channel.request();
    assert.deepEqual(request.paths, ['/made']);
    request.answer();
    assert.equal(await helper.end(), 0, helper.stderr);
});
