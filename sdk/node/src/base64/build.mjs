// Makes base64Module.mjs of base64.c: node src/base64/build.mjs [--print]. Needs clang and wasm-ld, version 14.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));

/** @returns {string} the text of base64Module.mjs */
export function moduleText() {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kemvi-base64-'));
    try {
        const file = path.join(folder, 'base64.wasm');
        const linkerFlags = ['--no-entry', '--import-memory', '--strip-all', '-z,stack-size=1024'];
        execFileSync('clang-14', [
            '--target=wasm32', '-O3', '-msimd128', '-nostdlib', '-ffreestanding', '-Wall', '-Wextra', '-Werror',
            ...linkerFlags.map((flag) => `-Wl,${flag}`), '-o', file, path.join(here, 'base64.c'),
        ]);
        const lines = fs.readFileSync(file).toString('base64').match(/.{1,112}/g) ?? [];
        return (
            '// Made by build.mjs of base64.c; do not edit.\nexport const base64Module = [\n' +
            lines.map((line) => `    '${line}',\n`).join('') + "].join('');\n"
        );
    } finally {
        fs.rmSync(folder, { recursive: true });
    }
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
    if (process.argv[2] === '--print') process.stdout.write(moduleText());
    else fs.writeFileSync(path.join(here, 'base64Module.mjs'), moduleText());
}
