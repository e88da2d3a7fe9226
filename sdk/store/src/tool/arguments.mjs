// The words of a command: what it takes, and what is said of others.
import { parseArgs } from 'node:util';
import { UsageError } from './failures.mjs';

/** @typedef {{value?: string, help: string}} Option `value`: what follows it, in capitals; none for one that is only there or not */
/** @typedef {{word: string, isOptional?: boolean}} Taken */
/** @typedef {{words: Record<string, string | undefined>, options: Record<string, any>}} Given both by name */
/**
 * @typedef {object} Command
 * @property {string} name
 * @property {string} summary
 * @property {string} about
 * @property {Taken[]} takes in their order
 * @property {Record<string, Option>} options
 * @property {(given: Given) => Promise<number>} run gives the exit code
 */

/** @type {Record<string, Option>} */
export const treeOption = { tree: { value: 'NAME', help: 'which tree, where SOURCE is the address of a store (default: main)' } };

/** @param {Command} command @param {string[]} args @returns {Given} */
export function parseCommand(command, args) {
    /** @type {Record<string, any>} */
    const types = {};
    for (const [name, { value }] of Object.entries(command.options)) types[name] = { type: value ? 'string' : 'boolean' };
    const { tokens } = parseArgs({ args, options: types, strict: false, allowPositionals: true, tokens: true });
    /** @type {Record<string, any>} */
    const options = {};
    const words = [];
    for (const token of tokens) {
        if (token.kind === 'positional') words.push(token.value);
        if (token.kind === 'option') options[token.name] = optionValue(command, /** @type {any} */ (token));
    }
    return { words: byName(command, words), options };
}

/**
 * @param {Command} command
 * @param {{name: string, rawName: string, value?: string, inlineValue?: boolean}} token
 */
function optionValue({ name: command, options }, { name, rawName, value, inlineValue }) {
    const option = Object.hasOwn(options, name) && rawName.startsWith('--') ? options[name] : undefined;
    if (option === undefined) {
        const there = Object.entries(options).map(([each, { value: taken }]) => `--${each}${taken ? ` ${taken}` : ''}`);
        const known = there.length > 0 ? `${command} takes ${there.join(', ')}` : `${command} takes none`;
        throw new UsageError(`${rawName}: there is no such option; ${known}`);
    }
    if (option.value === undefined) {
        if (value !== undefined) throw new UsageError(`--${name}: takes no value, and has "${value}"`);
        return true;
    }
    if (value === undefined || value === '' || (value.startsWith('-') && !inlineValue)) {
        throw new UsageError(`--${name}: expected --${name} ${option.value}`);
    }
    return value;
}

/** @param {Command} command @param {string[]} words */
function byName({ name, takes }, words) {
    const usage = takes.map(({ word, isOptional }) => (isOptional ? `[${word}]` : word)).join(' ');
    const needed = takes.filter(({ isOptional }) => !isOptional);
    if (words.length > takes.length) {
        throw new UsageError(`"${words[takes.length]}" is one word too many; expected kemvi-store ${name} ${usage}`);
    }
    if (words.length < needed.length) {
        throw new UsageError(`${needed[words.length].word} is missing; expected kemvi-store ${name} ${usage}`);
    }
    // What may be left out stands where it does, also before something that may not.
    let spare = words.length - needed.length;
    const present = takes.filter(({ isOptional }) => !isOptional || spare-- > 0);
    return Object.fromEntries(present.map(({ word }, at) => [word, words[at]]));
}
