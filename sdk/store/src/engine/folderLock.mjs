// One process per folder: the embedded engine does not notice a second one, and both would lose rows.
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

/**
 * Takes the lock of a folder, which the kernel holds for this process until it lets go or ends, however it ends.
 * @param {string} folder that exists
 * @returns {{release: () => void}}
 * @throws {Error} when somebody else has it, naming the process
 */
export function lockFolder(folder) {
    const file = path.join(folder, 'kemvi.lock');
    const descriptor = fs.openSync(file, fs.constants.O_RDWR | fs.constants.O_CREAT, 0o600);
    try {
        // The lock belongs to the open file, which the program inherits and this process keeps.
        const { status, error } = spawnSync('flock', ['-n', '3'], { stdio: ['ignore', 'ignore', 'inherit', descriptor] });
        if (error) throw new Error(`${file}: flock cannot be run (${error.message}); install the package util-linux`);
        if (status !== 0) throw new Error(`${folder}: in use by process ${holder(file)}; the embedded store serves one mount at a time`);
        fs.ftruncateSync(descriptor);
        fs.writeSync(descriptor, `${process.pid}\n`, 0);
    } catch (error) {
        fs.closeSync(descriptor);
        throw error;
    }
    return { release: () => fs.closeSync(descriptor) };
}

/** @param {string} file */
function holder(file) {
    return fs.readFileSync(file, 'utf8').trim() || 'of unknown number';
}
