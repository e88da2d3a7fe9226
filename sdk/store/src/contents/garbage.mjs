// Removes objects that nothing needs any more.
//
// Why an object that is in use, or is about to be, is never among them:
//
// - What a chunk names is never removed: that is looked up for each object immediately before.
// - A helper names an object, in a chunk of a file or of an upload, within `longestWait` after it was put away, and puts the
//   bytes away once more under another name when it comes to it later; the statement itself waits for the database for no
//   longer than that (`reconnect` of the settings is limited for it). So an object that is older than `leastAge`, by the
//   clock of the object store, and that no chunk names, is named by none ever after. An object is named for the first time
//   once only: what was replaced is not named again.
// - Chunks of an upload keep their objects while the helper that works on it renews it. One that was asleep for longer finds
//   its upload gone, and its commit fails; it never names what was removed.
// - A machine that still reads the chunks of before a commit finds them missing, and looks up those of now.
import { longestWait } from './putAway.mjs';

/** @typedef {import('../engine/engine.mjs').Engine} Engine */
/** @typedef {import('../objects/objects.mjs').Objects} Objects */

/** Milliseconds. Thrice as long as any helper waits, for clocks that do not agree. */
export const leastAge = 3 * longestWait;

const batch = 1000; // objects

/**
 * Removes what became garbage, and what no chunk names, if it is older than an age.
 * @param {object} store
 * @param {Engine} store.engine
 * @param {{id: number}} store.tree
 * @param {Objects} [store.objects] left out where contents lie in the database
 * @param {object} [options]
 * @param {number} [options.age] milliseconds; an hour when left out. Less than `leastAge` only where no helper is at work.
 * @param {(progress: {looked: number, removed: number}) => void} [options.onProgress] objects of the store that were looked
 *     at, and those that were removed
 * @returns {Promise<{looked: number, removed: number, uploads: number}>} `uploads`: that were given up
 */
export async function removeGarbage({ engine, tree, objects }, options = {}) {
    const { age = leastAge, onProgress = () => {} } = options;
    const seconds = Math.ceil(age / 1000);
    const [{ uploads }] = await engine.change('select kemvi_store.expire_uploads($1, $2, $3, $4) as uploads', [tree.id, seconds]);
    const done = { looked: 0, removed: 0 };
    if (objects) {
        const tell = (/** @type {number} */ looked, /** @type {number} */ removed) => {
            done.looked += looked;
            done.removed += removed;
            onProgress(done);
        };
        await removeReplaced(engine, tree.id, objects, seconds, (removed) => tell(0, removed));
        await removeUnnamed(engine, tree.id, objects, age, tell);
    }
    return { ...done, uploads };
}

/**
 * What the database knows to be garbage.
 * @param {Engine} engine
 * @param {number} tree
 * @param {Objects} objects
 * @param {number} seconds
 * @param {(removed: number) => void} tell
 */
async function removeReplaced(engine, tree, objects, seconds, tell) {
    for (;;) {
        const rows = await engine.query('select * from kemvi_store.old_garbage($1, $2, $3)', [tree, seconds, batch]);
        if (rows.length === 0) return;
        const names = rows.map(({ name }) => name);
        await objects.remove(names);
        // Not before they are removed: what is forgotten too early is found by the listing only.
        await engine.change('select kemvi_store.forget_garbage($1, $2, $3, $4)', [tree, names]);
        tell(names.length);
    }
}

/**
 * What the object store has and the database does not know: of helpers that ended between an upload and its commit.
 * @param {Engine} engine
 * @param {number} tree
 * @param {Objects} objects
 * @param {number} age
 * @param {(looked: number, removed: number) => void} tell
 */
async function removeUnnamed(engine, tree, objects, age, tell) {
    for (let after = /** @type {string | undefined} */ (undefined); ; ) {
        const page = await objects.list(after);
        const old = page.objects.filter((listed) => listed.age >= age).map(({ name }) => name);
        const rows = old.length === 0 ? [] : await engine.query('select * from kemvi_store.unreferenced($1, $2)', [tree, old]);
        if (rows.length > 0) await objects.remove(rows.map(({ name }) => name));
        tell(page.objects.length, rows.length);
        if (page.next === undefined) return;
        after = page.next;
    }
}
