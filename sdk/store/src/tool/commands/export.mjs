// kemvi-store export: a tree, or a folder of it, into a folder of this machine.
import fs from 'node:fs';
import { treeOption } from '../arguments.mjs';
import { ExitCode, ToolError } from '../failures.mjs';
import { amountBeneath } from '../figures.mjs';
import { withTree } from '../openTree.mjs';
import { readPlace } from '../place.mjs';
import { Progress } from '../progress.mjs';
import { Exporting } from '../transfer/exporting.mjs';
import { Tally } from '../transfer/tally.mjs';
import { treePath } from '../treePath.mjs';

/** @type {import('../arguments.mjs').Command} */
export const command = {
    name: 'export',
    summary: 'copy a tree, or a folder of it, to this machine',
    about: 'Copies what lies at PATH of the tree (default: /) into FOLDER, which is made if it is not there, with times and permissions ' +
        '(but no set-user-id). A file that is there already and differs is named and left out. An export that was broken off goes on ' +
        'when it is asked for again: files of the same size and time are not copied anew.',
    takes: [{ word: 'SOURCE' }, { word: 'PATH', isOptional: true }, { word: 'FOLDER' }],
    options: { ...treeOption, replace: { help: 'replace files that are there already and differ in size or time' } },
    run({ words, options }) {
        const place = readPlace(/** @type {string} */ (words.SOURCE), options);
        const from = treePath(words.PATH);
        const folder = /** @type {string} */ (words.FOLDER);
        return withTree(place, async (open) => {
            const total = Progress.isShown() ? await amountBeneath(open, from) : undefined;
            const tally = new Tally(await Progress.start('export', total ?? { bytes: 0, files: 0 }));
            try {
                const exporting = new Exporting(open, tally, { replaces: Boolean(options.replace) });
                await exporting.lookAt(from);
                makeFolder(folder);
                await exporting.run(from, folder);
            } catch (error) {
                throw tally.brokenOff(/** @type {Error} */ (error));
            } finally {
                tally.end();
            }
            console.log(tally.text('exported'));
            return tally.leftOut > 0 ? ExitCode.leftOut : ExitCode.success;
        });
    },
};

/** @param {string} folder */
function makeFolder(folder) {
    try {
        if (!fs.existsSync(folder)) fs.mkdirSync(folder);
        if (!fs.statSync(folder).isDirectory()) throw new Error('is no folder');
    } catch (error) {
        throw new ToolError(`FOLDER: "${folder}": ${/** @type {Error} */ (error).message}; expected a folder, or one that can be made`);
    }
}
