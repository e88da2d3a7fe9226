// A file system that bounds what another is asked at a time, and for how long.
import assert from 'node:assert/strict';
import test from 'node:test';
import { limited } from '../src/index.mjs';

/** A clock that stands until it is moved, and a file system whose calls end when they are told to. */
function held(options) {
    const timers = new Set();
    const calls = [];
    const wait = (what, { signal }) =>
        new Promise((resolve, reject) => calls.push({ what, resolve, reject, signal }));
    const tree = {
        getattr: (path, call) => wait(`getattr ${path}`, call),
        readdir: (path, call) => wait(`readdir ${path}`, call),
        read: (file, offset, length, buffer, call) => wait(buffer, call),
        write: (file, offset, data, call) => wait(data, call),
    };
    const clock = {
        setTimeout(step, milliseconds) {
            const timer = { step, milliseconds };
            timers.add(timer);
            return timer;
        },
        clearTimeout: (timer) => timers.delete(timer),
    };
    const settle = () => new Promise(setImmediate);
    return { calls, timers, settle, fileSystem: limited(tree, { timers: clock, ...options }) };
}

test('no more calls at a time than were allowed, in the order in which they came', async () => {
    const { calls, timers, settle, fileSystem } = held({ concurrency: 2 });
    const asked = ['/a', '/b', '/c', '/d'].map((path) => fileSystem.getattr(path));
    await settle();
    assert.deepEqual(calls.map(({ what }) => what), ['getattr /a', 'getattr /b']);
    calls[1].resolve({ size: 1 });
    assert.deepEqual(await asked[1], { size: 1 });
    await settle();
    assert.deepEqual(calls.map(({ what }) => what), ['getattr /a', 'getattr /b', 'getattr /c']);
    calls[0].reject(new Error('no')); // one that fails makes room too
    await assert.rejects(asked[0], /no/);
    await settle();
    assert.equal(calls.length, 4);
    for (const { resolve } of calls) resolve({});
    await Promise.all(asked.slice(2));
    assert.equal(timers.size, 0, 'no timer is left');
    fileSystem.getattr('/e');
    await settle();
    assert.equal(calls.length, 5);
});

test('a call whose time is over ends with ETIMEDOUT, is aborted, and makes room', async () => {
    const { calls, timers, settle, fileSystem } = held({ concurrency: 1, timeout: 70 });
    const late = fileSystem.getattr('/a');
    const next = fileSystem.readdir('/');
    await settle();
    assert.deepEqual([...timers].map(({ milliseconds }) => milliseconds), [70]);
    assert.equal(calls[0].signal.aborted, false);
    for (const { step } of timers) step();
    await assert.rejects(late, { code: 'ETIMEDOUT', message: 'getattr took longer than 70 ms' });
    assert.equal(calls[0].signal.aborted, true);
    assert.equal(calls[0].signal.reason.code, 'ETIMEDOUT');
    await settle();
    assert.equal(calls[1].what, 'readdir /');
    calls[0].reject(new Error('a late failure is nobody\'s'));
    calls[1].resolve([]);
    assert.deepEqual(await next, []);
});

test('a read that was given up cannot spoil a later one', async () => {
    const { calls, timers, settle, fileSystem } = held({});
    const buffer = Buffer.alloc(4);
    const late = fileSystem.read('file', 0, 4, buffer);
    await settle();
    for (const { step } of timers) step();
    await assert.rejects(late, { code: 'ETIMEDOUT' });
    const good = fileSystem.read('file', 0, 4, buffer);
    await settle();
    calls[1].what.write('good');
    calls[1].resolve(4);
    assert.equal(await good, 4);
    calls[0].what.write('late');
    assert.equal(String(buffer), 'good');
    const data = Buffer.from('text');
    fileSystem.write('file', 0, data);
    await settle();
    data.fill('x');
    assert.equal(String(calls[2].what), 'text');
});

test('wrong options are told, and functions that the other has not are not there', () => {
    const tree = { getattr() {}, readdir() {}, read() {} };
    assert.deepEqual(Object.keys(limited(tree)).sort(), ['getattr', 'read', 'readdir']);
    assert.throws(() => limited(tree, { concurrency: 0 }), /limited: concurrency is 0 \(a number\); it must be a whole number, 1 or more/);
    assert.throws(() => limited(tree, { timout: 1 }), /there is no option timout; there are concurrency, timeout/);
});
