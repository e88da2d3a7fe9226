// That a collection of garbage beside writers takes nothing that is in use, and that commands find their way to a bucket.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { CreateBucketCommand, ListObjectsV2Command, S3Client } from '@aws-sdk/client-s3';
import { Contents } from '../src/contents/contents.mjs';
import { smallFile } from '../src/contents/small.mjs';
import { Names } from '../src/names/names.mjs';
import { objectsOf } from '../src/tool/openTree.mjs';
import { findTree } from '../src/schema/trees.mjs';
import { noObjectStore, patterned, readAll, startObjectStore } from './contentsSupport.mjs';
import { engineOf, noServer, scratchFolder } from './engines.mjs';
import { tool } from './toolSupport.mjs';

process.env.KEMVI_STORE_RECONNECT = '2';
const skip = noServer || noObjectStore;
const bucket = 'tool';

async function client() {
    startObjectStore();
    const s3 = new S3Client({ forcePathStyle: true });
    await s3.send(new CreateBucketCommand({ Bucket: bucket }));
    const count = async () => (await s3.send(new ListObjectsV2Command({ Bucket: bucket }))).KeyCount;
    return { s3, count };
}

test('a tree in a bucket: made, filled, cleaned beside writers, dropped', { skip, timeout: 280_000 }, async (t) => {
    const { s3, count } = await client();
    t.after(() => s3.destroy());
    const { address: url, engine } = await engineOf('postgres');
    const of = ['--tree', 'bucketed'];
    assert.match((await tool('create', url, ...of, '--contents', 's3://no-such-bucket/x')).err, /no-such-bucket.*make the bucket, or name another one/);
    assert.match((await tool('create', url, ...of, '--contents', `s3://${bucket}/x`, '--chunk-size', '256K')).out, /^made: .*contents in s3:\/\/tool\/x, chunks of 256\.0 KiB/);

    const source = scratchFolder();
    for (let i = 0; i < 10; i++) fs.writeFileSync(path.join(source, `${i}`), patterned(300_000, i));
    for (let i = 0; i < 5; i++) fs.writeFileSync(path.join(source, `small ${i}`), patterned(smallFile - 1000 * i, i));
    assert.equal((await tool('import', url, source, ...of)).code, 0);
    assert.equal(await count(), 20, 'small files lie in the database');
    const copy = path.join(scratchFolder(), 'copy');
    assert.equal((await tool('export', url, copy, ...of)).code, 0);
    for (const name of fs.readdirSync(source)) {
        assert.ok(fs.readFileSync(path.join(copy, name)).equals(fs.readFileSync(path.join(source, name))), name);
    }
    assert.match((await tool('fsck', url, ...of, '--contents', 'read')).out, /is clean/);

    const tree = await findTree(engine, 'bucketed');
    const objects = await objectsOf(tree, 5);
    const names = new Names(engine, tree);
    const rewrite = async (number, rounds) => {
        const contents = new Contents({ engine, tree, objects: Object.assign(Object.create(objects), { end() {} }) });
        for (let round = 1; round <= rounds; round++) {
            const file = contents.open(await names.open(`/${number}`, true), { write: true, truncate: true });
            for (let at = 0; at < 300_000; at += 100_000) {
                await file.write(at, patterned(300_000, 1000 * number + round).subarray(at, at + 100_000));
                if (at === 100_000) await file.flush();
            }
            await file.release();
        }
    };
    // What was replaced is taken for old, as it would be after an hour; what is on its way cannot be.
    let isDone = false;
    const rounds = 8;
    const writers = Promise.all([0, 1, 2].map((number) => rewrite(number, rounds))).finally(() => (isDone = true));
    let removed = 0;
    while (!isDone) {
        await engine.query("update kemvi_store.garbage set since = since - interval '2 hours' where tree = $1", [tree.id]);
        const { code, out } = await tool('gc', url, ...of);
        assert.equal(code, 0);
        removed += Number(/^removed (\d+) object/.exec(out)[1]);
    }
    await writers;
    assert.ok(removed > 0, 'some was removed while they wrote');
    await engine.query("update kemvi_store.garbage set since = since - interval '2 hours' where tree = $1", [tree.id]);
    const dry = await tool('gc', url, ...of, '--dry-run');
    const before = await count();
    assert.ok(before > 20);
    const { out } = await tool('gc', url, ...of);
    assert.equal(out.replace('removed', 'would remove').split(';')[0], dry.out.split(';')[0]);
    assert.equal(await count(), 20, 'what is in use');
    for (let number = 0; number < 10; number++) {
        const file = new Contents({ engine, tree, objects: Object.assign(Object.create(objects), { end() {} }) })
            .open(await names.open(`/${number}`, false), { write: false, truncate: false });
        const expected = number < 3 ? patterned(300_000, 1000 * number + rounds) : patterned(300_000, number);
        assert.ok((await readAll(file)).equals(expected), `file ${number}`);
    }

    // An object that a helper has left behind: gc comes to it in an hour, or at once where nobody has the tree mounted.
    await objects.put('0'.repeat(32), Buffer.from('left behind'));
    assert.match((await tool('gc', url, ...of)).out, /^removed 0 objects/);
    assert.match((await tool('gc', url, ...of, '--older-than', '0s')).err, /add --unmounted/);
    assert.match((await tool('gc', url, ...of, '--older-than', '0s', '--unmounted')).out, /^removed 1 object /);

    assert.match((await tool('fsck', url, ...of, '--contents', 'read')).out, /is clean/);
    const rows = await engine.query('select object from kemvi_store.chunk where tree = $1 and object is not null limit 1', [tree.id]);
    await objects.remove([rows[0].object]);
    const damaged = await tool('fsck', url, ...of, '--repair');
    assert.equal(damaged.code, 4);
    assert.match(damaged.out, new RegExp(`its object ${rows[0].object} is missing`));
    assert.equal((await tool('fsck', url, ...of, '--repair', '--zeros')).code, 0);

    const key = process.env.AWS_SECRET_ACCESS_KEY;
    process.env.AWS_SECRET_ACCESS_KEY = 'hunter2';
    const refused = await tool('fsck', url, ...of);
    process.env.AWS_SECRET_ACCESS_KEY = key;
    assert.equal(refused.code, 1);
    assert.match(refused.err, /look at the keys and at what they permit/);
    assert.doesNotMatch(refused.err, /hunter2/);

    assert.equal((await tool('drop', url, ...of, '--yes')).code, 0);
    assert.equal(await count(), 0);
    objects.end();
});
