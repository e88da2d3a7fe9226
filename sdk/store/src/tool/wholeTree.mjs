// Questions about all of a tree.

/** @typedef {import('../engine/engine.mjs').Engine} Engine */
/** @typedef {import('../engine/engine.mjs').TransactionQuery} TransactionQuery */

/**
 * One transaction, which takes as long as it takes, where another question would be taken for lost. What is asked is planned
 * for the tree that it is about, and not for any: trees differ in size.
 * @template T
 * @param {Engine} engine
 * @param {(query: TransactionQuery) => Promise<T>} work
 * @returns {Promise<T>}
 */
export function ofWholeTree(engine, work) {
    return engine.transaction(async (query) => {
        await query.script('set local plan_cache_mode = force_custom_plan');
        return work(query);
    });
}
