// Opening a store: schema and tree, who has the folder, values on their way there and back.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { parseAddress } from '../src/engine/address.mjs';
import { openEngine } from '../src/engine/engine.mjs';
import { lockFolder } from '../src/engine/folderLock.mjs';
import { filedPassword } from '../src/engine/passwordFile.mjs';
import { Names } from '../src/names/names.mjs';
import { migrate, schemaVersion } from '../src/schema/migrate.mjs';
import { ensureTree, findTree } from '../src/schema/trees.mjs';
import { noServer, onEachEngine, scratchFolder, Server } from './engines.mjs';

onEachEngine('values come back as they went', async ({ engine }) => {
    const bytes = Buffer.from([0, 1, 92, 255]);
    const [row] = await engine.query(
        `select $1::bytea as bytes, $2::bigint as number, $3::text as text, $4::text[] = array['a,"', 'b\\'] as "isSame",
         ($5::bytea[])[2] as second, null as nothing, '{"a": [1]}'::jsonb as json, $6::boolean as flag`,
        [bytes, 2 ** 52, 'ä"\\\n', ['a,"', 'b\\'], [bytes, bytes], false],
    );
    assert.ok(Buffer.isBuffer(row.bytes) && Buffer.isBuffer(row.second));
    assert.deepEqual({ ...row }, {
        bytes, number: 2 ** 52, text: 'ä"\\\n', isSame: true, second: bytes, nothing: null, json: { a: [1] }, flag: false,
    });
});

onEachEngine('a mistake is an error that names the store', async ({ engine }) => {
    await assert.rejects(engine.query('select nothing'), { code: 'EIO', message: /^(pglite:|PostgreSQL at ).*does not exist \(42703\)/ });
});

onEachEngine('a transaction is all or nothing', async ({ engine }) => {
    const work = engine.transaction(async (query) => {
        await query.script('create table part (a int); insert into part values (1)');
        await query('insert into part values ($1)', [2]);
        throw new Error('enough');
    });
    await assert.rejects(work, /enough/);
    assert.deepEqual({ ...(await engine.query("select to_regclass('part') is null as gone"))[0] }, { gone: true });
});

onEachEngine('a schema of the same version is left alone, a newer one is refused', async ({ engine }) => {
    await migrate(engine);
    await engine.query('update kemvi_store.meta set version = version + 1');
    const message = new RegExp(`schema of version ${schemaVersion + 1}, this program knows versions up to ${schemaVersion}: update it`);
    await assert.rejects(migrate(engine), message);
    await engine.query('update kemvi_store.meta set version = version - 1');
    await migrate(engine);
});

onEachEngine('a store of the version before is brought forward, beside the functions that its mounts still call', async ({ engine, tree }) => {
    await engine.transaction((query) => query.script(`
        drop index kemvi_store.node_of_tree;
        create function kemvi_store.mkdir(t bigint, folder text, name text, request uuid, origin uuid) returns text language sql as 'select null';
        create function kemvi_store.create_node(t bigint, folder text, name text, request uuid, origin uuid,
            out code text, out node bigint, out kind "char", out size bigint, out mtime bigint, out mode int, out version bigint)
            language sql as 'select null, 1::bigint, ''f''::"char", 1::bigint, 1::bigint, 1, 1::bigint';
        create function kemvi_store.utimes(t bigint, path text, new_mtime bigint, request uuid, origin uuid, out code text, out node bigint)
            language sql as 'select null, 1::bigint';
        update kemvi_store.meta set version = ${schemaVersion - 1}`));
    await migrate(engine);
    const [{ found }] = await engine.query("select to_regclass('kemvi_store.node_of_tree') is not null as found");
    assert.ok(found);
    const names = new Names(engine, tree);
    await names.mkdir('/d');
    await names.open('/d/f', true);
    await names.utimes('/d/f', 1000);
    assert.equal((await names.getattr('/d/f')).mtime, 1000);
});

onEachEngine('a tree is made once, and stays with where its contents are', async ({ engine }) => {
    const settings = { tree: 'once', contents: 's3://bucket/a' };
    const made = await Promise.all([ensureTree(engine, settings), ensureTree(engine, settings), ensureTree(engine, settings)]);
    assert.deepEqual(new Set(made.map(({ id }) => id)).size, 1);
    assert.deepEqual(await findTree(engine, 'once'), { ...made[0], name: 'once', chunkSize: 1_048_576, contents: 's3://bucket/a' });
    assert.equal((await ensureTree(engine, { tree: 'rows', contents: 'database' })).chunkSize, 262_144);
    const other = ensureTree(engine, { tree: 'once', contents: 'database' });
    await assert.rejects(other, /the tree "once" keeps its contents in s3:\/\/bucket\/a, and that is fixed; here it is database/);
});

test('many make the schema at the same time', { skip: noServer }, async () => {
    const server = new Server();
    const engines = await Promise.all(Array.from({ length: 5 }, () => openEngine(parseAddress(server.url), { reconnect: 10 })));
    await Promise.all(engines.map(migrate));
    const trees = await Promise.all(engines.map((engine) => ensureTree(engine, { tree: 'main', contents: 'database' })));
    assert.deepEqual(trees, Array(5).fill(trees[0]));
    await Promise.all(engines.map((engine) => engine.close()));
});

/** Another process that has the lock of a folder. */
async function holding(folder) {
    const module = new URL('../src/engine/folderLock.mjs', import.meta.url);
    const program = `import { lockFolder } from ${JSON.stringify(String(module))};
        lockFolder(${JSON.stringify(folder)}); console.log('has it'); setInterval(() => {}, 1000);`;
    const child = spawn(process.execPath, ['--input-type=module', '-e', program], { stdio: ['ignore', 'pipe', 'inherit'] });
    await once(child.stdout, 'data');
    return child;
}

test('a folder is locked by one process, which is named, until it is gone', { timeout: 60_000 }, async () => {
    const folder = scratchFolder();
    const child = await holding(folder);
    try {
        assert.throws(() => lockFolder(folder), { message: `${folder}: in use by process ${child.pid}; the embedded store serves one mount at a time` });
    } finally {
        child.kill('SIGKILL');
        await once(child, 'exit');
    }
    const lock = lockFolder(folder);
    assert.throws(() => lockFolder(folder), new RegExp(`in use by process ${process.pid};`));
    assert.equal(fs.readFileSync(path.join(folder, 'kemvi.lock'), 'utf8'), `${process.pid}\n`);
    lock.release();
    lockFolder(folder).release();
});

test('the folder of an embedded store that is in use is refused', { timeout: 60_000 }, async () => {
    const folder = scratchFolder();
    const child = await holding(folder);
    await assert.rejects(openEngine(parseAddress(`pglite:${folder}`), { reconnect: 1 }), new RegExp(`in use by process ${child.pid};`));
    child.kill('SIGKILL');
    await once(child, 'exit');
});

test('a folder with something else in it is not taken for a store', async () => {
    const folder = scratchFolder();
    fs.writeFileSync(path.join(folder, 'letter.txt'), '');
    await assert.rejects(openEngine(parseAddress(`pglite:${folder}`), { reconnect: 1 }), /holds letter\.txt and no store; name an empty folder/);
});

test('passwords are found in the file of PostgreSQL\'s own clients', (t) => {
    const file = path.join(scratchFolder(), 'passwords');
    fs.writeFileSync(file, '# words\none:5432:files:me:first\n*:*:files:me:a\\:b\\\\c:d\nlocalhost:*:*:*:socket\n', { mode: 0o600 });
    const before = process.env.PGPASSFILE;
    process.env.PGPASSFILE = file;
    t.after(() => (before === undefined ? delete process.env.PGPASSFILE : (process.env.PGPASSFILE = before)));
    const said = [];
    const find = (host, port, database, user) => filedPassword({ host, port, database, user }, (text) => said.push(text));
    assert.equal(find('one', 5432, 'files', 'me'), 'first');
    assert.equal(find('one', 5433, 'files', 'me'), 'a:b\\c:d');
    assert.equal(find('two', 1, 'files', 'you'), undefined);
    assert.equal(find('/run/postgresql', 1, 'other', 'you'), 'socket');
    assert.deepEqual(said, []);
    fs.chmodSync(file, 0o644);
    assert.equal(find('one', 5432, 'files', 'me'), undefined);
    assert.match(said[0], /passwords: not used, because others can read it; chmod 600 it/);
});
