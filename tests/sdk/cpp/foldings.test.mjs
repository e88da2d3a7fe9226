// The helpers `local` for node and in C++ take the same characters for ASCII: what the table in C++ says is what node's guard does.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

const folder = path.join(path.dirname(new URL(import.meta.url).pathname), '../../../sdk/cpp/local');
const table = fs.readFileSync(path.join(folder, 'AsciiFoldings.h'), 'utf8');

/** Character to text, of every character in a table. */
function charactersOf(source) {
    const characters = new Map();
    for (const [, first, last, text] of source.matchAll(/\{0x(\w+), 0x(\w+), ("(?:[^"\\]|\\.)*")\}/g)) {
        const begin = JSON.parse(text);
        for (let code = parseInt(first, 16); code <= parseInt(last, 16); code++) {
            const further = code - parseInt(first, 16);
            characters.set(code, begin === '' ? '' : String.fromCharCode(begin.charCodeAt(0) + further) + begin.slice(1));
        }
    }
    return characters;
}

test('the table is the one that node makes', () => {
    const version = Number(/with Unicode (\d+\.\d+)/.exec(table)?.[1]);
    const made = execFileSync(process.execPath, [path.join(folder, 'foldings.mjs')], { encoding: 'utf8' });
    const here = Number(process.versions.unicode);
    if (here === version) return assert.equal(table, made, 'make it anew: node foldings.mjs > AsciiFoldings.h');
    // Versions of Unicode only add characters: an older one has none that the other lacks.
    const [fewer, more] = (here < version ? [made, table] : [table, made]).map(charactersOf);
    assert.ok(fewer.size > 1000);
    for (const [code, text] of fewer) assert.equal(more.get(code), text, `U+${code.toString(16)}`);
});
