// Which store and tree a command is about: a directory that `kemvi init --store` has made, or an address.
import fs from 'node:fs';
import path from 'node:path';
import { readSettings, SettingError } from '../settings.mjs';
import { ToolError, UsageError } from './failures.mjs';

/** @typedef {import('../settings.mjs').Settings} Settings */
/** @typedef {Settings & {source: string, saysContents: boolean}} Place `source` as it was given */

const seconds = '10'; // for which a lost engine is waited for, where nothing else is said

/**
 * @param {string} source
 * @param {{tree?: string, contents?: string}} options
 * @returns {Place}
 */
export function readPlace(source, options) {
    return /^(pglite:|[a-z0-9+]+:\/\/)/i.test(source) ? ofAddress(source, options) : ofDirectory(source, options);
}

/** @param {string} source @param {{tree?: string, contents?: string}} options */
function ofAddress(source, { tree, contents }) {
    const shown = /** @type {Record<string, string>} */ ({
        KEMVI_STORE: 'SOURCE', KEMVI_STORE_TREE: '--tree', KEMVI_STORE_CONTENTS: '--contents',
    });
    const store = source.startsWith('pglite:') ? `pglite:${path.resolve(embeddedFolder(source))}` : source;
    const environment = {
        KEMVI_STORE: store,
        KEMVI_STORE_TREE: tree,
        KEMVI_STORE_CONTENTS: contents,
        KEMVI_STORE_RECONNECT: process.env.KEMVI_STORE_RECONNECT ?? seconds,
    };
    const settings = read(environment, (message) => new UsageError(message.replace(/^KEMVI_STORE\w*/, (name) => shown[name] ?? name)));
    return { ...settings, source, saysContents: contents !== undefined };
}

/** @param {string} source */
function embeddedFolder(source) {
    const folder = source.slice('pglite:'.length);
    if (folder === '') throw new UsageError('SOURCE: "pglite:" must name a folder, such as pglite:/srv/tree');
    return folder;
}

/** @param {string} source @param {{tree?: string, contents?: string}} options */
function ofDirectory(source, options) {
    for (const name of /** @type {const} */ (['tree', 'contents'])) {
        if (options[name] === undefined) continue;
        throw new UsageError(`--${name}: ${source} says which ${name === 'tree' ? 'tree it is' : 'contents it has'}; ` +
            'give the option with the address of the store (pglite:... or postgres://...) as SOURCE');
    }
    const file = path.join(source, 'mount-config.json');
    const told = { ...helperEnvironment(file, source), ...secrets(path.join(source, 'mount-secrets.env')) };
    if (told.KEMVI_STORE === undefined) {
        throw new ToolError(`${file}: is no configuration of a store; expected one that "kemvi init ${source} --store ..." has made`);
    }
    // The engines look for their own settings and credentials there.
    Object.assign(process.env, told);
    const settings = read({ KEMVI_STORE_RECONNECT: seconds, ...told }, (message) => new ToolError(`${file}: ${message}`));
    return { ...settings, source, saysContents: told.KEMVI_STORE_CONTENTS !== undefined };
}

/**
 * @param {Record<string, string | undefined>} environment
 * @param {(message: string) => Error} refusal
 */
function read(environment, refusal) {
    try {
        return readSettings(environment);
    } catch (error) {
        throw error instanceof SettingError ? refusal(error.message) : error;
    }
}

/** @param {string} file @param {string} source @returns {Record<string, string>} */
function helperEnvironment(file, source) {
    let told;
    try {
        told = JSON.parse(fs.readFileSync(file, 'utf8')).helperEnvironment ?? {};
    } catch (error) {
        const { code, message } = /** @type {any} */ (error);
        if (code === 'ENOENT' || code === 'ENOTDIR') {
            throw new ToolError(`SOURCE: "${source}" has no mount-config.json; expected a directory that "kemvi init --store" has made, ` +
                'or an address: pglite:DIR or postgres://USER@HOST/DATABASE');
        }
        throw new ToolError(`${file}: cannot be read: ${message}`);
    }
    if (typeof told !== 'object' || !Object.values(told).every((each) => typeof each === 'string')) {
        throw new ToolError(`${file}: "helperEnvironment" must be an object whose values are strings`);
    }
    return told;
}

/**
 * Lines NAME=VALUE; others are not shown, since they may be secrets.
 * @param {string} file
 */
function secrets(file) {
    /** @type {Record<string, string>} */
    const found = {};
    for (const [at, line] of secretLines(file).entries()) {
        if (line === '' || line.startsWith('#')) continue;
        const match = /^([A-Za-z_][A-Za-z0-9_]*)=(.*)$/s.exec(line);
        if (!match) throw new ToolError(`${file}: line ${at + 1}: expected NAME=VALUE, "#" and a remark, or nothing`);
        found[match[1]] = match[2];
    }
    return found;
}

/** @param {string} file */
function secretLines(file) {
    let descriptor;
    try {
        descriptor = fs.openSync(file, 'r');
    } catch (error) {
        if (/** @type {any} */ (error).code === 'ENOENT') return [];
        throw new ToolError(`${file}: cannot be read: ${/** @type {Error} */ (error).message}`);
    }
    try {
        if ((fs.fstatSync(descriptor).mode & 0o077) !== 0) {
            throw new ToolError(`${file}: is open to others, and holds secrets; run: chmod 600 ${file}`);
        }
        return fs.readFileSync(descriptor, 'utf8').split('\n');
    } finally {
        fs.closeSync(descriptor);
    }
}
