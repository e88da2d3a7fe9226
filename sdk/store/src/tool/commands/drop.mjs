// kemvi-store drop: removes a tree with all that it holds.
import { createInterface } from 'node:readline/promises';
import { addressText } from '../../engine/address.mjs';
import { treeOption } from '../arguments.mjs';
import { ExitCode, ToolError, UsageError } from '../failures.mjs';
import { figuresOf } from '../figures.mjs';
import { withTree } from '../openTree.mjs';
import { readPlace } from '../place.mjs';
import { Progress } from '../progress.mjs';
import { bytesText, countText } from '../text.mjs';
import { ofWholeTree } from '../wholeTree.mjs';

/** @typedef {import('../openTree.mjs').OpenTree} OpenTree */

/** @type {import('../arguments.mjs').Command} */
export const command = {
    name: 'drop',
    summary: 'remove a tree with all that it holds',
    about: 'Removes a tree: its rows, and its objects in the bucket. Unmount it everywhere first. The name of the tree has to be typed, ' +
        'or --yes given. What was broken off is ended by the same command once more.',
    takes: [{ word: 'SOURCE' }],
    options: { ...treeOption, yes: { help: 'do not ask' } },
    run({ words, options }) {
        const place = readPlace(/** @type {string} */ (words.SOURCE), options);
        return withTree(place, async (open) => {
            const { nodes, bytes } = await figuresOf(open.engine, open.tree);
            const what = `the tree "${open.tree.name}" in ${addressText(place.store)}: ${countText(nodes, 'node')}, ${bytesText(bytes)}`;
            if (!options.yes) await askFor(open.tree.name, what);
            await dropTree(open);
            console.log(`removed ${what}`);
            return ExitCode.success;
        });
    },
};

/** @param {string} name @param {string} what */
async function askFor(name, what) {
    if (!process.stdin.isTTY) throw new UsageError('drop: there is no terminal to ask on; give --yes to remove the tree without a question');
    const lines = createInterface({ input: process.stdin, output: process.stderr });
    const gone = new AbortController();
    lines.once('close', () => gone.abort());
    const typed = await lines.question(`This removes ${what}.\nType the name of the tree to remove it: `, { signal: gone.signal }).catch(() => '');
    lines.close();
    if (typed !== name) throw new ToolError(`nothing was removed: "${typed}" is not the name of the tree`);
}

/**
 * The tree itself goes last: as long as it is there, what is left of it can be found.
 * @param {OpenTree} open
 */
export async function dropTree({ engine, tree, objects }) {
    await ofWholeTree(engine, async (query) => {
        await query('select pg_advisory_xact_lock(1802333814, $1::int)', [tree.id]);
        await query('delete from kemvi_store.node where -tree = -$1::bigint', [tree.id]);
        for (const table of ['chunk', 'upload', 'garbage', 'request', 'change']) {
            await query(`delete from kemvi_store.${table} where tree = $1`, [tree.id]);
        }
        await query('select kemvi_store.announce($1, $2, $3)', [tree.id, engine.origin, ['/']]);
    });
    if (objects) await removeObjects(objects);
    await engine.query('delete from kemvi_store.tree where id = $1', [tree.id]);
}

/** @param {import('../../objects/objects.mjs').Objects} objects */
async function removeObjects(objects) {
    const progress = await Progress.start('objects removed', undefined);
    try {
        for (let removed = 0, after = /** @type {string | undefined} */ (undefined); ; ) {
            const page = await objects.list(after);
            if (page.objects.length > 0) await objects.remove(page.objects.map(({ name }) => name));
            progress.at((removed += page.objects.length));
            if (page.next === undefined) return;
            after = page.next;
        }
    } finally {
        progress.end();
    }
}
