// That what looks at all of one tree leaves alone what other trees have in the same tables.
import assert from 'node:assert/strict';
import { Names } from '../src/names/names.mjs';
import { ensureTree } from '../src/schema/trees.mjs';
import { chunkFindings } from '../src/tool/checks/chunks.mjs';
import { structureFindings } from '../src/tool/checks/structure.mjs';
import { dropTree } from '../src/tool/commands/drop.mjs';
import { amountBeneath, figuresOf } from '../src/tool/figures.mjs';
import { ofWholeTree } from '../src/tool/wholeTree.mjs';
import { onEachEngine } from './engines.mjs';

const others = 5000;
const own = 30;

/** A tree of 5000 files of one chunk each, beside the one that is looked at. */
async function addNeighbour({ engine, tree }) {
    const neighbour = await ensureTree(engine, { tree: `beside ${tree.name}`, contents: 'database' });
    await engine.query(
        `with made as (
            insert into kemvi_store.node (tree, id, parent, name, kind, size, mtime, mode)
            select $1::bigint, kemvi_store.new_node_id(), -$1::bigint, 'n' || i, 'f', 1, 0, 420 from generate_series(1, $2::int) i returning id)
        insert into kemvi_store.chunk (tree, node, position, length, data) select $1, id, 0, 1, 'x' from made`,
        [neighbour.id, others],
    );
}

/** How many rows are read meanwhile, in one transaction. */
async function rowsRead(engine, work) {
    return ofWholeTree(engine, async (query) => {
        const count = async () => (await query(
            `select sum(seq_tup_read + idx_tup_fetch)::int as rows from pg_stat_xact_user_tables
            where schemaname = 'kemvi_store' and relname in ('node', 'chunk')`))[0].rows;
        const before = await count();
        await work(query);
        return (await count()) - before;
    });
}

for (const isAnalyzed of [true, false]) {
    const known = isAnalyzed ? 'that the server has statistics of' : 'of which the server knows nothing yet';
    onEachEngine(`who looks at one tree reads no rows of others, ${known}`, async (given) => {
        const { engine, tree } = given;
        const names = new Names(engine, tree);
        await addNeighbour(given);
        for (let number = 0; number < own; number++) await names.open(`/${number}`, true);
        await engine.query(`insert into kemvi_store.chunk (tree, node, position, length, data)
            select tree, id, 0, 1, 'x' from kemvi_store.node where tree = $1 and kind = 'f'`, [tree.id]);
        await engine.query("update kemvi_store.node set size = 1 where tree = $1 and kind = 'f'", [tree.id]);
        if (isAnalyzed) await engine.query('analyze kemvi_store.node, kemvi_store.chunk');
        const within = (query) => ({ transaction: (work) => work(query), query: async () => [] });
        for (const [what, look] of Object.entries({
            stats: (query) => figuresOf(within(query), tree),
            'import or export': (query) => amountBeneath({ engine: within(query), tree }, '/'),
            'fsck of names': async (query) => assert.deepEqual(await structureFindings(query, tree), []),
            'fsck of chunks': async (query) => assert.deepEqual(await chunkFindings(query, tree), []),
            drop: (query) => dropTree({ engine: within(query), tree }),
        })) {
            const rows = await rowsRead(engine, look);
            assert.ok(rows < others / 5, `${what} has read ${rows} rows`);
        }
    });
}
