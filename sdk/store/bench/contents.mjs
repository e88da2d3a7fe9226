// Reading and writing a file in order through the contents of a store, with cold caches, beside what the engine gives through
// its library alone with 16 requests in flight. Rounds take turns, so that both meet the same machine.
//
//   node bench/contents.mjs postgres://... s3://BUCKET/PREFIX [MiB] [ROUNDS]
//
// Where the store is and its keys: as the SDK of the object store reads them (AWS_ENDPOINT_URL_S3, ...). Makes the bucket if it
// is not there, and removes what it has put into it.
import { CreateBucketCommand, GetObjectCommand, PutObjectCommand, S3Client } from '@aws-sdk/client-s3';
import { Contents } from '../src/contents/contents.mjs';
import { removeGarbage } from '../src/contents/garbage.mjs';
import { parseAddress } from '../src/engine/address.mjs';
import { openEngine } from '../src/engine/engine.mjs';
import { Names } from '../src/names/names.mjs';
import { S3Objects } from '../src/objects/s3.mjs';
import { migrate } from '../src/schema/migrate.mjs';
import { ensureTree } from '../src/schema/trees.mjs';
import { parseContents } from '../src/settings.mjs';

const [address, contents, mebibytes = '64', rounds = '5'] = process.argv.slice(2);
if (contents === undefined) throw new Error('usage: node bench/contents.mjs postgres://... s3://BUCKET/PREFIX [MiB] [ROUNDS]');
const place = parseContents(contents);
const size = Number(mebibytes) << 20;
const chunkSize = 262_144;
const request = 65_536; // what a host asks for at a time
const inFlight = 16;
const bytes = Buffer.alloc(chunkSize, 'contents');

const engine = await openEngine(parseAddress(address), { reconnect: 10 });
await migrate(engine);
const tree = await ensureTree(engine, { tree: `bench ${Date.now()}`, contents });
const names = new Names(engine, tree);
const client = new S3Client({ forcePathStyle: true });
const Bucket = place.kind === 's3' ? place.bucket : '';
const folder = place.kind === 's3' && place.prefix !== '' ? `${place.prefix}/${tree.key}` : tree.key;
if (place.kind === 's3') await client.send(new CreateBucketCommand({ Bucket })).catch(() => {});
const objects = place.kind === 's3' ? new S3Objects(place, tree.key, { reconnect: 10 }) : undefined;

/** @type {Record<string, number[]>} */
const speeds = {};
for (let round = 0; round < Number(rounds); round++) {
    if (objects) {
        await measured('library, write', () => alone((Key) => client.send(new PutObjectCommand({ Bucket, Key, Body: bytes })), round));
        await measured('library, read', () => alone(async (Key) => {
            const { Body } = await client.send(new GetObjectCommand({ Bucket, Key }));
            await Body?.transformToByteArray();
        }, round));
    }
    await measured('contents, write', () => write(`/file-${round}`));
    await measured('contents, read', () => read(`/file-${round}`));
    await names.unlink(`/file-${round}`);
    await removeGarbage({ engine, tree, objects }, { age: 0 });
}
for (const [what, found] of Object.entries(speeds)) {
    console.log(what.padEnd(16), `${median(found).toFixed(1).padStart(7)} MiB/s, median of`, found.map((each) => each.toFixed(1)).join(' '));
}
for (const way of ['write', 'read']) {
    if (objects) console.log(way, (median(speeds[`contents, ${way}`]) / median(speeds[`library, ${way}`])).toFixed(2), 'of the library');
}
client.destroy();
objects?.end();
await engine.close();

/** @param {string} what @param {() => Promise<void>} work */
async function measured(what, work) {
    const begun = performance.now();
    await work();
    (speeds[what] ??= []).push((Number(mebibytes) * 1000) / (performance.now() - begun));
}

/** @param {(name: string) => Promise<unknown>} ask @param {number} round */
async function alone(ask, round) {
    let next = 0;
    const worker = async () => {
        while (next < size / chunkSize) await ask(`${folder}/${round}-${next++}`);
    };
    await Promise.all(Array.from({ length: inFlight }, worker));
}

/** @param {string} path */
async function write(path) {
    const store = new Contents({ engine, tree, objects });
    const file = store.open(await names.open(path, true), { write: true, truncate: true });
    for (let at = 0; at < size; at += request) await file.write(at, bytes.subarray(0, request));
    await file.flush();
    await file.release();
}

/** @param {string} path */
async function read(path) {
    const store = new Contents({ engine, tree, objects });
    const file = store.open(await names.open(path, false), { write: false, truncate: false });
    const buffer = Buffer.alloc(request);
    for (let at = 0; at < size; at += request) {
        if ((await file.read(at, request, buffer)) !== request) throw new Error(`fewer bytes than there are at ${at}`);
    }
    await file.release();
}

/** @param {number[]} values */
function median(values) {
    return [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];
}
