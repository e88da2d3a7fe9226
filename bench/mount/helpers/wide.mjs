// A tree that exists nowhere: KEMVI_BENCH_FOLDERS folders of KEMVI_BENCH_FILES empty files each (1,000 where nothing is
// said), and a file "hollow" of KEMVI_BENCH_HOLLOW zeros, which forgets what is written to it.
import { serve } from '../../../sdk/node/src/serve.mjs';
import { compileLate } from '../../../sdk/node/src/compilation.mjs';
import { PosixError } from '../../../sdk/node/src/errors.mjs';

compileLate(); // as the helpers that ship do

const folders = Number(process.env.KEMVI_BENCH_FOLDERS ?? 0);
const files = Number(process.env.KEMVI_BENCH_FILES ?? 1000);
const hollow = { isDirectory: false, size: Number(process.env.KEMVI_BENCH_HOLLOW ?? 0) };
const modifiedAt = Date.UTC(2024, 4, 1);
const numbered = /^\/folder-(\d+)(\/file-(\d+))?$/;

/** @param {string} prefix @param {number} count @param {boolean} isDirectory */
function* members(prefix, count, isDirectory) {
    for (let number = 0; number < count; number += 1) yield { name: prefix + number, isDirectory, size: 0, modifiedAt };
}

await serve({
    getattr(path) {
        if (path === '/hollow') return { ...hollow, modifiedAt };
        const isFile = numbered.exec(path)?.[2] !== undefined;
        if (path !== '/' && !numbered.test(path)) throw new PosixError('ENOENT', `no such file: ${path}`);
        return { isDirectory: !isFile, size: 0, modifiedAt };
    },
    readdir: (path) => (path === '/' ? members('folder-', folders, true) : members('file-', files, false)),
    read(path, offset, length, buffer) {
        const count = path === '/hollow' ? Math.max(0, Math.min(length, hollow.size - offset)) : 0;
        buffer.fill(0, 0, count);
        return count;
    },
    write(path, offset, data) {
        hollow.size = Math.max(hollow.size, offset + data.length);
    },
});
