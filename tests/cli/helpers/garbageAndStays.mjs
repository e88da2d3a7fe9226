// Answers the ping with garbage, then ignores the end of its input and SIGTERM.
import { writeSync } from 'node:fs';
import { forever } from './answering.mjs';
process.on('SIGTERM', () => {});
writeSync(1, '[]\n');
forever();
