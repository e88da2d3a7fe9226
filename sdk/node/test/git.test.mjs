import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { Driver, helperCommand, temporaryFolder } from './driver.mjs';

const environment = {
    ...process.env, GIT_CONFIG_GLOBAL: '/dev/null', GIT_CONFIG_SYSTEM: '/dev/null',
    GIT_AUTHOR_NAME: 'A', GIT_AUTHOR_EMAIL: 'a@example.org', GIT_COMMITTER_NAME: 'C',
    GIT_COMMITTER_EMAIL: 'c@example.org',
    GIT_AUTHOR_DATE: '2024-05-01T12:34:56Z', GIT_COMMITTER_DATE: '2024-05-01T12:34:56Z',
};

/** @param {import('node:test').TestContext} t */
function repository(t) {
    const root = temporaryFolder(t);
    const settings = { env: environment, encoding: 'utf8' };
    const git = (...options) => execFileSync('git', ['-C', root, ...options], settings).trim();
    git('init', '-q', '-b', 'main');
    fs.mkdirSync(path.join(root, 'dir/inner'), { recursive: true });
    fs.writeFileSync(path.join(root, 'dir/inner/f'), 'first\n');
    fs.writeFileSync(path.join(root, 'gr\u00fc\u00df "x"'), 'odd');
    fs.writeFileSync(path.join(root, 'big'), Buffer.alloc(3_000_000, 'abc'));
    fs.symlinkSync('dir/inner/f', path.join(root, 'link'));
    git('add', '-A');
    git('commit', '-q', '-m', 'first');
    git('branch', 'feature/deep/name');
    git('tag', 'light');
    git('tag', '-a', '-m', 'tag', 'v1.0');
    git('tag', 'ofBlob', 'HEAD:big');
    const first = git('rev-parse', 'HEAD');
    fs.writeFileSync(path.join(root, 'dir/inner/f'), 'second\n');
    git('commit', '-q', '-a', '-m', 'second');
    return { root, git, first };
}

/** @param {Driver} helper */
async function names(helper, folder) {
    return (await helper.ok('readdir', { path: folder })).map((entry) => entry.name).sort();
}

/** @param {Driver} helper */
async function read(helper, file) {
    const { handle } = await helper.ok('open', { path: file, flags: ['read'] });
    const data = await helper.ok('read', { handle, offset: 0, length: 10 << 20 });
    await helper.ok('release', { handle });
    return data.toString();
}

test('a repository shows its branches, tags and commits', async (t) => {
    const { root, git, first } = repository(t);
    const helper = new Driver(t, helperCommand('git'), { KEMVI_REPO_ROOT: root });
    assert.deepEqual(await names(helper, '/'), ['branches', 'commits', 'tags']);
    assert.deepEqual(await names(helper, '/branches'), ['feature', 'main']);
    assert.deepEqual(await names(helper, '/branches/feature/deep'), ['name']);
    assert.deepEqual(await names(helper, '/tags'), ['light', 'v1.0']);
    assert.deepEqual(await names(helper, '/commits'), [first, git('rev-parse', 'HEAD')].sort());
    assert.deepEqual(await names(helper, '/branches/main'), ['big', 'dir', 'gr\u00fc\u00df "x"', 'link']);
    assert.equal(await read(helper, '/branches/main/dir/inner/f'), 'second\n');
    for (const place of ['branches/feature/deep/name', 'tags/light', 'tags/v1.0', `commits/${first}`]) {
        assert.equal(await read(helper, `/${place}/dir/inner/f`), 'first\n', place);
    }
    assert.equal(await read(helper, '/branches/main/big'), 'abc'.repeat(1_000_000));
    assert.equal(await read(helper, '/branches/main/link'), 'dir/inner/f');
    for (const entry of await helper.ok('readdir', { path: '/branches/main' })) {
        assert.deepEqual(await helper.ok('getattr', { path: entry.path }), entry);
        assert.equal(entry.modifiedAt, '2024-05-01T12:34:56.000Z');
    }
    assert.equal(await helper.end(), 0);
});

test('a repository cannot be changed, and what is not there is ENOENT', async (t) => {
    const { root, first } = repository(t);
    const helper = new Driver(t, helperCommand('git'), { KEMVI_REPO_ROOT: root });
    assert.equal(await helper.code('open', { path: '/branches/main/new', flags: ['write', 'create'] }), 'EROFS');
    assert.equal(await helper.code('unlink', { path: '/branches/main/big' }), 'EROFS');
    const absent = [
        '/x', '/branches/x', '/branches/main/x', '/branches/feature/x', '/commits/x', `/commits/${'0'.repeat(40)}`,
        `/commits/${first}/x`, '/tags/ofBlob', '/branches/..', '/branches/main/dir/..', '/commits/--all',
    ];
    for (const each of absent) assert.equal(await helper.code('getattr', { path: each }), 'ENOENT', each);
    assert.equal(await helper.code('getattr', { path: '/branches/main/big/x' }), 'ENOTDIR');
    assert.equal(await helper.code('readdir', { path: '/branches/main/big' }), 'ENOTDIR');
    assert.equal(await helper.code('open', { path: '/branches/main/dir', flags: ['read'] }), 'EISDIR');
    assert.equal(await helper.code('open', { path: '/branches', flags: ['read'] }), 'EISDIR');
});

test('new commits and branches appear while the repository is served', async (t) => {
    const { root, git } = repository(t);
    const helper = new Driver(t, helperCommand('git'), { KEMVI_REPO_ROOT: root });
    assert.equal(await read(helper, '/branches/main/dir/inner/f'), 'second\n');
    fs.writeFileSync(path.join(root, 'dir/inner/f'), 'third\n');
    git('commit', '-q', '-a', '-m', 'third');
    const deadline = Date.now() + 20_000;
    while ((await read(helper, '/branches/main/dir/inner/f')) !== 'third\n') assert.ok(Date.now() < deadline);
});

test('what is no repository is said in one line', async (t) => {
    const helper = new Driver(t, helperCommand('git'), { KEMVI_REPO_ROOT: temporaryFolder(t) });
    assert.equal(await helper.exit, 1);
    const line = /^kemvi-helper: cannot serve the repository in KEMVI_REPO_ROOT \(.*\): fatal: not a git.*\n$/;
    assert.match(helper.stderr, line);
});
