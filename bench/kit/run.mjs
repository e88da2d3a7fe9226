// How much slower the kit's loop is than the best loop written by hand: node bench/kit/run.mjs [ROUNDS]
//
// Builds the driver, then times four helpers side by side: the two bare loops, the kit's loop doing the same work, and
// the `local` helper that ships. Ratios are to the faster bare loop. The aim is at most 1.10 for `kit.mjs`.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
const rounds = process.argv[2] ?? '100';
const inMemory = fs.existsSync('/dev/shm') ? '/dev/shm' : os.tmpdir();
const folder = fs.mkdtempSync(path.join(inMemory, 'kemvi-kit-'));
try {
    const driver = path.join(folder, 'exchange');
    execFileSync('c++', ['-std=c++20', '-O2', '-o', driver, path.join(here, 'exchange.cpp')], { stdio: 'inherit' });
    const helpers = ['bare.mjs', 'bareNode.mjs', 'kit.mjs', '../../sdk/node/helpers/local.mjs'];
    const scripts = helpers.map((name) => path.join(here, name));
    const served = path.join(folder, 'served');
    fs.mkdirSync(served);
    execFileSync(driver, [served, rounds, ...scripts], { stdio: 'inherit' });
} catch (error) {
    console.error(`run.mjs: ${error.message}`);
    process.exitCode = 1;
} finally {
    fs.rmSync(folder, { recursive: true });
}
