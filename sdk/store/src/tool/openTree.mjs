// A store and a tree of it, opened for a command.
import fs from 'node:fs';
import path from 'node:path';
import { addressText } from '../engine/address.mjs';
import { openEngine } from '../engine/engine.mjs';
import { migrate, presentMeta } from '../schema/migrate.mjs';
import { findTree } from '../schema/trees.mjs';
import { parseContents } from '../settings.mjs';
import { ToolError } from './failures.mjs';

/** @typedef {import('../engine/engine.mjs').Engine} Engine */
/** @typedef {import('../objects/objects.mjs').Objects} Objects */
/** @typedef {import('../schema/trees.mjs').Tree} Tree */
/** @typedef {import('./place.mjs').Place} Place */
/** @typedef {{engine: Engine, tree: Tree, objects: Objects | undefined}} OpenTree */

/**
 * @template T
 * @param {Place} place
 * @param {(engine: Engine) => Promise<T>} work
 * @returns {Promise<T>}
 */
export async function withEngine(place, work) {
    const engine = await openEngine(place.store, { reconnect: place.reconnect, say: (text) => console.error(`kemvi-store: ${text}`) });
    try {
        return await work(engine);
    } finally {
        await engine.close().catch(() => {});
    }
}

/**
 * The same with a store that is there.
 * @template T
 * @param {Place} place
 * @param {(engine: Engine) => Promise<T>} work
 */
export async function withStore(place, work) {
    const { store, source } = place;
    const missing = () => new ToolError(`${addressText(store)}: there is no store; make one with: kemvi-store create ${source}`);
    if (store.kind === 'pglite' && !fs.existsSync(path.join(store.folder, 'database'))) throw missing();
    return withEngine(place, async (engine) => {
        if ((await presentMeta((...asked) => engine.query(...asked))) === undefined) throw missing();
        await migrate(engine);
        return work(engine);
    });
}

/**
 * @template T
 * @param {Place} place
 * @param {(open: OpenTree) => Promise<T>} work
 */
export function withTree(place, work) {
    return withStore(place, async (engine) => {
        const tree = await findTree(engine, place.tree);
        if (tree === undefined) throw await noSuchTree(engine, place);
        if (place.saysContents && tree.contents !== place.contents) {
            throw new ToolError(`the tree "${tree.name}" keeps its contents in ${tree.contents}, and ${place.source} says ${place.contents}`);
        }
        const objects = await objectsOf(tree, place.reconnect);
        try {
            return await work({ engine, tree, objects });
        } finally {
            objects?.end?.();
        }
    });
}

/**
 * @param {{contents: string, key: string}} tree
 * @param {number} reconnect seconds
 */
export async function objectsOf({ contents, key }, reconnect) {
    const place = parseContents(contents);
    if (place.kind === 'database') return undefined;
    const { S3Objects } = await import('../objects/s3.mjs'); // large: only who uses it waits for it
    return new S3Objects(place, key, { reconnect });
}

/** @param {Engine} engine @param {Place} place */
async function noSuchTree(engine, { tree, store, source }) {
    const rows = await engine.query('select name from kemvi_store.tree order by name limit 20');
    const there = rows.length === 0 ? 'there is none' : `there is ${rows.map(({ name }) => `"${name}"`).join(', ')}`;
    return new ToolError(`${addressText(store)}: has no tree "${tree}"; ${there}. Make it with: kemvi-store create ${source}`);
}
