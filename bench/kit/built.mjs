// Builds a driver of this folder, gives it a folder on memory to work in, and removes both.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const here = path.dirname(fileURLToPath(import.meta.url));

/**
 * @param {string} source
 * @param {(folder: string) => string[]} makeArguments
 */
export function runDriver(source, makeArguments) {
    const inMemory = fs.existsSync('/dev/shm') ? '/dev/shm' : os.tmpdir();
    const folder = fs.mkdtempSync(path.join(inMemory, 'kemvi-kit-'));
    try {
        const driver = path.join(folder, 'driver');
        execFileSync('c++', ['-std=c++20', '-O2', '-o', driver, path.join(here, source)], { stdio: 'inherit' });
        const work = path.join(folder, 'work');
        fs.mkdirSync(work);
        execFileSync(driver, makeArguments(work), { stdio: 'inherit' });
    } catch (error) {
        console.error(`${source}: ${error.message}`);
        process.exitCode = 1;
    } finally {
        fs.rmSync(folder, { recursive: true });
    }
}
