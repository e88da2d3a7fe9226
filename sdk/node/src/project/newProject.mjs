// A project for an author of a file system, made from the templates.
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

/** @typedef {'javascript' | 'typescript'} Language */

export class ProjectError extends Error {
    /**
     * @param {string} message
     * @param {number} [status] of the process
     */
    constructor(message, status = 1) {
        super(message);
        this.status = status;
    }
}

const kit = fileURLToPath(new URL('../..', import.meta.url));
const possibleName = /^[a-z0-9][a-z0-9_-]{0,99}$/;
// Not to be had: npm refuses a package that depends on one of its own name, and its own folder.
const taken = new Set(['kemvi-helper', 'node_modules']);

/**
 * Makes the project and installs the kit into it, which it then holds itself, packed: it can be moved and given away.
 * @param {string} folder new, or empty; its name is that of the project
 * @param {string} language 'javascript' or 'typescript'
 * @returns {string} what is to be said
 */
export function makeProject(folder, language) {
    const name = path.basename(path.resolve(folder));
    checkName(folder, name);
    if (language === 'typescript') checkTypeScript();
    const npm = npmVersion();
    if (npm === undefined) {
        throw new ProjectError('npm is not installed, and a project is installed by it (on Debian: apt install npm)');
    }
    const isNew = takeFolder(folder);
    try {
        const packed = pack(folder);
        writeFiles(folder, name, language, packed);
    } catch (error) {
        if (isNew) fs.rmSync(folder, { recursive: true, force: true });
        throw isSystemError(error) ? new ProjectError(`${folder}: cannot be made: ${error.message}`) : error;
    }
    return closing(folder, name, language, install(folder, language));
}

/**
 * @param {string} folder
 * @param {string} name
 */
function checkName(folder, name) {
    if (!possibleName.test(name) || taken.has(name)) {
        const why = taken.has(name) ? 'that name is taken' : 'a name has small letters, digits, - and _, a letter or digit first';
        throw new ProjectError(`${folder}: ${why}, as in my-fs`, 2);
    }
}

function checkTypeScript() {
    const { features, version } = /** @type {{features: {typescript?: unknown}, version: string}} */ (/** @type {any} */ (process));
    if (!features.typescript) {
        throw new ProjectError(`--typescript: this node (${version}) does not run TypeScript; take node 22.18 or later, ` +
            'or leave --typescript out');
    }
}

/** @returns {string | undefined} */
function npmVersion() {
    const { status, stdout } = spawnSync('npm', ['--version'], { encoding: 'utf8' });
    return status === 0 ? stdout.trim() : undefined;
}

/**
 * @param {string} folder
 * @returns {boolean} whether it did not exist before
 */
function takeFolder(folder) {
    try {
        return fs.mkdirSync(folder, { recursive: true }) !== undefined || refuseUsed(folder);
    } catch (error) {
        if (!isSystemError(error)) throw error;
        const why = error.code === 'EEXIST' || error.code === 'ENOTDIR' ? 'is in the way: it is no folder' : error.message;
        throw new ProjectError(`${folder}: ${why}`);
    }
}

/**
 * @param {string} folder
 * @returns {false}
 */
function refuseUsed(folder) {
    if (fs.readdirSync(folder).length > 0) {
        throw new ProjectError(`${folder}: exists already and is not empty; give another name`);
    }
    return false;
}

/**
 * @param {unknown} error
 * @returns {error is Error & {code: string, syscall: string}}
 */
function isSystemError(error) {
    return error instanceof Error && typeof (/** @type {any} */ (error).syscall) === 'string';
}

/**
 * Puts this package into the project, as a file that npm installs.
 * @param {string} folder
 * @returns {string} its name
 */
function pack(folder) {
    const { status, stdout, stderr } = npm(folder, ['pack', '--silent', kit]);
    if (status !== 0) throw new ProjectError(`npm pack failed:\n${stderr}`);
    return String(stdout.trim().split('\n').pop());
}

/**
 * @param {string} folder
 * @param {string} name
 * @param {string} language
 * @param {string} packed
 */
function writeFiles(folder, name, language, packed) {
    const values = /** @type {Record<string, string>} */ ({ NAME: name, KIT: packed, SUFFIX: language === 'typescript' ? 'ts' : 'mjs' });
    for (const templates of ['both', language]) {
        const from = path.join(kit, 'templates', templates);
        for (const template of fs.readdirSync(from)) {
            const text = fs.readFileSync(path.join(from, template), 'utf8');
            fs.writeFileSync(path.join(folder, fileName(template, name)), text.replace(/\{\{([A-Z]+)\}\}/g, (_, key) => values[key]));
        }
    }
}

/**
 * What a template becomes. npm leaves .gitignore out of packages, and takes every package.json for one of its own.
 * @param {string} template
 * @param {string} name
 */
function fileName(template, name) {
    if (template === 'gitignore') return '.gitignore';
    return template.replace(/^helper(?=\.)/, name).replace(/^project\.json$/, 'package.json');
}

/**
 * @param {string} folder
 * @param {string} language
 * @returns {string} what could not be installed, or nothing
 */
function install(folder, language) {
    const { status, stderr } = npm(folder, ['install', ...(language === 'typescript' ? [] : ['--offline'])]);
    if (status === 0) return '';
    // The types are fetched; the kit itself is here.
    if (language === 'typescript') npm(folder, ['install', '--offline', '--omit=dev']);
    return stderr;
}

/**
 * @param {string} folder
 * @param {string[]} values
 */
function npm(folder, values) {
    const quiet = ['--no-audit', '--no-fund', '--no-update-notifier', '--loglevel=error'];
    return spawnSync('npm', [...values, ...quiet], { cwd: folder, encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
}

/**
 * @param {string} folder
 * @param {string} name
 * @param {string} language
 * @param {string} failure
 */
function closing(folder, name, language, failure) {
    const suffix = language === 'typescript' ? 'ts' : 'mjs';
    const missing = spawnSync('kemvi', ['--version']).status !== 0;
    return `Made ${name}. fileSystem.${suffix} is what it serves: make it yours.
${failure === '' ? '' : `\nnpm install failed; run it again in ${folder}:\n${failure}`}
Next:
    cd ${/^[\w./-]+$/.test(folder) ? folder : `'${folder.replaceAll("'", "'\\''")}'`}
    npm test        # the file system by itself
    npm start       # mounted on mnt until Ctrl-C, and started anew with each change that you save
    ls -l mnt       # in another terminal
${missing ? '\nnpm start needs the command kemvi, which is not in PATH yet.\n' : ''}`;
}
