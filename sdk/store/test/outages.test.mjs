// Servers and connections that go, and what is done twice because of it: nothing.
import assert from 'node:assert/strict';
import { randomUUID } from 'node:crypto';
import fs from 'node:fs';
import { after, before, test } from 'node:test';
import { parseAddress } from '../src/engine/address.mjs';
import { openEngine } from '../src/engine/engine.mjs';
import { Names } from '../src/names/names.mjs';
import { migrate } from '../src/schema/migrate.mjs';
import { ensureTree } from '../src/schema/trees.mjs';
import { Contents } from '../src/contents/contents.mjs';
import { commitsOf, noServer, Server } from './engines.mjs';
import { Proxy } from './proxy.mjs';

/** @type {Server} */
let server;
const options = { skip: noServer, timeout: 120_000 };
if (!noServer) {
    before(async () => {
        server = new Server();
        const engine = await openEngine(parseAddress(server.url), { reconnect: 10 });
        await migrate(engine);
        await engine.close();
    });
}

const portOf = ({ folder }) => Number(fs.readFileSync(`${folder}/primary.port`, 'utf8'));

/** A machine whose connection goes through a proxy, and another whose does not, on a new tree. */
async function behindProxy(reconnect = 10) {
    const proxy = new Proxy({ folder: server.folder, port: portOf(server) });
    const said = [];
    const engine = await openEngine(parseAddress(await proxy.listen()), { reconnect, say: (text) => said.push(text) });
    const direct = await openEngine(parseAddress(server.url), { reconnect: 10 });
    after(() => Promise.all([engine.close(), direct.close()]));
    const tree = await ensureTree(direct, { tree: randomUUID(), contents: 'database' });
    return { proxy, said, engine, direct, tree, names: new Names(engine, tree), others: new Names(direct, tree) };
}

const namesIn = async (names, folder) => (await names.readdir(folder)).map(({ name }) => name).sort();

test('a change whose answer was lost is done once, and told as done', options, async () => {
    const { proxy, engine, tree, names, others, said } = await behindProxy();
    await names.open('/warm', true);
    const contents = new Contents({ engine, tree });
    const losing = async (work) => {
        const { lost } = proxy;
        proxy.answers = 'lost';
        const result = await work();
        assert.equal(proxy.lost, lost + 1, 'the answer was lost');
        return result;
    };
    for (const round of [1, 2]) { // the first time a statement is prepared before it is executed, and that answer is lost
        await losing(() => names.mkdir(`/d${round}`));
        await losing(() => names.unlink(`/d${round}`));
        const { node } = await losing(() => names.open(`/f${round}`, true));
        await losing(() => names.rename(`/f${round}`, `/g${round}`));
        assert.equal((await others.getattr(`/g${round}`)).node, node);
        await losing(() => names.utimes(`/g${round}`, 5000));
        const file = contents.open(await names.open(`/g${round}`, false), { write: true, truncate: false });
        await file.write(0, Buffer.from('text'));
        await losing(() => file.flush());
        await file.release();
        const { size, version } = await others.getattr(`/g${round}`);
        assert.deepEqual([size, commitsOf(version)], [4, 1], 'committed once');
    }
    assert.deepEqual(await namesIn(others, '/'), ['g1', 'g2', 'warm']);
    assert.equal(said.filter((line) => line.includes(': lost: ')).length, 12);
    assert.equal(said.filter((line) => line.includes(': found again')).length, 12);
});

test('a change that is refused for what it has done itself is told as done', options, async () => {
    const { direct, tree } = await behindProxy();
    const [id, origin] = [randomUUID(), randomUUID()];
    const twice = async (call, params) => {
        const codes = [];
        for (let i = 0; i < 2; i++) codes.push((await direct.query(`call kemvi_store.${call}`, [tree.id, ...params]))[0].code);
        assert.deepEqual(codes, [null, null], call);
    };
    await twice('mkdir($1, $2, $3, $4, $5, null)', ['/', 'd', id, origin]);
    await twice('rename($1, $2, $3, $4, $5, $6, $7, null)', ['/', 'd', '/', 'e', randomUUID(), origin]);
    await twice('unlink($1, $2, $3, $4, $5, null)', ['/', 'e', randomUUID(), origin]);
    const [{ code }] = await direct.query('call kemvi_store.unlink($1, $2, $3, $4, $5, null)', [tree.id, '/', 'e', randomUUID(), origin]);
    assert.equal(code, 'ENOENT', 'another request is another matter');
});

test('an attempt that goes on after its connection was lost counts, and the next waits for it', options, async () => {
    const { proxy, direct, tree, names, others } = await behindProxy();
    await names.mkdir('/d');
    await names.mkdir('/warm');
    const running = `select count(*) as count from pg_stat_activity where query like '%kemvi_store.mkdir%' and state = 'active' and pid <> pg_backend_pid()`;
    const attempts = async (count) => {
        for (let left = 400; Number((await direct.query(running))[0].count) !== count; left--) {
            assert.ok(left > 0, 'not so many attempts');
            await new Promise((resolve) => setTimeout(resolve, 10));
        }
    };
    let made;
    await direct.transaction(async (query) => {
        await query('select from kemvi_store.node where parent = $1 and name = $2 for update', [-tree.id, 'd']);
        made = names.mkdir('/d/e'); // waits for the lock
        await attempts(1);
        proxy.cut();
        await attempts(2);
    });
    await made;
    assert.deepEqual(await namesIn(others, '/d'), ['e']);
});

test('an answer that does not come is not waited for beyond a third of the limit', options, async () => {
    const { proxy, names, others, said } = await behindProxy(6);
    await names.mkdir('/warm');
    proxy.answers = 'held';
    const made = names.mkdir('/d');
    await new Promise((resolve) => setTimeout(resolve, 1000));
    proxy.answers = 'passed'; // what was held is lost
    await made;
    assert.deepEqual(await namesIn(others, '/'), ['d', 'warm']);
    assert.match(said.join(), /lost: no answer; trying again/);
});

test('without a server operations fail at the limit, and work again when there is one', options, async () => {
    const limit = 4;
    const engine = await openEngine(parseAddress(server.url), { reconnect: limit });
    const names = new Names(engine, await ensureTree(engine, { tree: randomUUID(), contents: 'database' }));
    await names.mkdir('/d');
    server.run('kill');
    const began = performance.now();
    await assert.rejects(names.mkdir('/e'), { code: 'EIO', message: /^PostgreSQL at .*: .* \((ECONNREFUSED|ENOENT)\)$/ });
    assert.ok(performance.now() - began < 5000 * limit, 'and not for ever later');
    await server.begin();
    await names.mkdir('/f');
    assert.deepEqual(await namesIn(names, '/'), ['d', 'f']);
    await engine.close();
});

test('an operation waits for a server that is started anew', options, async () => {
    const engine = await openEngine(parseAddress(server.url), { reconnect: 100 }); // however long this machine takes to start one
    const names = new Names(engine, await ensureTree(engine, { tree: randomUUID(), contents: 'database' }));
    await names.mkdir('/d');
    const waiting = names.mkdir('/e');
    server.run('kill');
    await server.begin();
    await waiting;
    assert.deepEqual(await namesIn(names, '/'), ['d', 'e']);
    await engine.close();
});

test('what may not be is told at once', options, async () => {
    const { url } = server.tcp();
    const before = process.env.PGPASSWORD;
    process.env.PGPASSWORD = 'not this one';
    after(() => (before === undefined ? delete process.env.PGPASSWORD : (process.env.PGPASSWORD = before)));
    const engine = await openEngine(parseAddress(url), { reconnect: 600 });
    await assert.rejects(engine.query('select 1'), { code: 'EIO', message: /password authentication failed.*\(28P01\)/ });
    await engine.close();
});

test('the copy takes over, and what was acknowledged is there', options, async () => {
    const pair = new Server('--standby');
    const { url, password } = pair.tcp('both');
    process.env.PGPASSWORD = password;
    const engine = await openEngine(parseAddress(url), { reconnect: 100 });
    await migrate(engine);
    await engine.query("alter system set synchronous_standby_names = '*'");
    await engine.query('select pg_reload_conf()');
    const names = new Names(engine, await ensureTree(engine, { tree: 'main', contents: 'database' }));
    let lost = 0;
    let back = 0;
    await engine.listen('kemvi_store', () => {}, () => lost++, () => back++);
    for (let number = 0; number < 20; number++) await names.mkdir(`/${number}`);
    pair.run('kill');
    const waiting = names.mkdir('/20');
    pair.run('promote');
    await waiting;
    const expected = Array.from({ length: 21 }, (_, number) => String(number)).sort();
    assert.deepEqual(await namesIn(names, '/'), expected);
    for (let left = 400; back === 0 && left > 0; left--) await new Promise((resolve) => setTimeout(resolve, 25));
    assert.deepEqual([lost, back], [1, 1]);
    await engine.close();
});
