// kemvi-store stats: the figures of a tree.
import { treeOption } from '../arguments.mjs';
import { ExitCode } from '../failures.mjs';
import { figuresOf } from '../figures.mjs';
import { withTree } from '../openTree.mjs';
import { readPlace } from '../place.mjs';
import { bytesText, table } from '../text.mjs';

/** @type {import('../arguments.mjs').Command} */
export const command = {
    name: 'stats',
    summary: 'the figures of a tree',
    about: 'Counts what a tree has: nodes, bytes, chunks, objects, and what waits to be removed or forgotten.',
    takes: [{ word: 'SOURCE' }],
    options: { ...treeOption, json: { help: 'as JSON, with exact figures' } },
    run: ({ words, options }) =>
        withTree(readPlace(/** @type {string} */ (words.SOURCE), options), async ({ engine, tree }) => {
            const figures = await figuresOf(engine, tree);
            console.log(options.json ? JSON.stringify(figures, null, 2) : shown(figures));
            return ExitCode.success;
        }),
};

/** @param {any} of */
function shown(of) {
    return table([
        ['tree', of.name],
        ['contents', `${of.contents}, chunks of ${bytesText(of.chunkSize)}`],
        ['nodes', `${of.nodes}: ${of.folders} folders, ${of.files} files of ${bytesText(of.bytes)}`],
        ['chunks', `${of.chunks} of ${bytesText(of.chunkBytes)}; not committed yet: ${of.chunksPutAway} in ${of.uploads} uploads`],
        ['in the database', `${of.chunks - of.objects} of them, of ${bytesText(of.bytesInDatabase)}`],
        ['objects', `${of.objects}; garbage: ${of.garbage} (kemvi-store gc removes it)`],
        ['requests', `${of.requests} remembered, in case somebody asks again`],
        ['changes', `${of.changes} remembered, whose paths are too long for a notice`],
    ]);
}
