// A store that takes names that differ in case for the same, as many disks do.
import path from 'node:path';
import { pathToFileURL } from 'node:url';

const kit = path.join(path.dirname(process.env.KEMVI_TEST_INNER), '..', 'src', 'index.mjs');
const { MemoryFileSystem, serve } = await import(pathToFileURL(kit).href);

const store = new MemoryFileSystem();
const fold = (value) => (typeof value === 'string' ? value.toLowerCase() : value);
const operations = ['getattr', 'readdir', 'open', 'mkdir', 'unlink', 'rename', 'chmod', 'utimes'];
const folding = Object.fromEntries(operations.map((name) => [name, (...values) => store[name](...values.map(fold))]));
for (const name of ['read', 'write', 'release', 'statfs']) folding[name] = (...values) => store[name](...values);
await serve(folding);
