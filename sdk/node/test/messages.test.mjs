// What the author of a file system is told when something in it is not as it must be.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import fsp from 'node:fs/promises';
import test from 'node:test';
import { makeCodec } from '../src/base64/codec.mjs';
import { PosixError } from '../src/errors.mjs';
import { misnamed } from '../src/fileSystem.mjs';
import { Session } from '../src/session.mjs';
import { Driver, serverCommand, temporaryFolder } from './driver.mjs';

const tree = {
    getattr: (path) => (path === '/' ? { isDirectory: true } : { size: 1 }),
    readdir: () => [],
    read: () => Buffer.from('x'),
};

/** A session over a tree of which some functions are others, with all that it says and answers. */
class Talk {
    /** @param {object} functions */
    constructor(functions, lateAfter = 10_000) {
        this.said = '';
        this.written = '';
        const send = (bytes, from, to) => (this.written += bytes.toString('utf8', from, to));
        const say = (text) => {
            this.said += text + '\n';
            this.heard?.();
        };
        this.session = new Session({ ...tree, ...functions }, makeCodec(), send, say, lateAfter);
    }

    async ask(op, fields) {
        const line = Buffer.from(JSON.stringify({ id: '1', op, ...fields }));
        this.written = '';
        this.left = this.session.answer(line, 0, line.length);
        await this.left;
        return JSON.parse(this.written);
    }

    /** Opens /notes/a.txt and does something with it. */
    async withFile(op, fields = { offset: 0, length: 5 }, flags = ['read']) {
        const { result } = await this.ask('open', { path: '/notes/a.txt', flags });
        return this.ask(op, { handle: result.handle, ...fields });
    }
}

const fails = () => {
    throw new Error('a mistake');
};

for (const [op, functions, fields, flags] of [
    ['read', { read: fails }],
    ['write', { write: fails }, { offset: 0, dataBase64: '' }, ['write', 'create']],
    ['flush', { flush: fails }, {}],
    ['release', { release: fails }, {}],
]) {
    test(`a failure of ${op} names the path that was opened`, async () => {
        const talk = new Talk(functions);
        await talk.withFile(op, fields, flags);
        assert.match(talk.said, new RegExp(`^${op} of /notes/a\\.txt failed: Error: a mistake\n +at `));
    });
}

test('a failure of rename names both paths, one at the end the path that was open', async () => {
    const talk = new Talk({ write: () => {}, rename: fails, release: fails });
    await talk.ask('rename', { oldPath: '/a', newPath: '/b' });
    assert.match(talk.said, /^rename of \/a to \/b failed: Error/);
    await talk.ask('open', { path: '/c', flags: ['read'] });
    await talk.session.end();
    assert.match(talk.said, /^release of \/c failed: Error/m);
});

for (const [stat, message] of [
    [{ size: '12' }, 'stat of /a: size is "12" (a string); it must be a number of bytes, such as 12'],
    [{ size: 12n }, 'stat of /a: size is 12n (a bigint); it must be a number of bytes, such as 12'],
    [{}, 'stat of /a: size is undefined; it must be a number of bytes, such as 12' +
        '; with sizeUnknown: true the file is read to its end'],
    [{ size: Promise.resolve(1) },
        'stat of /a: size is a promise (is an await missing?); it must be a number of bytes, such as 12'],
    [null, 'stat of /a is null; it must be an object, such as {size: 12}; of what does not exist, ' +
        "throw new PosixError('ENOENT', 'there is no such file')"],
    [fs.statSync('/'), 'stat of /a: isDirectory is [Function (anonymous)] (a function); it must be true or false, ' +
        'such as {isDirectory: stat.isDirectory(), modifiedAt: stat.mtime}'],
    [{ size: 1, modifiedAt: '2024' }, 'stat of /a: modifiedAt is "2024" (a string); it must be a valid Date or ' +
        'milliseconds since 1970, such as new Date()'],
]) {
    test(`a wrong stat tells what came and what was wanted: ${message.slice(0, 60)}`, async () => {
        const talk = new Talk({ getattr: () => stat });
        const { error } = await talk.ask('getattr', { path: '/a' });
        assert.equal(error.message.replace('[Function: isDirectory]', '[Function (anonymous)]'), message);
        assert.equal(talk.said.split('\n').length, 2, 'the stack of the kit helps nobody');
    });
}

for (const [listing, message] of [
    [['a.txt'], /^listing of \/d: a member is "a.txt" \(a string\); it must be an object, such as \{name: "a.txt"/],
    [[(async () => ({ name: 'a' }))()], /^listing of \/d: a member is a promise \(is an await missing\?\); it must be/],
    [[{ name: 'a/b', size: 1 }], /^listing of \/d: the name of a member is "a\/b" \(a string\); it must be/],
    [(async function* () {})(), /^listing of \/d is .*; it must be an array .*; gather what comes with "for await"/],
    [undefined, /^listing of \/d is undefined; it must be an array of the folder's members, such as \[/],
]) {
    test(`a wrong listing tells what came and what was wanted: ${message}`, async () => {
        const { error } = await new Talk({ readdir: () => listing }).ask('readdir', { path: '/d' });
        assert.match(error.message, message);
    });
}

for (const [got, message] of [
    ['text', /is "text" \(a string\); it must be bytes, such as Buffer.from\("text"\), or how many .*, 0 to 5$/],
    [6, /is 6 \(a number\); it must be/],
    [{ bytesRead: 5, buffer: null }, /an object\); it must be .*; return its bytesRead$/],
    [undefined, /is undefined; it must be/],
]) {
    test(`what a wrong read gave is told: ${message}`, async () => {
        const { error } = await new Talk({ read: () => got }).withFile('read');
        assert.match(error.message, /^what read of \/notes\/a\.txt gave is /);
        assert.match(error.message, message);
    });
}

for (const [thrown, error, said] of [
    [{ code: 'ENOENT' }, { message: 'ENOENT', code: 'ENOENT' }, ''],
    [{ code: 'EACCES', message: 'no' }, { message: 'no', code: 'EACCES' }, ''],
    [new PosixError('EPERM'), { message: 'EPERM', code: 'EPERM', name: 'PosixError' }, ''],
    [new PosixError('ENOTFOUND', 'gone'), { message: 'gone', name: 'PosixError' },
        'getattr of /a failed: "ENOTFOUND" is no POSIX code; the program sees EIO: PosixError: gone\n'],
    [new PosixError('enoent', 'gone'), { message: 'gone', name: 'PosixError' },
        'getattr of /a failed: "enoent" is no POSIX code; write "ENOENT": PosixError: gone\n'],
    ['ENOENT', { message: 'ENOENT' }, "getattr of /a failed: the code \"ENOENT\" was thrown as a text; throw new " +
        "PosixError('ENOENT', 'why'): ENOENT\n"],
    [{ code: 'NONE' }, { message: "{ code: 'NONE' }" },
        "getattr of /a failed: \"NONE\" is no POSIX code; the program sees EIO: { code: 'NONE' }\n"],
    [null, { message: 'null' }, 'getattr of /a failed: null\n'],
    [Object.create(null), { message: '[Object: null prototype] {}' },
        'getattr of /a failed: [Object: null prototype] {}\n'],
]) {
    test(`what may be thrown: ${said || error.code}`, async () => {
        const talk = new Talk({ getattr: () => { throw thrown; } });
        assert.deepEqual((await talk.ask('getattr', { path: '/a' })).error, error);
        assert.equal(talk.said, said);
    });
}

test('an error of the network that is none of POSIX is named, with its stack', async () => {
    const talk = new Talk({ getattr: () => { throw Object.assign(new Error('who?'), { code: 'ENOTFOUND' }); } });
    await talk.ask('getattr', { path: '/a' });
    assert.match(talk.said, /^getattr of \/a failed: "ENOTFOUND" is no POSIX code; the program sees EIO: Error: who\?\n +at/);
});

test('functions that are never called and look like others are told with the right name', () => {
    const no = () => {};
    class Mine {
        unLink() {}
        mkDir() {}
        get size() {
            throw new Error('is not to be asked');
        }
    }
    class Derived extends Mine {
        rmdir() {}
        ftruncate() {}
        raed() {}
        reads() {}
        helper() {}
        unlink_() {}
    }
    const told = (fileSystem) => misnamed(fileSystem).map((line) => line.slice("the file system's function ".length));
    assert.deepEqual(told(Object.assign(new Derived(), { write: no, read_dir: no, getAttr: no })), [
        'read_dir is never called: did you mean readdir?',
        'getAttr is never called: did you mean getattr?',
        'rmdir is never called: unlink removes files and empty folders',
        'ftruncate is never called: open with flags.truncate empties a file, and write writes what is to stay',
        'raed is never called: did you mean read?',
        'reads is never called: did you mean read?',
        'unLink is never called: did you mean unlink?',
        'mkDir is never called: did you mean mkdir?',
    ]);
    // Beside the right one they are the author's own.
    assert.deepEqual(told({ ...tree, reads: no, stat: no, list: no, unlink: no, remove: no }), []);
    assert.deepEqual(told(new Proxy(tree, {})), []);
});

test('serve says at its start which functions are never called', async (t) => {
    const helper = new Driver(t, serverCommand('variant', 'misnamed'));
    await helper.said(/^kemvi-helper: serve: the file system's function unLink is never called: did you mean unlink\?$/m);
    const missing = new Driver(t, serverCommand('variant', 'misnamedRequired'));
    assert.equal(await missing.exit, 1);
    assert.match(missing.stderr, /no function readdir; the file system's function readDir is never called: did you mean/);
});

const beginsFileWork = { write: () => {}, mkdir: (path) => void fsp.readFile('/dev/null').catch(() => path) };

test('an await that was forgotten in a plain function is named, once', async () => {
    const talk = new Talk(beginsFileWork);
    await talk.ask('mkdir', { path: '/a' });
    assert.match(talk.said, /^mkdir of \/a was answered while something that it began still goes on \(FSReq\w+\): is an await/);
    assert.ok(talk.left instanceof Promise, 'the loop changes, in which that can go on');
    talk.said = '';
    await talk.ask('mkdir', { path: '/b' });
    assert.equal(talk.said, '');
});

test('an await that was forgotten in an async function is named too', async () => {
    const talk = new Talk({ write: () => {}, mkdir: async (path) => beginsFileWork.mkdir(path) });
    await talk.ask('mkdir', { path: '/a' });
    assert.match(talk.said, /^mkdir of \/a was answered while .* \(FSReqPromise\): is an await or a return missing\?\n$/);
});

test('what a plain function leaves going on goes on, in the blocking loop as well', async (t) => {
    const file = temporaryFolder(t) + '/made';
    const helper = new Driver(t, serverCommand('variant', 'forgetsAwait', file));
    await helper.ok('mkdir', { path: '/d' });
    await helper.said(/is an await or a return missing\?/);
    await helper.said(/made it/);
    assert.ok(fs.existsSync(file));
});

test('functions that await, print or leave nothing are not told of', async () => {
    const talk = new Talk({ getattr: async () => (await fsp.stat('/'), console.error('x'), { isDirectory: true }) });
    await talk.ask('getattr', { path: '/' });
    await talk.ask('readdir', { path: '/' });
    assert.equal(talk.said, '');
    assert.equal(talk.left, undefined);
});

test('an open that gives nothing is told', async () => {
    const talk = new Talk({ open: () => {} });
    await talk.ask('open', { path: '/a', flags: ['read'] });
    assert.match(talk.said, /^open of \/a gave nothing, .*: is a return missing\?\n$/);
});

test('a promise that is not settled is told while it is awaited, and when it is', async () => {
    let settle = () => {};
    const talk = new Talk({ getattr: () => new Promise((resolve) => (settle = () => resolve({ size: 1 }))) }, 20);
    const answer = talk.ask('getattr', { path: '/slow' });
    const alive = setInterval(() => {}, 1000);
    await new Promise((resolve) => (talk.heard = resolve));
    clearInterval(alive);
    assert.match(talk.said, /^getattr of \/slow has not been answered for 0.02 s, and the mount waits: is its promise/);
    talk.said = '';
    settle();
    await answer;
    assert.match(talk.said, /^getattr of \/slow is answered after \d+\.\d s\n$/);
    talk.said = '';
    talk.session.fileSystem.getattr = async () => ({ size: 1 });
    await talk.ask('getattr', { path: '/fast' });
    assert.equal(talk.said, '');
});
