// Drives a helper the way Kemvi does: one request line, one answer line.
import { execFileSync, spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const packageFolder = fileURLToPath(new URL('..', import.meta.url));

/**
 * A folder that is removed when the test is over.
 * @param {import('node:test').TestContext} t
 */
export function temporaryFolder(t) {
    const folder = fs.realpathSync(fs.mkdtempSync(path.join(os.tmpdir(), 'kemvi-helper-')));
    t.after(() => fs.rmSync(folder, { recursive: true, force: true }));
    return folder;
}

const patience = 30_000; // milliseconds; only a broken helper needs it

export class Driver {
    /**
     * @param {import('node:test').TestContext} t the helper is ended with the test
     * @param {string[]} command program and arguments
     * @param {Record<string, string>} [environment]
     */
    constructor(t, command, environment = {}) {
        this.child = spawn(command[0], command.slice(1), {
            env: { ...process.env, ...environment },
            stdio: ['pipe', 'pipe', 'pipe'],
        });
        this.stderr = '';
        this.child.stderr.setEncoding('utf8').on('data', (text) => {
            this.stderr += text;
            this.wake();
        });
        this.received = Buffer.alloc(0);
        this.ended = false;
        this.wake = () => {};
        this.child.stdin.on('error', () => {}); // a helper that is gone shows in its missing answer
        this.child.stdout.on('data', (chunk) => {
            this.received = Buffer.concat([this.received, chunk]);
            this.wake();
        });
        this.child.stdout.on('end', () => {
            this.ended = true;
            this.wake();
        });
        this.exit = new Promise((resolve) => this.child.on('close', (code, signal) => resolve(signal ?? code)));
        this.lastId = 0;
        t.after(() => this.child.kill('SIGKILL'));
    }

    /** @param {string | Buffer} bytes */
    send(bytes) {
        this.child.stdin.write(bytes);
    }

    /**
     * Waits until the helper has written something or has ended.
     * @param {string} awaited for the message when that takes too long
     */
    async something_(awaited) {
        let timer;
        const late = () => new Error(`no ${awaited} within ${patience} ms; the helper said: ${this.stderr}`);
        await new Promise((resolve, reject) => {
            this.wake = () => resolve(undefined);
            timer = setTimeout(() => reject(late()), patience);
        });
        clearTimeout(timer);
    }

    /** The next line that the helper wrote, without its line feed. */
    async line() {
        for (;;) {
            const end = this.received.indexOf(10);
            if (end >= 0) {
                const line = this.received.subarray(0, end).toString();
                this.received = this.received.subarray(end + 1);
                return line;
            }
            if (this.ended) throw new Error(`the helper closed its output; it said: ${this.stderr}`);
            await this.something_('answer');
        }
    }

    /**
     * Waits until the helper has said something on standard error.
     * @param {RegExp} pattern
     */
    async said(pattern) {
        while (!pattern.test(this.stderr)) {
            if (this.ended) throw new Error(`the helper ended without saying ${pattern}, it said: ${this.stderr}`);
            await this.something_(String(pattern));
        }
    }

    /**
     * The line of a request, every slash escaped.
     * @param {string} id
     * @param {string} op
     * @param {object} fields
     */
    static requestLine(id, op, fields) {
        return JSON.stringify({ id, op, ...fields }).replaceAll('/', '\\/') + '\n';
    }

    /** @param {string} op @param {object} [fields] @returns {Promise<any>} the whole answer */
    async request(op, fields = {}) {
        const id = String(++this.lastId);
        this.send(Driver.requestLine(id, op, fields));
        const answer = JSON.parse(await this.line());
        if (answer.id !== id) throw new Error(`answer to ${answer.id} instead of ${id}`);
        return answer;
    }

    /** @returns {Promise<any>} the result (or the bytes) of a request that must succeed */
    async ok(/** @type {string} */ op, fields = {}) {
        const answer = await this.request(op, fields);
        if (answer.ok !== true) throw new Error(`${op} failed: ${JSON.stringify(answer)}`);
        return answer.dataBase64 === undefined ? answer.result : Buffer.from(answer.dataBase64, 'base64');
    }

    /** @returns {Promise<string | undefined>} the code of a request that must fail */
    async code(/** @type {string} */ op, fields = {}) {
        const answer = await this.request(op, fields);
        if (answer.ok !== false || typeof answer.error?.message !== 'string' || answer.error.message === '') {
            throw new Error(`${op} should fail: ${JSON.stringify(answer)}`);
        }
        return answer.error.code;
    }

    /**
     * Ends the input.
     * @returns {Promise<number | string>} exit status or signal
     */
    async end() {
        this.child.stdin.end();
        return this.exit;
    }
}

/** The same command with pipes as its streams, as a mount starts it; spawn alone would give it sockets. */
export function betweenPipes(command) {
    const pipeline = 'cat | { "$0" "$@"; echo "exit status $?" >&2; } | cat >&3';
    return ['sh', '-c', `exec 3>&1; { ${pipeline}; } 2>&1 | cat >&2`, ...command];
}

/** @param {string} name of a script in test/servers, with its arguments */
export function serverCommand(name, ...values) {
    return [process.execPath, path.join(packageFolder, 'test', 'servers', name + '.mjs'), ...values];
}

/**
 * @param {string} name of a helper that ships with the package; KEMVI_TEST_LOCAL names a program that the tests of `local`
 *     hold to the same promises
 */
export function helperCommand(name) {
    if (name === 'local' && process.env.KEMVI_TEST_LOCAL) return [process.env.KEMVI_TEST_LOCAL];
    return [process.execPath, path.join(packageFolder, 'helpers', name + '.mjs')];
}

const npmEnvironment = { ...process.env, npm_config_audit: 'false', npm_config_fund: 'false', npm_config_update_notifier: 'false' };

/** Why npm cannot be used, or false. */
export const npmMissing = spawnSync('npm', ['--version']).status !== 0 && 'npm is not installed';

/** Why nothing can be had from npm's registry, or false. */
export function registryMissing() {
    const asked = spawnSync('npm', ['view', 'typescript', 'version', '--fetch-retries=0', '--fetch-timeout=10000'], {
        env: npmEnvironment,
    });
    return asked.status !== 0 && "npm's registry cannot be reached";
}

/**
 * @param {string} folder where npm is to work
 * @param {string[]} values
 * @returns {string} what it printed
 */
export function runNpm(folder, values) {
    return execFileSync('npm', values, { cwd: folder, encoding: 'utf8', env: npmEnvironment, stdio: ['ignore', 'pipe', 'pipe'] });
}
