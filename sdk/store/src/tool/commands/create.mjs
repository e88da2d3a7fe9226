// kemvi-store create: makes a tree, and the store around it.
import { addressText } from '../../engine/address.mjs';
import { migrate } from '../../schema/migrate.mjs';
import { ensureTree, findTree } from '../../schema/trees.mjs';
import { parseContents } from '../../settings.mjs';
import { treeOption } from '../arguments.mjs';
import { ExitCode, ToolError } from '../failures.mjs';
import { withEngine } from '../openTree.mjs';
import { readPlace } from '../place.mjs';
import { bytesText, parseSize } from '../text.mjs';

const chunkSizes = { least: 16 * 1024, most: 8 << 20 };

/** @type {import('../arguments.mjs').Command} */
export const command = {
    name: 'create',
    summary: 'make a tree (a first mount does that too)',
    about: 'Makes a tree, and the tables of the store where there are none. A tree that is there already stays as it is.',
    takes: [{ word: 'SOURCE' }],
    options: {
        ...treeOption,
        contents: { value: 'PLACE', help: 'where contents are kept: database (default), or s3://BUCKET/PREFIX; fixed for the tree' },
        'chunk-size': { value: 'SIZE', help: 'bytes of a chunk, such as 4M, from 16K to 8M (default: 256K in the database, 1M in a bucket); fixed for the tree' },
    },
    async run({ words, options }) {
        const place = readPlace(/** @type {string} */ (words.SOURCE), options);
        const text = options['chunk-size'];
        const chunkSize = text === undefined ? undefined : parseSize('chunk-size', text, chunkSizes);
        return withEngine(place, async (engine) => {
            await checkObjects(place);
            await migrate(engine);
            const before = await findTree(engine, place.tree);
            const contents = before && !place.saysContents ? before.contents : place.contents;
            const tree = await ensureTree(engine, { tree: place.tree, contents, chunkSize });
            if (chunkSize !== undefined && tree.chunkSize !== chunkSize) {
                throw new ToolError(`the tree "${tree.name}" has chunks of ${bytesText(tree.chunkSize)}, and that is fixed`);
            }
            const what = `the tree "${tree.name}" in ${addressText(place.store)}, contents in ${tree.contents}, chunks of ${bytesText(tree.chunkSize)}`;
            console.log(`${before ? 'there already' : 'made'}: ${what}`);
            return ExitCode.success;
        });
    },
};

/**
 * Fails before anything is made when the bucket cannot be used.
 * @param {import('../place.mjs').Place} place
 */
async function checkObjects({ contents, reconnect }) {
    const where = parseContents(contents);
    if (where.kind === 'database') return;
    const { S3Objects } = await import('../../objects/s3.mjs');
    const objects = new S3Objects(where, 'none', { reconnect });
    try {
        await objects.check();
    } finally {
        objects.end();
    }
}
