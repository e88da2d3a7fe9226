// The shipped local helper, which at its end writes how often each operation was asked for.
import fs from 'node:fs';
import { operations } from '../../../sdk/node/src/operations.mjs';
import { serve } from '../../../sdk/node/src/serve.mjs';
import { LocalFileSystem } from '../../../sdk/node/src/filesystems/local.mjs';

/** @type {Record<string, number>} */
const counts = {};
for (const [name, operation] of Object.entries(operations)) {
    const { call } = operation;
    counts[name] = 0;
    operation.call = (session, request) => {
        counts[name] += 1;
        return call(session, request);
    };
}
await serve(new LocalFileSystem(process.env.KEMVI_REPO_ROOT));
fs.writeFileSync(process.env.KEMVI_BENCH_COUNTS, JSON.stringify(counts));
