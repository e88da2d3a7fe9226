// That the sources agree with their comments.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import test from 'node:test';
import { packageFolder } from './engines.mjs';

const missing = spawnSync('tsc', ['--version']).error && 'tsc is not installed (Debian package node-typescript)';

test('tsc finds nothing wrong', { skip: missing }, () => {
    const { status, stdout } = spawnSync('tsc', ['-p', 'tsconfig.json'], { cwd: packageFolder, encoding: 'utf8' });
    assert.equal(status, 0, stdout);
});
