// The tool: which command, with what, and what it ends with.
import fs from 'node:fs';
import { parseCommand } from './arguments.mjs';
import { adviceFor, ExitCode, ToolError, UsageError } from './failures.mjs';
import { commandHelp, toolHelp } from './help.mjs';

/** @typedef {import('./arguments.mjs').Command} Command */

const load = {
    create: () => import('./commands/create.mjs'),
    list: () => import('./commands/list.mjs'),
    stats: () => import('./commands/stats.mjs'),
    fsck: () => import('./commands/fsck.mjs'),
    gc: () => import('./commands/gc.mjs'),
    import: () => import('./commands/import.mjs'),
    export: () => import('./commands/export.mjs'),
    drop: () => import('./commands/drop.mjs'),
};

/**
 * @param {string[]} words of the command line
 * @returns {Promise<number>} the exit code
 */
export async function main([name, ...words]) {
    try {
        if (name === undefined) throw new UsageError(`expected a command: ${Object.keys(load).join(', ')}; or --help`);
        if (name === '--version') return print(version());
        if (name === '--help' || name === 'help') return print(toolHelp(await allCommands()));
        if (!(name in load)) throw new UsageError(`there is no command "${name}"; there are ${Object.keys(load).join(', ')}`);
        const { command } = await load[/** @type {keyof typeof load} */ (name)]();
        if (words.includes('--help')) return print(commandHelp(command));
        return await command.run(parseCommand(command, words));
    } catch (error) {
        return report(/** @type {Error} */ (error));
    }
}

/** @returns {Promise<Command[]>} */
async function allCommands() {
    return (await Promise.all(Object.values(load).map((each) => each()))).map(({ command }) => command);
}

/** @param {string} text */
function print(text) {
    console.log(text);
    return ExitCode.success;
}

/** @param {Error} error */
function report(error) {
    console.error(`kemvi-store: ${error.message}${adviceFor(error)}`);
    const isForeseen = error instanceof ToolError || error.name === 'PosixError' || /** @type {any} */ (error).code !== undefined;
    if (!isForeseen && process.env.KEMVI_STORE_STACK) console.error(error.stack);
    return ExitCode.failure;
}

function version() {
    return JSON.parse(fs.readFileSync(new URL('../../package.json', import.meta.url), 'utf8')).version;
}
