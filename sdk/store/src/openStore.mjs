// Puts a store together: engine, schema, tree, names and contents, and what other machines change.
import { ForeignChanges } from './changes/foreignChanges.mjs';
import { Contents } from './contents/contents.mjs';
import { openEngine } from './engine/engine.mjs';
import { Names } from './names/names.mjs';
import { migrate } from './schema/migrate.mjs';
import { lookAtSchema } from './schema/newerSchema.mjs';
import { ensureTree } from './schema/trees.mjs';
import { StoreFileSystem } from './storeFileSystem.mjs';

/** @typedef {import('./settings.mjs').Settings} Settings */
/**
 * @typedef {object} Surroundings
 * @property {(paths: string | string[]) => void} changed takes the paths where other machines have changed something
 * @property {(text: string) => void} say takes lines for people
 */

/**
 * A tree of a store, made if it is not there.
 * @param {Settings} settings
 * @param {Surroundings} surroundings
 * @returns {Promise<StoreFileSystem>}
 * @throws {Error} in one line for people
 */
export async function openStore(settings, { changed, say }) {
    const engine = await openEngine(settings.store, { reconnect: settings.reconnect, say });
    try {
        await migrate(engine);
        const tree = await ensureTree(engine, settings);
        const names = new Names(engine, tree);
        const { memory, disk } = settings;
        const contents = new Contents(
            { engine, tree, objects: await objectsOf(settings, tree) },
            { memory, disk, say, committed: () => names.noteChange() },
        );
        const doubted = () => {
            contents.doubt();
            changed('/');
        };
        const returned = async () => {
            await lookAtSchema(engine, say);
            await contents.lookBack();
        };
        const migrated = () => void returned().catch(() => {}); // a lost engine is told by who needs it
        await new ForeignChanges(engine, tree, { changed, doubted, migrated }).begin();
        return new StoreFileSystem(names, contents, () => engine.close());
    } catch (error) {
        await engine.close().catch(() => {});
        throw error;
    }
}

/** @param {Settings} settings @param {import('./schema/trees.mjs').Tree} tree */
async function objectsOf({ contentsPlace: place, reconnect }, tree) {
    if (place.kind === 'database') return undefined;
    const { S3Objects } = await import('./objects/s3.mjs'); // large: only who uses it waits for it
    const objects = new S3Objects(place, tree.key, { reconnect });
    await objects.check(); // a wrong bucket or key is told now, and not to the first program that writes
    return objects;
}
