// Hands the standard streams of this process to a program in another language.
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

/** @type {NodeJS.Signals[]} */
const passedOn = ['SIGTERM', 'SIGINT', 'SIGHUP', 'SIGQUIT', 'SIGUSR1', 'SIGUSR2', 'SIGCONT'];

/**
 * Becomes the program where node or the kemvi command can do that. Elsewhere starts it, hands on signals, and ends as it ends; it finds the
 * number of this process in KEMVI_LAUNCHER, and should end with it. Nothing is copied in between: the program reads and
 * writes this process's own standard streams.
 * @param {string[]} command program and arguments; a program without a slash is looked for along PATH
 * @throws {Error} when there is no such program
 */
export function becomeProgram(command) {
    const program = findProgram(command[0]);
    const execve = /** @type {any} */ (process).execve;
    if (typeof execve === 'function') {
        execve.call(process, program, [program, ...command.slice(1)], process.env);
        return;
    }
    loadBecome(program, command);
    const environment = { ...process.env, KEMVI_LAUNCHER: String(process.pid) };
    /** @type {import('node:child_process').ChildProcess} */
    let child; // is there before the first signal is handled
    for (const signal of passedOn) process.on(signal, () => child.kill(signal));
    child = spawn(program, command.slice(1), { env: environment, stdio: 'inherit' });
    child.on('error', (error) => endWith(`${program} cannot be started: ${error.message}`));
    child.on('exit', (status, signal) => {
        if (signal === null) process.exit(status ?? 1);
        for (const each of passedOn) process.removeAllListeners(each);
        process.kill(process.pid, signal);
    });
    leaveStreams();
}

/**
 * Becomes the program with the object that the kemvi command names, where it does; a node without `process.execve` can do
 * nothing of that kind itself. Returns where that is not to be had.
 * @param {string} program
 * @param {string[]} command
 */
function loadBecome(program, command) {
    const object = process.env.KEMVI_BECOME;
    if (!object) return;
    const parts = [program, ...command.slice(1)];
    parts.forEach((part, number) => (process.env[`KEMVI_BECOME_${number}`] = part));
    try {
        process.dlopen({ exports: {} }, object);
    } catch {
        // It does not return if it succeeds.
    }
}

/**
 * What `helperCommand` of a mount configuration names. A host whose helpers may not read the configuration tells it in
 * KEMVI_COMMAND, which is not passed on.
 * @param {NodeJS.ProcessEnv} environment
 * @returns {string[]} program and arguments
 * @throws {Error} telling what is missing
 */
export function configuredCommand(environment) {
    const { KEMVI_SOURCE: source, KEMVI_COMMAND: told } = environment;
    delete environment.KEMVI_COMMAND;
    if (told) return checkedCommand(JSON.parse(told), 'KEMVI_COMMAND');
    if (!source) throw new Error('KEMVI_SOURCE is not set; expected the folder with mount-config.json');
    const file = path.join(source, 'mount-config.json');
    return checkedCommand(JSON.parse(String(fs.readFileSync(file)))?.helperCommand, `${file}: helperCommand`);
}

/**
 * @param {unknown} command
 * @param {string} name
 * @returns {string[]}
 */
function checkedCommand(command, name) {
    const isCommand = Array.isArray(command) && command.length > 0 && command[0] !== '' &&
        command.every((part) => typeof part === 'string' && !part.includes('\0'));
    if (isCommand) return command;
    throw new Error(`${name} must be an array of strings: the program, then its arguments`);
}

/** @param {string} text */
export function endWith(text) {
    fs.writeSync(2, `kemvi-helper: ${text}\n`);
    process.exit(1);
}

/** @param {string} name */
function findProgram(name) {
    if (name.includes('/')) return isProgram(name);
    for (const folder of (process.env.PATH ?? '/usr/bin:/bin').split(':')) {
        try {
            return isProgram(path.join(folder || '.', name));
        } catch {
            // not in this one
        }
    }
    throw new Error(`${name} is not in PATH`);
}

/** @param {string} file */
function isProgram(file) {
    fs.accessSync(file, fs.constants.X_OK);
    if (!fs.statSync(file).isFile()) throw new Error(`${file} is no program`);
    return file;
}

/** A stream that the program closes is to be closed for its other side too. */
function leaveStreams() {
    for (const descriptor of [0, 1]) {
        fs.closeSync(descriptor);
        fs.openSync('/dev/null', 'r+'); // takes the number that has just become free
    }
}
