// Prints something of its own where only answers belong.
import { readSync, writeSync } from 'node:fs';
console.error('garbage.mjs: starting');
readSync(0, Buffer.alloc(1000));
writeSync(1, 'Listening on port 8080\n');
