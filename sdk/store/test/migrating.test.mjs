// Programs of different versions on one store: forward only, under those that are at work, and never back.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { pathToFileURL } from 'node:url';
import { parseAddress } from '../src/engine/address.mjs';
import { openEngine } from '../src/engine/engine.mjs';
import { openStore } from '../src/openStore.mjs';
import { migrate, schemaVersion } from '../src/schema/migrate.mjs';
import { readSettings } from '../src/settings.mjs';
import { noServer, packageFolder, scratchFolder, Server } from './engines.mjs';

/** @type {Server} */
let server;
const options = { skip: noServer, timeout: 120_000 };
if (!noServer) before(() => (server = new Server()));
let databases = 0;

async function engineAt(address) {
    const engine = await openEngine(parseAddress(address), { reconnect: 10 });
    after(() => engine.close());
    return engine;
}

/** A new database, and an engine that no helper uses. */
async function newDatabase() {
    const name = `d${++databases}`;
    const all = await engineAt(server.url);
    await all.query(`create database ${name}`);
    const address = server.url.replace('/postgres?', `/${name}?`);
    return { address, engine: await engineAt(address) };
}

/** What a mount has of a helper. */
async function helper(address) {
    const said = [];
    const settings = readSettings({ KEMVI_STORE: address, KEMVI_STORE_RECONNECT: '5' });
    const store = await openStore(settings, { changed: () => {}, say: (text) => said.push(text) });
    after(() => store.end());
    const write = async (file, text) => {
        const handle = await store.open(file, { read: false, write: true, create: true, truncate: true });
        await store.write(handle, 0, Buffer.from(text));
        await store.release(handle);
    };
    const read = async (file) => {
        const handle = await store.open(file, { read: true, write: false, create: false, truncate: false });
        const buffer = Buffer.alloc(100);
        const count = await store.read(handle, 0, 100, buffer);
        await store.release(handle);
        return buffer.toString('utf8', 0, count);
    };
    return { store, said, write, read };
}

/** The schema as a program of another version has it. */
async function otherProgram({ version, scripts = {}, least = undefined, change = (text) => text }) {
    const folder = scratchFolder();
    fs.cpSync(path.join(packageFolder, 'src'), path.join(folder, 'src'), { recursive: true });
    fs.symlinkSync(path.join(packageFolder, 'node_modules'), path.join(folder, 'node_modules'));
    const schema = path.join(folder, 'src/schema');
    const edit = (file, how) => fs.writeFileSync(file, how(fs.readFileSync(file, 'utf8')));
    edit(path.join(schema, 'names.sql'), change);
    for (const [name, text] of Object.entries(scripts)) fs.writeFileSync(path.join(schema, name), text);
    if (least) edit(path.join(schema, 'migrate.mjs'), (text) => text.replace(/leastVersion = \d+/, `leastVersion = ${least}`));
    fs.writeFileSync(path.join(folder, 'package.json'), JSON.stringify({ version, type: 'module' }));
    return import(String(pathToFileURL(path.join(schema, 'migrate.mjs'))));
}

const next = `${String(schemaVersion + 1).padStart(4, '0')}-next.sql`;
const newer = new RegExp(`schema of version ${schemaVersion + 1}, this program knows versions up to ${schemaVersion}: update it`);

async function until(isSo, what) {
    for (let left = 400; !isSo(); left--) {
        assert.ok(left > 0, `not within 10 s: ${what}`);
        await new Promise((resolve) => setTimeout(resolve, 25));
    }
}

test('a database of the schema before is brought forward, with all that is in it', options, async () => {
    const { address, engine } = await newDatabase();
    const script = (name) => fs.readFileSync(path.join(packageFolder, 'src/schema', name), 'utf8');
    await engine.transaction(async (query) => {
        await query.script('create schema kemvi_store; create table kemvi_store.meta (version int not null)');
        await query.script(`${script('0001-tables.sql')}; ${script('0002-contents.sql')}; insert into kemvi_store.meta values (2)`);
        await query.script(`
            insert into kemvi_store.tree (name, contents) values ('main', 'database');
            insert into kemvi_store.node (tree, id, parent, name, kind, mtime, mode) values (1, -1, 0, '1', 'd', 0, 493);
            insert into kemvi_store.node (tree, id, parent, name, kind, size, mtime, mode, version)
                values (1, nextval('kemvi_store.node_id'), -1, 'old', 'f', 4, 0, 420, 2);
            insert into kemvi_store.chunk (tree, node, position, length, data, version) values (1, 1, 0, 4, 'text', 2);
            insert into kemvi_store.upload (tree, id) values (1, 77)`);
    });
    const { store, read, write } = await helper(address);
    assert.equal(await read('/old'), 'text');
    await write('/old', 'more text');
    await write('/new', 'new');
    await Promise.all([store.rename('/new', '/newer'), store.mkdir('/folder')]);
    assert.equal(await read('/old'), 'more text');
    assert.equal(await read('/newer'), 'new');
    assert.deepEqual({ ...(await engine.query('select version from kemvi_store.meta'))[0] }, { version: schemaVersion });
});

test('who is at work goes on when a newer program brings the schema forward in a way that it can live with', options, async () => {
    const { address, engine } = await newDatabase();
    const helpers = [await helper(address), await helper(address)];
    const program = await otherProgram({ version: '99.0.0', scripts: { [next]: 'alter table kemvi_store.node add column added int' } });
    const handle = await helpers[0].store.open('/held', { read: false, write: true, create: true, truncate: false });
    await helpers[0].store.write(handle, 0, Buffer.from('held'));
    await program.migrate(engine);
    for (const { said } of helpers) await until(() => said.some((line) => newer.test(line) && line.endsWith('until then it goes on')), 'a line');
    await helpers[0].store.release(handle);
    await helpers[1].write('/file', 'text');
    assert.deepEqual([await helpers[1].read('/held'), await helpers[0].read('/file')], ['held', 'text']);
    await engine.query('select pg_terminate_backend(pid) from pg_stat_activity where pid <> pg_backend_pid() and datname = current_database()');
    await helpers[0].write('/file', 'other text');
    assert.equal(await helpers[1].read('/file'), 'other text');
    await assert.rejects(helper(address), newer);
});

test('who is at work is refused with a clear word when it cannot go on', options, async () => {
    const { address, engine } = await newDatabase();
    const { store, said, write } = await helper(address);
    await write('/file', 'text');
    const handle = await store.open('/file', { read: false, write: true, create: false, truncate: false });
    await store.write(handle, 0, Buffer.from('TEXT'));
    const scripts = { [next]: 'alter table kemvi_store.node rename column mode to permissions' };
    await (await otherProgram({ version: '99.0.0', scripts, least: schemaVersion + 1 })).migrate(engine);
    await until(() => said.some((line) => newer.test(line)), 'a line');
    await assert.rejects(store.getattr('/file'), { code: 'EIO', message: newer });
    await assert.rejects(store.mkdir('/folder'), { code: 'EIO', message: newer });
    await assert.rejects(store.flush(handle), { code: 'EIO', message: newer });
    await assert.rejects(helper(address), newer);
});

test('who was away meanwhile finds out when it is back', options, async () => {
    const { address, engine } = await newDatabase();
    const { store, said } = await helper(address);
    await store.mkdir('/folder');
    await engine.query('update kemvi_store.meta set version = version + 1, least = version + 1'); // nobody is told
    await store.getattr('/folder');
    await engine.query('select pg_terminate_backend(pid) from pg_stat_activity where pid <> pg_backend_pid() and datname = current_database()');
    await until(() => said.some((line) => newer.test(line)), 'a line');
    await assert.rejects(store.getattr('/folder'), { code: 'EIO', message: newer });
});

test('functions are those of the newest program that was there', options, async () => {
    const { engine } = await newDatabase();
    const marked = (mark) => (text) => text.replace('-- Null when there is no such node.', `-- ${mark}\n$&`)
        .replace("    path text := '';", `    path text := ''; -- ${mark}`);
    const there = async () => (await engine.query("select prosrc from pg_proc where proname = 'path_of'"))[0].prosrc;
    const older = await otherProgram({ version: '0.0.1', change: marked('older') });
    await older.migrate(engine);
    assert.match(await there(), /older/);
    await migrate(engine);
    assert.doesNotMatch(await there(), /older/);
    await older.migrate(engine);
    assert.doesNotMatch(await there(), /older/, 'an older program does not put its own back');
    await (await otherProgram({ version: '0.100.0', change: marked('newer') })).migrate(engine);
    await migrate(engine);
    assert.match(await there(), /newer/);
});

test('who may not change the schema is told who may', options, async () => {
    const { address, engine } = await newDatabase();
    await (await otherProgram({ version: '0.0.1', change: (text) => `${text}-- other` })).migrate(engine);
    await engine.query('create role guest login');
    await engine.query('grant usage on schema kemvi_store to guest');
    await engine.query('grant all on all tables in schema kemvi_store to guest');
    const guest = await engineAt(address.replace('user=postgres', 'user=guest'));
    await assert.rejects(migrate(guest), /belongs to another user of the database.*: run kemvi-store create as that one/);
});
