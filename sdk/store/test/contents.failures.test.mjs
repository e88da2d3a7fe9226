// What stays true when an engine fails, is slow or loses something, and when a helper dies.
import assert from 'node:assert/strict';
import test from 'node:test';
import { leastAge, removeGarbage } from '../src/contents/garbage.mjs';
import { longestWait } from '../src/contents/putAway.mjs';
import { commitsOf } from './engines.mjs';
import { Machine, MemoryObjects, patterned, readAll, TestDatabase } from './contentsSupport.mjs';

async function given(options = {}) {
    const database = await TestDatabase.start();
    const tree = await database.tree({ chunkSize: 1000 });
    const objects = new MemoryObjects();
    const here = new Machine(database, tree, { objects, ...options });
    const there = new Machine(database, tree, { objects, engine: await database.second() });
    return { database, tree, objects, here, there, file: await database.file(tree) };
}

test('objects come first, then the commit: a helper that dies between leaves objects that nothing names', async () => {
    const { database, tree, objects, here, there, file } = await given();
    await there.write(file, patterned(3000));
    here.engine.failBefore = (name) => name === 'commit_file';
    const handle = await here.open(file, 'truncate');
    await handle.write(0, Buffer.alloc(2500, 1));
    await assert.rejects(handle.flush(), { code: 'EIO' });
    assert.equal(objects.all.size, 3 + 3);
    assert.deepEqual(await there.read(file), patterned(3000));
    assert.deepEqual(await removeGarbage({ engine: database.engine, tree, objects }, { age: 0 }), { looked: 6, removed: 3, uploads: 0 });
    assert.deepEqual(await there.read(file), patterned(3000));
});

test('an object that cannot be put keeps the commit from being made', async () => {
    const { objects, here, there, file } = await given();
    objects.failing = (operation) => operation === 'put' && objects.counts.put > 1;
    const handle = await here.open(file, 'write');
    await handle.write(0, patterned(2500));
    await assert.rejects(handle.flush(), { code: 'EIO', message: 'the store refuses put' });
    assert.equal(here.engine.count('commit_file'), 0);
    assert.equal((await there.read(file)).length, 0);
    objects.failing = () => false;
    await handle.flush();
    await handle.release();
    assert.deepEqual(await there.read(file), patterned(2500));
    assert.equal(objects.all.size, 3); // what was put is not put again
});

test('a commit that fails is told each time it is tried, and what is written meanwhile is not lost', async () => {
    const { here, there, file } = await given();
    here.engine.failBefore = (name) => name === 'commit_file';
    const handle = await here.open(file, 'write');
    await handle.write(0, Buffer.from('first'));
    for (let count = 0; count < 3; count++) {
        await assert.rejects(handle.flush(), { code: 'EIO' });
        await handle.write(5 + count, Buffer.from('x'));
    }
    assert.equal(String(await here.read(file)), 'firstxxx');
    here.engine.failBefore = () => false;
    await handle.release();
    assert.equal(String(await there.read(file)), 'firstxxx');
});

const notCommitted = 'commit_file does not reach the database';

async function until(isSo) {
    for (let left = 400; !isSo(); left--) {
        assert.ok(left > 0, 'not within 10 s');
        await new Promise((resolve) => setTimeout(resolve, 25));
    }
}

test('what cannot be committed when the last handle goes is told, and kept for the next handle', async () => {
    const { here, there, file } = await given();
    here.engine.failBefore = (name) => name === 'commit_file';
    const handle = await here.open(file, 'write');
    await handle.write(0, Buffer.from('text'));
    await assert.rejects(handle.release(), { code: 'EIO' });
    assert.deepEqual(here.said, [`file ${file.node}: not committed, and tried again until this helper ends: 4 bytes: ${notCommitted}`]);
    assert.equal(String(await here.read(file)), 'text');
    assert.equal(here.contents.overlay(file.node).size, 4);
    const again = await here.open(file, 'write');
    await again.write(4, Buffer.from(' and more'));
    await assert.rejects(again.flush(), { code: 'EIO' });
    here.engine.failBefore = () => false;
    await again.flush();
    await again.release();
    assert.equal(String(await there.read(file)), 'text and more');
});

test('what nobody asks for any more is committed when the engines are back', async () => {
    const { database, tree, here, there, file } = await given();
    const empty = await database.file(tree);
    await here.write(empty, Buffer.from('old'));
    here.engine.failBefore = (name) => name === 'commit_file';
    const handle = await here.open(file, 'write');
    await handle.write(0, patterned(3000));
    await assert.rejects(handle.release(), { code: 'EIO' });
    const emptying = await here.open(empty, 'truncate');
    await assert.rejects(emptying.release(), { code: 'EIO' });
    assert.match(here.said[1], /: that it was emptied: /);
    here.engine.failBefore = () => false;
    await until(() => here.said.length === 4);
    assert.deepEqual(here.said.slice(2), [`file ${file.node}: committed after all`, `file ${empty.node}: committed after all`]);
    assert.deepEqual(await there.read(file), patterned(3000));
    assert.equal((await there.read(empty)).length, 0);
    assert.equal(here.contents.parts_.room.used, 0);
});

test('what is kept goes over nothing that another machine has written since', async () => {
    const { database, tree, here, there, file } = await given();
    const other = await database.file(tree);
    here.engine.failBefore = (name) => name === 'commit_file';
    for (const each of [file, other]) {
        const handle = await here.open(each, 'write');
        await handle.write(0, Buffer.from('mine, long ago'));
        await assert.rejects(handle.release(), { code: 'EIO' });
        await there.write(each, Buffer.from('theirs'));
    }
    const lost = (each) => `file ${each.node}: not committed, and lost: 14 bytes: another machine has written the file since`;
    await here.contents.settle(await database.look(tree, file)); // as an open does
    assert.equal(here.said[2], lost(file));
    assert.equal(String(await here.read(file)), 'theirs');
    await until(() => here.said.length === 4);
    assert.equal(here.said[3], lost(other));
    assert.equal(String(await there.read(other)), 'theirs');
});

test('what is kept and was committed, of which the answer was lost, is committed once', async () => {
    const { database, tree, here, there, file } = await given();
    here.engine.failAfter = (name) => name === 'commit_file';
    const handle = await here.open(file, 'write');
    await handle.write(0, Buffer.from('text'));
    await assert.rejects(handle.release(), { code: 'EIO' });
    here.engine.failAfter = () => false;
    await until(() => here.said.length === 2);
    assert.match(here.said[1], /committed after all/);
    assert.equal(commitsOf((await database.look(tree, file)).version), 1);
    assert.equal(String(await there.read(file)), 'text');
});

test('what is still kept at the end, or whose file is gone, is told as lost', async () => {
    const { database, tree, here, file } = await given();
    here.engine.failBefore = (name) => name === 'commit_file';
    const removed = await database.file(tree);
    for (const each of [file, removed]) {
        const handle = await here.open(each, 'write');
        await handle.write(0, Buffer.from('gone'));
        await assert.rejects(handle.release(), { code: 'EIO' });
    }
    await database.remove(tree, removed);
    await here.contents.end();
    assert.deepEqual(here.said.slice(2).sort(), [
        `file ${file.node}: not committed, and lost: 4 bytes: this helper ends`,
        `file ${removed.node}: not committed, and lost: 4 bytes: the file was removed`,
    ].sort());
});

test('what was written to a file that is removed elsewhere is told, and its last handle says it once', async () => {
    const { database, tree, here, file } = await given();
    const handle = await here.open(file, 'write');
    await handle.write(0, Buffer.from('gone'));
    await handle.write(2, Buffer.from('again'));
    await database.remove(tree, file);
    await assert.rejects(handle.flush(), { code: 'ESTALE' });
    await assert.rejects(handle.release(), { code: 'ESTALE' });
    assert.deepEqual(here.said, [`file ${file.node}: not committed, and lost: 9 bytes: the file was removed`]);
});

test('a commit whose answer was lost is not made twice, though others have written since', async () => {
    const { database, tree, here, there, file } = await given();
    await there.write(file, Buffer.from('old'));
    const handle = await here.open(file, 'truncate');
    await handle.write(0, Buffer.from('mine'));
    here.engine.failAfter = (name) => name === 'commit_file';
    await assert.rejects(handle.flush(), { code: 'EIO' });
    here.engine.failAfter = () => false;
    await there.write(file, Buffer.from('yours'));
    await handle.flush();
    assert.equal(String(await readAll(handle, 0, 5)), 'yours');
    await handle.write(10, Buffer.from('!'));
    await handle.release();
    assert.equal(String(await there.read(file)), 'yours\0\0\0\0\0!');
    assert.equal(String(await here.read(file)), 'yours\0\0\0\0\0!');
    assert.equal(commitsOf((await database.look(tree, file)).version), 4);
});

test('what could not be put away is committed all the same', async () => {
    const { here, there, file } = await given();
    here.engine.failBefore = (name) => name === 'stage_chunks';
    const handle = await here.open(file, 'write');
    for (let at = 0; at < 40_000; at += 1000) await handle.write(at, patterned(1000, at));
    while (here.engine.count('stage_chunks') === 0) await new Promise((resolve) => setImmediate(resolve));
    await handle.release();
    assert.equal((await there.read(file)).length, 40_000);
});

test('with a store that is away memory stays bounded, and writing fails rather than forget', async () => {
    const { objects, here, there, file } = await given({ writing: 20_000 });
    objects.failing = () => true;
    const handle = await here.open(file, 'write');
    let written = 0;
    await assert.rejects(async () => {
        for (; written < 100_000; written += 500) await handle.write(written, Buffer.alloc(500, 1));
    }, { code: 'EIO' });
    assert.ok(written >= 10_000 && written <= 20_000, String(written));
    assert.ok(here.contents.parts_.room.used <= 20_000);
    objects.failing = () => false;
    await handle.release();
    assert.deepEqual(await there.read(file), Buffer.alloc(written, 1));
});

test('one file that is large does not keep others from being written', async () => {
    const { database, tree, here, file } = await given({ writing: 20_000 });
    const large = await here.open(file, 'write');
    for (let at = 0; at < 19_000; at += 1000) await large.write(at + 1, Buffer.alloc(998, 1)); // no chunk is whole
    const other = await database.file(tree);
    await here.write(other, patterned(8000));
    assert.deepEqual(await here.read(other), patterned(8000));
    await large.release();
});

test('eight and more transfers are under way at a time, and no more than sixteen', async () => {
    const { objects, here, there, file } = await given();
    objects.delay = () => new Promise((resolve) => setImmediate(resolve));
    await here.write(file, patterned(60_000));
    assert.ok(objects.mostUnderWay >= 8 && objects.mostUnderWay <= 16, `${objects.mostUnderWay} puts`);
    objects.mostUnderWay = 0;
    await there.read(file);
    assert.ok(objects.mostUnderWay >= 8 && objects.mostUnderWay <= 16, `${objects.mostUnderWay} gets`);
});

test('a piece that is written to while it is put is put once more, and neither is mixed', async () => {
    const { objects, here, there, file } = await given();
    const handle = await here.open(file, 'write');
    let goOn = () => {};
    objects.delay = () => new Promise((resolve) => (goOn = resolve));
    await handle.write(0, Buffer.alloc(1000, 1)); // whole: it goes ahead
    await new Promise((resolve) => setImmediate(resolve));
    assert.equal(objects.counts.put, 1);
    await handle.write(0, Buffer.alloc(1000, 2));
    objects.delay = async () => {};
    goOn();
    await handle.release();
    assert.deepEqual(await there.read(file), Buffer.alloc(1000, 2));
    assert.ok([...objects.all.values()].every(({ bytes }) => bytes.equals(Buffer.alloc(1000, bytes[0]))));
});

test('a reader of before finds what was replaced and removed in its new place', async () => {
    const { database, tree, objects, here, there, file } = await given();
    await there.write(file, patterned(3000));
    const reader = await here.open(file);
    const buffer = Buffer.alloc(1000);
    await reader.read(0, 1000, buffer);
    await there.write(file, Buffer.alloc(3000, 9));
    await removeGarbage({ engine: database.engine, tree, objects }, { age: 0 });
    assert.equal(objects.all.size, 3);
    assert.equal(await reader.read(2000, 1000, buffer), 1000);
    assert.deepEqual(buffer, Buffer.alloc(1000, 9));
    await reader.release();
});

test('an object that is lost is an error that names it, and not zeros', async () => {
    const { database, tree, objects, here, file } = await given();
    await here.write(file, patterned(3000));
    const [, { object }] = await database.rows(tree, file);
    objects.all.delete(object);
    const other = new Machine(database, tree, { objects });
    await assert.rejects(other.read(file), { code: 'EIO', message: `chunk 1 of file ${file.node}: there is no object ${object}` });
    objects.all.set(object, { bytes: Buffer.alloc(10), at: 0 });
    await assert.rejects(other.read(file), { code: 'EIO', message: `${object} has 10 bytes and should have 1000` });
});

test('what waits for its commit is no garbage while its helper lives, and cannot be committed once it is', async () => {
    const { database, tree, objects, here, there, file } = await given({ writing: 20_000 });
    const { engine } = database;
    const handle = await here.open(file, 'write');
    for (let at = 0; at < 90_000; at += 1000) await handle.write(at, patterned(1000, at));
    assert.ok(objects.all.size > 30, String(objects.all.size));
    const kept = objects.all.size;
    await engine.query(`update kemvi_store.upload set since = now() - interval '59 minutes' where tree = $1`, [tree.id]);
    for (const object of objects.all.values()) object.at -= 10 * leastAge;
    const { uploads } = await removeGarbage({ engine, tree, objects });
    assert.equal(uploads, 0);
    const [{ count }] = await engine.query('select count(*)::int as count from kemvi_store.chunk where tree = $1', [tree.id]);
    assert.ok(objects.all.size >= count && objects.all.size <= kept);

    await engine.query(`update kemvi_store.upload set since = now() - interval '61 minutes' where tree = $1`, [tree.id]);
    assert.equal((await removeGarbage({ engine, tree, objects })).uploads, 1);
    await assert.rejects(handle.flush(), { code: 'EIO', message: /given up: this helper was not heard of for too long/ });
    await assert.rejects(handle.release(), { code: 'EIO' });
    assert.equal((await there.read(file)).length, 0);
    await removeGarbage({ engine, tree, objects }, { age: 0 });
    assert.equal(objects.all.size, 0);
});

test('an object that has waited too long for its commit is put once more under another name', async (t) => {
    const { objects, here, there, file } = await given();
    here.engine.failBefore = (name) => name === 'commit_file';
    const handle = await here.open(file, 'write');
    await handle.write(0, patterned(2000));
    await assert.rejects(handle.flush(), { code: 'EIO' });
    const old = [...objects.all.keys()];
    here.engine.failBefore = () => false;
    const now = Date.now();
    t.mock.method(Date, 'now', () => now + longestWait + 1);
    await handle.release();
    for (const name of old) objects.all.delete(name); // as a collection of garbage may now
    assert.deepEqual(await there.read(file), patterned(2000));
});

test('garbage that cannot be removed stays noted', async () => {
    const { database, tree, objects, here, file } = await given();
    await here.write(file, patterned(3000));
    await here.write(file, patterned(1500), 0, 'truncate');
    objects.failing = (operation) => operation === 'remove';
    await assert.rejects(removeGarbage({ engine: database.engine, tree, objects }, { age: 0 }), { code: 'EIO' });
    assert.equal((await database.garbage(tree)).length, 3);
    objects.failing = () => false;
    const progress = [];
    const store = { engine: database.engine, tree, objects };
    await removeGarbage(store, { age: 0, onProgress: ({ looked, removed }) => progress.push([looked, removed]) });
    assert.deepEqual(progress, [[0, 3], [2, 3]]);
    assert.equal((await database.garbage(tree)).length, 0);
    assert.deepEqual(await here.read(file), patterned(1500));
});
