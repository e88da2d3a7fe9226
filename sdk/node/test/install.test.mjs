// The package as its users have it: installed by npm into a project that did not exist before, imported, required, and used
// from TypeScript.
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test, { before } from 'node:test';
import { betweenPipes, Driver, npmMissing, packageFolder, registryMissing, runNpm, temporaryFolder } from './driver.mjs';

const names = 'GitFileSystem,LocalFileSystem,MemoryFileSystem,PosixError,cached,changed,limited,serve';
const requiresModules = process.features.require_module === true;

/** @type {string} */
let packed;
before((t) => {
    if (npmMissing) return;
    const folder = temporaryFolder(t);
    packed = path.join(folder, runNpm(folder, ['pack', '--silent', packageFolder]).trim());
});

/** A project with nothing but its package.json. */
function project(t) {
    const folder = temporaryFolder(t);
    write(folder, { 'package.json': '{ "name": "project", "version": "1.0.0", "private": true }' });
    return folder;
}

/** A project into which the packed kit is installed. */
function installed(t) {
    const folder = project(t);
    runNpm(folder, ['install', '--offline', packed]);
    return folder;
}

function write(folder, files) {
    for (const [name, text] of Object.entries(files)) fs.writeFileSync(path.join(folder, name), text);
}

function run(folder, ...values) {
    return execFileSync(process.execPath, values, { cwd: folder, encoding: 'utf8' });
}

const importing = { 'a.mjs': "import * as kit from 'kemvi-helper'; console.log(Object.keys(kit).sort().join());" };
const requiring = { 'a.cjs': "console.log(Object.keys(require('kemvi-helper')).sort().filter((name) => name !== '__esModule').join());" };

test('the packed kit is found, and still is after the next npm install', { skip: npmMissing }, (t) => {
    const folder = installed(t);
    write(folder, { ...importing, ...requiring });
    for (const round of ['first', 'after another npm install']) {
        assert.equal(run(folder, 'a.mjs'), names + '\n', round);
        assert.equal(run(folder, 'a.cjs'), names + '\n', round);
        runNpm(folder, ['install', '--offline']);
    }
    assert.ok(!fs.existsSync(path.join(folder, 'node_modules/kemvi-helper/test')));
});

test('the folder of the kit is found, and still is after the next npm install', { skip: npmMissing }, (t) => {
    const folder = project(t);
    runNpm(folder, ['install', '--offline', packageFolder]);
    write(folder, { ...importing, ...requiring });
    for (const round of ['first', 'after another npm install']) {
        assert.equal(run(folder, 'a.mjs'), names + '\n', round);
        assert.equal(run(folder, 'a.cjs'), names + '\n', round);
        runNpm(folder, ['install', '--offline']);
    }
});

test('what tests use is found too, imported and required, also translated', { skip: npmMissing }, (t) => {
    const folder = installed(t);
    const checked = 'mountless(new MemoryFileSystem()).check().then(() => console.log("checked"));';
    write(folder, {
        'a.mjs': `import { MemoryFileSystem } from 'kemvi-helper'; import { mountless } from 'kemvi-helper/testing'; ${checked}`,
        'a.cjs': `const { MemoryFileSystem } = require('kemvi-helper'); const { mountless } = require('kemvi-helper/testing'); ${checked}`,
    });
    const translated = requiresModules ? ['--no-experimental-require-module'] : [];
    for (const values of [['a.mjs'], ['a.cjs'], [...translated, 'a.cjs']]) assert.equal(run(folder, ...values), 'checked\n');
});

const requiredTree = `
const { MemoryFileSystem, PosixError, serve } = require('kemvi-helper');
console.log('this is no answer');
class Limited extends MemoryFileSystem {
    mkdir(path) {
        if (path.length > 8) throw new PosixError('EACCES', 'too long');
        super.mkdir(path);
    }
}
serve(new Limited());
`;
// What loads modules itself, and what cannot and has them translated, as node 18 does.
const ways = [
    ['as this node requires', []],
    ['translated', ['--no-experimental-require-module', '--no-warnings']],
];
for (const [way, options] of ways) {
    const skip = npmMissing || (!requiresModules && options.length > 0 && 'this node cannot require modules anyway');
    test(`a helper in CommonJS serves, ${way}`, { skip }, async (t) => {
        const folder = installed(t);
        write(folder, { 'tree.cjs': requiredTree });
        const environment = { KEMVI_DRIVE_ID: 'd' };
        const helper = new Driver(t, betweenPipes([process.execPath, ...options, path.join(folder, 'tree.cjs')]), environment);
        await helper.ok('mkdir', { path: '/a' });
        assert.equal(await helper.code('mkdir', { path: '/much too long' }), 'EACCES');
        assert.deepEqual((await helper.ok('readdir', { path: '/' })).map((entry) => entry.name), ['a']);
        assert.equal(await helper.end(), 0);
        assert.match(helper.stderr, /this is no answer/);
    });

    test(`one process may import the kit and require it, ${way}`, { skip }, async (t) => {
        const folder = installed(t);
        write(folder, {
            'error.mjs': "export { PosixError } from 'kemvi-helper';",
            'tree.cjs': `
                import('./error.mjs').then(({ PosixError }) => require('kemvi-helper').serve({
                    getattr: () => { throw new PosixError('ENOENT', 'none'); }, readdir: () => [], read: () => 0 }));`,
        });
        const environment = { KEMVI_DRIVE_ID: 'd' };
        const helper = new Driver(t, betweenPipes([process.execPath, ...options, path.join(folder, 'tree.cjs')]), environment);
        assert.equal(await helper.code('getattr', { path: '/a' }), 'ENOENT');
        assert.equal(await helper.end(), 0);
    });
}

test('what is translated for require is named where it is in a form that is not known', (t) => {
    const folder = temporaryFolder(t);
    write(folder, { 'a.mjs': "\nexport { b as default };\nconst b = 1;\n" });
    const load = path.join(packageFolder, 'src/commonjs/load.cjs');
    const result = spawnSync(process.execPath, ['-e', `require(${JSON.stringify(load)}).translated('${folder}/a.mjs')`]);
    assert.match(String(result.stderr), /a\.mjs: "export \{ b as default \};" is not translated for require/);
});

// TypeScript

const body = `
const tree: FileSystem<string> = {
    getattr: (path) => (path === '/' ? { isDirectory: true } : { size: path.length }),
    readdir: () => [{ name: 'a', size: 2 }],
    read(file, offset, length) {
        if (file === '') throw new PosixError('ENOENT', 'none');
        return Buffer.from(file).subarray(offset, offset + length);
    },
};
serve(tree);
serve(new MemoryFileSystem());
`;
const head = "import { MemoryFileSystem, PosixError, serve, type FileSystem } from 'kemvi-helper';";
const wrong = `${head}\nserve({ readdir: () => [], read: () => 0 });\nvoid MemoryFileSystem, PosixError;\nexport type A = FileSystem;`;
const resolutions = [['node16', 'node16'], ['nodenext', 'nodenext'], ['esnext', 'bundler']];

function tsc(command, folder, [module, resolution], ...files) {
    const options = ['--noEmit', '--strict', '--target', 'es2022', '--lib', 'es2022'];
    const result = spawnSync(command, [...options, '--module', module, '--moduleResolution', resolution, ...files], {
        cwd: folder, encoding: 'utf8',
    });
    return result.stdout;
}

/** @param {string} command of TypeScript, in a project with the kit and node's types */
function checkTypes(command, folder, ways) {
    write(folder, { 'tree.mts': head + body, 'tree.cts': head + body, 'wrong.mts': wrong });
    for (const way of ways) {
        const required = way[1] === 'bundler' ? [] : ['tree.cts'];
        const errors = tsc(command, folder, way, 'tree.mts', ...required, 'wrong.mts').match(/^\S.*$/gm);
        assert.equal(errors?.length, 1, `${way}: ${errors}`);
        assert.match(errors[0], /^wrong\.mts\(2,/);
    }
}

function checkWithoutNodesTypes(command, folder) {
    fs.rmSync(path.join(folder, 'node_modules/@types/node'), { recursive: true });
    const stdout = tsc(command, folder, resolutions[0], 'tree.mts');
    assert.match(stdout, /fileSystem\.d\.mts.*Cannot find type definition file for 'node'/);
    assert.match(stdout, /npm i --save-dev @types\/node/);
}

const tscMissing = spawnSync('tsc', ['--version']).status !== 0 && 'tsc is not installed (Debian package node-typescript)';

test('the types fit the installed tsc, with as much of node as the kit has for itself', { skip: npmMissing || tscMissing }, (t) => {
    const folder = installed(t);
    const standIn = path.join(packageFolder, 'typecheck/stand-ins/node');
    fs.cpSync(standIn, path.join(folder, 'node_modules/@types/node'), { recursive: true });
    checkTypes('tsc', folder, resolutions.slice(0, 2)); // 4.8 knows no bundler
    checkWithoutNodesTypes('tsc', folder);
});

for (const version of ['5', 'latest']) {
    test(`the types fit TypeScript ${version} of the registry`, { skip: npmMissing || registryMissing() }, (t) => {
        const folder = installed(t);
        runNpm(folder, ['install', '--prefer-offline', '--save-dev', `typescript@${version}`, '@types/node']);
        const command = path.join(folder, 'node_modules/.bin/tsc');
        checkTypes(command, folder, resolutions);
        checkWithoutNodesTypes(command, folder);
    });
}
