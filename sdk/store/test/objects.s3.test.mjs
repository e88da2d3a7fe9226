// Objects in a real store, which is started for these tests, stopped and killed.
import assert from 'node:assert/strict';
import http from 'node:http';
import test from 'node:test';
import { CreateBucketCommand, S3Client } from '@aws-sdk/client-s3';
import { removeGarbage } from '../src/contents/garbage.mjs';
import { MissingObject } from '../src/objects/objects.mjs';
import { S3Objects } from '../src/objects/s3.mjs';
import { Machine, noObjectStore, patterned, startObjectStore, TestDatabase } from './contentsSupport.mjs';

const store = noObjectStore ? undefined : startObjectStore();
const place = { bucket: 'tests', prefix: 'some/where' };
if (store) {
    const client = new S3Client({ forcePathStyle: true });
    await client.send(new CreateBucketCommand({ Bucket: place.bucket }));
    client.destroy();
}

function objectsOf(t, key, options = {}) {
    const objects = new S3Objects({ ...place, ...options.place }, key, { reconnect: options.reconnect ?? 20 });
    t.after(() => objects.end());
    return objects;
}

test('objects come back as they went, and are listed by name', { skip: noObjectStore }, async (t) => {
    const objects = objectsOf(t, 'tree-a');
    const names = Array.from({ length: 1100 }, (_, at) => `n${String(at).padStart(4, '0')}`);
    await objects.check();
    await objects.put(names[0], patterned(262_144));
    await objects.put(names[1], Buffer.alloc(0));
    assert.deepEqual(await objects.get(names[0]), patterned(262_144));
    assert.equal((await objects.get(names[1])).length, 0);
    for (let at = 2; at < names.length; at += 50) {
        await Promise.all(names.slice(at, at + 50).map((name) => objects.put(name, Buffer.from('x'))));
    }
    await objectsOf(t, 'tree-b').put('of another tree', Buffer.from('x'));
    const seen = [];
    for (let after; ; ) {
        const page = await objects.list(after);
        seen.push(...page.objects);
        if ((after = page.next) === undefined) break;
    }
    assert.deepEqual(seen.map(({ name }) => name), names);
    assert.equal(seen[0].size, 262_144);
    for (const { age } of seen) assert.ok(age > -2000 && age < 120_000, String(age));
    await objects.remove([...names, 'was never there']);
    assert.deepEqual((await objects.list()).objects, []);
    await assert.rejects(objects.get(names[0]), (error) => error instanceof MissingObject && error.objectName === names[0]);
});

test('what cannot succeed is told at once, with what to do', { skip: noObjectStore }, async (t) => {
    const nowhere = objectsOf(t, 'k', { place: { bucket: 'nowhere' } });
    await assert.rejects(nowhere.put('a', Buffer.from('a')), { code: 'EIO', message: /^bucket nowhere: NoSuchBucket, .*; make the bucket/ });
    await assert.rejects(nowhere.check(), { code: 'EIO', message: /make the bucket/ });
    const key = process.env.AWS_SECRET_ACCESS_KEY;
    process.env.AWS_SECRET_ACCESS_KEY = 'wrong';
    try {
        const stranger = objectsOf(t, 'k');
        await assert.rejects(stranger.put('a', Buffer.from('a')), { code: 'EIO', message: /status 403.*; look at the keys/ });
    } finally {
        process.env.AWS_SECRET_ACCESS_KEY = key;
    }
});

test('a store that is away is waited for, and then told', { skip: noObjectStore }, async (t) => {
    const endpoint = process.env.AWS_ENDPOINT_URL_S3;
    t.after(() => (process.env.AWS_ENDPOINT_URL_S3 = endpoint));
    process.env.AWS_ENDPOINT_URL_S3 = 'http://127.0.0.1:1';
    const away = objectsOf(t, 'k', { reconnect: 1 });
    await assert.rejects(away.put('a', Buffer.from('a')), { code: 'EIO', message: /^bucket tests: .*ECONNREFUSED/ });
});

test('requests that fail in the store, or are cut, are sent again', async (t) => {
    let count = 0;
    const server = http.createServer((request, answer) => {
        request.resume();
        count++;
        if (count === 1) answer.writeHead(503).end();
        else if (count === 2) request.socket.destroy();
        else if (count === 3) answer.writeHead(200, { 'content-length': 10 }).write('half', () => request.socket.destroy());
        else answer.writeHead(200, { 'content-length': 10 }).end('0123456789');
    });
    await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
    t.after(() => server.close());
    const before = { ...process.env };
    t.after(() => Object.assign(process.env, before));
    process.env.AWS_ENDPOINT_URL_S3 = `http://127.0.0.1:${server.address().port}`;
    Object.assign(process.env, { AWS_ACCESS_KEY_ID: 'a', AWS_SECRET_ACCESS_KEY: 'b', AWS_REGION: 'us-east-1' });
    assert.equal(String(await objectsOf(t, 'k').get('a')), '0123456789');
    assert.equal(count, 4);
});

test('files lie in the bucket, and only garbage is removed', { skip: noObjectStore }, async (t) => {
    const database = await TestDatabase.start();
    const tree = await database.tree();
    const objects = objectsOf(t, tree.key);
    const here = new Machine(database, tree, { objects });
    const there = new Machine(database, tree, { objects });
    const file = await database.file(tree);
    const bytes = patterned(3 << 20);
    await here.write(file, bytes);
    await here.write(file, Buffer.from('changed'), 1 << 20);
    bytes.write('changed', 1 << 20);
    await objects.put('left-behind', Buffer.from('x'));
    assert.deepEqual(await removeGarbage({ engine: database.engine, tree, objects }), { looked: 14, removed: 0, uploads: 0 });
    assert.deepEqual(await removeGarbage({ engine: database.engine, tree, objects }, { age: 0 }), { looked: 13, removed: 2, uploads: 0 });
    assert.equal((await objects.list()).objects.length, 12);
    assert.ok((await there.read(file)).equals(bytes));
});

test('a commit waits for a store that is away', { skip: noObjectStore }, async (t) => {
    const database = await TestDatabase.start();
    const tree = await database.tree();
    const here = new Machine(database, tree, { objects: objectsOf(t, tree.key) });
    const file = await database.file(tree);
    const handle = await here.open(file, 'write');
    await handle.write(0, patterned(1 << 20));
    store?.run('stop');
    const flushed = handle.flush(); // begins without a store, and waits
    store?.run('start');
    await flushed;
    await handle.release();
    assert.ok((await here.read(file)).equals(patterned(1 << 20)));
});
