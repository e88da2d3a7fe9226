// Answers until it is asked for a listing. Has a child of its own, whose number is its first note.
import { spawn } from 'node:child_process';
import { forever, note, serve } from './answering.mjs';
const child = spawn('sleep', ['1000'], { stdio: 'ignore' });
note(String(child.pid));
process.on('SIGTERM', () => {});
setTimeout(() => serve({ readdir: () => (note('listing'), forever()) }), 0);
