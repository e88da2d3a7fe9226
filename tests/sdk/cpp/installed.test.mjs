// What an installation has of the kit is enough for a project of CMake elsewhere, and for 'kemvi init --native'.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { Driver, temporaryFolder } from '../../../sdk/node/test/driver.mjs';

const build = process.env.KEMVI_TEST_BUILD;
const top = path.join(path.dirname(new URL(import.meta.url).pathname), '../../..');

test('an installed kit builds the example, and an installed command serves with its own helper', async (t) => {
    const folder = temporaryFolder(t);
    const prefix = path.join(folder, 'installed');
    const quiet = { stdio: ['ignore', 'pipe', 'inherit'] };
    execFileSync('cmake', ['--install', build, '--prefix', prefix], quiet);
    const project = path.join(folder, 'project');
    fs.mkdirSync(project);
    fs.copyFileSync(path.join(top, 'examples/cpp/folder.cpp'), path.join(project, 'folder.cpp'));
    fs.writeFileSync(path.join(project, 'CMakeLists.txt'), [
        'cmake_minimum_required(VERSION 3.25)', 'project(outside LANGUAGES CXX)', 'find_package(kemvi-helper REQUIRED)',
        'add_executable(folder folder.cpp)', 'target_link_libraries(folder PRIVATE kemvi::helper)', '',
    ].join('\n'));
    execFileSync('cmake', ['-B', 'build', '-G', 'Ninja', `-DCMAKE_PREFIX_PATH=${prefix}`], { ...quiet, cwd: project });
    execFileSync('cmake', ['--build', 'build'], { ...quiet, cwd: project });
    const helper = new Driver(t, [path.join(project, 'build/folder')], { KEMVI_REPO_ROOT: project });
    assert.ok((await helper.ok('readdir', { path: '/' })).some((entry) => entry.name === 'folder.cpp'));
    assert.equal(await helper.end(), 0);

    const kemvi = path.join(prefix, 'bin/kemvi');
    const source = path.join(folder, 'drive');
    execFileSync(kemvi, ['init', source, '--native'], quiet);
    const written = JSON.parse(fs.readFileSync(path.join(source, 'mount-config.json'), 'utf8'));
    assert.deepEqual(written.helperCommand, [path.join(prefix, 'libexec/kemvi/kemvi-local')]);
    assert.equal(written.helperPath, path.join(prefix, 'share/kemvi/helpers/program.mjs'));
    assert.match(execFileSync(kemvi, ['check', source], { encoding: 'utf8' }), /0 errors, 0 warnings/);
});
