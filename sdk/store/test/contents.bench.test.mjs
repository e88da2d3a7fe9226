// That the benchmark of contents works; it judges no times.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import test from 'node:test';
import { noServer, packageFolder, Server } from './engines.mjs';

test('the benchmark measures reading and writing', { skip: noServer }, () => {
    const command = ['bench/contents.mjs', new Server().url, 'database', '2', '1'];
    const { status, stdout, stderr } = spawnSync(process.execPath, command, { cwd: packageFolder, encoding: 'utf8' });
    assert.equal(status, 0, stderr);
    assert.match(stdout, /^contents, write .* MiB\/s, median of .*\ncontents, read .* MiB\/s/);
});
