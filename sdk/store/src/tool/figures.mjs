// What is counted in a store.
import { ofWholeTree } from './wholeTree.mjs';

/** @typedef {import('../engine/engine.mjs').Engine} Engine */

/**
 * @param {Engine} engine
 * @returns {Promise<{name: string, contents: string, chunkSize: number, nodes: number, bytes: number}[]>}
 */
export async function treesOf(engine) {
    return /** @type {any} */ (await counted(engine, `
        select t.name, t.contents, t.chunk_size as "chunkSize", coalesce(n.nodes, 0) as nodes, coalesce(n.bytes, 0) as bytes
        from kemvi_store.tree t
        left join (select tree, count(*) as nodes, sum(size)::bigint as bytes from kemvi_store.node group by tree) n on n.tree = t.id
        order by t.name`));
}

/**
 * @param {Engine} engine
 * @param {{id: number, name: string, contents: string, chunkSize: number}} tree
 */
export async function figuresOf(engine, { id, name, contents, chunkSize }) {
    const [nodes] = await counted(engine, `
        select count(*) as nodes, count(*) filter (where kind = 'd') as folders, count(*) filter (where kind = 'f') as files,
            coalesce(sum(size), 0)::bigint as bytes
        from kemvi_store.node where -tree = -$1::bigint`, id);
    const [chunks] = await counted(engine, `
        select count(*) filter (where node >= 0) as chunks, coalesce(sum(length) filter (where node >= 0), 0)::bigint as "chunkBytes",
            count(object) filter (where node >= 0) as objects, count(*) filter (where node < 0) as "chunksPutAway",
            coalesce(sum(length) filter (where node >= 0 and object is null), 0)::bigint as "bytesInDatabase"
        from kemvi_store.chunk where tree = $1`, id);
    const count = async (/** @type {string} */ table) =>
        (await counted(engine, `select count(*) as count from kemvi_store.${table} where tree = $1`, id))[0].count;
    return {
        name, contents, chunkSize, ...nodes, ...chunks,
        garbage: await count('garbage'), uploads: await count('upload'), requests: await count('request'), changes: await count('change'),
    };
}

/**
 * @param {Engine} engine
 * @param {string} text
 * @param {any[]} params
 * @returns {Promise<any[]>}
 */
function counted(engine, text, ...params) {
    return ofWholeTree(engine, (query) => query(text, params));
}

/**
 * @param {{engine: Engine, tree: {id: number}}} open
 * @param {string} path
 * @returns {Promise<import('./progress.mjs').Amount>}
 */
export async function amountBeneath({ engine, tree }, path) {
    const [amount] = await ofWholeTree(engine, (query) => query(`
        with recursive inside (id, kind, size) as (
            select r.id, r.kind, r.size from kemvi_store.resolve($1, $2) r
            union all
            select n.id, n.kind, n.size
            from inside i cross join lateral (select * from kemvi_store.node where parent = i.id offset 0) n where i.kind = 'd'
        )
        select count(*) as files, coalesce(sum(size), 0)::bigint as bytes from inside where kind = 'f'`, [tree.id, path]));
    return /** @type {any} */ (amount);
}
