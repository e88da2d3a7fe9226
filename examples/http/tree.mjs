// What a web server lists and holds, read-only: each folder's listing is a JSON document, as nginx makes it with
// `autoindex_format json`. The server's address is in HTTP_TREE.
import { cached, limited, PosixError, serve } from 'kemvi-helper';

const top = (process.env.HTTP_TREE ?? '').replace(/\/*$/, '');
if (!/^https?:\/\//.test(top)) {
    console.error('tree.mjs: HTTP_TREE must be the address of a listing, such as http://localhost:8080/files/');
    process.exit(1);
}

const address = (path) => top + path.split('/').map(encodeURIComponent).join('/');
const codes = new Map([[401, 'EACCES'], [403, 'EACCES'], [404, 'ENOENT'], [410, 'ENOENT']]);

async function ask(path, options) {
    const response = await fetch(address(path), options);
    if (response.ok || response.status === 416) return response;
    await response.body?.cancel();
    throw new PosixError(codes.get(response.status) ?? 'EIO', `${path}: the server answered ${response.status}`);
}

function entry({ name, type, size, mtime }) {
    return { name, isDirectory: type === 'directory', size: type === 'directory' ? 0 : size, modifiedAt: Date.parse(mtime) };
}

const tree = {
    async readdir(path, { signal }) {
        const response = await ask(path === '/' ? '/' : `${path}/`, { signal });
        return (await response.json()).map(entry);
    },

    // What a path is stands in the listing of its folder. When that was listed already, `cached` knows, and does not ask.
    async getattr(path, call) {
        if (path === '/') return { isDirectory: true, modifiedAt: 0 };
        const end = path.lastIndexOf('/');
        const found = (await tree.readdir(path.slice(0, end) || '/', call)).find(({ name }) => name === path.slice(end + 1));
        if (found === undefined) throw new PosixError('ENOENT', `there is no ${path}`);
        return found;
    },

    async read(path, offset, length, buffer, { signal }) {
        const response = await ask(path, { signal, headers: { range: `bytes=${offset}-${offset + length - 1}` } });
        if (response.status === 416) {
            await response.body?.cancel(); // past the end
            return 0;
        }
        const from = response.status === 206 ? 0 : offset; // a server without ranges sends the whole file
        return Buffer.from(await response.arrayBuffer()).subarray(from, from + length);
    },
};

serve(cached(limited(tree, { concurrency: 32, timeout: 20_000 }), { memory: 128 << 20, ttl: 30_000 }));
