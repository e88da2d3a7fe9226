// Makes the declarations that ship, of the comments in the sources, with tsc 4.8: `npm run types`.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const packageFolder = fileURLToPath(new URL('..', import.meta.url));

/**
 * Each declaration twice: for modules and, with another suffix, for programs that use `require`. Those that need node's own
 * types say so, so that an author who lacks them is told their name, and one who has them need not list them.
 * @param {string} folder where they are put
 */
export function makeDeclarations(folder) {
    execFileSync('tsc', ['-p', 'tsconfig.types.json', '--outDir', folder], { cwd: packageFolder, stdio: 'inherit' });
    for (const file of declarations(folder)) {
        const text = fs.readFileSync(file, 'utf8');
        const whole = /\b(?:Buffer|NodeJS|AbortSignal)\b/.test(text) ? `/// <reference types="node" />\n${text}` : text;
        fs.writeFileSync(file, whole);
        fs.writeFileSync(file.replace(/mts$/, 'cts'), whole.replace(/\.mjs(?=['"])/g, '.cjs'));
    }
}

/** @param {string} folder @returns {string[]} */
function declarations(folder) {
    const members = fs.readdirSync(folder, { withFileTypes: true });
    return members.flatMap((member) => {
        const file = path.join(folder, member.name);
        return member.isDirectory() ? declarations(file) : file.endsWith('.d.mts') ? [file] : [];
    });
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
    const folder = path.join(packageFolder, 'types');
    fs.rmSync(folder, { recursive: true, force: true });
    makeDeclarations(folder);
}
