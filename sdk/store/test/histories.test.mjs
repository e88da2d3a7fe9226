// A database that comes back without its last moments, because a copy that lagged has taken over: what was acknowledged
// there may be gone, and nothing that is known of it may be taken for something else.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import { after, test } from 'node:test';
import { ForeignChanges } from '../src/changes/foreignChanges.mjs';
import { Contents } from '../src/contents/contents.mjs';
import { parseAddress } from '../src/engine/address.mjs';
import { openEngine } from '../src/engine/engine.mjs';
import { Names } from '../src/names/names.mjs';
import { migrate } from '../src/schema/migrate.mjs';
import { ensureTree } from '../src/schema/trees.mjs';
import { patterned, readAll } from './contentsSupport.mjs';
import { noServer, Server } from './engines.mjs';
import { Proxy } from './proxy.mjs';

const options = { skip: noServer, timeout: 120_000 };

async function until(isSo, what) {
    for (let left = 1200; !(await isSo()); left--) {
        assert.ok(left > 0, `not within 30 s: ${what}`);
        await new Promise((resolve) => setTimeout(resolve, 25));
    }
}

/** A server with a copy that can be kept from following it, and then takes its place. */
class Pair {
    constructor() {
        this.server = new Server('--standby');
        const { url, password } = this.server.tcp('both');
        this.url = url;
        process.env.PGPASSWORD = password;
    }

    sql(text, which = 'socket') {
        return execFileSync('psql', ['-XAtqc', text, this.server.run('url', which)], { encoding: 'utf8' }).trim();
    }

    /** The copy has all of now, and nothing of what follows. */
    async partCopy() {
        const now = this.sql('select pg_current_wal_lsn()');
        await until(() => this.sql(`select pg_last_wal_replay_lsn() >= '${now}'`, 'standby-socket') === 't', 'the copy follows');
        this.sql("alter system set primary_conninfo = ''", 'standby-socket');
        this.sql('select pg_reload_conf()', 'standby-socket');
        await until(() => this.sql('select count(*) from pg_stat_replication') === '0', 'the copy does not follow');
    }

    fail() {
        this.server.run('kill');
        this.server.run('promote');
    }
}

/** A machine as a helper has it, on the tree "main". */
async function machineOn(url, { chunkSize = 1000, name = 'main' } = {}) {
    const said = [];
    const say = (text) => said.push(text);
    const engine = await openEngine(parseAddress(url), { reconnect: 30, say });
    after(() => engine.close());
    await migrate(engine);
    const tree = await ensureTree(engine, { tree: name, contents: 'database', chunkSize });
    const names = new Names(engine, tree);
    const contents = new Contents({ engine, tree }, { say });
    const counts = { doubts: 0 };
    const doubted = () => {
        counts.doubts++;
        contents.doubt();
    };
    await new ForeignChanges(engine, tree, { changed: () => {}, doubted, migrated: () => contents.lookBack() }).begin();
    const open = async (path, create = true, truncate = false) =>
        contents.open(await names.open(path, create), { write: create, truncate });
    const write = async (path, bytes) => {
        const file = await open(path, true, true);
        await file.write(0, Buffer.from(bytes));
        await file.release();
    };
    const read = async (path) => {
        const file = await open(path, false);
        try {
            return String(await readAll(file));
        } finally {
            await file.release();
        }
    };
    return { engine, names, contents, open, write, read, said, counts };
}

test('what a copy that lagged did not have is gone, and no other file is taken for it', options, async () => {
    const pair = new Pair();
    const one = await machineOn(pair.url);
    const other = await machineOn(pair.url);
    await one.write('/kept', 'of before');
    await pair.partCopy();
    await one.write('/kept', 'lost text');
    assert.equal(await one.read('/kept'), 'lost text');
    const lost = [];
    for (let number = 0; number < 40; number++) lost.push(await one.open(`/lost${number}`));
    await lost[0].write(0, Buffer.from('lost too'));
    await lost[0].flush();
    pair.fail();

    for (let number = 0; number < 80; number++) await other.write(`/other${number}`, 'of the other');
    for (const file of lost) {
        await file.write(3, Buffer.from('WRONG'));
        await assert.rejects(file.flush(), { code: 'ESTALE' });
        await assert.rejects(file.release(), { code: 'ESTALE' });
    }
    for (let number = 0; number < 80; number++) assert.equal(await one.read(`/other${number}`), 'of the other');
    await assert.rejects(one.names.getattr('/lost0'), { code: 'ENOENT' });
    const told = ({ said }) => said.some((line) => /what was acknowledged at .* is not in the database any more/.test(line));
    await until(() => told(one), 'the loss is told');
    assert.ok(!told(other), 'which lost nothing');
    assert.equal(await one.read('/kept'), 'of before');
    await other.write('/kept', 'once more');
    assert.equal(await one.read('/kept'), 'once more', 'as often committed, and of the same length');
});

test('what was put away ahead of a commit and is lost is told, and leaves no hole', options, async () => {
    const pair = new Pair();
    const one = await machineOn(pair.url);
    const other = await machineOn(pair.url);
    await other.write('/file', 'of before');
    const file = await one.open('/file', true, true);
    const putAway = async (from, to) => {
        for (let at = from; at < to; at++) await file.write(at * 1000, patterned(1000, at));
        const chunks = () => pair.sql('select count(*) from kemvi_store.chunk where node < 0');
        await until(() => Number(chunks()) === to, `${to} chunks put away`);
    };
    await putAway(0, 32);
    await pair.partCopy();
    await putAway(32, 64);
    pair.fail();
    await file.write(64_000, Buffer.from('end'));
    await assert.rejects(file.flush(), { code: 'EIO', message: /the database has lost its last moments/ });
    await assert.rejects(file.release(), { code: 'EIO' });
    assert.equal(await other.read('/file'), 'of before');
    await one.write('/file', 'written again');
    assert.equal(await other.read('/file'), 'written again');
});

test('connections that break while nothing is asked are noticed before something is', options, async () => {
    const server = new Server();
    const proxy = new Proxy({ folder: server.folder, port: Number(fs.readFileSync(`${server.folder}/primary.port`, 'utf8')) });
    const { names, counts } = await machineOn(await proxy.listen());
    await names.mkdir('/d');
    proxy.cutFirst(); // that of what is asked; the one that listens stands
    await until(() => counts.doubts > 0, 'what is known is doubted');
    await names.mkdir('/e');
    await until(() => counts.doubts === 2, 'it is doubted once more when it listens again');
});
