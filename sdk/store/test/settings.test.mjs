// What the environment says of a store, and what is said of a bad one.
import assert from 'node:assert/strict';
import test from 'node:test';
import { addressText } from '../src/engine/address.mjs';
import { arrayText } from '../src/engine/arrays.mjs';
import { leastRequestId, requestId } from '../src/engine/requestId.mjs';
import { readSettings } from '../src/settings.mjs';

const store = 'pglite:/srv/tree';

test('what is left out is what is usual', () => {
    const settings = readSettings({ KEMVI_STORE: store });
    assert.deepEqual(settings, {
        store: { kind: 'pglite', folder: '/srv/tree' },
        tree: 'main',
        contents: 'database',
        contentsPlace: { kind: 'database' },
        reconnect: 30,
        memory: 64 << 20,
        disk: undefined,
    });
});

test('each setting is taken', () => {
    const settings = readSettings({
        KEMVI_STORE: 'postgres://me@one:5433,two/files?sslmode=require',
        KEMVI_STORE_TREE: 'other tree',
        KEMVI_STORE_CONTENTS: 's3://bucket.name/a/b/',
        KEMVI_STORE_RECONNECT: '5',
        KEMVI_STORE_MEMORY: '128',
        KEMVI_STORE_DISK: '/var/cache/with:colon:100',
    });
    assert.deepEqual(settings.store, {
        kind: 'postgres',
        hosts: [{ host: 'one', port: 5433 }, { host: 'two', port: 5432 }],
        database: 'files',
        user: 'me',
        options: { sslmode: 'require' },
    });
    assert.equal(settings.tree, 'other tree');
    assert.equal(settings.contents, 's3://bucket.name/a/b', 'in one form, whatever its slashes');
    assert.deepEqual(settings.contentsPlace, { kind: 's3', bucket: 'bucket.name', prefix: 'a/b' });
    assert.equal(settings.reconnect, 5);
    assert.equal(settings.memory, 128 << 20);
    assert.deepEqual(settings.disk, { folder: '/var/cache/with:colon', bytes: 100 << 20 });
});

test('a folder of a Unix socket, and addresses of the sixth version', () => {
    const of = (url) => /** @type {any} */ (readSettings({ KEMVI_STORE: url }).store);
    assert.deepEqual(of('postgresql:///d?host=/run/pg&port=7&user=u').hosts, [{ host: '/run/pg', port: 7 }]);
    assert.equal(of('postgresql:///d?host=/run/pg&port=7&user=u').user, 'u');
    assert.deepEqual(of('postgres://[::1]:6000/d').hosts, [{ host: '::1', port: 6000 }]);
    assert.equal(addressText(of('postgres://me@a:1,b:2/d')), 'PostgreSQL at a:1,b:2, database d');
});

const refusals = [
    [{}, /^KEMVI_STORE: is not set; it must be pglite:DIR or postgres:/],
    [{ KEMVI_STORE: 'mysql://x/y' }, /^KEMVI_STORE: "mysql:\/\/x\/y" must be pglite:DIR or/],
    [{ KEMVI_STORE: 'mysql://me:hunter2@x/y' }, /^KEMVI_STORE: "mysql:\/\/me:\.\.\.@x\/y"/],
    [{ KEMVI_STORE: 'pglite:tree' }, /must name a folder by its whole path/],
    [{ KEMVI_STORE: 'postgres://me:hunter2@x/y' }, /a password does not belong here.*\.pgpass.*mount-secrets\.env/],
    [{ KEMVI_STORE: 'postgres://x/y?password=hunter2' }, /a password does not belong here/],
    [{ KEMVI_STORE: 'postgres://x/y?colour=red' }, /no option "colour"; there are host, port/],
    [{ KEMVI_STORE: 'postgres://x/y?sslmode=maybe' }, /sslmode "maybe" must be one of disable/],
    [{ KEMVI_STORE: 'postgres://x/y?target_session_attrs=standby' }, /must be read-write/],
    [{ KEMVI_STORE: 'postgres://x:0/y' }, /the port "0" .*must be a number from 1 to 65535/],
    [{ KEMVI_STORE: 'postgres://x' }, /names no database/],
    [{ KEMVI_STORE: store, KEMVI_STORE_TREE: 'a\nb' }, /^KEMVI_STORE_TREE: .*in one line/],
    [{ KEMVI_STORE: store, KEMVI_STORE_CONTENTS: 's3:/x' }, /^KEMVI_STORE_CONTENTS: "s3:\/x" must be "database" or s3:\/\/BUCKET\/PREFIX/],
    [{ KEMVI_STORE: store, KEMVI_STORE_RECONNECT: 'soon' }, /^KEMVI_STORE_RECONNECT: "soon" must be a whole number of seconds from 1/],
    [{ KEMVI_STORE: store, KEMVI_STORE_MEMORY: '0' }, /^KEMVI_STORE_MEMORY: "0" must be a whole number of MiB from 1/],
    [{ KEMVI_STORE: store, KEMVI_STORE_DISK: 'cache:10' }, /^KEMVI_STORE_DISK: "cache:10" must be an absolute folder and a number of MiB/],
];
for (const [environment, message] of /** @type {[Record<string, string>, RegExp][]} */ (refusals)) {
    test(`refused: ${JSON.stringify(environment)}`, () => {
        assert.throws(() => readSettings(environment), (error) => {
            assert.match(error.message, message);
            assert.doesNotMatch(error.message, /hunter2/);
            return true;
        });
    });
}

test('arrays are written as the server reads them', () => {
    assert.equal(arrayText(['a', 'with "quotes" and \\', null, 5]), '{"a","with \\"quotes\\" and \\\\",NULL,5}');
    assert.equal(arrayText([Buffer.from('ab'), new Uint8Array([0, 255])]), '{"\\\\x6162","\\\\x00ff"}');
});

test('ids of requests are different uuids that sort by their time', () => {
    const ids = Array.from({ length: 1000 }, () => requestId(1_700_000_000_000));
    assert.equal(new Set(ids).size, 1000);
    for (const id of ids) assert.match(id, /^018bcfe5-6800-7[0-9a-f]{3}-8[0-9a-f]{3}-[0-9a-f]{12}$/);
    assert.ok(ids.every((id) => id > leastRequestId(1_700_000_000_000) && id < leastRequestId(1_700_000_000_001)));
});
