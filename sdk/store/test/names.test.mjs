// Names and attributes: what each operation does and refuses, on each engine.
import assert from 'node:assert/strict';
import { Names } from '../src/names/names.mjs';
import { onEachEngine } from './engines.mjs';

/** @param {string} name @param {(names: Names, given: any) => Promise<void>} body */
function onNames(name, body) {
    onEachEngine(name, (given) => body(new Names(given.engine, given.tree), given));
}

const refused = (promise, code, message) => assert.rejects(promise, message ? { code, message } : { code });
const namesIn = async (names, folder) => (await names.readdir(folder)).map(({ name }) => name).sort();

onNames('a new tree is an empty folder', async (names) => {
    const root = await names.getattr('/');
    assert.equal(root.kind, 'd');
    assert.ok(Math.abs(root.mtime - Date.now()) < 60_000);
    assert.deepEqual(await names.readdir('/'), []);
});

onNames('files and folders are made, told and removed', async (names) => {
    await names.mkdir('/folder');
    const made = await names.open('/folder/a file', true);
    assert.deepEqual({ ...made, mtime: 0 }, { code: null, node: made.node, kind: 'f', size: 0, mtime: 0, mode: 0o644, version: 1 });
    assert.equal((await names.open('/folder/a file', true)).node, made.node, 'made once');
    assert.equal((await names.open('/folder/a file', false)).node, made.node);
    const [member] = await names.readdir('/folder');
    assert.deepEqual(member, { name: 'a file', isDirectory: false, size: 0, modifiedAt: made.mtime, node: made.node });
    assert.deepEqual((await names.readdir('/')).map(({ name, isDirectory }) => [name, isDirectory]), [['folder', true]]);
    await names.unlink('/folder/a file');
    await names.unlink('/folder');
    assert.deepEqual(await names.readdir('/'), []);
});

onNames('names come back as they went in', async (names) => {
    const odd = ['ä', 'a\u0308', '日本', '😀', 'A', 'a', ' ', '%', '\\', '"', "'", '{a,b}', 'new\nline', 'x'.repeat(255), '__proto__', '.x'];
    for (const name of odd) await names.open(`/${name}`, true);
    assert.deepEqual(await namesIn(names, '/'), [...odd].sort());
    for (const name of odd) assert.equal((await names.getattr(`/${name}`)).kind, 'f');
});

onNames('what cannot be done is refused', async (names) => {
    await names.mkdir('/d');
    await names.open('/d/f', true);
    await refused(names.getattr('/x'), 'ENOENT', 'no such file or folder: /x');
    await refused(names.getattr('/x/y'), 'ENOENT');
    await refused(names.getattr('/d/f/y'), 'ENOTDIR');
    await refused(names.readdir('/x'), 'ENOENT');
    await refused(names.readdir('/d/f'), 'ENOTDIR');
    await refused(names.open('/x', false), 'ENOENT');
    await refused(names.open('/d', false), 'EISDIR', '/d is a folder');
    await refused(names.open('/d', true), 'EISDIR');
    await refused(names.open('/', true), 'EISDIR');
    await refused(names.open('/x/y', true), 'ENOENT');
    await refused(names.open('/d/f/y', true), 'ENOTDIR');
    await refused(names.mkdir('/d'), 'EEXIST', '/d exists');
    await refused(names.mkdir('/'), 'EEXIST');
    await refused(names.mkdir('/x/y'), 'ENOENT');
    await refused(names.mkdir('/d/f/y'), 'ENOTDIR');
    await refused(names.mkdir(`/${'ä'.repeat(128)}`), 'ENAMETOOLONG');
    await refused(names.mkdir('/..'), 'EINVAL');
    await refused(names.getattr('/nul\0'), 'EINVAL');
    await refused(names.unlink('/d'), 'ENOTEMPTY', '/d is not empty');
    await refused(names.unlink('/x'), 'ENOENT');
    await refused(names.unlink('/'), 'EPERM');
    await refused(names.chmod('/x', 0o600), 'ENOENT');
    await refused(names.utimes('/x', 5), 'ENOENT');
    assert.deepEqual(await namesIn(names, '/'), ['d'], 'and nothing was done');
});

onNames('a rename moves, and replaces as rename(2) does', async (names) => {
    await names.mkdir('/a');
    await names.mkdir('/b');
    const file = await names.open('/a/f', true);
    const other = await names.open('/b/g', true);
    await names.rename('/a/f', '/b/f');
    assert.equal((await names.getattr('/b/f')).node, file.node);
    await refused(names.getattr('/a/f'), 'ENOENT');
    await names.rename('/b/f', '/b/g');
    assert.equal((await names.getattr('/b/g')).node, file.node, 'not the one that was replaced');
    assert.notEqual(file.node, other.node);
    await names.rename('/b/g', '/b/g');
    await names.rename('/a', '/b/a');
    await names.rename('/b/a', '/a');
    await names.mkdir('/c');
    await names.rename('/a', '/c');
    assert.deepEqual(await namesIn(names, '/'), ['b', 'c'], 'an empty folder is replaced by a folder');
});

onNames('a rename that cannot be is refused', async (names) => {
    await names.mkdir('/a');
    await names.mkdir('/a/b');
    await names.mkdir('/ab');
    await names.open('/ab/f', true);
    await refused(names.rename('/x', '/y'), 'ENOENT');
    await refused(names.rename('/ab/f', '/x/y'), 'ENOENT');
    await refused(names.rename('/ab/f', '/ab/f/y'), 'ENOTDIR');
    await refused(names.rename('/a', '/a/b/c'), 'EINVAL', '/a/b/c lies in what is to be moved there');
    await refused(names.rename('/a', '/a/c'), 'EINVAL');
    await refused(names.rename('/ab/f', '/a'), 'EISDIR');
    await refused(names.rename('/a', '/ab/f'), 'ENOTDIR');
    await refused(names.rename('/a', '/ab'), 'ENOTEMPTY');
    await refused(names.rename('/', '/x'), 'EPERM');
    await refused(names.rename('/a', '/'), 'EPERM');
    await names.rename('/a', '/ab/a');
    assert.deepEqual(await namesIn(names, '/ab'), ['a', 'f'], 'a name that only begins alike is another folder');
});

onNames('times are set, and a folder has that of its last change', async (names) => {
    await names.mkdir('/d');
    await names.utimes('/d', 1000);
    await names.utimes('/', -1000);
    assert.equal((await names.getattr('/d')).mtime, 1000);
    assert.equal((await names.readdir('/'))[0].modifiedAt, 1000);
    assert.equal((await names.getattr('/')).mtime, -1000);
    const { node } = await names.open('/d/f', true);
    const changed = async (folder) => {
        const { mtime } = await names.getattr(folder);
        await names.utimes(folder, 1000);
        return mtime > 1000;
    };
    assert.ok(await changed('/d'), 'create');
    assert.equal(await names.utimes('/d/f', 5.5), node);
    assert.equal((await names.getattr('/d/f')).mtime, 5);
    assert.ok(!(await changed('/d')), 'the time of a member');
    await names.rename('/d/f', '/f');
    assert.ok(await changed('/d'), 'rename from');
    await names.utimes('/', 1000);
    await names.rename('/f', '/d/f');
    assert.ok(await changed('/'), 'rename to another');
    assert.ok(await changed('/d'), 'rename to');
    await names.unlink('/d/f');
    assert.ok(await changed('/d'), 'unlink');
    await names.mkdir('/d/e');
    assert.ok(await changed('/d'), 'mkdir');
});

onNames('a mode is kept', async (names) => {
    await names.mkdir('/d');
    await names.chmod('/d', 0o700);
    assert.equal((await names.getattr('/d')).mode, 0o700);
});

onNames('trees do not see each other', async (names, { engine }) => {
    const { ensureTree } = await import('../src/schema/trees.mjs');
    const other = new Names(engine, await ensureTree(engine, { tree: 'the other one', contents: 'database' }));
    await names.mkdir('/d');
    await refused(other.getattr('/d'), 'ENOENT');
    await other.mkdir('/d');
    await other.unlink('/d');
    assert.equal((await names.getattr('/d')).kind, 'd');
});

onNames('a folder of ten thousand', async (names, { engine, tree }) => {
    await names.mkdir('/d');
    const { node } = await names.getattr('/d');
    await engine.query(
        `insert into kemvi_store.node (tree, id, parent, name, kind, size, mtime, mode)
         select $1, nextval('kemvi_store.node_id'), $2, 'name ' || i, 'f', i, 1000 * i, 420 from generate_series(1, 10000) i`,
        [tree.id, node],
    );
    const members = await names.readdir('/d');
    assert.equal(members.length, 10_000);
    for (const { name, size, modifiedAt } of members) assert.deepEqual([name, modifiedAt], [`name ${size}`, 1000 * size]);
    assert.equal((await names.getattr('/d/name 9999')).size, 9999);
});

onNames('requests that nobody can ask for again are forgotten, others not', async (names, { engine, tree }) => {
    await names.mkdir('/d');
    const count = async () => (await engine.query('select count(*) as count from kemvi_store.request where tree = $1', [tree.id]))[0].count;
    assert.equal(await count(), 1);
    const insert = 'insert into kemvi_store.request (tree, id, at) values ($1, $2, now() - $3::interval)';
    await engine.query(insert, [tree.id, '01000000-0000-7000-8000-000000000001', '2 hours']);
    await engine.query(insert, [tree.id, '01000000-0000-7000-8000-000000000002', '10 minutes']); // of a clock that is late
    for (let i = 0; i < 2000; i++) names.noteChange();
    for (let left = 100; (await count()) > 2 && left > 0; left--) await new Promise((resolve) => setTimeout(resolve, 50));
    assert.equal(await count(), 2);
});
