// The trees of a store: finding one by its name, making it.

/** @typedef {import('../engine/engine.mjs').Engine} Engine */
/** @typedef {{id: number, key: string, name: string, chunkSize: number, contents: string}} Tree */

/**
 * Bytes of a chunk where nobody says otherwise. An object store is asked for each chunk by itself, so larger ones are faster in
 * order; a small change in the middle of a large file writes a whole one.
 * @param {string} contents
 */
const usualChunkSize = (contents) => (contents === 'database' ? 262_144 : 1_048_576);

/**
 * @param {Engine} engine
 * @param {string} name
 * @returns {Promise<Tree | undefined>}
 */
export async function findTree(engine, name) {
    const [row] = await engine.query('select * from kemvi_store.tree where name = $1', [name]);
    if (row === undefined) return undefined;
    return { id: row.id, key: row.key, name: row.name, chunkSize: row.chunk_size, contents: row.contents };
}

/**
 * The tree of that name, which is made if there is none. Several may do so at the same time.
 * @param {Engine} engine
 * @param {{tree: string, contents: string, chunkSize?: number}} settings
 * @returns {Promise<Tree>}
 * @throws {Error} when it is there with its contents elsewhere
 */
export async function ensureTree(engine, settings) {
    const tree = (await findTree(engine, settings.tree)) ?? (await makeTree(engine, settings));
    if (tree.contents !== settings.contents) {
        throw new Error(
            `KEMVI_STORE_CONTENTS: the tree "${tree.name}" keeps its contents in ${tree.contents}, ` +
                `and that is fixed; here it is ${settings.contents}`,
        );
    }
    return tree;
}

/** @param {Engine} engine @param {{tree: string, contents: string, chunkSize?: number}} settings */
async function makeTree(engine, { tree, contents, chunkSize = usualChunkSize(contents) }) {
    await engine.transaction(async (query) => {
        const [made] = await query(
            'insert into kemvi_store.tree (name, contents, chunk_size) values ($1, $2, $3) on conflict do nothing returning id',
            [tree, contents, chunkSize],
        );
        if (made === undefined) return; // somebody else was faster
        await query(
            `insert into kemvi_store.node (tree, id, parent, name, kind, mtime, mode)
             values ($1::bigint, -$1::bigint, 0, $1::bigint::text, 'd', kemvi_store.now_ms(), 493)`,
            [made.id],
        );
    });
    return /** @type {Tree} */ (await findTree(engine, tree));
}
