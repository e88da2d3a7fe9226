// The types: that the sources agree with their comments, that authors in TypeScript can use what ships, and that what
// ships is what the sources say.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { makeDeclarations } from '../typecheck/declarations.mjs';
import { packageFolder, temporaryFolder } from './driver.mjs';

/** @param {string[]} options */
function tsc(options) {
    return execFileSync('tsc', options, { cwd: packageFolder, encoding: 'utf8' });
}

function version() {
    try {
        return tsc(['--version']);
    } catch {
        return '';
    }
}

const missing = version() === '' && 'tsc is not installed (Debian package node-typescript)';

test('tsc finds nothing wrong', { skip: missing }, () => {
    tsc(['-p', 'tsconfig.json']);
});

test('the declarations that ship are made of the sources', { skip: missing || !version().includes(' 4.8') }, (t) => {
    const made = temporaryFolder(t);
    makeDeclarations(made);
    const shipped = path.join(packageFolder, 'types');
    const folders = ['.', 'base64', 'filesystems', 'testing'];
    const list = (folder) => fs.readdirSync(path.join(made, folder)).map((name) => path.join(folder, name));
    const files = folders.flatMap(list);
    assert.ok(files.includes('index.d.mts'));
    for (const name of files.filter((each) => /\.d\.[cm]ts$/.test(each))) {
        const read = (folder) => fs.readFileSync(path.join(folder, name), 'utf8');
        assert.equal(read(shipped), read(made), `types/${name} is out of date: npm run types`);
    }
});
