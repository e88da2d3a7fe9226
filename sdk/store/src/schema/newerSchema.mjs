// A newer program brings the schema forward while this one is at work.
import { newerText, schemaVersion } from './migrate.mjs';

/** @typedef {import('../engine/engine.mjs').Engine} Engine */

/**
 * Looks, when that is told or may have happened unheard, whether this program may go on with the store.
 * @param {Engine} engine which is asked for nothing any more where it may not
 * @param {(text: string) => void} say takes lines for people
 */
export async function lookAtSchema(engine, say) {
    const [{ version, least }] = await engine.query('select version, least from kemvi_store.meta');
    if (version <= schemaVersion) return;
    if (least > schemaVersion) engine.refuse(newerText(version));
    else say(`${newerText(version)}; until then it goes on`);
}
