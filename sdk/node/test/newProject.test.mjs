// `npx kemvi-helper new`: what it makes works, and what it cannot make it says, leaving nothing.
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { Driver, npmMissing, packageFolder, registryMissing, runNpm, temporaryFolder } from './driver.mjs';

const command = path.join(packageFolder, 'bin/kemvi-helper.mjs');
const typescript = { skip: npmMissing || (!process.features.typescript && 'this node does not run TypeScript') };

function make(folder, values, environment = {}) {
    const env = { ...process.env, ...environment };
    return spawnSync(process.execPath, [command, ...values], { cwd: folder, encoding: 'utf8', env });
}

function assertGreen(project) {
    const env = { ...process.env };
    delete env.NODE_TEST_CONTEXT; // of this test's runner: with it the other would not fail
    const { status, stdout } = spawnSync('npm', ['test'], { cwd: project, encoding: 'utf8', env });
    assert.match(stdout, /^. pass 3$/m);
    assert.equal(status, 0, stdout);
}

/** @param {Driver} helper */
async function assertServes(helper, name) {
    const { handle } = await helper.ok('open', { path: '/hello.txt', flags: ['read'] });
    assert.equal(String(await helper.ok('read', { handle, offset: 0, length: 100 })), `Hello from ${name}.\n`);
    assert.equal(await helper.code('getattr', { path: '/none' }), 'ENOENT');
    assert.equal(await helper.end(), 0);
}

test('a project is green, serves, and can be moved and installed anew', { skip: npmMissing }, async (t) => {
    const folder = temporaryFolder(t);
    const made = make(folder, ['new', 'my-fs']);
    assert.equal(made.stderr, '');
    assert.equal(made.status, 0);
    assert.match(made.stdout, /cd my-fs\n.*npm test.*\n.*npm start/);
    const moved = path.join(folder, 'moved');
    fs.renameSync(path.join(folder, 'my-fs'), moved);
    fs.rmSync(path.join(moved, 'node_modules'), { recursive: true });
    runNpm(moved, ['ci', '--offline']);
    assertGreen(moved);
    await assertServes(new Driver(t, [process.execPath, path.join(moved, 'my-fs.mjs')]), 'my-fs');
    assert.ok(!fs.readFileSync(path.join(moved, 'README.md'), 'utf8').includes('{{'));
    assert.match(fs.readFileSync(path.join(moved, '.gitignore'), 'utf8'), /^node_modules\/$/m);
    const repeated = make(folder, ['new', './moved']);
    assert.equal(repeated.stderr, 'kemvi-helper: ./moved: exists already and is not empty; give another name\n');
    assert.equal(repeated.status, 1);
});

test('npx finds the command in an installed kit, and a project made by it is as good', { skip: npmMissing }, async (t) => {
    const folder = temporaryFolder(t);
    fs.writeFileSync(path.join(folder, 'package.json'), '{ "name": "first", "private": true }');
    const packed = runNpm(folder, ['pack', '--silent', packageFolder]).trim();
    runNpm(folder, ['install', '--offline', `./${packed}`]);
    execFileSync('npx', ['kemvi-helper', 'new', 'second'], { cwd: folder, stdio: 'ignore' });
    await assertServes(new Driver(t, [process.execPath, path.join(folder, 'second/second.mjs')]), 'second');
});

test('a project in TypeScript is green, serves, and has no wrong type', typescript, async (t) => {
    const folder = temporaryFolder(t);
    assert.equal(make(folder, ['new', 'typed', '--typescript']).status, 0);
    const project = path.join(folder, 'typed');
    assertGreen(project);
    await assertServes(new Driver(t, [process.execPath, path.join(project, 'typed.ts')]), 'typed');
    if (registryMissing()) return; // then tsc is not there either
    const { status, stdout } = spawnSync('npm', ['run', 'types'], { cwd: project, encoding: 'utf8' });
    assert.equal(status, 0, stdout);
});

test('TypeScript is refused by a node that does not run it', { skip: !typescript.skip }, (t) => {
    const folder = temporaryFolder(t);
    const { status, stderr } = make(folder, ['new', 'typed', '--typescript']);
    assert.equal(status, 1);
    assert.match(stderr, /^kemvi-helper: --typescript: this node \(v.*\) does not run TypeScript; take node 22\.18 or later/);
    assert.deepEqual(fs.readdirSync(folder), []);
});

const mistakes = [
    [['new', 'My Fs'], 2, /My Fs: a name has small letters/],
    [['new', '..'], 2, /\.\.: a name has small letters/],
    [['new', 'kemvi-helper'], 2, /that name is taken/],
    [['new'], 2, /takes one name/],
    [['new', 'a', 'b'], 2, /takes one name/],
    [['new', 'a', '--typscript'], 2, /--typscript: there is no such option/],
    [['make', 'a'], 2, /make: there is no such command/],
    [[], 2, /^$/],
    [['new', 'file'], 1, /file: is in the way/],
    [['new', 'file/a'], 1, /file\/a: is in the way/],
];
for (const [values, status, message] of mistakes) {
    test(`refused, and nothing made: ${values.join(' ')}`, { skip: npmMissing }, (t) => {
        const folder = path.join(temporaryFolder(t), 'Deeper', 'Still');
        fs.mkdirSync(folder, { recursive: true });
        fs.writeFileSync(path.join(folder, 'file'), 'kept');
        const result = make(folder, values);
        assert.equal(result.status, status);
        assert.match(result.stderr, message);
        assert.deepEqual(fs.readdirSync(folder), ['file']);
        assert.equal(fs.readFileSync(path.join(folder, 'file'), 'utf8'), 'kept');
    });
}

test('without npm it says so, and makes nothing', (t) => {
    const folder = temporaryFolder(t);
    const { status, stderr } = make(folder, ['new', 'a'], { PATH: folder });
    assert.equal(status, 1);
    assert.match(stderr, /^kemvi-helper: npm is not installed.*apt install npm\)\n$/);
    assert.deepEqual(fs.readdirSync(folder), []);
});

test('a kit that cannot be packed leaves no project', { skip: npmMissing }, (t) => {
    const folder = temporaryFolder(t);
    const bin = path.join(folder, 'bin');
    fs.mkdirSync(bin);
    fs.writeFileSync(path.join(bin, 'npm'), '#!/bin/sh\n[ "$1" = --version ] || { echo "no space" >&2; exit 1; }\n', { mode: 0o755 });
    const { status, stderr } = make(folder, ['new', 'a'], { PATH: `${bin}:/bin:/usr/bin` });
    assert.equal(status, 1);
    assert.match(stderr, /^kemvi-helper: npm pack failed:\nno space/);
    assert.deepEqual(fs.readdirSync(folder), ['bin']);
});
