import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { Driver, helperCommand, temporaryFolder } from './driver.mjs';

const header = '{"recording":1,"kemvi":"0.1.0","started":"2026-11-22T12:00:00.000000Z","payloads":"full","names":"plain"}';
const stat = (name, size) => ({ path: `/${name}`, name, isDirectory: false, size, modifiedAt: '2024-05-01T12:34:56.789Z' });
const missing = { ok: false, error: { message: 'no such file', code: 'ENOENT' } };

/** The text of a recording of these exchanges: pairs of request and answer. */
function recording(exchanges, first = header) {
    const lines = exchanges.map(([q, a], index) => JSON.stringify({ t: index, d: 1, q: { id: String(index + 1), ...q }, a: a && { id: String(index + 1), ...a } }));
    return [first, ...lines].join('\n') + '\n';
}

/** @param {import('node:test').TestContext} t */
function replaying(t, exchanges, first) {
    const folder = temporaryFolder(t);
    fs.writeFileSync(path.join(folder, 'a.kemvi-record'), recording(exchanges, first));
    return new Driver(t, helperCommand('replay'), { KEMVI_REPO_ROOT: folder });
}

const getattr = { op: 'getattr', path: '/a' };
const mkdir = (name) => [{ op: 'mkdir', path: name }, { ok: true }];

test('what was asked is answered as it was, errors and oddities included', async (t) => {
    const helper = replaying(t, [
        [{ op: 'ping' }, { ok: true, result: { more: 1 } }],
        [getattr, { ok: true, result: { path: '/a', size: 'text' } }],
        [{ op: 'getattr', path: '/b' }, missing],
    ]);
    assert.deepEqual(await helper.ok('ping'), { more: 1 });
    assert.deepEqual(await helper.ok('getattr', { path: '/a' }), { path: '/a', size: 'text' });
    assert.equal(await helper.code('getattr', { path: '/b' }), 'ENOENT');
    assert.equal(await helper.end(), 0);
});

test('files are opened under new numbers and read by their path', async (t) => {
    const open = (handle) => [{ op: 'open', path: '/a', flags: ['read'] }, { ok: true, result: { handle } }];
    const helper = replaying(t, [
        open(7),
        [{ op: 'read', handle: 7, offset: 0, length: 9 }, { ok: true, dataBase64: 'AAAA' }],
        open(7),
        [{ op: 'read', handle: 7, offset: 0, length: 9 }, { ok: true, dataBase64: 'BBBB' }],
    ]);
    const first = await helper.ok('open', { path: '/a', flags: ['read'] });
    const second = await helper.ok('open', { path: '/a', flags: ['read'] });
    assert.notEqual(first.handle, second.handle);
    const read = (handle) => helper.request('read', { handle, offset: 0, length: 9 });
    assert.equal((await read(first.handle)).dataBase64, 'AAAA');
    assert.equal((await read(second.handle)).dataBase64, 'BBBB');
    assert.equal((await read(second.handle)).dataBase64, 'BBBB', 'asked more often than it was recorded');
    assert.equal((await helper.request('release', first)).ok, true, 'recorded or not');
});

test('looks are answered from between the same changes, however often they come', async (t) => {
    const helper = replaying(t, [
        [getattr, { ok: true, result: stat('a', 1) }],
        [getattr, { ok: true, result: stat('a', 2) }],
        mkdir('/x'),
        [getattr, { ok: true, result: stat('a', 3) }],
    ]);
    const size = async () => (await helper.ok('getattr', { path: '/a' })).size;
    assert.deepEqual([await size(), await size(), await size()], [1, 2, 2]);
    await helper.ok('mkdir', { path: '/x' });
    assert.deepEqual([await size(), await size()], [3, 3]);
});

test('a look that was not recorded at this time is answered from before, or from after a change of what is looked at', async (t) => {
    const changes = [mkdir('/x'), [{ op: 'unlink', path: '/a' }, { ok: true }], mkdir('/y'), mkdir('/z')];
    const helper = replaying(t, [
        [getattr, { ok: true, result: stat('a', 1) }],
        ...changes,
        [getattr, missing],
    ]);
    await helper.ok('mkdir', { path: '/x' });
    assert.equal((await helper.ok('getattr', { path: '/a' })).size, 1);
    await helper.ok('unlink', { path: '/a' });
    assert.equal(await helper.code('getattr', { path: '/a' }), 'ENOENT');
});

test('what was still to be made is not there yet', async (t) => {
    const helper = replaying(t, [
        mkdir('/d'),
        [{ op: 'getattr', path: '/d' }, { ok: true, result: stat('d', 0) }],
        [{ op: 'readdir', path: '/' }, { ok: true, result: [stat('a', 1), stat('d', 0)] }],
    ]);
    const names = async () => (await helper.ok('readdir', { path: '/' })).map((entry) => entry.name);
    assert.equal(await helper.code('getattr', { path: '/d' }), 'ENOENT');
    assert.deepEqual(await names(), ['a']);
    await helper.ok('mkdir', { path: '/d' });
    assert.equal((await helper.ok('getattr', { path: '/d' })).name, 'd');
    assert.deepEqual(await names(), ['a', 'd']);
});

test('what was only listed has the attributes of the listing', async (t) => {
    const helper = replaying(t, [[{ op: 'readdir', path: '/' }, { ok: true, result: [stat('a', 4)] }]]);
    assert.deepEqual(await helper.ok('getattr', { path: '/a' }), stat('a', 4));
});

test('what the recording does not tell is refused, and said', async (t) => {
    const helper = replaying(t, []);
    assert.equal(await helper.code('getattr', { path: '/n' }), 'ENOENT');
    assert.equal(await helper.code('readdir', { path: '/n' }), 'EIO');
    assert.equal(await helper.code('mkdir', { path: '/n' }), 'EROFS');
    assert.equal((await helper.request('flush', { handle: 3 })).ok, true);
    await helper.said(/does not tell: mkdir \/n/);
});

test('hidden files are known by whatever name this mount gives them', async (t) => {
    const recorded = '/.kemvi-hidden-0123ABCD-1';
    const now = '/.kemvi-hidden-89ABCDEF-1';
    const helper = replaying(t, [
        [{ op: 'rename', oldPath: '/a', newPath: recorded }, { ok: true }],
        [{ op: 'getattr', path: recorded }, { ok: true, result: stat(recorded.slice(1), 1) }],
    ]);
    await helper.ok('rename', { oldPath: '/a', newPath: now });
    assert.deepEqual(await helper.ok('getattr', { path: now }), stat(now.slice(1), 1));
});

test('bytes that were not recorded are zeros', async (t) => {
    const helper = replaying(t, [
        [{ op: 'open', path: '/a', flags: ['read'] }, { ok: true, result: { handle: 1 } }],
        [{ op: 'read', handle: 1, offset: 0, length: 9 }, { ok: true, dataLength: 4, dataSHA256: '00' }],
    ], header.replace('full', 'hash'));
    const { handle } = await helper.ok('open', { path: '/a', flags: ['read'] });
    assert.deepEqual(await helper.ok('read', { handle, offset: 0, length: 9 }), Buffer.alloc(4));
    await helper.said(/holds no contents/);
});

test('a helper that ended without an answer ends again', async (t) => {
    const helper = replaying(t, [[getattr, null]]);
    helper.send(Driver.requestLine('1', 'getattr', { path: '/a' }));
    assert.equal(await helper.exit, 1);
    assert.match(helper.stderr, /gave no answer to getattr/);
});

test('a recording that was cut off, or compressed, is read as far as it goes', async (t) => {
    const folder = temporaryFolder(t);
    const text = recording([[getattr, { ok: true, result: stat('a', 1) }]]) + '{"t":1,"q":{"op":"ge';
    const file = path.join(folder, 'b.kemvi-record');
    fs.writeFileSync(file, text);
    const helper = new Driver(t, helperCommand('replay'), { KEMVI_RECORDING: file });
    assert.equal((await helper.ok('getattr', { path: '/a' })).size, 1);
    if (spawnSync('zstd', ['-q', file]).status === 0) {
        const packed = new Driver(t, helperCommand('replay'), { KEMVI_RECORDING: `${file}.zst` });
        assert.equal((await packed.ok('getattr', { path: '/a' })).size, 1);
    }
});

test('what is no recording, or one too many, is refused by name', async (t) => {
    const folder = temporaryFolder(t);
    const refusal = async (environment) => {
        const helper = new Driver(t, helperCommand('replay'), environment);
        assert.equal(await helper.exit, 1);
        return helper.stderr;
    };
    assert.match(await refusal({ KEMVI_REPO_ROOT: folder }), /holds no recording/);
    fs.writeFileSync(path.join(folder, 'a.kemvi-record'), header.replace('"recording":1', '"recording":2') + '\n');
    assert.match(await refusal({ KEMVI_REPO_ROOT: folder }), /format 2/);
    fs.writeFileSync(path.join(folder, 'b.kemvi-record'), 'hello\n');
    assert.match(await refusal({ KEMVI_REPO_ROOT: folder }), /holds 2 recordings \(a.kemvi-record, b.kemvi-record\)/);
    assert.match(await refusal({ KEMVI_RECORDING: path.join(folder, 'b.kemvi-record') }), /no JSON object/);
});
