// The tool's commands, and what it says of bad arguments and of engines that cannot be used.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { engineOf, noServer, packageFolder, scratchFolder, Server } from './engines.mjs';
import { tool, toolProcess } from './toolSupport.mjs';

process.env.KEMVI_STORE_RECONNECT = '1';
const embedded = () => `pglite:${path.join(scratchFolder(), 'store')}`;
const mebibyte = 1 << 20;

/** @type {[string[], RegExp][]} */
const refusals = [
    [[], /^kemvi-store: expected a command: create, list, stats, fsck, gc, import, export, drop; or --help$/],
    [['make'], /there is no command "make"; there are create, list/],
    [['list'], /SOURCE is missing; expected kemvi-store list SOURCE$/],
    [['list', 'a', 'b'], /"b" is one word too many; expected kemvi-store list SOURCE/],
    [['list', 'a', '--colour'], /--colour: there is no such option; list takes --json/],
    [['list', 'a', '-j'], /-j: there is no such option/],
    [['list', 'a', '--json=x'], /--json: takes no value, and has "x"/],
    [['stats', 'a', '--tree'], /--tree: expected --tree NAME/],
    [['stats', 'a', '--tree', '--json'], /--tree: expected --tree NAME/],
    [['stats', 'pglite:'], /SOURCE: "pglite:" must name a folder/],
    [['stats', 'pglite:x', '--tree', 'a\nb'], /--tree: "a\\nb" must be a name of at most 100 characters in one line/],
    [['stats', 'mysql://me:hunter2@x/y'], /SOURCE: "mysql:\/\/me:\.\.\.@x\/y" must be pglite:DIR or postgres/],
    [['stats', 'postgres://me:hunter2@x/y'], /SOURCE: a password does not belong here.*\.pgpass.*mount-secrets\.env/],
    [['stats', 'postgres://x/y?password=hunter2'], /a password does not belong here/],
    [['create', 'pglite:x', '--contents', 's4://x'], /--contents: "s4:\/\/x" must be "database" or s3:\/\/BUCKET\/PREFIX/],
    [['create', 'pglite:x', '--chunk-size', '5'], /--chunk-size: "5" must be a number of bytes, K or M from 16K to 8M that is divisible by 4K, such as 256K/],
    [['create', 'pglite:x', '--chunk-size', '16M'], /--chunk-size/],
    [['fsck', 'pglite:x', '--contents', 'write'], /--contents: "write" must be read/],
    [['fsck', 'pglite:x', '--zeros'], /--zeros: gives bytes up, and needs --repair/],
    [['gc', 'postgres://x/y', '--older-than', 'week'], /--older-than: "week" must be a number and s, m, h or d, such as 90m or 2h/],
    [['gc', 'postgres://x/y', '--older-than', '5m'], /5m is less than 1h, in which a mount may still .*; add --unmounted when/],
    [['import', 'pglite:x'], /FOLDER is missing; expected kemvi-store import SOURCE FOLDER \[PATH\]/],
    [['import', 'pglite:x', '/nowhere'], /FOLDER: "\/nowhere" is not there; expected a folder of this machine/],
    [['import', 'pglite:x', '/etc/passwd'], /FOLDER: "\/etc\/passwd" is no folder/],
    [['import', 'pglite:x', '/etc', 'x'], /PATH: "x" must be a path within the tree that begins with a slash/],
    [['export', 'pglite:x', '/../y', '/tmp'], /PATH: "\/\.\.\/y" must be a path within the tree/],
    [['export', 'pglite:x'], /FOLDER is missing; expected kemvi-store export SOURCE \[PATH\] FOLDER/],
    [['stats', 'pglite:/nowhere/x'], /pglite:\/nowhere\/x: there is no store; make one with: kemvi-store create pglite:\/nowhere\/x/],
    [['stats', '/nowhere'], /SOURCE: "\/nowhere" has no mount-config\.json; expected a directory that "kemvi init --store" has made, or an address/],
    [['list', 'postgres://127.0.0.1:1/d'], /127\.0\.0\.1:1, database d: .*ECONNREFUSED\); see that the server runs and can be reached from here/],
    [['list', 'postgres:///d?host=/nowhere'], /\(ENOENT\); no server listens on that socket/],
    [['list', 'postgres://no-such-host.invalid/d'], /no host has that name|cannot be looked up/],
];
for (const [words, message] of refusals) {
    test(`refused: ${words.join(' ')}`, async () => {
        const { code, err } = await tool(...words);
        assert.equal(code, 1);
        assert.match(err.split('\n').at(-1), message);
        assert.doesNotMatch(err, /hunter2/);
    });
}

test('help for the tool and for each command', async () => {
    const { code, out } = await tool('--help');
    assert.equal(code, 0);
    for (const name of ['create', 'list', 'stats', 'fsck', 'gc', 'import', 'export', 'drop']) {
        assert.match(out, new RegExp(`^  ${name} `, 'm'));
        const help = await tool(name, '--help');
        assert.equal(help.code, 0);
        assert.match(help.out, new RegExp(`^Usage: kemvi-store ${name} SOURCE`));
        assert.ok(help.out.split('\n').every((line) => line.length <= 130));
    }
    assert.equal((await tool('--version')).out, JSON.parse(fs.readFileSync(path.join(packageFolder, 'package.json'), 'utf8')).version);
});

/** The life of a tree. @param {string} url */
async function life(url) {
    const words = [url, '--tree', 'a tree'];
    assert.match((await tool('create', ...words, '--chunk-size', '64K')).out, /^made: the tree "a tree" in .*, contents in database, chunks of 64\.0 KiB$/);
    assert.match((await tool('create', ...words)).out, /^there already: /);
    assert.match((await tool('create', ...words, '--chunk-size', '128K')).err, /has chunks of 64\.0 KiB, and that is fixed/);
    assert.match((await tool('create', ...words, '--contents', 's3://x.y/z')).err, /keeps its contents in database|bucket/);
    const folder = scratchFolder();
    fs.writeFileSync(path.join(folder, 'file'), Buffer.alloc(mebibyte, 1));
    assert.equal((await tool('import', url, folder, '--tree', 'a tree')).code, 0);

    const [listed] = JSON.parse((await tool('list', url, '--json')).out).filter(({ name }) => name === 'a tree');
    assert.deepEqual(listed, { name: 'a tree', contents: 'database', chunkSize: 65_536, nodes: 2, bytes: mebibyte });
    assert.match((await tool('list', url)).out, /TREE +NODES +BYTES +CONTENTS\n(.*\n)*a tree +2  1\.0 MiB  database/);
    const figures = JSON.parse((await tool('stats', ...words, '--json')).out);
    const { nodes, folders, files, bytes, chunks, chunkBytes, objects, garbage, uploads } = figures;
    assert.deepEqual({ nodes, folders, files, bytes, chunks, chunkBytes, objects, garbage, uploads },
        { nodes: 2, folders: 1, files: 1, bytes: mebibyte, chunks: 16, chunkBytes: mebibyte, objects: 0, garbage: 0, uploads: 0 });
    assert.match((await tool('stats', ...words)).out, /nodes +2: 1 folders, 1 files of 1\.0 MiB\nchunks +16 of 1\.0 MiB/);
    assert.match((await tool('fsck', ...words)).out, /is clean/);
    assert.match((await tool('gc', ...words)).out, /^removed 0 objects and 0 uploads/);
    assert.match((await tool('gc', ...words, '--dry-run')).out, /^would remove 0 objects/);

    assert.match((await tool('stats', url, '--tree', 'other')).err, /has no tree "other"; there is .*"a tree".*\. Make it with: kemvi-store create/);
    const refused = await tool('drop', ...words);
    assert.match(refused.err, /there is no terminal to ask on; give --yes/);
    assert.equal(refused.code, 1);
    assert.match((await tool('drop', ...words, '--yes')).out, /^removed the tree "a tree" in .*: 2 nodes, 1\.0 MiB$/);
    assert.doesNotMatch((await tool('list', url)).out, /a tree/);
    assert.equal((await tool('drop', ...words, '--yes')).code, 1);
}

test('pglite: the life of a tree', () => life(embedded()));
test('postgres: the life of a tree', { skip: noServer }, async () => life((await engineOf('postgres')).address));

test('drop removes the rows of its tree alone', { skip: noServer }, async () => {
    const { address, engine } = await engineOf('postgres');
    for (const tree of ['kept', 'dropped']) {
        await tool('create', address, '--tree', tree);
        await tool('import', address, path.join(packageFolder, 'bin'), '--tree', tree);
    }
    await tool('drop', address, '--tree', 'dropped', '--yes');
    assert.match((await tool('fsck', address, '--tree', 'kept', '--contents', 'read')).out, /is clean/);
    const [{ trees }] = await engine.query('select count(distinct tree) as trees from (select tree from kemvi_store.node union all select tree from kemvi_store.chunk) rows');
    assert.equal(trees, (await engine.query('select count(*) as count from kemvi_store.tree'))[0].count);
});

test('an embedded store that is in use is refused, with the process', async () => {
    const { address } = await engineOf('pglite');
    const { code, err } = toolProcess('list', address);
    assert.equal(code, 1);
    assert.match(err, new RegExp(`in use by process ${process.pid}; .*; unmount it first`));
});

test('a store of a newer program is refused', async () => {
    const { engine, address } = await engineOf(noServer ? 'pglite' : 'postgres');
    if (noServer) return;
    const [{ version }] = await engine.query('select version from kemvi_store.meta');
    await engine.query('update kemvi_store.meta set version = 99');
    try {
        for (const command of ['list', 'create']) {
            assert.match((await tool(command, address)).err, /a schema of version 99, this program knows versions up to \d+: update it/);
        }
    } finally {
        await engine.query('update kemvi_store.meta set version = $1', [version]);
    }
});

test('what a server refuses is told, with what to do', { skip: noServer }, async () => {
    const server = new Server();
    const { url, password } = server.tcp();
    const file = path.join(scratchFolder(), 'pgpass');
    process.env.PGPASSFILE = file;
    try {
        assert.match((await tool('list', url)).err, /\(\w+\); put the password into ~\/\.pgpass/);
        fs.writeFileSync(file, `*:*:*:*:${password}\n`, { mode: 0o644 });
        assert.match((await tool('list', url)).err, /not used, because others can read it; chmod 600 it[^]*put the password into/);
        fs.chmodSync(file, 0o600);
        assert.match((await tool('list', url)).err, /there is no store; make one with: kemvi-store create/);
        assert.match((await tool('create', url.replace(/\/postgres(?=\?|$)/, '/nothing'))).err, /"nothing" does not exist \(3D000\); make the database first: createdb NAME/);
        assert.equal((await tool('create', url)).code, 0);
    } finally {
        delete process.env.PGPASSFILE;
    }
});

test('a directory that kemvi init has made says which tree it is', async () => {
    const source = scratchFolder();
    const config = (helperEnvironment) => fs.writeFileSync(path.join(source, 'mount-config.json'), JSON.stringify({ version: 1, helperEnvironment }));
    const secrets = path.join(source, 'mount-secrets.env');
    const store = embedded();
    config({ KEMVI_STORE: store, KEMVI_STORE_TREE: 'files' });
    assert.match((await tool('create', source)).out, /^made: the tree "files" in pglite:/);
    assert.match((await tool('stats', source)).out, /^tree +files/);
    assert.match((await tool('stats', source, '--tree', 'x')).err, /^kemvi-store: --tree: .* says which tree it is; give the option with the address/);
    fs.writeFileSync(secrets, '# remark\n\nKEMVI_STORE_TREE=other\n', { mode: 0o600 });
    assert.match((await tool('stats', source)).err, /has no tree "other"; there is "files"/);
    fs.writeFileSync(secrets, 'AWS_SECRET_ACCESS_KEY hunter2\n');
    assert.match((await tool('stats', source)).err, /mount-secrets\.env: line 1: expected NAME=VALUE, "#" and a remark, or nothing$/);
    fs.chmodSync(secrets, 0o644);
    assert.match((await tool('stats', source)).err, /is open to others, and holds secrets; run: chmod 600 /);
    fs.rmSync(secrets);
    config({ KEMVI_STORE: store, KEMVI_STORE_TREE: 'files', KEMVI_STORE_CONTENTS: 's3://a.bucket/x' });
    assert.match((await tool('stats', source)).err, /the tree "files" keeps its contents in database, and .* says s3:\/\/a\.bucket\/x/);
    config({ KEMVI_STORE: store, KEMVI_STORE_MEMORY: 'much' });
    assert.match((await tool('stats', source)).err, /mount-config\.json: KEMVI_STORE_MEMORY: "much" must be a whole number/);
    config({});
    assert.match((await tool('stats', source)).err, /is no configuration of a store; expected one that "kemvi init/);
    fs.writeFileSync(path.join(source, 'mount-config.json'), '{');
    assert.match((await tool('stats', source)).err, /mount-config\.json: cannot be read: /);
});
