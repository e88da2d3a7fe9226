// kemvi-store import: a folder of this machine into a tree.
import fs from 'node:fs';
import { treeOption } from '../arguments.mjs';
import { ExitCode, ToolError } from '../failures.mjs';
import { withTree } from '../openTree.mjs';
import { readPlace } from '../place.mjs';
import { Progress } from '../progress.mjs';
import { Importing } from '../transfer/importing.mjs';
import { localAmount } from '../transfer/localTree.mjs';
import { Tally } from '../transfer/tally.mjs';
import { treePath } from '../treePath.mjs';

/** @type {import('../arguments.mjs').Command} */
export const command = {
    name: 'import',
    summary: 'copy a folder of this machine into a tree',
    about: 'Copies what lies in FOLDER to PATH of the tree (default: /), with times and permissions. What a tree does not hold (links, ' +
        'pipes, devices) is named and left out, as is a file that is there already and differs. An import that was broken off goes on ' +
        'when it is asked for again: files of the same size and time are not copied anew. One import at a time into a folder.',
    takes: [{ word: 'SOURCE' }, { word: 'FOLDER' }, { word: 'PATH', isOptional: true }],
    options: { ...treeOption, replace: { help: 'replace files that are there already and differ in size or time' } },
    run({ words, options }) {
        const place = readPlace(/** @type {string} */ (words.SOURCE), options);
        const to = treePath(words.PATH);
        const folder = /** @type {string} */ (words.FOLDER);
        checkFolder(folder);
        return withTree(place, async (open) => {
            const total = Progress.isShown() ? await localAmount(folder) : undefined;
            const tally = new Tally(await Progress.start('import', total ?? { bytes: 0, files: 0 }));
            try {
                await new Importing(open, tally, { replaces: Boolean(options.replace) }).run(folder, to);
            } catch (error) {
                throw tally.brokenOff(/** @type {Error} */ (error));
            } finally {
                tally.end();
            }
            console.log(tally.text('imported'));
            return tally.leftOut > 0 ? ExitCode.leftOut : ExitCode.success;
        });
    },
};

/** @param {string} folder */
function checkFolder(folder) {
    const stat = fs.statSync(folder, { throwIfNoEntry: false });
    if (stat === undefined) throw new ToolError(`FOLDER: "${folder}" is not there; expected a folder of this machine`);
    if (!stat.isDirectory()) throw new ToolError(`FOLDER: "${folder}" is no folder`);
}
