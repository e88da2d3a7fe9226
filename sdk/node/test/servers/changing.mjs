// Says that something has changed when it is asked for /tell/PATHS, where PATHS is JSON. `blocking` as an argument has
// it wait in that loop.
import { changed, serve } from '../../src/index.mjs';

const loop = process.argv[2];
if (loop === undefined) changed([]);
serve(
    {
        getattr(path) {
            if (path.startsWith('/tell/')) changed(JSON.parse(decodeURIComponent(path.slice(6))));
            if (path === '/tellOdd') for (const odd of [3, undefined, null, [4], Object.create(null)]) changed(odd);
            if (path === '/tellMany') for (let number = 0; number <= 10_000; number++) changed(`/${number}`);
            return { isDirectory: true };
        },
        readdir: () => [],
        read: () => Buffer.alloc(0),
    },
    { loop, debug: true },
);
