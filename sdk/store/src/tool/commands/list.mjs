// kemvi-store list: the trees of a store.
import { treesOf } from '../figures.mjs';
import { ExitCode } from '../failures.mjs';
import { withStore } from '../openTree.mjs';
import { readPlace } from '../place.mjs';
import { bytesText, table } from '../text.mjs';

/** @type {import('../arguments.mjs').Command} */
export const command = {
    name: 'list',
    summary: 'the trees of a store',
    about: 'Lists the trees of a store: where their contents are, how many files and folders they have, and how many bytes.',
    takes: [{ word: 'SOURCE' }],
    options: { json: { help: 'as JSON, with exact figures' } },
    run: ({ words, options }) =>
        withStore(readPlace(/** @type {string} */ (words.SOURCE), {}), async (engine) => {
            const trees = await treesOf(engine);
            if (options.json) console.log(JSON.stringify(trees, null, 2));
            else if (trees.length === 0) console.log('no trees');
            else {
                const rows = trees.map(({ name, nodes, bytes, contents }) => [name, nodes, bytesText(bytes), contents]);
                console.log(table([['TREE', 'NODES', 'BYTES', 'CONTENTS'], ...rows]));
            }
            return ExitCode.success;
        }),
};
