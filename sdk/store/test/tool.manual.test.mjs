// docs/kemvi-store.1 names every command and option that the tool knows, and no other; its examples are understood.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { parseCommand } from '../src/tool/arguments.mjs';
import { ExitCode } from '../src/tool/failures.mjs';
import { packageFolder } from './engines.mjs';

const page = fs.readFileSync(path.join(packageFolder, '../../docs/kemvi-store.1'), 'utf8').replace(/\\f[BIR]/g, '').replace(/\\-/g, '-');
const folder = path.join(packageFolder, 'src/tool/commands');
const files = fs.readdirSync(folder);
/** @type {import('../src/tool/arguments.mjs').Command[]} */
const commands = (await Promise.all(files.map((file) => import(path.join(folder, file))))).map(({ command }) => command);

const synopsis = section('SYNOPSIS').split('\n');

/** @param {string} heading */
function section(heading) {
    const found = page.split(/^\.S[HS] /m).find((each) => each.startsWith(`${heading}\n`));
    assert.ok(found, `no ${heading}`);
    return found;
}

/** @param {string} text */
function optionsIn(text) {
    return [...text.matchAll(/(?<![\w-])--([a-z][a-z-]*)/g)].map(([, name]) => name);
}

test('there are commands, and the page has no others', () => {
    const sections = [...page.matchAll(/^\.SS kemvi-store (\w+)$/gm)].map(([, name]) => name);
    assert.ok(sections.length > 5);
    assert.deepEqual([...sections].sort(), commands.map(({ name }) => name).sort());
});

for (const { name, takes, options } of commands) {
    test(`${name}: its synopsis has its words and options, and its section tells of them`, () => {
        const line = synopsis.find((each) => each.startsWith(`kemvi-store ${name} `)) ?? '';
        const words = takes.map(({ word, isOptional }) => (isOptional ? `[${word}]` : word)).join(' ');
        assert.ok(line.startsWith(`kemvi-store ${name} ${words} [`), line);
        assert.deepEqual(optionsIn(line).sort(), Object.keys(options).sort());

        const told = section(`kemvi-store ${name}`) + (options.tree ? section('DESCRIPTION') : '');
        for (const [option, { value }] of Object.entries(options)) {
            assert.match(told, new RegExp(`^\\.BI? --${option}${value ? `( ${value}| " ${value}")` : ''}$`, 'm'));
            assert.ok(line.includes(`[--${option}${value ? ` ${value}` : ''}`), line);
        }
        const headed = [...section(`kemvi-store ${name}`).matchAll(/^\.BI? --([a-z-]+)/gm)].map(([, each]) => each);
        assert.deepEqual(headed.filter((each) => !(each in options)), []);
    });
}

test('the exit codes are those of the tool', () => {
    const codes = [...section('EXIT STATUS').matchAll(/^(\d+)\t/gm)].map(([, code]) => Number(code));
    assert.deepEqual(codes, Object.values(ExitCode));
});

test('the examples are understood', () => {
    const examples = section('EXAMPLES').match(/^ {4}kemvi-store .*$/gm) ?? [];
    assert.ok(examples.length > 3);
    for (const example of examples) {
        const [, name, ...words] = example.trim().split(' ');
        const command = commands.find((each) => each.name === name);
        assert.ok(command, example);
        assert.ok(parseCommand(command, words).words.SOURCE, example);
    }
});
