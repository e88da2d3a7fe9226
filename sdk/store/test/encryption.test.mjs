// TLS to the server: what each sslmode asks for, and what is said when it is not so.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import https from 'node:https';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { parseAddress } from '../src/engine/address.mjs';
import { openEngine } from '../src/engine/engine.mjs';
import { S3Objects } from '../src/objects/s3.mjs';
import { noServer, scratchFolder, Server } from './engines.mjs';

const options = { skip: noServer, timeout: 120_000 };
/** @type {Server} */
let server;
let folder = '';
const openssl = (...words) => execFileSync('openssl', words, { stdio: 'pipe' });

/** A root, and a certificate by it for a host. */
function certificate(name, subject) {
    const at = (kind) => path.join(folder, `${name}.${kind}`);
    const key = ['-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes', '-days', '2'];
    openssl('req', '-x509', ...key, '-keyout', at('root.key'), '-out', at('root.pem'), '-subj', `/CN=root of ${name}`);
    openssl('req', ...key.slice(0, -2), '-keyout', at('key'), '-out', at('request'), '-subj', `/CN=${name}`);
    fs.writeFileSync(at('names'), `subjectAltName=${subject}`);
    openssl('x509', '-req', '-in', at('request'), '-CA', at('root.pem'), '-CAkey', at('root.key'), '-CAcreateserial',
        '-out', at('pem'), '-days', '2', '-extfile', at('names'));
    return { root: at('root.pem'), key: at('key'), certificate: at('pem') };
}

/** The server with a certificate, or without TLS. */
async function serve(files) {
    const query = (text) => execFileSync('psql', ['-XAtqc', text, server.url]);
    const data = path.join(server.folder, 'primary');
    if (files) {
        const { uid, gid } = fs.statSync(data);
        for (const [from, to] of [[files.key, 'server.key'], [files.certificate, 'server.crt']]) {
            fs.copyFileSync(from, path.join(data, to));
            fs.chownSync(path.join(data, to), uid, gid);
            fs.chmodSync(path.join(data, to), 0o600);
        }
    }
    query(`alter system set ssl = ${files ? 'on' : 'off'}`);
    query('select pg_reload_conf()');
    const isSo = async () => (await asks('sslmode=prefer')) === Boolean(files);
    for (let left = 200; !(await isSo()); left--) assert.ok(left > 0, 'the server does not take its settings');
}

/** Whether a connection is encrypted. */
async function asks(words, host = '127.0.0.1') {
    const url = server.tcp().url.replace('127.0.0.1', host);
    const said = [];
    const engine = await openEngine(parseAddress(`${url}?${words}`), { reconnect: 60, say: (text) => said.push(text) });
    try {
        const began = performance.now();
        const [{ ssl }] = await engine.query('select ssl from pg_stat_ssl where pid = pg_backend_pid()').finally(() =>
            assert.ok(performance.now() - began < 20_000, 'told at once, not after the time for a lost server'));
        return ssl;
    } finally {
        await engine.close();
        assert.deepEqual(said, [], 'a server that refuses is not lost');
    }
}

let address, name;
if (!noServer) {
    before(async () => {
        server = new Server();
        folder = scratchFolder();
        process.env.PGPASSWORD = server.tcp().password;
        address = certificate('address', 'IP:127.0.0.1');
        name = certificate('name', 'DNS:localhost');
    });
    after(() => delete process.env.PGPASSWORD);
}

test('a server without TLS is refused where TLS is asked for', options, async () => {
    await serve(undefined);
    for (const words of ['sslmode=require', 'sslmode=verify-ca', `sslmode=verify-full&sslrootcert=${address.root}`]) {
        const message = new RegExp(`the server offers no TLS, which ${words.split('&')[0]} asks for`);
        await assert.rejects(asks(words), { code: 'EIO', message });
    }
    assert.equal(await asks('sslmode=allow'), false);
    assert.equal(await asks('sslmode=disable'), false);
});

test('a certificate is held against its root and its host', options, async () => {
    await serve(address);
    for (const words of ['sslmode=require', `sslmode=require&sslrootcert=${address.root}`, `sslmode=verify-ca&sslrootcert=${address.root}`,
        `sslmode=verify-full&sslrootcert=${address.root}`]) {
        assert.equal(await asks(words), true, words);
    }
    assert.equal(await asks('sslmode=disable'), false);
    for (const mode of ['require', 'verify-ca', 'verify-full']) {
        const message = new RegExp(`the certificate of the server does not hold by ${name.root}: `);
        await assert.rejects(asks(`sslmode=${mode}&sslrootcert=${name.root}`), { code: 'EIO', message });
    }
    const unknown = /does not hold by what this machine trusts; name its root with sslrootcert=FILE: /;
    await assert.rejects(asks('sslmode=verify-full'), { code: 'EIO', message: unknown });
});

test('a certificate is for the host that was asked for, by its name or its address', options, async () => {
    await serve(name);
    assert.equal(await asks(`sslmode=verify-full&sslrootcert=${name.root}`, 'localhost'), true);
    assert.equal(await asks(`sslmode=verify-ca&sslrootcert=${name.root}`), true);
    const message = /the certificate of the server is not for 127\.0\.0\.1: /;
    await assert.rejects(asks(`sslmode=verify-full&sslrootcert=${name.root}`), { code: 'EIO', message });
    await serve(address);
    const other = /the certificate of the server is not for localhost: /;
    await assert.rejects(asks(`sslmode=verify-full&sslrootcert=${address.root}`, 'localhost'), { code: 'EIO', message: other });
});

test('a file that cannot be read is named', options, async () => {
    await assert.rejects(asks('sslmode=verify-full&sslrootcert=/nowhere'), /sslrootcert: ENOENT.*\/nowhere/);
});

test('an object store with a certificate of its own is believed by the root that is named', options, async (t) => {
    const store = https.createServer({ key: fs.readFileSync(address.key), cert: fs.readFileSync(address.certificate) }, (_, answer) => answer.end());
    await new Promise((resolve) => store.listen(0, '127.0.0.1', () => resolve(undefined)));
    t.after(() => store.close());
    const set = { AWS_ENDPOINT_URL_S3: `https://127.0.0.1:${store.address().port}`, AWS_ACCESS_KEY_ID: 'a', AWS_SECRET_ACCESS_KEY: 'b' };
    Object.assign(process.env, set);
    t.after(() => [...Object.keys(set), 'AWS_CA_BUNDLE'].forEach((variable) => delete process.env[variable]));
    const check = async (root) => {
        process.env.AWS_CA_BUNDLE = root;
        const objects = new S3Objects({ bucket: 'bucket', prefix: '' }, 'key', { reconnect: 60 });
        await objects.check().finally(() => objects.end());
    };
    await check(address.root);
    const message = /^bucket bucket: .*certificate.*; put AWS_CA_BUNDLE=FILE into mount-secrets\.env/;
    for (const root of ['', name.root]) await assert.rejects(check(root), { code: 'EIO', message });
    await assert.rejects(check('/nowhere'), /^Error: AWS_CA_BUNDLE: ENOENT/);
});
