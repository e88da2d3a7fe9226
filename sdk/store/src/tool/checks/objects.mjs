// Damage to objects: those that chunks name against those that the store has, both in the order of their names.
import { leastAge } from '../../contents/garbage.mjs';
import { MissingObject } from '../../objects/objects.mjs';
import { bytesText } from '../text.mjs';

/** @typedef {import('../../objects/objects.mjs').Listed} Listed */
/** @typedef {import('../openTree.mjs').OpenTree} OpenTree */
/** @typedef {import('./finding.mjs').Finding} Finding */
/** @typedef {{object: string, node: number, position: number, length: number}} Named */
/** @typedef {{lost: {row: Named, has: number | undefined}[], unnamed: Listed[]}} Differences `has`: bytes, undefined for none */

const rowsTogether = 5000;

/**
 * @param {OpenTree} open
 * @param {{zeros: boolean, onProgress: (objects: number) => void}} options `zeros`: what is lost is mended so that it reads
 *     as zeros
 * @returns {Promise<Finding[]>}
 */
export async function objectFindings(open, { zeros, onProgress }) {
    const { lost, unnamed } = await differences(open, onProgress);
    /** @type {Finding[]} */
    const findings = [];
    for (const each of lost) if (await isStillLost(open, each)) findings.push(await lostFinding(open, each, zeros));
    return [...findings, ...(await unnamedFindings(open, unnamed)), ...(await usedGarbage(open))];
}

/**
 * Meanwhile others go on: each difference has to be looked at again.
 * @param {OpenTree} open
 * @param {(objects: number) => void} onProgress
 * @returns {Promise<Differences>}
 */
function differences({ engine, tree, objects }, onProgress) {
    return engine.transaction(async (query) => {
        /** @type {Differences} */
        const found = { lost: [], unnamed: [] };
        const named = namedObjects(query, tree.id);
        const listed = listedObjects(/** @type {import('../../objects/objects.mjs').Objects} */ (objects), onProgress);
        let row = (await named.next()).value;
        let there = (await listed.next()).value;
        let before = '';
        while (row || there) {
            if (there && (!row || there.name < row.object)) {
                if (there.age >= leastAge && there.name !== before) found.unnamed.push(there);
                there = (await listed.next()).value;
            } else if (row) {
                const has = there?.name === row.object ? there.size : undefined;
                if (has === undefined || has < row.length) found.lost.push({ row, has });
                before = row.object; // of which there may be more rows
                row = (await named.next()).value;
            }
        }
        return found;
    });
}

/**
 * @param {import('./finding.mjs').TransactionQuery} query
 * @param {number} tree
 * @returns {AsyncGenerator<Named, undefined>}
 */
async function* namedObjects(query, tree) {
    await query(
        `declare named no scroll cursor for select object, node, position, length from kemvi_store.chunk
        where tree = ${Number(tree)} and object is not null order by object collate "C"`);
    for (;;) {
        const rows = /** @type {any} */ (await query(`fetch ${rowsTogether} from named`));
        if (rows.length === 0) return undefined;
        yield* rows;
    }
}

/**
 * @param {import('../../objects/objects.mjs').Objects} objects
 * @param {(objects: number) => void} onProgress
 * @returns {AsyncGenerator<Listed, undefined>}
 */
async function* listedObjects(objects, onProgress) {
    for (let count = 0, after = /** @type {string | undefined} */ (undefined); ; ) {
        const page = await objects.list(after);
        onProgress((count += page.objects.length));
        yield* page.objects;
        if (page.next === undefined) return undefined;
        after = page.next;
    }
}

/** @param {OpenTree} open @param {Differences['lost'][0]} lost */
async function isStillLost({ engine, tree, objects }, { row: { object, node, position, length } }) {
    const now = await engine.query(
        'select from kemvi_store.chunk where tree = $1 and node = $2 and position = $3 and object = $4 and length = $5',
        [tree.id, node, position, object, length]);
    if (now.length === 0) return false;
    try {
        return (await /** @type {any} */ (objects).get(object)).length < length;
    } catch (error) {
        if (error instanceof MissingObject) return true;
        throw error;
    }
}

/** @param {OpenTree} open @param {Differences['lost'][0]} lost @param {boolean} zeros @returns {Promise<Finding>} */
async function lostFinding({ engine }, { row, has }, zeros) {
    const { object, node, position, length } = row;
    const [file] = node < 0 ? [] : await engine.query('select name from kemvi_store.node where id = $1', [node]);
    const what = has === undefined ? 'is missing' : `has ${has} bytes`;
    const text = `node ${node} ${JSON.stringify(file?.name ?? '')}: chunk ${position} of ${length} bytes: its object ${object} ${what}`;
    if (!zeros) return { text, advice: 'get the object back from a backup of the bucket, or give its bytes up: --repair --zeros' };
    return {
        text,
        mend: async (mending) => {
            const params = [mending.tree.id, node, position, has ?? 0];
            await mending.query(has
                ? 'update kemvi_store.chunk set length = $4::int where tree = $1 and node = $2 and position = $3'
                : 'delete from kemvi_store.chunk where tree = $1 and node = $2 and position = $3 and $4::int = 0', params);
            await mending.countVersion(node);
            return `given up: ${length - (has ?? 0)} bytes read as zeros`;
        },
    };
}

/** @param {OpenTree} open @param {Listed[]} unnamed @returns {Promise<Finding[]>} */
async function unnamedFindings({ engine, tree }, unnamed) {
    /** @type {Finding[]} */
    const findings = [];
    for (let at = 0; at < unnamed.length; at += 1000) {
        const some = unnamed.slice(at, at + 1000);
        const rows = await engine.query('select name from kemvi_store.unreferenced($1, $2)', [tree.id, some.map(({ name }) => name)]);
        for (const { name } of rows) {
            const size = some.find((each) => each.name === name)?.size ?? 0;
            findings.push({
                text: `object ${name} of ${bytesText(size)}: nothing names it`,
                mend: async (mending) => {
                    await mending.query('select kemvi_store.discard($1, $2)', [tree.id, [name]]);
                    return 'noted as garbage, which kemvi-store gc removes';
                },
            });
        }
    }
    return findings;
}

/** @param {OpenTree} open @returns {Promise<Finding[]>} */
async function usedGarbage({ engine, tree }) {
    const rows = await engine.transaction((query) => query(
        `select g.object from kemvi_store.garbage g where g.tree = $1
            and exists (select from kemvi_store.chunk c where c.tree = g.tree and c.object = g.object)`, [tree.id]));
    return rows.map(({ object }) => ({
        text: `object ${object}: is noted as garbage, and a chunk names it`,
        mend: async (mending) => {
            await mending.query('select kemvi_store.forget_garbage($1, $2, null, null)', [tree.id, [object]]);
            return 'no garbage any more';
        },
    }));
}
