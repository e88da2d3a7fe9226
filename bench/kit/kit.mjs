// The kit's loop over a file system that does the same work as the bare loop.
import fs from 'node:fs';
import { compileLate } from '../../sdk/node/src/compilation.mjs';
import { serve } from '../../sdk/node/src/serve.mjs';

compileLate(); // as the helpers that ship do

const root = process.env.KEMVI_REPO_ROOT;
const { O_RDWR, O_CREAT, O_RDONLY } = fs.constants;

function lookAt(path) {
    const stat = fs.lstatSync(root + path);
    return { isDirectory: stat.isDirectory(), size: stat.size, modifiedAt: stat.mtimeMs };
}

serve({
    getattr: lookAt,
    readdir: (path) => fs.readdirSync(root + path).map((name) => ({ name, ...lookAt(`${path}/${name}`) })),
    open: (path, flags) => fs.openSync(root + path, flags.write ? O_RDWR | O_CREAT : O_RDONLY, 0o666),
    read: (file, offset, length, buffer) => fs.readSync(file, buffer, 0, length, offset),
    write(file, offset, data) {
        fs.writeSync(file, data, 0, data.length, offset);
    },
    release: (file) => fs.closeSync(file),
});
