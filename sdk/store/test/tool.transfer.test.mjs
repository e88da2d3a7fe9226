// Import and export: what comes back is what went in, what was broken off goes on, and what cannot be is named.
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { patterned } from './contentsSupport.mjs';
import { engineOf, noServer, scratchFolder } from './engines.mjs';
import { program, startTool, tool } from './toolSupport.mjs';

const day = 86_400;
const kinds = /** @type {const} */ (['pglite', 'postgres']);

/** A folder with something of everything. */
function folderOfAll() {
    const folder = path.join(scratchFolder(), 'tree');
    const make = (name, bytes, { mode = 0o644, time = day } = {}) => {
        const file = path.join(folder, name);
        fs.mkdirSync(path.dirname(file), { recursive: true });
        fs.writeFileSync(file, bytes);
        fs.chmodSync(file, mode);
        fs.utimesSync(file, time, time);
    };
    make('empty', '');
    make('one chunk', patterned(262_144));
    make('large', patterned(3_000_001), { time: 1_700_000_000.123 });
    make('zeros', Buffer.alloc(3_000_000));
    make('before 1970', 'x', { time: -day - 0.5 });
    make('private/key', 'secret', { mode: 0o600 });
    make('a/b/c/program', '#!/bin/sh\n', { mode: 0o755 });
    make(`names/${'ä'.repeat(127)}`, 'x');
    make('names/new\nline "quoted" \\ %', 'x');
    for (let i = 0; i < 40; i++) make(`many/${i}`, patterned(i * 100, i), { time: 1_600_000_000 + i + 0.001 * i });
    const holed = fs.openSync(path.join(folder, 'holed'), 'w');
    fs.writeSync(holed, 'x', 5_000_000);
    fs.ftruncateSync(holed, 9_000_000);
    fs.closeSync(holed);
    fs.mkdirSync(path.join(folder, 'folder'));
    fs.chmodSync(path.join(folder, 'private'), 0o700);
    for (const name of ['folder', 'many', 'a/b', '.']) fs.utimesSync(path.join(folder, name), 2 * day, 2 * day);
    return folder;
}

/** Names, kinds, sizes, times, permissions and contents. */
function shapeOf(folder) {
    const shape = {};
    const look = (name) => {
        const file = path.join(folder, name);
        const { mode, mtimeMs, size } = fs.lstatSync(file);
        const facts = `${(mode & 0o777).toString(8)} ${Math.floor(mtimeMs + 0.0005)}`;
        if (fs.lstatSync(file).isDirectory()) {
            shape[name] = facts;
            for (const each of fs.readdirSync(file)) look(path.join(name, each));
        } else {
            shape[name] = `${facts} ${size} ${createHash('sha1').update(fs.readFileSync(file)).digest('hex')}`;
        }
    };
    look('.');
    return shape;
}

/** The store of its own of one test. @param {'pglite' | 'postgres'} kind @param {string} tree */
async function newTree(kind, tree) {
    const url = kind === 'pglite' ? `pglite:${path.join(scratchFolder(), 'store')}` : (await engineOf(kind)).address;
    assert.equal((await tool('create', url, '--tree', tree)).code, 0);
    return { url, of: ['--tree', tree] };
}

for (const kind of kinds) {
    test(`${kind}: a tree comes back as it went in`, { skip: kind === 'postgres' && noServer }, async () => {
        const { url, of } = await newTree(kind, 'round trip');
        const source = folderOfAll();
        const out = path.join(scratchFolder(), 'out');
        const first = await tool('import', url, source, ...of);
        assert.equal(first.code, 0, first.err);
        assert.match(first.out, /^imported 50 files of .* MiB and 8 folders$/);
        assert.match((await tool('export', url, out, ...of)).out, /^exported 50 files/);
        assert.deepEqual(shapeOf(out), shapeOf(source));
        const holed = fs.statSync(path.join(out, 'holed'));
        assert.ok(512 * holed.blocks < 4_000_000, 'holes stay holes');
        assert.match((await tool('fsck', url, ...of, '--contents', 'read')).out, /is clean/);

        assert.match((await tool('import', url, source, ...of)).out, /^imported 0 files .*; 50 were there already$/);
        assert.match((await tool('export', url, out, ...of)).out, /^exported 0 files .*; 50 were there already$/);
        assert.deepEqual(shapeOf(out), shapeOf(source));

        assert.equal((await tool('import', url, path.join(source, 'a'), '/deep/er', ...of)).code, 0);
        const part = path.join(scratchFolder(), 'part');
        assert.equal((await tool('export', url, '/deep/er/', part, ...of)).code, 0);
        assert.deepEqual(shapeOf(part), shapeOf(path.join(source, 'a')));
    });
}

test('what is there and differs stays, unless it is to be replaced', { skip: noServer }, async () => {
    const { url, of } = await newTree('postgres', 'differs');
    const source = scratchFolder();
    const out = path.join(scratchFolder(), 'out');
    const write = (folder, name, text) => fs.writeFileSync(path.join(folder, name), text);
    write(source, 'file', 'old');
    write(source, 'same', 'same');
    await tool('import', url, source, ...of);
    await tool('export', url, out, ...of);
    write(source, 'file', 'new one');
    const kept = await tool('import', url, source, ...of);
    assert.equal(kept.code, 3);
    assert.match(kept.out, /^imported 0 files .*; 1 were there already; 1 left out$/);
    assert.match(kept.err, /^left out: "\/file": there is another file of that name \(--replace replaces it\)$/);
    assert.equal((await tool('import', url, source, ...of, '--replace')).code, 0);
    const other = await tool('export', url, out, ...of);
    assert.equal(other.code, 3);
    assert.equal(fs.readFileSync(path.join(out, 'file'), 'utf8'), 'old');
    assert.equal((await tool('export', url, out, ...of, '--replace')).code, 0);
    assert.equal(fs.readFileSync(path.join(out, 'file'), 'utf8'), 'new one');
    fs.rmSync(path.join(source, 'file'));
    fs.mkdirSync(path.join(source, 'file'));
    write(source, 'file/inside', 'x');
    const turned = await tool('import', url, source, ...of, '--replace');
    assert.equal(turned.code, 3);
    assert.match(turned.err, /left out: "\/file": \/file leads through a file, or is one/);
    assert.match((await tool('fsck', url, ...of)).out, /is clean/);
});

test('what a tree does not hold is named and counted', { skip: noServer }, async () => {
    const { url, of } = await newTree('postgres', 'left out');
    const source = scratchFolder();
    fs.writeFileSync(path.join(source, 'file'), 'x');
    fs.symlinkSync('file', path.join(source, 'link'));
    fs.writeFileSync(Buffer.concat([Buffer.from(`${source}/not`), Buffer.from([0xff])]), 'x');
    execFileSync('mkfifo', [path.join(source, 'pipe')]);
    const { code, out, err } = await tool('import', url, source, ...of);
    assert.equal(code, 3);
    assert.match(out, /^imported 1 file of 1 bytes and 1 folder; 3 left out$/);
    assert.match(err, /"\/link": is a symbolic link, which a tree does not hold/);
    assert.match(err, /"\/pipe": is a pipe, which a tree does not hold/);
    assert.match(err, /"\/not\ufffd": its name is not UTF-8/);
    const exported = path.join(scratchFolder(), 'out');
    fs.mkdirSync(exported);
    fs.symlinkSync('/etc/nothing', path.join(exported, 'file'));
    const refused = await tool('export', url, exported, ...of);
    assert.equal(refused.code, 3);
    assert.match(refused.err, /left out: "\/file": there is something of that name: .*\/file/);
    assert.match((await tool('export', url, '/nothing', exported, ...of)).err, /^kemvi-store: no such file or folder: \/nothing$/);
    assert.match((await tool('export', url, '/file', exported, ...of)).err, /^kemvi-store: \/file leads through a file, or is one$/);
    assert.match((await tool('export', url, '/nowhere/x/y', ...of)).err, /FOLDER: "\/nowhere\/x\/y": .*; expected a folder, or one that can be made/);
});

test('an export goes on without files whose bytes are lost', { skip: noServer }, async () => {
    const { url, of } = await newTree('postgres', 'lost bytes');
    const { engine } = await engineOf('postgres');
    const source = scratchFolder();
    for (const name of ['a', 'b', 'c']) fs.writeFileSync(path.join(source, name), name);
    await tool('import', url, source, ...of);
    await engine.query(`update kemvi_store.chunk set data = null, object = 'gone' where node in (
        select n.id from kemvi_store.node n join kemvi_store.tree t on t.id = n.tree where t.name = 'lost bytes' and n.name = 'b')`);
    const out = path.join(scratchFolder(), 'out');
    const { code, err } = await tool('export', url, out, ...of);
    assert.equal(code, 3);
    assert.match(err, /left out: "\/b": .*there is no object gone/);
    assert.deepEqual(fs.readdirSync(out).sort(), ['a', 'c']);
});

test('an import and an export that are killed go on where they were', { skip: noServer }, async () => {
    const { url, of } = await newTree('postgres', 'killed');
    const { engine } = await engineOf('postgres');
    const source = scratchFolder();
    const amount = 600;
    for (let i = 0; i < amount; i++) fs.writeFileSync(path.join(source, `file ${i}`), patterned(2000 + i, i));
    const counted = `select count(*) as count from kemvi_store.node n join kemvi_store.tree t on t.id = n.tree
        where t.name = 'killed' and n.name like 'file %'`;
    await killedAfter(startTool('import', url, source, ...of), async () => (await engine.query(counted))[0].count);
    const [{ count }] = await engine.query(counted);
    assert.ok(count > 0 && count < amount, `${count} were done`);
    const rest = await tool('import', url, source, ...of);
    assert.equal(rest.code, 0, rest.err);
    const [, imported, present] = /^imported (\d+) files .*; (\d+) were there already$/.exec(rest.out) ?? [rest.out];
    assert.equal(Number(imported) + Number(present), amount);
    assert.ok(Number(present) >= count, 'what the server was at when the tool was killed it may have done after that');
    const out = path.join(scratchFolder(), 'out');
    await killedAfter(startTool('export', url, out, ...of), () => (fs.existsSync(out) ? fs.readdirSync(out).length - 8 : 0));
    const exported = await tool('export', url, out, ...of);
    assert.equal(exported.code, 0, exported.err);
    assert.match(exported.out, /were there already/);
    assert.deepEqual(shapeOf(out), shapeOf(source), 'and nothing of the attempt stays');
    assert.match((await tool('fsck', url, ...of, '--contents', 'read')).out, /is clean/);
});

/**
 * It stands still while is counted, however long that takes on a busy machine.
 * @param {import('node:child_process').ChildProcess} child
 * @param {() => any} count
 */
async function killedAfter(child, count) {
    const ended = new Promise((resolve) => child.once('exit', resolve));
    for (let left = 3000; left > 0 && child.exitCode === null; left--) {
        child.kill('SIGSTOP');
        if ((await count()) > 20) break;
        child.kill('SIGCONT');
        await new Promise((resolve) => setTimeout(resolve, 10));
    }
    child.kill('SIGKILL');
    await ended;
    assert.equal(child.signalCode, 'SIGKILL', 'it was still at work');
}

const noScript = spawnSync('script', ['--version']).error && 'script is not installed (package bsdutils)';

/** What is seen on a terminal. @param {string[]} words @param {string} [input] */
function onTerminal(words, input = '') {
    const quoted = [process.execPath, program, ...words].map((word) => `'${word}'`).join(' ');
    const { stdout, status } = spawnSync('script', ['-qec', quoted, '/dev/null'], { encoding: 'utf8', input });
    return { out: stdout, code: status };
}

test('a terminal shows how far it is, and asks for the name of a tree that is to be dropped', { skip: noServer || noScript }, async () => {
    const { url, of } = await newTree('postgres', 'terminal');
    const source = scratchFolder();
    for (let i = 0; i < 30; i++) fs.writeFileSync(path.join(source, `file ${i}`), patterned(300_000, i));
    fs.symlinkSync('x', path.join(source, 'link'));
    const imported = onTerminal(['import', url, source, ...of]);
    assert.match(imported.out, /import .*\d+% \| .* of 8\.6 MiB \| \d+ of 30 files/);
    assert.match(imported.out, /left out: "\/link"/);
    assert.equal(imported.code, 3);
    assert.match(onTerminal(['export', url, path.join(scratchFolder(), 'out'), ...of]).out, /export .*\d+% \| .* of 8\.6 MiB \| \d+ of 30 files/);
    const wrong = onTerminal(['drop', url, ...of], 'another\n');
    assert.match(wrong.out, /This removes the tree "terminal" in .*: 31 nodes, 8\.6 MiB\.\s+Type the name of the tree/);
    assert.match(wrong.out, /nothing was removed: "another" is not the name of the tree/);
    assert.equal(wrong.code, 1);
    const right = onTerminal(['drop', url, ...of], 'terminal\n');
    assert.equal(right.code, 0, right.out);
    assert.match((await tool('stats', url, ...of)).err, /has no tree "terminal"/);
});
