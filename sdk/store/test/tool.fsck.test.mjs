// That fsck finds each damage that is planted, says so, and mends it without losing anything.
import assert from 'node:assert/strict';
import test from 'node:test';
import { Contents } from '../src/contents/contents.mjs';
import { Names } from '../src/names/names.mjs';
import { ensureTree } from '../src/schema/trees.mjs';
import { check } from '../src/tool/commands/fsck.mjs';
import { MemoryObjects, patterned, readAll } from './contentsSupport.mjs';
import { engineOf, noServer, onEachEngine } from './engines.mjs';
import { said } from './toolSupport.mjs';

const bytes = patterned(600_000);

/** A tree with some files, and ways to look into it. */
async function planted({ engine, tree, objects }) {
    const names = new Names(engine, tree);
    const open = { engine, tree, objects };
    const it = {
        names, tree, open, engine,
        sql: (text, params = []) => engine.query(text, params),
        id: async (path) => (await names.getattr(path)).node,
        write: async (path) => {
            const contents = new Contents({ engine, tree, objects });
            const file = contents.open(await names.open(path, true), { write: true, truncate: false });
            await file.write(0, bytes);
            await file.release();
        },
        read: async (path) => {
            const file = new Contents({ engine, tree, objects }).open(await names.open(path, false), { write: false, truncate: false });
            return readAll(file);
        },
        check: (wanted = {}) => said(() => check(open, { repairs: false, zeros: false, reads: false, ...wanted })),
        list: async (path) => (await names.readdir(path)).map(({ name }) => name).sort(),
        lost: async () => {
            const folder = (await it.list('/')).find((name) => name.startsWith('lost+found-'));
            assert.match(folder, /^lost\+found-\d{4}-\d\d-\d\d$/);
            return Promise.all((await it.list(`/${folder}`)).map((name) => ({ name, path: `/${folder}/${name}` })));
        },
    };
    await names.mkdir('/d');
    await names.mkdir('/d/e');
    await it.write('/d/f');
    await it.write('/d/e/g');
    assert.equal((await it.check({ reads: true })).out, `the tree "${tree.name}" is clean`);
    return it;
}

/**
 * Damage that is found, is not touched without --repair, is mended with it, and is gone then.
 * @param {string} name
 * @param {object} damage
 * @param {(it: any) => Promise<any>} damage.plant
 * @param {RegExp} damage.found
 * @param {RegExp} damage.mended
 * @param {(it: any) => Promise<any>} [damage.after]
 */
function onDamage(name, { plant, found, mended, after = async () => {} }) {
    onEachEngine(name, async (given) => {
        const it = await planted(given);
        await plant(it);
        const first = await it.check();
        assert.equal(first.code, 4, first.out);
        assert.match(first.out, found);
        assert.equal((await it.check()).out, first.out, 'looking changes nothing');
        const repair = await it.check({ repairs: true });
        assert.match(repair.out, found);
        assert.match(repair.out, mended);
        assert.equal(repair.code, 0, repair.out);
        const again = await it.check({ reads: true });
        assert.equal(again.code, 0, again.out);
        assert.match(again.out, /is clean$/);
        await after(it);
    });
}

const intact = async (it, path) => assert.ok((await it.read(path)).equals(bytes), `${path} has kept its bytes`);

onDamage('a node without a parent', {
    plant: async (it) => it.sql('delete from kemvi_store.node where id = $1', [await it.id('/d')]),
    found: /"e": its parent, node \d+, is not there; what lies beneath it cannot be reached: 1 nodes[^]*"f": its parent, node \d+, is not there/,
    mended: /"e": .*: moved to \/lost\+found-[\d-]+\/\d+-e/,
    after: async (it) => {
        const [e, f] = (await it.lost()).sort((a, b) => (a.name.endsWith('-e') ? -1 : 1));
        await intact(it, `${e.path}/g`);
        await intact(it, f.path);
    },
});

onDamage('a node in a file', {
    plant: async (it) => it.sql('update kemvi_store.node set parent = $1 where id = $2', [await it.id('/d/f'), await it.id('/d/e')]),
    found: /"e": its parent, node \d+, is a file; what lies beneath it cannot be reached: 1 nodes/,
    mended: /moved to \/lost\+found/,
    after: async (it) => intact(it, `${(await it.lost())[0].path}/g`),
});

onDamage('a cycle', {
    plant: async (it) => it.sql('update kemvi_store.node set parent = $1 where id = $2', [await it.id('/d/e'), await it.id('/d')]),
    found: /lies in itself: a cycle of folders; what lies beneath it cannot be reached: 3 nodes/,
    mended: /moved to \/lost\+found/,
    after: async (it) => {
        const [{ path, name }] = await it.lost();
        assert.match(name, /-d$/);
        await intact(it, `${path}/f`);
        await intact(it, `${path}/e/g`);
    },
});

onDamage('a node of another tree as a parent', {
    plant: async (it) => {
        const other = await ensureTree(it.engine, { tree: `other of ${it.tree.name}`, contents: 'database' });
        await it.sql('update kemvi_store.node set parent = $1 where id = $2', [-other.id, await it.id('/d/f')]);
    },
    found: /"f": its parent, node -\d+, is of another tree/,
    mended: /moved to \/lost\+found/,
    after: async (it) => intact(it, (await it.lost())[0].path),
});

onDamage('two nodes of one name', {
    plant: async (it) => {
        await it.sql('alter table kemvi_store.node drop constraint node_parent_name_key');
        await it.sql("update kemvi_store.node set name = 'f' where id = $1", [await it.id('/d/e')]);
    },
    found: /another node of that name is in the same folder[^]*lack the key node_parent_name_key/,
    mended: /renamed to "f-\d+"[^]*node_parent_name_key.*: made again/,
    after: async (it) => {
        assert.deepEqual((await it.list('/d')).map((name) => name.replace(/\d+/, 'N')), ['f', 'f-N']);
        const ids = await it.sql("select from pg_constraint where conname = 'node_parent_name_key'");
        assert.equal(ids.length, 1);
    },
});

onDamage('a name that no file can have', {
    plant: async (it) => it.sql("update kemvi_store.node set name = 'a/b' where id = $1", [await it.id('/d/f')]),
    found: /"a\/b": no file can have that name/,
    mended: /renamed to "\d+-a_b"/,
    after: async (it) => intact(it, `/d/${(await it.list('/d')).find((name) => name.endsWith('a_b'))}`),
});

onDamage('a root that is missing', {
    plant: (it) => it.sql('delete from kemvi_store.node where id = $1', [-it.tree.id]),
    found: /the root folder is missing/,
    mended: /made anew/,
    after: (it) => intact(it, '/d/e/g'),
});

onDamage('a root in a folder', {
    plant: async (it) => it.sql('update kemvi_store.node set parent = $1 where id = $2', [await it.id('/d/e'), -it.tree.id]),
    found: /the root folder is node -\d+ of kind d in folder \d+/,
    mended: /made the root again/,
    after: (it) => intact(it, '/d/e/g'),
});

onDamage('a new node that would get the number of another', {
    plant: (it) => it.sql("select setval('kemvi_store.node_id', 1)"),
    found: /the next new node would be about 2097152, and there are nodes up to \d+/,
    mended: /set behind the last/,
    after: (it) => it.names.mkdir('/new'),
});

onDamage('a size that no file can have', {
    plant: async (it) => it.sql('update kemvi_store.node set size = -1 where id = $1', [await it.id('/d/f')]),
    found: /"f": has a size of -1/,
    mended: /the size is 600000/,
    after: (it) => intact(it, '/d/f'),
});

onDamage('a folder with a size', {
    plant: async (it) => it.sql('update kemvi_store.node set size = 5 where id = $1', [await it.id('/d')]),
    found: /"d": has a size of 5, and is a folder/,
    mended: /the size is 0/,
});

onDamage('a folder with chunks', {
    plant: async (it) => it.sql("insert into kemvi_store.chunk (tree, node, position, length, data) values ($1, $2, 0, 3, 'abc')",
        [it.tree.id, await it.id('/d')]),
    found: /"d": is a folder, and has 1 chunk/,
    mended: /kept as \/lost\+found/,
    after: async (it) => assert.equal(String(await it.read((await it.lost())[0].path)), 'abc'),
});

onDamage('chunks of a node that is missing', {
    plant: async (it) => it.sql('delete from kemvi_store.node where id = $1', [await it.id('/d/f')]),
    found: /3 chunks of node \d+, which is not there/,
    mended: /kept as \/lost\+found/,
    after: async (it) => intact(it, (await it.lost())[0].path),
});

onDamage('chunks of an upload that is missing', {
    plant: (it) => it.sql("insert into kemvi_store.chunk (tree, node, position, length, data) values ($1, -77, 0, 3, 'abc')", [it.tree.id]),
    found: /1 chunk put away for an upload that is not there, 77/,
    mended: /removed: no file has ever had them/,
});

onDamage('chunks beyond the end', {
    plant: async (it) => it.sql('update kemvi_store.node set size = 262144 where id = $1', [await it.id('/d/f')]),
    found: /"f": has 2 chunks beyond its end, at 262144 bytes/,
    mended: /kept as \/lost\+found/,
    after: async (it) => {
        assert.ok((await it.read('/d/f')).equals(bytes.subarray(0, 262_144)));
        const rescued = await it.read((await it.lost())[0].path);
        assert.ok(rescued.subarray(262_144).equals(bytes.subarray(262_144)));
    },
});

onDamage('a chunk before the start', {
    plant: async (it) => it.sql("insert into kemvi_store.chunk (tree, node, position, length, data) values ($1, $2, -2, 3, 'abc')",
        [it.tree.id, await it.id('/d/f')]),
    found: /"f": has 1 chunk beyond its end/,
    mended: /kept as \/lost\+found/,
    after: async (it) => {
        await intact(it, '/d/f');
        assert.equal(String(await it.read((await it.lost())[0].path)), 'abc');
    },
});

for (const [what, length, data] of /** @type {[string, number, number][]} */ ([
    ['too long for the file', 75_713, 75_713], ['too long for a chunk', 300_000, 75_712], ['longer than what is stored', 75_712, 70_000],
    ['empty', 0, 75_712],
])) {
    onDamage(`a chunk that is ${what}`, {
        plant: async (it) => it.sql(
            `update kemvi_store.chunk set length = $3, data = substring(data || '\\x00' from 1 for $4::int) where tree = $1 and node = $2 and position = 2`,
            [it.tree.id, await it.id('/d/f'), length, data]),
        found: new RegExp(`"f": chunk 2 has a length of ${length} bytes, ${data} of them stored, in a file of 600000`),
        mended: /the length is \d+; what is missing reads as zeros/,
        after: async (it) => {
            const now = await it.read('/d/f');
            const kept = 524_288 + Math.min(data, 75_712);
            assert.ok(now.subarray(0, kept).equals(bytes.subarray(0, kept)));
            assert.ok(now.subarray(kept).every((byte) => byte === 0) && now.length === 600_000);
        },
    });
}

/** A tree whose contents are objects in memory. */
async function withObjects(name) {
    const { engine } = await engineOf(noServer ? 'pglite' : 'postgres');
    return planted({ engine, tree: await ensureTree(engine, { tree: name, contents: 's3://no.bucket/x', chunkSize: 262_144 }), objects: new MemoryObjects() });
}

test('an object that is missing or too short is told, and given up only when that is wanted', async () => {
    const it = await withObjects('lost objects');
    const rows = await it.sql('select object from kemvi_store.chunk where tree = $1 and node = $2 order by position', [it.tree.id, await it.id('/d/f')]);
    const { all } = it.open.objects;
    all.delete(rows[0].object);
    const short = all.get(rows[1].object);
    short.bytes = short.bytes.subarray(0, 1000);
    const found = [
        new RegExp(`"f": chunk 0 of 262144 bytes: its object ${rows[0].object} is missing; get the object back`),
        new RegExp(`"f": chunk 1 of 262144 bytes: its object ${rows[1].object} has 1000 bytes`),
    ];
    for (const wanted of [{}, { repairs: true }, { reads: true }]) {
        const { code, out } = await it.check(wanted);
        assert.equal(code, 4);
        for (const each of found) assert.match(out, each);
    }
    assert.match((await it.check({ reads: true })).out, /chunk 0 cannot be read: there is no object/);
    const { code, out } = await it.check({ repairs: true, zeros: true });
    assert.equal(code, 0, out);
    assert.match(out, /given up: 262144 bytes read as zeros[^]*given up: 261144 bytes read as zeros|given up: 261144[^]*given up: 262144/);
    assert.match((await it.check({ reads: true })).out, /is clean/);
    const now = await it.read('/d/f');
    const expected = Buffer.from(bytes);
    expected.fill(0, 0, 262_144);
    expected.fill(0, 263_144, 524_288);
    assert.ok(now.equals(expected));
    await intact(it, '/d/e/g');
});

test('objects that nothing names are told when they are old, and noted as garbage', async () => {
    const it = await withObjects('unnamed objects');
    const { all } = it.open.objects;
    for (let i = 0; i < 25; i++) all.set(`old${i}`, { bytes: Buffer.alloc(10), at: Date.now() - 2 * 3_600_000 });
    all.set('young', { bytes: Buffer.alloc(10), at: Date.now() });
    const first = await it.check();
    assert.equal(first.code, 4);
    assert.equal(first.out.match(/object old\d+ of 10 bytes: nothing names it/g)?.length, 25);
    assert.doesNotMatch(first.out, /young/);
    assert.equal((await it.check({ repairs: true })).code, 0);
    assert.match((await it.check()).out, /is clean/);
    assert.equal((await it.sql('select from kemvi_store.garbage where tree = $1', [it.tree.id])).length, 25);
});

test('garbage that a chunk names is told, and is garbage no more', async () => {
    const it = await withObjects('used garbage');
    await it.sql('insert into kemvi_store.garbage (tree, object) select tree, object from kemvi_store.chunk where tree = $1 and position = 0', [it.tree.id]);
    const first = await it.check();
    assert.equal(first.code, 4);
    assert.equal(first.out.match(/is noted as garbage, and a chunk names it/g)?.length, 2);
    assert.equal((await it.check({ repairs: true })).code, 0);
    assert.match((await it.check()).out, /is clean/);
});

onEachEngine('an object in a tree that keeps its contents in the database', async (given) => {
    const it = await planted(given);
    await it.sql("update kemvi_store.chunk set data = null, object = 'x' where tree = $1 and node = $2 and position = 0", [it.tree.id, await it.id('/d/f')]);
    for (const repairs of [false, true]) {
        const { code, out } = await it.check({ repairs });
        assert.equal(code, 4);
        assert.match(out, /chunk 0 is an object, and the tree keeps its contents in the database/);
    }
});

onEachEngine('a chunk that the database cannot read is found among others', async (given) => {
    const it = await planted(given);
    const node = await it.id('/d/f');
    const engine = Object.create(given.engine);
    engine.query = (text, params) => {
        const isOfIt = text.includes('md5(data)') && (text.includes('count(') || (params[1] === node && params[2] === 1));
        if (isOfIt) throw Object.assign(new Error('invalid page in block 7'), { code: 'EIO' });
        return given.engine.query(text, params);
    };
    const { code, out } = await said(() => check({ engine, tree: given.tree, objects: undefined }, { repairs: false, zeros: false, reads: true }));
    assert.equal(code, 4);
    assert.match(out, /^node \d+: chunk 1 cannot be read: invalid page in block 7; get it back from a backup, or remove the file\n.*in 1 place, 1 left$/);
});
