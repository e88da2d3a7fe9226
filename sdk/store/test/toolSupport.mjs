// Runs the tool, in this process or in one of its own.
import { spawn, spawnSync } from 'node:child_process';
import path from 'node:path';
import { main } from '../src/tool/main.mjs';
import { packageFolder } from './engines.mjs';

export const program = path.join(packageFolder, 'bin/kemvi-store.mjs');

/**
 * What some work says and ends with.
 * @param {() => Promise<number>} work
 */
export async function said(work) {
    const { log, error } = console;
    const environment = { ...process.env };
    const out = [];
    const err = [];
    console.log = (...words) => out.push(words.join(' '));
    console.error = (...words) => err.push(words.join(' '));
    try {
        const code = await work();
        return { code, out: out.join('\n'), err: err.join('\n') };
    } finally {
        Object.assign(console, { log, error });
        for (const name of Object.keys(process.env)) if (!(name in environment)) delete process.env[name];
        Object.assign(process.env, environment);
    }
}

/** @param {...string} words */
export function tool(...words) {
    return said(() => main(words));
}

/** @param {...string} words */
export function toolProcess(...words) {
    const { status, stdout, stderr } = spawnSync(process.execPath, [program, ...words], { encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
    return { code: status, out: stdout, err: stderr };
}

/** Begins one, to be ended by force. @param {...string} words */
export function startTool(...words) {
    return spawn(process.execPath, [program, ...words], { stdio: 'ignore' });
}
