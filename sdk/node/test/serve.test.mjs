// What the loop promises, whatever the file system's functions are like.
import assert from 'node:assert/strict';
import { createHash, randomBytes } from 'node:crypto';
import path from 'node:path';
import test from 'node:test';
import { betweenPipes, Driver, helperCommand, packageFolder, serverCommand } from './driver.mjs';
import { pattern } from './servers/oddFileSystem.mjs';

for (const kind of ['plain', 'async', 'promising']) {
    /** @type {Map<string, (helper: Driver) => Promise<void>>} */
    const checks = new Map();
    /**
     * @param {string} name
     * @param {(helper: Driver) => Promise<void>} body
     */
    const check = (name, body) => checks.set(name, body);

    test(`${kind} functions`, { timeout: 60_000 }, async (t) => {
        const helper = new Driver(t, serverCommand(kind));
        for (const [name, body] of checks) {
            await t.test(name, async () => {
                helper.stderr = '';
                await body(helper);
                assert.equal(helper.received.length, 0, 'more was written than was asked for');
            });
        }
        assert.equal(await helper.end(), 0, helper.stderr);
        assert.match(helper.stderr, /ended\nafter serve\n$/);
    });

    const text = async (helper, sent) => {
        helper.send(sent);
        return helper.line();
    };

    check('the answers to many lines at once come in order', async (helper) => {
        const ids = Array.from({ length: 500 }, (_, index) => String(index));
        helper.send(ids.map((id) => Driver.requestLine(id, id % 2 ? 'getattr' : 'ping', { path: '/file' })).join(''));
        for (const id of ids) assert.equal(JSON.parse(await helper.line()).id, id);
    });

    check('a line may arrive in pieces of one byte', async (helper) => {
        for (const byte of Buffer.from('{"id":"x","op":"getattr","path":"\\/file"}\n')) {
            helper.send(Buffer.from([byte]));
            await new Promise((resolve) => setImmediate(resolve));
        }
        assert.equal(JSON.parse(await helper.line()).result.size, 3);
    });

    check('a success without a result has only id and ok', async (helper) => {
        assert.equal(await text(helper, '{"id":"1","op":"ping"}\n'), '{"id":"1","ok":true}');
    });

    check('ids are echoed exactly', async (helper) => {
        for (const id of ['', '007', 'a"b\\c\n', 'gr\u00fc\u00df \u{1f600}', '1'.repeat(300)]) {
            assert.equal(JSON.parse(await text(helper, JSON.stringify({ id, op: 'ping' }) + '\n')).id, id);
        }
    });

    check('keys may come in any order, with spaces, unknown keys and a carriage return', async (helper) => {
        const answer = await text(helper, ' { "path" : "/file", "x": [1, {}], "op": "getattr", "id": "9" } \r\n');
        assert.equal(JSON.parse(answer).result.name, 'file');
    });

    check('getattr gives path, name, kind, size and time', async (helper) => {
        assert.deepEqual(await helper.ok('getattr', { path: '/sub/a b' }), {
            path: '/sub/a b', name: 'a b', isDirectory: false, size: 3, modifiedAt: '2024-05-01T12:34:56.789Z',
        });
        const root = await helper.ok('getattr', { path: '/' });
        assert.deepEqual([root.path, root.name, root.isDirectory, root.size], ['/', '/', true, 0]);
        assert.equal((await helper.ok('getattr', { path: '/milliseconds' })).modifiedAt, '2024-05-01T12:34:56.789Z');
    });

    check('readdir gives every member its path below the folder', async (helper) => {
        const paths = async (path) => (await helper.ok('readdir', { path })).map((entry) => [entry.path, entry.name]);
        assert.deepEqual(await paths('/'), [['/file', 'file'], ['/sub', 'sub']]);
        assert.deepEqual(await paths('/generator'), [['/generator/x', 'x']]);
        assert.deepEqual(await paths('/empty'), []);
        const names = ['a"b', 'back\\slash', 'line\nbreak', 'gr\u00fc\u00df', '\u{1f600}', '.dot'];
        assert.deepEqual(await paths('/names'), names.map((name) => ['/names/' + name, name]));
    });

    check('a listing that fails half-way is a failure', async (helper) => {
        assert.equal(await helper.code('readdir', { path: '/soon' }), 'EACCES');
        assert.equal(await helper.code('readdir', { path: '/late' }), 'EACCES');
        assert.equal((await helper.ok('readdir', { path: '/' })).length, 2);
    });

    check('POSIX errors keep their code and message', async (helper) => {
        const { error } = await helper.request('getattr', { path: '/posix' });
        assert.deepEqual(error, { message: 'so it is', code: 'ENOTEMPTY', name: 'PosixError' });
        assert.equal(await helper.code('getattr', { path: '/system' }), 'ENOENT');
    });

    check('any other exception has no code, is printed with its stack, and ends nothing', async (helper) => {
        assert.equal(await helper.code('getattr', { path: '/fault' }), undefined);
        assert.equal(await helper.code('getattr', { path: '/text' }), undefined);
        assert.equal(await helper.code('getattr', { path: '/nodeCode' }), undefined);
        await helper.ok('ping');
        await helper.said(/getattr of \/fault failed: TypeError: a mistake of the author\n +at .*oddFileSystem/);
        await helper.said(/getattr of \/text failed: only a text/);
    });

    check('what would silently become 0 or 1970 is an error that names the path', async (helper) => {
        const paths = ['nothing', 'textSize', 'fractionSize', 'noSize', 'textFlag', 'textTime', 'invalidTime'];
        for (const name of paths) {
            const { ok, error } = await helper.request('getattr', { path: '/' + name });
            assert.equal(ok, false, name);
            assert.match(error.message, new RegExp(`^stat of /${name}.* is .*; it must be .*, such as `));
        }
    });

    check('a list with a name that is none is an error', async (helper) => {
        for (const path of ['/slash', '/dots', '/nameless', '/noList']) {
            const { ok, error } = await helper.request('readdir', { path });
            assert.equal(ok, false, path);
            assert.match(error.message, new RegExp(`^(listing|stat) of ${path}.* is .*; it must be `));
        }
    });

    check('a line that is no JSON is answered when it shows an id', async (helper) => {
        for (const line of ['{"id":"5","op":"ping"', '{"id":"5"', '{"id":"5","op":}', '{"id":"5","op":"ping"}}']) {
            const answer = JSON.parse(await text(helper, line + '\n'));
            assert.deepEqual([answer.id, answer.ok, answer.error.code], ['5', false, 'EINVAL'], line);
        }
    });

    check('a line without an id is reported, not answered', async (helper) => {
        helper.send('garbage\n\n[]\n"text"\n{"op":"ping"}\nnull\n{"id":null,"op":"ping"}\n');
        await helper.ok('ping');
        await helper.said(/cannot be read: .*: "garbage"\n(kemvi-helper: [^\n]*\n){6}$/);
    });

    check('an id that is a number is told to be wrong', async (helper) => {
        const answer = JSON.parse(await text(helper, '{"id":7,"op":"ping"}\n'));
        assert.deepEqual([answer.id, answer.error.message], ['7', 'id of the request must be a string']);
    });

    check('a request without an operation, or with an unknown one, is EINVAL', async (helper) => {
        assert.equal(JSON.parse(await text(helper, '{"id":"1"}\n')).error.code, 'EINVAL');
        for (const op of ['nonsense', '', 'constructor', '__proto__', 'toString']) {
            assert.equal(await helper.code(op, { path: '/' }), 'EINVAL', op);
        }
    });

    check('fields of the wrong type are EINVAL', async (helper) => {
        const { handle } = await helper.ok('open', { path: '/file', flags: ['read', 'write'] });
        const wrong = [
            ['getattr', {}], ['getattr', { path: 5 }], ['getattr', { path: 'file' }], ['readdir', { path: '' }],
            ['chmod', { path: '/a', mode: '0644' }],
            ['chmod', { path: '/a', mode: 4096 }], ['rename', { oldPath: '/a' }],
            ['utimes', { path: '/a', mtime: 5 }], ['utimes', { path: '/a', mtime: '2024-05-01T12:34:56Z' }],
            ['read', { handle, offset: -1, length: 1 }], ['read', { handle, offset: 0, length: 1.5 }],
            ['read', { handle, offset: 0 }], ['write', { handle, offset: '0', dataBase64: '' }],
            ['write', { handle, offset: 0 }], ['open', { path: '/a' }], ['open', { path: '/a', flags: [] }],
            ['open', { path: '/a', flags: ['append'] }], ['open', { path: '/a', flags: ['read', 'create'] }],
            ['open', { path: '/a', flags: 'read' }],
        ];
        for (const [op, fields] of wrong) {
            assert.equal(await helper.code(op, fields), 'EINVAL', JSON.stringify([op, fields]));
        }
    });

    check('handles are numbers that never come twice, and end with release', async (helper) => {
        const open = async (flags) => (await helper.ok('open', { path: '/file', flags })).handle;
        const first = await open(['read']);
        const second = await open(['write', 'create']);
        assert.notEqual(first, second);
        assert.equal(await helper.code('read', { handle: second, offset: 0, length: 1 }), 'EBADF');
        assert.equal(await helper.code('write', { handle: first, offset: 0, dataBase64: '' }), 'EBADF');
        await helper.ok('release', { handle: first });
        for (const op of ['read', 'flush', 'release']) {
            assert.equal(await helper.code(op, { handle: first, offset: 0, length: 1 }), 'EBADF', op);
        }
        assert.equal(await helper.code('flush', { handle: String(second) }), 'EBADF');
        assert.notEqual(await open(['read']), first);
    });

    check('a handle is given back even when release fails', async (helper) => {
        const { handle } = await helper.ok('open', { path: '/releaseFails', flags: ['read'] });
        assert.equal(await helper.code('release', { handle }), 'EPERM');
        assert.equal(await helper.code('release', { handle }), 'EBADF');
    });

    check('reads give the bytes asked for, however they are returned', async (helper) => {
        for (const path of ['/file', '/intoBuffer', '/tooMuch']) {
            const { handle } = await helper.ok('open', { path, flags: ['read'] });
            for (const [offset, length] of [[0, 0], [0, 1], [7, 2], [5, 3], [3, 65536], [1, 49153], [11, 1 << 20]]) {
                const bytes = await helper.ok('read', { handle, offset, length });
                assert.ok(bytes.equals(pattern(offset, length)), `${path} ${offset} ${length}`);
            }
        }
    });

    check('a read at the end of the file is short, past it empty', async (helper) => {
        const { handle } = await helper.ok('open', { path: '/short', flags: ['read'] });
        assert.equal((await helper.ok('read', { handle, offset: 0, length: 1000 })).length, 100);
        assert.equal((await helper.ok('read', { handle, offset: 100, length: 1000 })).length, 0);
        assert.equal((await helper.ok('read', { handle, offset: 0, length: 2 ** 40 })).length, 100);
    });

    check('a long read comes in one answer of many pieces', async (helper) => {
        const { handle } = await helper.ok('open', { path: '/intoBuffer', flags: ['read'] });
        const bytes = await helper.ok('read', { handle, offset: 1, length: 8_000_001 });
        assert.ok(bytes.equals(pattern(1, 8_000_001)));
    });

    check('a long read that fails half-way is a failure', async (helper) => {
        const { handle } = await helper.ok('open', { path: '/breaksAt2M', flags: ['read'] });
        assert.equal(await helper.code('read', { handle, offset: 0, length: 4 << 20 }), 'EPERM');
        assert.equal((await helper.ok('read', { handle, offset: 0, length: 10 })).length, 10);
    });

    check('a read that gives neither bytes nor a possible count is an error', async (helper) => {
        for (const path of ['/count', '/string']) {
            const { handle } = await helper.ok('open', { path, flags: ['read'] });
            assert.equal(await helper.code('read', { handle, offset: 0, length: 5 }), undefined);
        }
    });

    check('written bytes arrive as they were sent', async (helper) => {
        const flags = ['read', 'write', 'create'];
        for (const size of [0, 1, 2, 3, 100, 380, 1000, 65536, (1 << 20) + 1, 8 << 20]) {
            const { handle } = await helper.ok('open', { path: '/written', flags });
            const data = randomBytes(size);
            await helper.ok('write', { handle, offset: 0, dataBase64: data.toString('base64') });
            const got = await helper.ok('read', { handle, offset: 0, length: size + 10 });
            const sum = (bytes) => createHash('sha256').update(bytes).digest('hex');
            assert.equal(sum(got), sum(data), `${size} bytes`);
        }
    });

    check('a payload may stand anywhere in the line, with its slashes escaped or not', async (helper) => {
        const data = Buffer.concat([Buffer.alloc(600, 255), randomBytes(900)]); // begins with slashes
        const plain = data.toString('base64');
        const escaped = plain.replaceAll('/', '\\/');
        const lines = (handle) => [
            `{"dataBase64":"${escaped}","id":"w","op":"write","handle":${handle},"offset":0}`,
            `{"id":"w","dataBase64":"${plain}","op":"write","handle":${handle},"offset":0}`,
            `{"id":"w","op":"write","handle":${handle},"offset":0,"dataBase64" : "${escaped}"}`,
            `{"id":"w","op":"write","x":"\\"dataBase64\\":\\"","handle":${handle},"offset":0,"dataBase64":"${plain}"}`,
        ];
        for (let i = 0; i < 4; i++) {
            const { handle } = await helper.ok('open', { path: '/written', flags: ['read', 'write'] });
            const line = lines(handle)[i];
            assert.equal(JSON.parse(await text(helper, line + '\n')).ok, true, line.slice(0, 60));
            assert.ok((await helper.ok('read', { handle, offset: 0, length: 5000 })).equals(data), line.slice(0, 60));
        }
    });

    check('a payload that is not padded base64 is EINVAL and nothing is written', async (helper) => {
        const { handle } = await helper.ok('open', { path: '/written', flags: ['read', 'write'] });
        for (const filling of ['', 'AAAA'.repeat(200)]) {
            const wrong = ['A', 'AA', 'AAA', 'A===', '====', 'AA=A', 'AA==AAAA', 'AA-_', 'AA A', '\u00e4AAA', 'A\\AA'];
            for (const dataBase64 of wrong) {
                const fields = { handle, offset: 0, dataBase64: filling + dataBase64 };
                assert.equal(await helper.code('write', fields), 'EINVAL', fields.dataBase64.slice(-12));
            }
        }
        assert.equal((await helper.ok('read', { handle, offset: 0, length: 10 })).length, 0);
    });

    check('errors of write and flush reach the program', async (helper) => {
        const full = await helper.ok('open', { path: '/full', flags: ['write'] });
        assert.equal(await helper.code('write', { handle: full.handle, offset: 0, dataBase64: 'AAAA' }), 'ENOSPC');
        const failing = await helper.ok('open', { path: '/flushFails', flags: ['write'] });
        assert.equal(await helper.code('flush', { handle: failing.handle }), 'EPERM');
    });

    check('modes are numbers, times are Dates', async (helper) => {
        await helper.ok('chmod', { path: '/file', mode: 0o755 });
        await helper.ok('utimes', { path: '/file', mtime: '2024-05-01T14:34:56.789+02:00' });
        await helper.ok('rename', { oldPath: '/a', newPath: '/b' });
        await helper.said(/chmod \/file 493\nutimes \/file 1714566896789\nrename \/a \/b\n/);
        assert.deepEqual(await helper.ok('statfs'), { files: 1, directories: 2, bytes: 3 });
    });

    check('a change that the file system lacks is EPERM', async (helper) => {
        assert.equal(await helper.code('mkdir', { path: '/d' }), 'EPERM');
        assert.equal(await helper.code('unlink', { path: '/d' }), 'EPERM');
    });

    test(`${kind} functions: what is open at the end of the input is given back, also past a failure`, async (t) => {
        const helper = new Driver(t, serverCommand(kind));
        for (const path of ['/one', '/releaseFails', '/two']) await helper.ok('open', { path, flags: ['read'] });
        assert.equal(await helper.end(), 0);
        assert.match(helper.stderr, /released \/one\n[^]*\/releaseFails\n[^]*released \/two\nended\nafter serve\n$/);
    });

    test(`${kind} functions: nothing but answers reaches standard output`, async (t) => {
        const helper = new Driver(t, betweenPipes(serverCommand(kind)));
        for (const path of ['/prints', '/printsBelow', '/file']) {
            assert.equal((await helper.ok('getattr', { path })).path, path);
        }
        await helper.end();
        for (const words of ['console.log', 'process.stdout.write', 'fs.writeSync', 'from a child', 'exit status 0']) {
            assert.ok(helper.stderr.includes(words + '\n'), words);
        }
    });

    test(`${kind} functions: an input that ends within a line is reported`, async (t) => {
        const helper = new Driver(t, betweenPipes(serverCommand(kind)));
        helper.send('{"id":"1","op":"pi');
        await helper.end();
        assert.match(helper.stderr, /the input ended within a line\n[^]*exit status 0/);
    });

    test(`${kind} functions: a reader of the answers that goes away ends the helper in order`, async (t) => {
        const pipeline = 'cat | { "$0" "$@"; echo "exit status $?" >&2; } | head -1';
        const helper = new Driver(t, ['sh', '-c', pipeline, ...serverCommand(kind)]);
        helper.send('{"id":"1","op":"open","path":"/file","flags":["read"]}\n');
        await helper.line();
        let running = true;
        helper.exit.then(() => (running = false));
        while (running) {
            helper.send('{"id":"2","op":"ping"}\n'); // until one of them finds the reader gone
            await new Promise((resolve) => setImmediate(resolve));
        }
        assert.match(helper.stderr, /released \/file\nended\nafter serve\nexit status 0/);
    });
}

const variant = (t, name) => new Driver(t, betweenPipes(serverCommand('variant', name)), { KEMVI_HELPER_DEBUG: '' });

test('without a function write every change is EROFS', async (t) => {
    const helper = variant(t, 'readOnly');
    const changes = [
        ['open', { path: '/f', flags: ['write', 'create'] }], ['open', { path: '/f', flags: ['read', 'write'] }],
        ['mkdir', { path: '/d' }], ['unlink', { path: '/f' }], ['rename', { oldPath: '/f', newPath: '/g' }],
        ['chmod', { path: '/f', mode: 1 }], ['utimes', { path: '/f', mtime: '2024-05-01T12:34:56.789Z' }],
    ];
    for (const [op, fields] of changes) assert.equal(await helper.code(op, fields), 'EROFS', op);
});

test('without a function open a file is its path, and a folder cannot be opened', async (t) => {
    const helper = variant(t, 'readOnly');
    const { handle } = await helper.ok('open', { path: '/f', flags: ['read'] });
    assert.equal(String(await helper.ok('read', { handle, offset: 0, length: 5 })), 'x');
    await helper.ok('flush', { handle });
    await helper.ok('release', { handle });
    assert.equal(await helper.code('open', { path: '/', flags: ['read'] }), 'EISDIR');
    assert.deepEqual(await helper.ok('statfs'), { files: 0, directories: 0, bytes: 0 });
    assert.match((await helper.ok('getattr', { path: '/f' })).modifiedAt, /^20\d\d-/);
});

for (const [name, message] of [
    ['incomplete', /TypeError: serve: the file system has no function read\n/],
    ['notAFunction', /TypeError: serve: mkdir of the file system must be a function\n/],
    ['noObject', /TypeError: serve: the file system must be an object with getattr, readdir and read\n/],
    ['wrongLoop', /TypeError: serve: loop must be "blocking" or "events", not "fast"\n/],
]) {
    test(`serve refuses what it cannot serve: ${name}`, async (t) => {
        const helper = new Driver(t, serverCommand('variant', name));
        assert.equal(await helper.exit, 1);
        assert.match(helper.stderr, message);
    });
}

for (const [name, loop] of [
    ['askedForEvents', 'events loop: as asked'],
    ['timer', 'events loop: Timeout active'],
    ['timerAfterwards', 'events loop: Timeout active'],
    ['printsFirst', 'blocking loop: plain functions, nothing else active'],
]) {
    test(`the loop is chosen by what goes on in the process: ${name}`, async (t) => {
        const helper = new Driver(t, betweenPipes(serverCommand('variant', name)), { KEMVI_DRIVE_ID: 'test' });
        await helper.ok('ping');
        await helper.end(); // a timer left running does not keep the helper
        assert.ok(helper.stderr.includes(`kemvi-helper: ${loop}\n`), helper.stderr);
        assert.match(helper.stderr, /exit status 0\n/);
    });
}

test('the debug setting tells the loop, and when it changes', async (t) => {
    for (const [kind, line] of [
        ['plain', 'blocking loop: plain functions, nothing else active'],
        ['async', 'events loop: getattr, readdir, read, open, .* async'],
        ['promising', 'events loop from here on: a function returned a promise'],
    ]) {
        const helper = new Driver(t, serverCommand(kind), { KEMVI_HELPER_DEBUG: '1' });
        await helper.request('getattr', { path: '/file' });
        await helper.ok('ping');
        await helper.said(new RegExp(`^kemvi-helper: ${line}`, 'm'));
    }
});

test('what is printed before serve does not reach the answers of a mount either', async (t) => {
    const helper = new Driver(t, betweenPipes(serverCommand('variant', 'printsFirst')), { KEMVI_DRIVE_ID: '' });
    await helper.ok('ping');
    await helper.said(/before serve\n/);
});

for (const name of ['strayFailure', 'strayRejection']) {
    test(`a failure that nobody waits for turns the awaited answer into an error: ${name}`, async (t) => {
        const helper = variant(t, name);
        assert.equal(await helper.code('getattr', { path: '/never' }), undefined);
        await helper.ok('getattr', { path: '/f' });
        await helper.said(/unhandled: (SyntaxError|Error: left alone)/);
    });
}

test('a release that never ends does not keep the helper', async (t) => {
    const helper = variant(t, 'neverReleases');
    await helper.ok('open', { path: '/f', flags: ['read'] });
    await helper.end();
    assert.match(helper.stderr, /still busy 2 s after the end of the input[^]*exit status 0/);
});

for (const name of ['neverSettles', 'neverSettlesAsync']) {
    test(`a promise that never settles neither ends the helper nor goes unnoticed: ${name}`, async (t) => {
        const helper = variant(t, name);
        const { handle } = await helper.ok('open', { path: '/f', flags: ['read'] });
        assert.equal(typeof handle, 'number');
        helper.send(Driver.requestLine('last', 'getattr', { path: '/never' }));
        await helper.said(/still here/); // by then node would have ended
        helper.child.stdin.end();
        assert.match(JSON.parse(await helper.line()).error.message, /never settled/);
        await helper.exit;
        assert.match(helper.stderr, /getattr of \/never failed: Error: its promise was never settled[^]*exit status 0/);
    });
}

test('an answer that comes after the end of the input is written all the same', async (t) => {
    const helper = variant(t, 'settlesLate');
    for (const path of ['/f', '/f']) {
        const answer = helper.request('getattr', { path });
        if (helper.lastId === 2) helper.child.stdin.end();
        assert.equal((await answer).ok, true);
    }
    await helper.exit;
    assert.match(helper.stderr, /exit status 0/);
    const first = variant(t, 'settlesLate'); // also when it is the first promise
    const answer = first.request('getattr', { path: '/f' });
    first.child.stdin.end();
    assert.equal((await answer).ok, true);
});

// A setting of V8 holds for the whole process, which is not the kit's but its user's.
for (const [name, command, sets] of [
    ['a program that uses the kit keeps its settings of V8', serverCommand('plain'), false],
    ['a helper that ships has V8 compile late', helperCommand('memory'), true],
]) {
    test(name, { timeout: 60_000 }, async (t) => {
        const [node, ...script] = command;
        const telling = path.join(packageFolder, 'test', 'servers', 'tellsOfSettings.cjs');
        const helper = new Driver(t, [node, '--require', telling, ...script]);
        await helper.ok('ping');
        await helper.end();
        assert.equal(/V8 is set: --interrupt-budget=\d/.test(helper.stderr), sets, helper.stderr);
    });
}
