// What is kept in memory and on disk, and what is fetched before anybody asks.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { DiskCache } from '../src/contents/diskCache.mjs';
import { MemoryCache } from '../src/contents/memoryCache.mjs';
import { ReadAhead } from '../src/contents/readAhead.mjs';
import { Machine, MemoryObjects, patterned, readAll, TestDatabase } from './contentsSupport.mjs';
import { scratchFolder } from './engines.mjs';

test('memory keeps what was used last, up to its limit', () => {
    const cache = new MemoryCache(3 * 1300);
    for (const key of ['a', 'b', 'c']) cache.put(key, Buffer.alloc(1000));
    cache.get('a');
    cache.put('d', Buffer.alloc(1000));
    assert.deepEqual(['a', 'b', 'c', 'd'].map((key) => cache.has(key)), [true, false, true, true]);
    cache.put('d', Buffer.alloc(1001));
    assert.deepEqual(['a', 'c', 'd'].map((key) => cache.has(key)), [true, false, true]);
    assert.ok(cache.used <= 3 * 1300);
    cache.put('large', Buffer.alloc(5000));
    assert.equal(cache.used, 0);
});

test('a slice does not hold on to what it was cut from', () => {
    const cache = new MemoryCache(1 << 20);
    cache.put('a', Buffer.alloc(1 << 20).subarray(5, 10));
    assert.equal(cache.get('a').buffer.byteLength < 65_536, true);
});

test('who reads in order has the next chunks fetched, more with each; who leaps has not', () => {
    const asked = [];
    const ahead = new ReadAhead((from, to) => asked.push([from, to]), { chunkSize: 100, most: 8 });
    for (let at = 0; at < 600; at += 50) ahead.read(at, 50);
    assert.deepEqual(asked, [[1, 2], [2, 4], [4, 7], [7, 12], [12, 14]]);
    asked.length = 0;
    for (const at of [5000, 1000, 9000, 3000]) ahead.read(at, 50);
    assert.deepEqual(asked, []);
    for (const at of [3050, 3100, 3150]) ahead.read(at, 50);
    assert.deepEqual(asked, [[32, 33]]);
});

async function given(options = {}) {
    const database = await TestDatabase.start();
    const tree = await database.tree({ chunkSize: 1000 });
    const objects = options.objects ?? new MemoryObjects();
    const file = await database.file(tree);
    await new Machine(database, tree, { objects: options.inDatabase ? undefined : objects }).write(file, patterned(40_000));
    const reader = (more) => new Machine(database, tree, { objects: options.inDatabase ? undefined : objects, ...more });
    return { database, tree, objects, file, reader };
}

test('a file that is read in order is fetched once, chunks ahead of who reads', async () => {
    const { objects, file, reader } = await given();
    const machine = reader();
    const handle = await machine.open(file);
    const buffer = Buffer.alloc(250);
    let most = 0;
    for (let at = 0; at < 40_000; at += 250) {
        assert.equal(await handle.read(at, 250, buffer), 250);
        assert.deepEqual(buffer, patterned(40_000).subarray(at, at + 250));
        most = Math.max(most, objects.counts.get - Math.ceil((at + 250) / 1000));
    }
    assert.equal(objects.counts.get, 40);
    assert.ok(most >= 8, `${most} ahead`);
    assert.equal(machine.engine.count('chunks'), 1);
    assert.deepEqual(await machine.read(file, 0, 40_000), patterned(40_000));
    assert.equal(objects.counts.get, 40);
    assert.equal(machine.engine.count('chunks'), 1); // nor are the rows asked for again
});

test('chunks in the database come several in a round trip', async () => {
    const { file, reader } = await given({ inDatabase: true });
    const machine = reader();
    assert.deepEqual(await machine.read(file, 0, 40_000), patterned(40_000));
    const trips = machine.engine.count('chunks') + machine.engine.count('chunk_data');
    assert.ok(trips <= 10, `${trips} round trips for 40 chunks`);
});

test('little memory is enough', async () => {
    const { file, reader } = await given();
    assert.deepEqual(await readAll(await reader({ memory: 2000 }).open(file), 0, 40_000, 300), patterned(40_000));
});

test('a chunk on the disk is not fetched, also by the next helper', async () => {
    const { objects, file, reader } = await given();
    const disk = { folder: scratchFolder(), bytes: 1 << 20 };
    await readOnce(reader({ disk }), file);
    assert.equal(objects.counts.get, 40);
    const second = reader({ disk });
    assert.deepEqual(await second.read(file), patterned(40_000));
    assert.equal(objects.counts.get, 40);
    await second.contents.end();
});

/** No faster than the disk takes it in. */
async function readOnce(machine, file) {
    for (let at = 0; at < 40_000; at += 10_000) {
        await machine.read(file, at, 10_000);
        await machine.contents.disk_.settled();
    }
    await machine.contents.end();
}

test('what is not whole on the disk is fetched again', async () => {
    const { objects, file, reader, database, tree } = await given();
    const disk = { folder: scratchFolder(), bytes: 1 << 20 };
    await readOnce(reader({ disk }), file);
    const [cut, changed, empty] = (await database.rows(tree, file)).map(({ object }) => fileOf(disk.folder, object));
    fs.truncateSync(cut, 500);
    const bytes = fs.readFileSync(changed);
    bytes[700] ^= 1;
    fs.writeFileSync(changed, bytes);
    fs.writeFileSync(empty, '');
    const second = reader({ disk });
    assert.deepEqual(await second.read(file), patterned(40_000));
    assert.equal(objects.counts.get, 43);
    await second.contents.end();
});

test('chunks in the database are kept on the disk too', async () => {
    const { file, reader } = await given({ inDatabase: true });
    const disk = { folder: scratchFolder(), bytes: 1 << 20 };
    for (let round = 0; round < 2; round++) {
        const machine = reader({ disk });
        const handle = await machine.open(file);
        assert.deepEqual(await readAll(handle, 20_000, 20_000), patterned(40_000).subarray(20_000));
        await machine.contents.end();
        assert.equal(machine.engine.count('chunk_data') > 0, round === 0);
    }
});

test('the disk holds no more than it may, and goes on after a crash', async () => {
    const folder = scratchFolder();
    const cache = new DiskCache({ folder, bytes: 100_000 }, assert.fail);
    fs.mkdirSync(path.join(folder, 'kemvi-chunks'), { recursive: true });
    const left = path.join(folder, 'kemvi-chunks', '.aside-1-1');
    fs.writeFileSync(left, 'of a helper that has crashed');
    fs.utimesSync(left, 1, 1);
    for (let count = 0; count < 300; count++) {
        cache.put(`k${count}`, patterned(1000, count));
        if (count % 20 === 0) await cache.settled();
        assert.ok(used(folder) <= 100_000, `${used(folder)} bytes`);
    }
    await cache.settled();
    assert.ok(!fs.existsSync(left));
    assert.deepEqual(await cache.get('k299'), patterned(1000, 299));
    assert.equal(await cache.get('k0'), undefined);
});

test('a disk that fails is told once, and nothing else fails', async () => {
    const folder = scratchFolder();
    fs.writeFileSync(path.join(folder, 'kemvi-chunks'), 'in the way');
    const { file, reader } = await given();
    const machine = reader({ disk: { folder, bytes: 1 << 20 } });
    assert.deepEqual(await machine.read(file), patterned(40_000));
    await machine.contents.end();
    assert.equal(machine.said.length, 1);
    assert.match(machine.said[0], /^KEMVI_STORE_DISK: .*kemvi-chunks is not used any more: /);
});

function fileOf(folder, key) {
    return allFiles(folder).find((file) => path.basename(file) === key);
}

function used(folder) {
    return allFiles(folder).reduce((sum, file) => sum + fs.statSync(file).size, 0);
}

function allFiles(folder) {
    return fs.readdirSync(folder, { withFileTypes: true }).flatMap((entry) => {
        const place = path.join(folder, entry.name);
        return entry.isDirectory() ? allFiles(place) : [place];
    });
}
