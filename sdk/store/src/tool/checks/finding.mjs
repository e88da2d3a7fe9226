// What is wrong with a tree, and how it is mended.

/** @typedef {import('../../engine/engine.mjs').TransactionQuery} TransactionQuery */
/** @typedef {import('../../engine/engine.mjs').Query} Query */
/**
 * @typedef {object} Finding
 * @property {string} text names the place and the damage
 * @property {(mending: import('./mending.mjs').Mending) => Promise<string>} [mend] tells what was done; left out where nothing
 *     can be done
 * @property {boolean} [isLast] to be mended when all others are
 * @property {string} [advice] where nothing can be done: what people can do
 */
/** @typedef {{id: number, chunkSize: number, contents: string}} Tree */

/**
 * A node for people, whether it has a path or not.
 * @param {{id: number, name: string}} node
 */
export function nodeText({ id, name }) {
    return `node ${id} ${JSON.stringify(name)}`;
}
