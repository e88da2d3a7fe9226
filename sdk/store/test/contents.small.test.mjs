// Small files of a tree whose contents lie in an object store: they lie in the database, and what is asked for them is
// counted.
import assert from 'node:assert/strict';
import { randomUUID } from 'node:crypto';
import test from 'node:test';
import { removeGarbage } from '../src/contents/garbage.mjs';
import { smallFile } from '../src/contents/small.mjs';
import { Names } from '../src/names/names.mjs';
import { StoreFileSystem } from '../src/storeFileSystem.mjs';
import { check } from '../src/tool/commands/fsck.mjs';
import { figuresOf } from '../src/tool/figures.mjs';
import { Machine, MemoryObjects, patterned, readAll, TestDatabase } from './contentsSupport.mjs';
import { said } from './toolSupport.mjs';

/** Milliseconds. What is only right for a moment is so in these tests, however busy the machine is. */
let now = 0;
Object.defineProperty(performance, 'now', { value: () => now });

const write = { read: false, write: true, create: true, truncate: false };
const read = { read: true, write: false, create: false, truncate: false };

async function given({ contents = 's3://none/none', ...options } = {}) {
    const database = await TestDatabase.start();
    const tree = { ...(await database.tree({ contents })), name: randomUUID(), contents };
    const objects = contents === 'database' ? undefined : new MemoryObjects();
    const machine = async (engine) => {
        const made = new Machine(database, tree, { objects, engine, ...options });
        return Object.assign(made, { fileSystem: new StoreFileSystem(new Names(made.engine, tree), made.contents) });
    };
    const here = await machine(database.engine);
    const there = await machine(await database.second());
    const places = async (file) => (await database.rows(tree, file)).map(({ object }) => (object === null ? 'database' : 'object'));
    return { database, tree, objects, here, there, places, file: await database.file(tree) };
}

test('the limit of what is small: to the byte, and less than a chunk', async () => {
    const { database, tree, here, objects, places } = await given();
    for (const [length, place] of [[1, 'database'], [smallFile, 'database'], [smallFile + 1, 'object']]) {
        const file = await database.file(tree);
        await here.write(file, patterned(length));
        assert.deepEqual(await places(file), [place]);
    }
    assert.equal(objects.counts.put, 1);
    const few = await database.tree({ chunkSize: 1000, contents: 's3://none/none' });
    const file = await database.file(few);
    await new Machine(database, few, { objects }).write(file, patterned(1000));
    assert.notEqual((await database.rows(few, file))[0].object, null, 'a whole chunk is an object');
});

test('what grows goes over to an object, and what is cut comes back', async () => {
    const { database, tree, here, there, objects, places, file } = await given();
    const bytes = patterned(600_000);
    await here.write(file, bytes.subarray(0, 1000));
    await there.write(file, bytes.subarray(1000, 5000), 1000);
    assert.deepEqual(await places(file), ['database']);
    assert.deepEqual(await here.read(file), bytes.subarray(0, 5000));
    await there.write(file, bytes.subarray(5000), 5000);
    assert.deepEqual(await places(file), ['object', 'object', 'object']);
    assert.deepEqual(await database.garbage(tree), []);
    assert.deepEqual(await here.read(file), bytes);
    const puts = objects.counts.put;
    await here.write(file, bytes.subarray(0, 100), 0, 'truncate');
    assert.deepEqual(await places(file), ['database']);
    assert.equal((await database.garbage(tree)).length, 3);
    assert.deepEqual(await there.read(file), bytes.subarray(0, 100));
    assert.equal(objects.counts.put, puts);
});

test('parts of small files are overwritten, holes are zeros, and an end that is far away is not small', async () => {
    const { database, tree, here, there, objects, places, file } = await given();
    await here.write(file, Buffer.from('at 10'), 10);
    await there.write(file, Buffer.from('AT'), 10);
    assert.deepEqual(await here.read(file), Buffer.from('\0'.repeat(10) + 'AT 10'));
    assert.equal(objects.counts.put, 0);
    const far = await database.file(tree);
    await here.write(far, Buffer.from('end'), 1_000_000);
    assert.deepEqual(await places(far), ['object']);
    await here.write(far, Buffer.from('start'));
    assert.deepEqual(await places(far), ['object', 'object'], 'its first chunk is small, the file is not');
    assert.deepEqual((await there.read(far)).subarray(0, 5), Buffer.from('start'));
});

test('more small files at a time than there is memory for', async () => {
    const { database, tree, here, there, objects } = await given({ writing: 100_000 });
    const files = [];
    for (let number = 0; number < 30; number++) {
        const file = await database.file(tree);
        const handle = await here.open(file, 'write');
        await handle.write(0, patterned(9000, number));
        files.push({ file, handle });
    }
    for (const { handle } of files) await handle.write(9000, Buffer.from('more'));
    for (const { handle } of files) await handle.release();
    for (const [number, { file }] of files.entries()) {
        assert.deepEqual(await there.read(file), Buffer.concat([patterned(9000, number), Buffer.from('more')]));
    }
    const rows = await database.engine.query('select object from kemvi_store.chunk where tree = $1', [tree.id]);
    assert.ok(rows.every(({ object }) => object === null || objects.all.has(object)));
});

test('a commit whose answer is lost puts no object, and is done once', async () => {
    const { here, there, objects, places, file } = await given();
    const handle = await here.open(file, 'write');
    await handle.write(0, Buffer.from('once'));
    here.engine.failAfter = (name) => name === 'commit_file';
    await assert.rejects(handle.flush(), { code: 'EIO' });
    here.engine.failAfter = () => false;
    await handle.write(4, Buffer.from(' more'));
    await handle.release();
    assert.equal(String(await there.read(file)), 'once more');
    assert.deepEqual(await places(file), ['database']);
    assert.equal(objects.counts.put, 0);
});

for (const contents of ['database', 's3://none/none']) {
    test(`${contents}: how often the engines are asked`, async () => {
        const { here, there, objects } = await given({ contents });
        const asked = async ({ engine }, work) => {
            engine.asked.length = 0;
            await work();
            return engine.asked.filter((name) => name !== 'trim'); // now and then, and nobody waits for it
        };
        const bytes = patterned(smallFile);
        assert.deepEqual(await asked(here, async () => {
            // As a host asks for a new file.
            await assert.rejects(here.fileSystem.getattr('/f'), { code: 'ENOENT' });
            await here.fileSystem.release(await here.fileSystem.open('/f', write));
            assert.equal((await here.fileSystem.getattr('/f')).size, 0);
            const file = await here.fileSystem.open('/f', write);
            await here.fileSystem.write(file, 0, bytes);
            await here.fileSystem.flush(file);
            await here.fileSystem.release(file);
        }), ['getattr', 'create_file', 'commit_file']);
        assert.deepEqual(await asked(there, async () => {
            await there.fileSystem.getattr('/f');
            const file = await there.fileSystem.open('/f', read);
            const buffer = Buffer.alloc(smallFile + 1);
            assert.equal(await there.fileSystem.read(file, 0, buffer.length, buffer), smallFile);
            assert.deepEqual(buffer.subarray(0, smallFile), bytes);
            await there.fileSystem.flush(file);
            await there.fileSystem.release(file);
        }), ['getattr', 'resolve']);
        assert.deepEqual(await asked(here, () => here.fileSystem.unlink('/f')), ['unlink']);
        if (objects) assert.deepEqual(objects.counts, { put: 0, get: 0, remove: 0 });
    });
}

test('what others write to a new file meanwhile is kept, whatever is written here', async () => {
    for (const options of [{}, { contents: 'database' }, { small: 0 }, { writing: 20_000 }]) {
        const { here, there } = await given(options);
        const add = async (number, pieces, theirs = patterned(9000)) => {
            const path = `/f${number}`;
            await here.fileSystem.release(await here.fileSystem.open(path, write));
            await here.fileSystem.getattr(path);
            const file = await here.fileSystem.open(path, write);
            assert.equal(here.engine.asked.filter((name) => name !== 'trim').at(-1), 'create_file');
            const other = await there.fileSystem.open(path, write);
            await there.fileSystem.write(other, 0, theirs);
            await there.fileSystem.release(other);
            here.engine.asked.length = 0;
            const expected = Buffer.alloc(Math.max(theirs.length, ...pieces.map(([at, length]) => at + length)));
            theirs.copy(expected);
            for (const [at, length] of pieces) {
                await here.fileSystem.write(file, at, Buffer.alloc(length, 7));
                expected.fill(7, at, at + length);
            }
            await here.fileSystem.release(file);
            assert.ok(here.engine.asked.includes('chunks'), 'it is looked up what was written there');
            assert.deepEqual(await here.read({ node: file.node }), expected);
            assert.deepEqual(await there.read({ node: file.node }), expected);
        };
        await add(1, [[0, 4]]);
        await add(2, [[10, 4], [8000, 4000]]);
        await add(3, [[20_000, 10]]);
        await add(4, [[100, 300_000], [500_000, 10]], patterned(600_000));
        await add(5, [[0, 262_144], [262_150, 1]], patterned(300_000));
    }
});

test('what was told of a new file is not taken for granted when it is to be emptied, was doubted or is gone', async () => {
    const { here, there } = await given();
    const make = async (path) => here.fileSystem.release(await here.fileSystem.open(path, write));
    const put = async ({ fileSystem }, path, text, flags = {}) => {
        const file = await fileSystem.open(path, { ...write, ...flags });
        await fileSystem.write(file, 0, Buffer.from(text));
        await fileSystem.release(file);
    };
    await make('/emptied');
    await put(there, '/emptied', 'theirs');
    await put(here, '/emptied', 'our', { truncate: true });
    assert.equal((await here.fileSystem.getattr('/emptied')).size, 3);
    const held = await here.fileSystem.open('/doubted', write);
    here.contents.doubt();
    here.engine.asked.length = 0;
    await put(here, '/doubted', 'text');
    assert.deepEqual(here.engine.asked, ['create_file', 'commit_file']);
    await here.fileSystem.release(held);
    await make('/gone');
    await there.fileSystem.unlink('/gone');
    await assert.rejects(put(here, '/gone', 'text'), { code: 'ESTALE' });
    await put(here, '/gone', 'text');
    assert.equal((await there.fileSystem.getattr('/gone')).size, 4);
});

test('what was told of a new file answers one question, and none after a change of it', async () => {
    const { here, there } = await given();
    const size = async ({ fileSystem }) => (await fileSystem.getattr('/f')).size;
    const sizeAsked = async () => {
        here.engine.asked.length = 0;
        return [await size(here), here.engine.count('getattr')];
    };
    await here.fileSystem.release(await here.fileSystem.open('/f', write));
    assert.deepEqual(await sizeAsked(), [0, 0]);
    assert.deepEqual(await sizeAsked(), [0, 1]);
    await here.fileSystem.release(await here.fileSystem.open('/g', write));
    now += 20;
    here.engine.asked.length = 0;
    await here.fileSystem.getattr('/g');
    await here.fileSystem.release(await here.fileSystem.open('/g', write));
    assert.deepEqual(here.engine.asked, ['getattr', 'create_file'], 'what was told long ago');
    const file = await here.fileSystem.open('/f', write);
    await here.fileSystem.write(file, 0, Buffer.from('here'));
    assert.deepEqual(await sizeAsked(), [4, 1]);
    await here.fileSystem.release(file);
    assert.deepEqual(await sizeAsked(), [4, 1]);
    await here.fileSystem.unlink('/f');
    await here.fileSystem.release(await here.fileSystem.open('/f', write));
    await here.fileSystem.unlink('/f');
    await assert.rejects(size(here), { code: 'ENOENT' });
    await assert.rejects(size(there), { code: 'ENOENT' });
});

test('a file of one chunk that is not small: one request for its bytes', async () => {
    const { here, there, objects } = await given();
    const file = await here.fileSystem.open('/f', write);
    await here.fileSystem.write(file, 0, patterned(200_000));
    await here.fileSystem.release(file);
    there.engine.asked.length = 0;
    const reader = await there.fileSystem.open('/f', read);
    assert.deepEqual(await readAll(reader, 0, 200_000), patterned(200_000));
    assert.deepEqual([there.engine.asked, objects.counts.get], [['resolve'], 1]);
});

test('stats, fsck and gc know a tree with both', async () => {
    const { database, tree, here, objects, file } = await given();
    await here.write(file, patterned(600_000));
    await here.write(await database.file(tree), patterned(1000));
    const { chunks, objects: named, bytesInDatabase } = await figuresOf(database.engine, tree);
    assert.deepEqual([chunks, named, bytesInDatabase], [4, 3, 1000]);
    const open = { engine: database.engine, tree, objects };
    const checked = await said(() => check(open, { repairs: false, zeros: false, reads: true }));
    assert.equal(checked.out, `the tree "${tree.name}" is clean`);
    assert.deepEqual(await removeGarbage(open, { age: 0 }), { looked: 3, removed: 0, uploads: 0 });
    await database.engine.query(
        "update kemvi_store.chunk set data = 'short' where tree = $1 and data is not null", [tree.id]);
    const damaged = await said(() => check(open, { repairs: false, zeros: false, reads: true }));
    assert.match(damaged.out, /chunk 0 has a length of 1000 bytes, 5 of them stored, in a file of 1000/);
});
