// A tree of many files that exist nowhere: KEMVI_BENCH_FOLDERS folders of 1,000 empty files each.
import { serve } from '../../../sdk/node/src/serve.mjs';
import { PosixError } from '../../../sdk/node/src/errors.mjs';

const folders = Number(process.env.KEMVI_BENCH_FOLDERS);
const modifiedAt = Date.UTC(2024, 4, 1);
const numbered = /^\/folder-(\d+)(\/file-(\d+))?$/;

/** @param {string} prefix @param {number} count @param {boolean} isDirectory */
function* members(prefix, count, isDirectory) {
    for (let number = 0; number < count; number += 1) yield { name: prefix + number, isDirectory, size: 0, modifiedAt };
}

await serve({
    getattr(path) {
        const isFile = numbered.exec(path)?.[2] !== undefined;
        if (path !== '/' && !numbered.test(path)) throw new PosixError('ENOENT', `no such file: ${path}`);
        return { isDirectory: !isFile, size: 0, modifiedAt };
    },
    readdir: (path) => (path === '/' ? members('folder-', folders, true) : members('file-', 1000, false)),
    read: () => new Uint8Array(0),
});
