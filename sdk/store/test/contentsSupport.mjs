// What tests of contents stand on: a database, real or embedded, objects in memory or in a real store, and ways to have both
// fail.
import { execFileSync } from 'node:child_process';
import { randomUUID } from 'node:crypto';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after } from 'node:test';
import { PosixError } from 'kemvi-helper';
import { Contents } from '../src/contents/contents.mjs';
import { parseAddress } from '../src/engine/address.mjs';
import { openEngine } from '../src/engine/engine.mjs';
import { MissingObject } from '../src/objects/objects.mjs';
import { engineOf, noServer, packageFolder } from './engines.mjs';

/** Why there is no object store to test with; false when there is one. */
export const noObjectStore = ['ceph-mon', 'ceph-osd', 'radosgw'].every((name) => fs.existsSync(`/usr/bin/${name}`))
    ? false
    : 'no S3 server is installed (packages ceph-mon, ceph-osd, radosgw)';

/** Starts an object store of its own for the tests of one file, and makes its settings those of this process. */
export function startObjectStore() {
    const script = path.join(packageFolder, '../../tests/servers/s3.sh');
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kemvi-store-'));
    const run = (/** @type {string} */ verb) => execFileSync(script, [verb, folder], { encoding: 'utf8', timeout: 120_000 });
    after(() => {
        run('kill');
        fs.rmSync(folder, { recursive: true, force: true });
    });
    process.env.S3_STORE = 'memory';
    process.env.S3_SIZE = '1';
    run('start');
    for (const line of run('env').trim().split('\n')) {
        const [name, value] = line.split('=');
        process.env[name] = value;
    }
    return { run };
}

/** A database for the tests of one file: a server where one is installed, else the embedded one. */
export class TestDatabase {
    static async start(kind = process.env.KEMVI_TEST_ENGINE ?? (noServer ? 'pglite' : 'postgres')) {
        const database = new TestDatabase();
        const { engine, address } = await engineOf(kind);
        Object.assign(database, { kind, engine, address });
        return database;
    }

    /** Another engine where there can be several; the same one where there cannot. */
    async second() {
        if (this.kind === 'pglite') return this.engine;
        const engine = await openEngine(parseAddress(this.address), { reconnect: 10 });
        after(() => engine.close());
        return engine;
    }

    /** A new tree. */
    async tree({ chunkSize = 262_144, contents = 'database' } = {}) {
        const [tree] = await this.engine.query(
            'insert into kemvi_store.tree (name, contents, chunk_size) values ($1, $2, $3) returning id, key, chunk_size as "chunkSize"',
            [`t${randomUUID()}`, contents, chunkSize],
        );
        await this.engine.query(
            `insert into kemvi_store.node (tree, id, parent, name, kind, mtime, mode) values ($1::bigint, -$1::bigint, 0, $1::bigint::text, 'd', 0, 493)`, [tree.id],
        );
        return tree;
    }

    /** A new file, as open would tell of it. */
    async file(tree, name = randomUUID()) {
        const answer = await this.engine.change('call kemvi_store.create_file($1, $2, $3, $4, $5, null, null, null, null, null, null, null)', [tree.id, '/', name]);
        return told(answer[0]);
    }

    /** What open would tell of a file now. */
    async look(tree, { node }, engine = this.engine) {
        const [row] = await engine.query(
            'select id as node, size, mtime, version from kemvi_store.node where tree = $1 and id = $2', [tree.id, node],
        );
        return row && told(row);
    }

    async remove(tree, { node }) {
        await this.engine.query('delete from kemvi_store.chunk where tree = $1 and node = $2', [tree.id, node]);
        await this.engine.query('delete from kemvi_store.node where tree = $1 and id = $2', [tree.id, node]);
    }

    async rows(tree, { node }) {
        return this.engine.query(
            'select position, length, object from kemvi_store.chunk where tree = $1 and node = $2 order by position', [tree.id, node],
        );
    }

    async garbage(tree) {
        const rows = await this.engine.query('select object from kemvi_store.garbage where tree = $1', [tree.id]);
        return rows.map(({ object }) => object);
    }
}

function told({ node, size, mtime, version }) {
    return { node, size, mtime, version };
}

/** An object store in memory that can be told to fail, to be slow and to lose. */
export class MemoryObjects {
    constructor() {
        this.all = new Map();
        this.counts = { put: 0, get: 0, remove: 0 };
        this.underWay = 0;
        this.mostUnderWay = 0;
        this.delay = async () => {};
        this.failing = () => false; // (operation, name) => whether it fails
    }

    async put(name, bytes) {
        const copy = Buffer.from(bytes);
        await this.request_('put', name);
        if (Buffer.compare(copy, bytes) !== 0) throw new Error('bytes changed while they were put');
        this.all.set(name, { bytes: copy, at: Date.now() });
    }

    async get(name) {
        await this.request_('get', name);
        const found = this.all.get(name);
        if (!found) throw new MissingObject(name);
        return Buffer.from(found.bytes);
    }

    async remove(names) {
        await this.request_('remove', names);
        for (const name of names) this.all.delete(name);
    }

    async list(after = '') {
        const names = [...this.all.keys()].sort().filter((name) => name > after).slice(0, 10);
        const objects = names.map((name) => ({
            name, size: this.all.get(name).bytes.length, age: Date.now() - this.all.get(name).at,
        }));
        return { objects, next: names.length === 10 ? names[9] : undefined };
    }

    async request_(operation, name) {
        this.counts[operation]++;
        this.mostUnderWay = Math.max(this.mostUnderWay, ++this.underWay);
        try {
            await this.delay(operation, name);
            if (this.failing(operation, name)) throw new PosixError('EIO', `the store refuses ${operation}`);
        } finally {
            this.underWay--;
        }
    }
}

/** An engine that fails, before or after it has done what it was asked. */
export class FailingEngine {
    constructor(engine) {
        this.engine = engine;
        this.origin = engine.origin;
        this.asked = []; // names of functions
        this.failBefore = () => false;
        this.failAfter = () => false;
        this.delay = async () => {};
    }

    query(text, params) {
        return this.ask_('query', text, params);
    }

    change(text, params) {
        return this.ask_('change', text, params);
    }

    count(name) {
        return this.asked.filter((each) => each === name).length;
    }

    async ask_(kind, text, params) {
        const name = /kemvi_store\.(\w+)/.exec(text)?.[1];
        this.asked.push(name);
        if (this.failBefore(name)) throw new PosixError('EIO', `${name} does not reach the database`);
        await this.delay(name);
        const rows = await this.engine[kind](text, params);
        if (this.failAfter(name)) throw new PosixError('EIO', `the answer of ${name} is lost`);
        return rows;
    }
}

/** One machine: contents over an engine and objects that can fail. */
export class Machine {
    constructor(database, tree, { engine = database.engine, objects, ...options } = {}) {
        this.database = database;
        this.tree = tree;
        this.engine = new FailingEngine(engine);
        this.objects = objects;
        this.said = [];
        this.commits = [];
        this.contents = new Contents({ engine: this.engine, tree, objects }, {
            memory: 4 << 20,
            say: (text) => this.said.push(text),
            committed: (node, facts) => this.commits.push({ node, ...facts }),
            ...options,
        });
    }

    /** Opens a file as a mount would. */
    async open(file, flags = 'read') {
        const there = await this.database.look(this.tree, file);
        return this.contents.open(there, { write: flags !== 'read', truncate: flags === 'truncate' });
    }

    async write(file, bytes, offset = 0, flags = 'write') {
        const handle = await this.open(file, flags);
        await handle.write(offset, bytes);
        await handle.release();
    }

    async read(file, offset = 0, length = 1 << 24) {
        const handle = await this.open(file);
        try {
            return await readAll(handle, offset, length);
        } finally {
            await handle.release();
        }
    }
}

/** Reads a range in blocks, as a host does. */
export async function readAll(handle, offset = 0, length = 1 << 24, block = 65_536) {
    const buffer = Buffer.alloc(Math.min(length, block));
    const pieces = [];
    for (let at = offset; at < offset + length; ) {
        const count = await handle.read(at, Math.min(buffer.length, offset + length - at), buffer);
        if (count === 0) break;
        pieces.push(Buffer.from(buffer.subarray(0, count)));
        at += count;
    }
    return Buffer.concat(pieces);
}

/** Bytes that differ from place to place. */
export function patterned(length, seed = 1) {
    const bytes = Buffer.alloc(length);
    for (let at = 0, value = seed * 2_654_435_761 >>> 0; at < length; at++) {
        value = (value * 1_664_525 + 1_013_904_223) >>> 0;
        bytes[at] = value >>> 24;
    }
    return bytes;
}
