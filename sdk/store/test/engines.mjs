// The engines that tests run on, each started once for a file of tests, and only if one needs it.
import { execFile, execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { parseAddress } from '../src/engine/address.mjs';
import { openEngine } from '../src/engine/engine.mjs';
import { migrate } from '../src/schema/migrate.mjs';
import { ensureTree } from '../src/schema/trees.mjs';

export const packageFolder = fileURLToPath(new URL('..', import.meta.url));
const script = path.join(packageFolder, '../../tests/servers/postgres.sh');

/** @type {(() => any)[]} */
const undoing = [];
after(async () => {
    for (const undo of undoing.reverse()) await undo();
});

/** Why there is no server to test with; false when there is one. */
export const noServer = fs.existsSync('/usr/lib/postgresql') ? false : 'no PostgreSQL is installed (package postgresql)';

/** A folder that is removed when the tests of the file are over. Servers run as another user, who has to reach it. */
export function scratchFolder() {
    const folder = fs.realpathSync(fs.mkdtempSync(path.join(os.tmpdir(), 'kemvi-store-')));
    fs.chmodSync(folder, 0o755);
    undoing.push(() => fs.rmSync(folder, { recursive: true, force: true }));
    return folder;
}

/** A private server. */
export class Server {
    /** @param {string[]} options of its start */
    constructor(...options) {
        this.folder = scratchFolder();
        this.run('start', ...options);
        undoing.push(() => this.run('stop'));
    }

    /** @param {string} verb @param {string[]} more */
    run(verb, ...more) {
        return execFileSync(script, [verb, this.folder, ...more], { encoding: 'utf8', stdio: ['ignore', 'pipe', 'inherit'] }).trim();
    }

    /** Starts it again, while this process goes on. */
    async begin() {
        await promisify(execFile)(script, ['start', this.folder]);
    }

    get url() {
        return this.run('url', 'socket');
    }

    /** What a helper is given for a connection over TCP, and the password that it finds elsewhere. */
    tcp(which = 'tcp') {
        const url = this.run('url', which);
        const [, password] = /** @type {RegExpExecArray} */ (/postgres:([^@]*)@/.exec(url));
        return { url: url.replace(`:${password}@`, '@'), password };
    }
}

/** How often a new file was committed; beneath that a version is random. */
export function commitsOf(/** @type {number} */ version) {
    return Math.floor(version / 2 ** 20);
}

/** @type {Map<string, Promise<{engine: import('../src/engine/engine.mjs').Engine, address: string}>>} */
const opened = new Map();

/** @param {'pglite' | 'postgres'} kind */
export function engineOf(kind) {
    const there = opened.get(kind) ?? open(kind);
    opened.set(kind, there);
    return there;
}

/** @param {'pglite' | 'postgres'} kind */
async function open(kind) {
    const address = kind === 'pglite' ? `pglite:${path.join(scratchFolder(), 'store')}` : new Server().url;
    const engine = await openEngine(parseAddress(address), { reconnect: 10 });
    undoing.push(() => engine.close());
    await migrate(engine);
    return { engine, address };
}

/**
 * One test for each engine, with a tree of its own.
 * @param {string} name
 * @param {(given: {engine: import('../src/engine/engine.mjs').Engine, tree: import('../src/schema/trees.mjs').Tree,
 *     t: import('node:test').TestContext}) => Promise<void>} body
 */
export function onEachEngine(name, body) {
    for (const kind of /** @type {const} */ (['pglite', 'postgres'])) {
        test(`${kind}: ${name}`, { skip: kind === 'postgres' && noServer }, async (t) => {
            const { engine } = await engineOf(kind);
            await body({ engine, tree: await ensureTree(engine, { tree: name.slice(0, 100), contents: 'database' }), t });
        });
    }
}
