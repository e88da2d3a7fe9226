// Several machines at the same names at the same time.
import assert from 'node:assert/strict';
import { randomUUID } from 'node:crypto';
import { after, before, test } from 'node:test';
import { DatabaseChunks } from '../src/contents/databaseChunks.mjs';
import { parseAddress } from '../src/engine/address.mjs';
import { openEngine } from '../src/engine/engine.mjs';
import { Names } from '../src/names/names.mjs';
import { migrate } from '../src/schema/migrate.mjs';
import { ensureTree } from '../src/schema/trees.mjs';
import { noServer, Server } from './engines.mjs';

const machines = 6;
const rounds = 25;
/** @type {import('../src/engine/engine.mjs').Engine[]} */
let engines = [];

if (!noServer) {
    before(async () => {
        const server = new Server();
        engines = await Promise.all(
            Array.from({ length: machines }, () => openEngine(parseAddress(server.url), { reconnect: 20 })),
        );
        await migrate(engines[0]);
    });
    after(() => Promise.all(engines.map((engine) => engine.close())));
}

/** The names of a new tree, as each machine has them. */
async function newTree() {
    const tree = await ensureTree(engines[0], { tree: randomUUID(), contents: 'database' });
    return { tree, all: engines.map((engine) => new Names(engine, tree)) };
}

/**
 * What came of each: "done", or the code of the error.
 * @param {Promise<any>[]} attempts
 */
async function outcomes(attempts) {
    const results = await Promise.allSettled(attempts);
    return results.map((result) => (result.status === 'fulfilled' ? 'done' : result.reason.code));
}

const times = (count, what) => Array(count).fill(what);
const namesIn = async (names, folder) => (await names.readdir(folder)).map(({ name }) => name).sort();

/** Every node lies in a folder that there is, and the root above it all. */
async function assertSound(tree) {
    const [engine] = engines;
    const [{ astray }] = await engine.query(
        `select count(*) as astray from kemvi_store.node n
         where n.tree = $1 and n.id > 0 and not exists (select from kemvi_store.node p where p.id = n.parent and p.kind = 'd')`,
        [tree.id],
    );
    assert.equal(astray, 0);
    const [{ reached, all }] = await engine.query(
        `with recursive beneath as (
            select n.id from kemvi_store.node n where n.id = -$1::bigint
            union select n.id from kemvi_store.node n join beneath b on n.parent = b.id)
         select (select count(*) from beneath) as reached, (select count(*) from kemvi_store.node n where n.tree = $1) as all`,
        [tree.id],
    );
    assert.equal(reached, all, 'a cycle is not reached from the root');
}

const options = { skip: noServer, timeout: 120_000 };

test('of several who make one folder, one has made it', options, async () => {
    const { all, tree } = await newTree();
    for (let round = 0; round < rounds; round++) {
        const came = await outcomes(all.map((names) => names.mkdir(`/${round}`)));
        assert.deepEqual(came.sort(), [...times(machines - 1, 'EEXIST'), 'done']);
    }
    await assertSound(tree);
});

test('of several who create one file, all open the same', options, async () => {
    const { all } = await newTree();
    for (let round = 0; round < rounds; round++) {
        const files = await Promise.all(all.map((names) => names.open(`/${round}`, true)));
        assert.equal(new Set(files.map(({ node }) => node)).size, 1);
    }
});

test('of several who move one file, one has moved it', options, async () => {
    const { all } = await newTree();
    for (let round = 0; round < rounds; round++) {
        const { node } = await all[0].open('/file', true);
        const came = await outcomes(all.map((names, index) => names.rename('/file', `/to ${index}`)));
        assert.deepEqual([...came].sort(), [...times(machines - 1, 'ENOENT'), 'done']);
        const [name, ...more] = await namesIn(all[0], '/');
        assert.deepEqual([name, more], [`to ${came.indexOf('done')}`, []]);
        assert.equal((await all[0].getattr(`/${name}`)).node, node);
        await all[0].unlink(`/${name}`);
    }
});

test('of several who remove one thing, one has removed it', options, async () => {
    const { all } = await newTree();
    for (let round = 0; round < rounds; round++) {
        if (round % 2 === 0) await all[0].mkdir('/it');
        else await all[0].open('/it', true);
        const came = await outcomes(all.map((names) => names.unlink('/it')));
        assert.deepEqual(came.sort(), [...times(machines - 1, 'ENOENT'), 'done']);
    }
});

test('of several who put their file in one place, each has, and one is left', options, async () => {
    const { all, tree } = await newTree();
    for (let round = 0; round < rounds; round++) {
        const files = await Promise.all(all.map((names, index) => names.open(`/${index}`, true)));
        assert.deepEqual(await outcomes(all.map((names, index) => names.rename(`/${index}`, '/place'))), times(machines, 'done'));
        assert.deepEqual(await namesIn(all[0], '/'), ['place']);
        assert.ok(files.some(({ node }) => node === files[0].node));
    }
    const [{ count }] = await engines[0].query('select count(*) as count from kemvi_store.node where tree = $1', [tree.id]);
    assert.equal(count, 2, 'what was replaced is gone');
});

test('two folders that are moved into each other make no cycle', options, async () => {
    const { all, tree } = await newTree();
    for (let round = 0; round < rounds; round++) {
        await all[0].mkdir('/a');
        await all[0].mkdir('/b');
        const came = await outcomes([all[0].rename('/a', '/b/a'), all[1].rename('/b', '/a/b')]);
        assert.equal(came.filter((each) => each === 'done').length, 1, `${came}`);
        await assertSound(tree);
        const [top] = await namesIn(all[0], '/');
        await all[0].unlink(top === 'a' ? '/a/b' : '/b/a');
        await all[0].unlink(`/${top}`);
    }
});

test('a folder is removed, or something is made in it, and never both', options, async () => {
    const { all, tree } = await newTree();
    const seen = new Set();
    for (let round = 0; round < 4 * rounds; round++) {
        await all[0].mkdir('/d');
        await all[0].open('/f', true);
        const into = [() => all[0].open('/d/f', true), () => all[0].mkdir('/d/f'), () => all[0].rename('/f', '/d/f')][round % 3];
        const [made, removed] = await outcomes([into(), all[1].unlink('/d')]);
        seen.add(`${made} ${removed}`);
        if (made === 'done') await all[0].unlink('/d/f');
        if (removed !== 'done') await all[0].unlink('/d');
    }
    for (const each of seen) assert.ok(['done ENOTEMPTY', 'ENOENT done'].includes(each), each);
    await assertSound(tree);
});

test('files that change places from both sides do not hold each other up', options, async () => {
    const { all, tree } = await newTree();
    for (let round = 0; round < rounds; round++) {
        await all[0].open('/x', true);
        await all[0].open('/y', true);
        const came = await outcomes(all.map((names, index) => (index % 2 ? names.rename('/x', '/y') : names.rename('/y', '/x'))));
        assert.ok(came.includes('done') && came.every((each) => each === 'done' || each === 'ENOENT'), `${came}`);
        assert.equal((await namesIn(all[0], '/')).length, 1);
    }
    await assertSound(tree);
});

test('whatever all do at once, the tree stays one', options, async () => {
    const { all, tree } = await newTree();
    const allowed = new Set(['done', 'ENOENT', 'EEXIST', 'ENOTDIR', 'EISDIR', 'ENOTEMPTY', 'EINVAL']);
    let state = 1;
    const pick = (values) => values[(state = (state * 48_271) % 2_147_483_647) % values.length];
    const path = () => Array.from({ length: pick([1, 2, 3]) }, () => `/${pick('abc')}`).join('');
    const work = async (names) => {
        for (let step = 0; step < 150; step++) {
            const doing = pick([
                () => names.mkdir(path()), () => names.mkdir(path()), () => names.open(path(), true), () => names.unlink(path()),
                () => names.rename(path(), path()), () => names.rename(path(), path()),
            ]);
            const [came] = await outcomes([doing()]);
            assert.ok(allowed.has(came), came);
        }
    };
    await Promise.all(all.map(work));
    await assertSound(tree);
});

test('who meets a deadlock tries again', options, async () => {
    const { all } = await newTree();
    const nodes = await Promise.all(['/one', '/two'].map(async (path) => (await all[0].open(path, true)).node));
    await engines[0].query(`create or replace function lock_both(a bigint, b bigint, request uuid, origin uuid) returns int
        language plpgsql as $$ begin
            perform from kemvi_store.node where id = a for update;
            perform pg_sleep(0.5);
            perform from kemvi_store.node where id = b for update;
            update kemvi_store.node set mode = mode + 1 where id in (a, b);
            return 1;
        end $$`);
    const [one, two] = nodes;
    const lock = 'select lock_both($1, $2, $3, $4)';
    await Promise.all([engines[0].change(lock, [one, two]), engines[1].change(lock, [two, one])]);
    assert.deepEqual((await all[0].getattr('/one')).mode, 0o644 + 2);
    const counted = 'select deadlocks from pg_stat_database where datname = current_database()';
    for (let left = 400; (await engines[0].query(counted))[0].deadlocks === 0; left--) { // told with some delay
        assert.ok(left > 0, 'there was no deadlock');
        await new Promise((resolve) => setTimeout(resolve, 25));
    }
});

test('a change is told while the disk is waited for, by nobody for another, and answered only then', options, async () => {
    const { all, tree } = await newTree();
    const [one, other] = all;
    await Promise.all([one.mkdir('/d'), one.open('/f', true), one.open('/g', true), one.open('/u', true)]);
    const written = (await one.open('/w', true)).node;
    /** @type {Set<string>} */
    const told = new Set();
    const hears = (/** @type {() => boolean} */ isSo) => new Promise((resolve) => (check = () => isSo() && resolve(undefined)));
    let check = () => {};
    const take = (/** @type {string} */ text) => {
        const notice = JSON.parse(text);
        if (notice.tree === tree.id) notice.paths.forEach((path) => told.add(path));
        check();
    };
    await engines[2].listen('kemvi_store', take, () => {}, () => {});
    const waitFor = async (/** @type {string} */ standby) => {
        await engines[2].query(`alter system set synchronous_standby_names = '${standby}'`);
        await engines[2].query('select pg_reload_conf()');
        const shown = async () => (await engines[0].query('show synchronous_standby_names'))[0].synchronous_standby_names;
        while ((await shown()) !== standby) await new Promise((resolve) => setTimeout(resolve, 10));
    };
    await waitFor('nobody'); // for whom every commit waits
    let answered = 0;
    /** @type {Promise<void>[]} */
    const changes = [];
    const begin = (/** @type {Promise<any>} */ change) => changes.push(change.then(() => void answered++));
    begin(one.mkdir('/d/e'));
    begin(other.open('/h', true));
    begin(one.rename('/f', '/d/f'));
    begin(other.unlink('/u'));
    begin(all[3].utimes('/g', 1000));
    begin(new DatabaseChunks(engines[5], { id: tree.id, key: 't' }).commit({
        node: written, base: null, extent: 3, mtime: null, chunks: [{ position: 0, length: 3, object: null, bytes: Buffer.from('abc') }],
        upload: null, lastTurn: 0, unused: [], batch: randomUUID(), expected: null,
    }));
    await hears(() => ['/d/e', '/h', '/d/f', '/u', '/g', '/w'].every((path) => told.has(path)));
    begin(all[4].rename('/d', '/moved'));
    await hears(() => told.has('/moved'));
    await Promise.all(all.map((names) => names.getattr('/h'))); // over the connections by which early answers would have come
    assert.equal(answered, 0);
    await waitFor('');
    await Promise.all(changes);
    assert.deepEqual(await namesIn(one, '/moved'), ['e', 'f']);
});
