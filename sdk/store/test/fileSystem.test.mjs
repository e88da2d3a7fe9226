// The whole of a store as a mount uses it, from one machine and from two.
import assert from 'node:assert/strict';
import { randomUUID } from 'node:crypto';
import { after, test } from 'node:test';
import { PosixError } from 'kemvi-helper';
import { openStore } from '../src/openStore.mjs';
import { readSettings } from '../src/settings.mjs';
import { noServer, Server } from './engines.mjs';

/** @type {Server | undefined} */
let server;
const theServer = () => (server ??= new Server());

/** One machine: a store of its own on the same tree, and what it was told of the others. */
async function machine(address, tree = 'main') {
    const told = [];
    const said = [];
    const settings = readSettings({ KEMVI_STORE: address, KEMVI_STORE_TREE: tree, KEMVI_STORE_RECONNECT: '10' });
    const fileSystem = await openStore(settings, {
        changed: (paths) => told.push(...(typeof paths === 'string' ? [paths] : paths)),
        say: (text) => said.push(text),
    });
    after(() => fileSystem.end());
    const until = async (isDone, awaited) => {
        for (let left = 400; !isDone(); left--) {
            if (left === 0) assert.fail(`${awaited} was not told, only ${told}`);
            await new Promise((resolve) => setTimeout(resolve, 25));
        }
    };
    const seen = (path) => until(() => told.includes(path), path);
    return { fileSystem, told, said, seen, until };
}

/** Two machines on a new tree. */
async function two() {
    const tree = randomUUID();
    return [await machine(theServer().url, tree), await machine(theServer().url, tree)];
}

const write = { read: false, write: true, create: true, truncate: false };
const read = { read: true, write: false, create: false, truncate: false };

async function put(fileSystem, path, text, flags = {}) {
    const file = await fileSystem.open(path, { ...write, truncate: true, ...flags });
    await fileSystem.write(file, 0, Buffer.from(text));
    await fileSystem.release(file);
}

async function get(fileSystem, path) {
    const file = await fileSystem.open(path, read);
    const buffer = Buffer.alloc(1000);
    const text = buffer.subarray(0, await fileSystem.read(file, 0, 1000, buffer)).toString();
    await fileSystem.release(file);
    return text;
}

test('what one closes the other opens, in both directions, however fast', { skip: noServer }, async () => {
    const [one, other] = await two();
    for (let round = 0; round < 50; round++) {
        const [writer, reader] = round % 2 === 0 ? [one, other] : [other, one];
        await put(writer.fileSystem, '/f', `round ${round}`);
        assert.equal(await get(reader.fileSystem, '/f'), `round ${round}`);
        assert.equal((await reader.fileSystem.getattr('/f')).size, `round ${round}`.length);
    }
});

test('each change is told to the other machine, and to nobody else', { skip: noServer }, async () => {
    const [one, other] = await two();
    const elsewhere = await machine(theServer().url, randomUUID());
    const { fileSystem } = one;
    const expect = async (work, ...paths) => {
        other.told.length = 0;
        await work;
        await other.until(() => other.told.length >= paths.length, paths);
        assert.deepEqual(other.told, paths);
    };
    await expect(fileSystem.mkdir('/d'), '/d');
    await expect(put(fileSystem, '/d/f', 'text'), '/d/f', '/d/f');
    await expect(fileSystem.utimes('/d/f', new Date(5000)), '/d/f');
    await expect(fileSystem.rename('/d/f', '/g'), '/d/f', '/g');
    await expect(fileSystem.unlink('/d'), '/d');
    await expect(fileSystem.rename('/g', '/h'), '/g', '/h');
    assert.deepEqual([one.told, elsewhere.told], [[], []]);
});

test('paths that are too long for a notice are told too', { skip: noServer }, async () => {
    const [one, other] = await two();
    let path = '';
    for (let depth = 0; depth < 40; depth++) {
        path += `/${'\u65e5'.repeat(80)}`;
        await one.fileSystem.mkdir(path);
    }
    assert.ok(Buffer.byteLength(path) > 8000);
    await other.seen(path);
});

test('a folder that is moved takes what is written in it along', { skip: noServer }, async () => {
    const [one, other] = await two();
    await one.fileSystem.mkdir('/a');
    const file = await one.fileSystem.open('/a/f', write);
    await one.fileSystem.write(file, 0, Buffer.from('text'));
    await other.fileSystem.rename('/a', '/b');
    other.told.length = 0;
    await one.fileSystem.release(file);
    await other.seen('/b/f');
    assert.equal(await get(other.fileSystem, '/b/f'), 'text');
});

test('what is not committed shows here and nowhere else', { skip: noServer }, async () => {
    const [one, other] = await two();
    await put(one.fileSystem, '/f', 'old');
    const file = await one.fileSystem.open('/f', { ...write, truncate: true });
    await one.fileSystem.write(file, 0, Buffer.from('new text'));
    assert.equal((await one.fileSystem.getattr('/f')).size, 8);
    assert.deepEqual((await one.fileSystem.readdir('/')).map(({ name, size }) => [name, size]), [['f', 8]]);
    assert.equal((await other.fileSystem.getattr('/f')).size, 3);
    assert.equal(await get(other.fileSystem, '/f'), 'old', 'also not that it was emptied');
    await one.fileSystem.flush(file);
    assert.equal(await get(other.fileSystem, '/f'), 'new text');
    await one.fileSystem.release(file);
});

test('a time that is set before the file is closed stays', { skip: noServer }, async () => {
    const [one, other] = await two();
    const file = await one.fileSystem.open('/f', write);
    await one.fileSystem.write(file, 0, Buffer.from('text'));
    await one.fileSystem.utimes('/f', new Date(5000));
    assert.equal((await one.fileSystem.getattr('/f')).modifiedAt, 5000);
    await one.fileSystem.release(file);
    for (const { fileSystem } of [one, other]) {
        const { modifiedAt, size } = await fileSystem.getattr('/f');
        assert.deepEqual([modifiedAt, size], [5000, 4]);
    }
});

test('a file that was removed elsewhere is stale', { skip: noServer }, async () => {
    const [one, other] = await two();
    const file = await one.fileSystem.open('/f', write);
    await other.fileSystem.unlink('/f');
    await one.fileSystem.write(file, 0, Buffer.from('text'));
    await assert.rejects(one.fileSystem.flush(file), { code: 'ESTALE' });
    await assert.rejects(one.fileSystem.release(file), { code: 'ESTALE' });
    await assert.rejects(one.fileSystem.getattr('/f'), PosixError);
});

test('whoever may have missed a notice drops everything', { skip: noServer }, async () => {
    const [one, other] = await two();
    server?.run('kill');
    for (const { seen } of [one, other]) await seen('/');
    one.told.length = 0;
    server?.run('start');
    await one.seen('/');
    await one.fileSystem.mkdir('/after');
    await other.seen('/after');
});
