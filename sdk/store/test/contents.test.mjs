// Reading and writing on one machine and on two, on a database and on objects.
import assert from 'node:assert/strict';
import test from 'node:test';
import { Machine, MemoryObjects, patterned, readAll, TestDatabase } from './contentsSupport.mjs';

/** One test for contents in the database, one for objects: two machines, one file, chunks of 1000 bytes. */
function onBoth(name, body, options = {}) {
    for (const place of ['database', 'objects']) {
        test(`${place}: ${name}`, async (t) => {
            const database = await TestDatabase.start();
            const tree = await database.tree({ chunkSize: 1000 });
            const objects = place === 'objects' ? new MemoryObjects() : undefined;
            const here = new Machine(database, tree, { objects, ...options });
            const there = new Machine(database, tree, { objects, engine: await database.second(), ...options });
            await body({ t, database, tree, objects, here, there, file: await database.file(tree) });
        });
    }
}

onBoth('what was written is read, here at once and elsewhere after flush or release', async ({ here, there, file }) => {
    const bytes = patterned(4321);
    const handle = await here.open(file, 'write');
    await handle.write(0, bytes);
    assert.deepEqual(await readAll(handle), bytes);
    assert.deepEqual(await here.read(file), bytes);
    assert.equal((await there.read(file)).length, 0);
    await handle.flush();
    assert.deepEqual(await there.read(file), bytes);
    await handle.write(4321, Buffer.from('more'));
    await handle.release();
    assert.deepEqual(await there.read(file), Buffer.concat([bytes, Buffer.from('more')]));
});

onBoth('writes to parts of chunks keep the rest, and read the old chunk once', async ({ here, there, file, objects }) => {
    const bytes = patterned(3000);
    await there.write(file, bytes);
    const handle = await here.open(file, 'write');
    for (const at of [1100, 1300, 1900, 1200]) {
        bytes.fill(7, at, at + 50);
        await handle.write(at, Buffer.alloc(50, 7));
    }
    await handle.release();
    assert.equal(here.engine.count('chunks'), 1);
    assert.equal(objects ? objects.counts.get : 1 + here.engine.count('chunk_data'), 1); // from the database with the rows
    assert.deepEqual(await there.read(file), bytes);
});

onBoth('a chunk that is written whole is not read', async ({ here, there, file, objects }) => {
    await there.write(file, patterned(3000));
    const handle = await here.open(file, 'write');
    for (let at = 1000; at < 2000; at += 250) await handle.write(at, Buffer.alloc(250, 1));
    await handle.release();
    assert.equal(objects ? objects.counts.get : here.engine.count('chunk_data'), 0);
    assert.deepEqual((await there.read(file)).subarray(1000, 2000), Buffer.alloc(1000, 1));
});

onBoth('an append puts one chunk', async ({ database, tree, here, there, file }) => {
    await there.write(file, patterned(5500));
    const before = await chunksOf(database, tree, file);
    await here.write(file, Buffer.from('tail'), 5500);
    const after = await chunksOf(database, tree, file);
    assert.deepEqual(after.slice(0, 5), before.slice(0, 5));
    assert.notDeepEqual(after[5], before[5]);
    assert.deepEqual(await there.read(file), Buffer.concat([patterned(5500), Buffer.from('tail')]));
});

async function chunksOf(database, tree, { node }) {
    return database.engine.query(
        'select position, length, version, object from kemvi_store.chunk where tree = $1 and node = $2 order by position',
        [tree.id, node],
    );
}

onBoth('what lies between is zeros, and takes no chunk', async ({ database, tree, here, there, file }) => {
    await here.write(file, Buffer.from('end'), 9_000_000_000);
    assert.deepEqual((await database.rows(tree, file)).map(({ position, length }) => [position, length]), [[9_000_000, 3]]);
    const handle = await there.open(file);
    assert.deepEqual(await readAll(handle, 8_999_999_000, 2000), Buffer.concat([Buffer.alloc(1000), Buffer.from('end')]));
    assert.deepEqual(await readAll(handle, 123, 10), Buffer.alloc(10));
    await handle.release();
});

onBoth('a truncation is seen elsewhere with what is written after it, in one step', async ({ database, tree, here, there, file, objects }) => {
    await here.write(file, patterned(3500));
    const [...old] = (await database.rows(tree, file)).map(({ object }) => object);
    const handle = await here.open(file, 'truncate');
    assert.equal((await here.read(file)).length, 0);
    assert.deepEqual(here.contents.overlay(file.node).size, 0);
    await handle.write(0, Buffer.from('new'));
    assert.deepEqual(await there.read(file), patterned(3500));
    await handle.release();
    assert.deepEqual(await there.read(file), Buffer.from('new'));
    assert.deepEqual((await database.rows(tree, file)).length, 1);
    assert.deepEqual(new Set(await database.garbage(tree)), new Set(objects ? old : []));
    await (await here.open(file, 'truncate')).release();
    assert.equal((await there.read(file)).length, 0);
    assert.equal((await database.look(tree, file)).size, 0);
});

onBoth('more than the memory for it is put away before the commit, and seen in one step', async ({ here, there, file, tree, database }) => {
    const bytes = patterned(300_000);
    await there.write(file, Buffer.from('before'));
    const handle = await here.open(file, 'truncate');
    for (let at = 0; at < bytes.length; at += 7000) {
        await handle.write(at, bytes.subarray(at, at + 7000));
        assert.ok(here.contents.parts_.room.used <= 40_000);
    }
    bytes.fill(1, 5500, 5600); // of a chunk that was put away long ago
    await handle.write(5500, Buffer.alloc(100, 1));
    assert.deepEqual(await readAll(handle), bytes);
    assert.deepEqual(await there.read(file), Buffer.from('before'));
    await handle.release();
    assert.deepEqual(await there.read(file), bytes);
    assert.deepEqual(await here.read(file), bytes);
    assert.equal((await database.rows(tree, file)).length, 300);
    assert.equal((await database.engine.query('select from kemvi_store.upload where tree = $1', [tree.id])).length, 0);
    assert.equal(here.contents.parts_.room.used, 0);
}, { writing: 40_000 });

onBoth('what was put away and is put away again is read as it is now', async ({ here, there, file }) => {
    const handle = await here.open(file, 'write');
    const bytes = Buffer.alloc(60_000);
    for (let round = 1; round <= 3; round++) {
        for (let at = 0; at < bytes.length; at += 1000) await handle.write(at, bytes.fill(round, at, at + 1000).subarray(at, at + 1000));
        assert.deepEqual(await readAll(handle), bytes);
    }
    await handle.release();
    assert.deepEqual(await there.read(file), bytes);
}, { writing: 40_000 });

onBoth('a write while its chunk is put away is not lost', async ({ here, there, file }) => {
    const handle = await here.open(file, 'write');
    let goOn = () => {};
    const begun = new Promise((resolve) => {
        here.engine.delay = async (name) => {
            if (name !== 'stage_chunks') return;
            resolve();
            await new Promise((go) => (goOn = go));
        };
    });
    const bytes = patterned(35_000);
    for (let at = 0; at < 35_000; at += 1000) await handle.write(at, bytes.subarray(at, at + 1000));
    await begun; // in the background, since that many chunks are whole
    bytes.fill(5, 2100, 2200);
    await handle.write(2100, bytes.subarray(2100, 2200));
    here.engine.delay = async () => {};
    goOn();
    await handle.release();
    assert.deepEqual(await there.read(file), bytes);
});

onBoth('the time is that of the last write, unless somebody has set another since', async ({ database, tree, here, file }) => {
    const handle = await here.open(file, 'write');
    const before = Date.now();
    await handle.write(0, Buffer.from('a'));
    assert.ok(here.contents.overlay(file.node).mtime >= before);
    await database.engine.query('update kemvi_store.node set mtime = 5 where tree = $1 and id = $2', [tree.id, file.node]);
    here.contents.setTime(file.node, 5);
    assert.deepEqual(here.contents.overlay(file.node), { size: 1, mtime: 5 });
    await handle.flush();
    assert.equal((await database.look(tree, file)).mtime, 5);
    await handle.write(1, Buffer.from('b'));
    await handle.release();
    assert.ok((await database.look(tree, file)).mtime >= before);
});

onBoth('what another machine cuts off does not come back with a chunk that was filled before', async ({ here, there, file }) => {
    await there.write(file, patterned(2000));
    const handle = await here.open(file, 'write');
    await handle.write(1100, Buffer.alloc(50, 7));
    await readAll(handle); // by now the chunk holds what was around it
    const cut = await there.open(file, 'truncate');
    await cut.write(0, Buffer.from('short'));
    await cut.release();
    await handle.release();
    await there.write(file, Buffer.from('end'), 1990);
    const bytes = await there.read(file);
    assert.equal(bytes.length, 1993);
    assert.deepEqual(bytes.subarray(1150, 1990), Buffer.alloc(840));
});

onBoth('each commit gives another time, whatever the clocks say', async ({ database, tree, here, file }) => {
    await here.write(file, Buffer.from('a'));
    const ahead = Date.now() + 30_000;
    await database.engine.query('update kemvi_store.node set mtime = $3 where tree = $1 and id = $2', [tree.id, file.node, ahead]);
    await here.write(file, Buffer.from('b'));
    assert.equal((await database.look(tree, file)).mtime, ahead + 1);
});

onBoth('a file that was removed is stale where it is still open', async ({ database, tree, here, there, file }) => {
    await there.write(file, patterned(3000));
    const handle = await here.open(file, 'write');
    const reader = await here.open(file);
    await handle.write(0, Buffer.from('late'));
    await database.remove(tree, file);
    await assert.rejects(handle.flush(), { code: 'ESTALE' });
    await assert.rejects(handle.write(0, Buffer.from('again')), { code: 'ESTALE' });
    await assert.rejects(reader.read(0, 10, Buffer.alloc(10)), { code: 'ESTALE' });
    await assert.rejects(handle.release(), { code: 'ESTALE' });
    await reader.release();
    assert.equal(here.contents.parts_.room.used, 0);
});

onBoth('an open file that grows elsewhere is read on', async ({ here, there, file }) => {
    const reader = await here.open(file);
    assert.equal((await readAll(reader)).length, 0);
    for (let count = 1; count <= 3; count++) {
        await there.write(file, Buffer.from('line\n'), 5 * (count - 1));
        assert.deepEqual(await readAll(reader), Buffer.from('line\n'.repeat(count)));
    }
    await reader.release();
});
