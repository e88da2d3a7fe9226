// Kemvi runs helpers with node; this one hands its streams to Python and ends as Python does.
import { spawn } from 'node:child_process';
import { fileURLToPath } from 'node:url';

const program = fileURLToPath(new URL('zip_helper.py', import.meta.url));
const child = spawn('python3', [program], { stdio: 'inherit' });
child.on('error', (error) => {
    console.error(`zip.mjs: python3 cannot be started: ${error.message}`);
    process.exitCode = 1;
});
child.on('exit', (status) => (process.exitCode = status ?? 1));
