// The command of this package: `npx kemvi-helper new my-fs`.
import fs from 'node:fs';
import { makeProject, ProjectError } from './newProject.mjs';

const usage = `Usage: npx kemvi-helper new NAME [--typescript]

Makes a project in the new folder NAME: a helper that serves some files, its test, and what mounts it.

  --typescript   in TypeScript; needs node 22.18 or later, which runs it as it is
`;

/**
 * @param {string[]} values of the command line
 * @returns {number} the exit status
 */
export function run(values) {
    try {
        if (values.length === 0 || values.some((value) => value === '--help' || value === '-h')) {
            say(1, usage);
            return values.length === 0 ? 2 : 0;
        }
        const { folder, language } = parse(values);
        say(1, makeProject(folder, language));
        return 0;
    } catch (error) {
        if (!(error instanceof ProjectError)) throw error;
        say(2, `kemvi-helper: ${error.message}\n`);
        return error.status;
    }
}

/** @param {string[]} values */
function parse([command, ...values]) {
    if (command !== 'new') throw new ProjectError(`${command}: there is no such command; see npx kemvi-helper --help`, 2);
    const options = values.filter((value) => value.startsWith('-'));
    const unknown = options.find((option) => option !== '--typescript');
    if (unknown !== undefined) throw new ProjectError(`${unknown}: there is no such option; see npx kemvi-helper --help`, 2);
    const folders = values.filter((value) => !value.startsWith('-'));
    if (folders.length !== 1) throw new ProjectError('new takes one name, as in npx kemvi-helper new my-fs', 2);
    return { folder: folders[0], language: options.length > 0 ? 'typescript' : 'javascript' };
}

/**
 * @param {number} descriptor
 * @param {string} text
 */
function say(descriptor, text) {
    fs.writeSync(descriptor, text);
}
