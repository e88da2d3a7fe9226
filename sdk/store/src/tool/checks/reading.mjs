// Reads all contents. Chunks have no checksum of their own: what is found is what an engine cannot give, or gives too
// little of. (PostgreSQL checks its pages where it was told to: initdb --data-checksums.)
import { Limiter } from '../../contents/limiter.mjs';
import { MissingObject } from '../../objects/objects.mjs';

/** @typedef {import('../openTree.mjs').OpenTree} OpenTree */
/** @typedef {import('./finding.mjs').Finding} Finding */

const bytesTogether = 32 << 20;
const mostTogether = 512; // chunks
const atATime = 16;

/** @typedef {{node: number, position: number, length: number, object: string | null}} Row */

/**
 * @param {OpenTree} open
 * @param {(chunks: number) => void} onProgress
 * @returns {Promise<Finding[]>}
 */
export async function readingFindings(open, onProgress) {
    /** @type {Finding[]} */
    const findings = [];
    const limiter = new Limiter(atATime);
    const together = Math.max(4, Math.min(mostTogether, Math.floor(bytesTogether / open.tree.chunkSize)));
    for (let count = 0, node = -(2 ** 53) + 1, position = 0; ; ) {
        const rows = /** @type {Row[]} */ (await open.engine.query(
            `select node, position, length, object from kemvi_store.chunk
            where tree = $1 and (node, position) > ($2::bigint, $3::bigint) order by tree, node, position limit ${together}`,
            [open.tree.id, node, position]));
        if (rows.length === 0) return findings;
        const last = rows[rows.length - 1];
        const areRead = await areInDatabase(open, { node, position }, last);
        const problems = await Promise.all(rows.map((row) => row.object === null && areRead ? undefined : limiter.run(() => problemOf(open, row))));
        problems.forEach((problem, at) => {
            const text = `node ${rows[at].node}: chunk ${rows[at].position} cannot be read: ${problem}`;
            if (problem) findings.push({ text, advice: 'get it back from a backup, or remove the file' });
        });
        ({ node, position } = last);
        onProgress((count += rows.length));
    }
}

/**
 * Whether the database can read all that it has of some chunks: those that follow one, up to another.
 * @param {OpenTree} open
 * @param {{node: number, position: number}} after
 * @param {{node: number, position: number}} last
 */
async function areInDatabase({ engine, tree }, after, last) {
    try {
        await engine.query(
            `select count(md5(data)) from kemvi_store.chunk where tree = $1 and (node, position) > ($2::bigint, $3::bigint)
            and (node, position) <= ($4::bigint, $5::bigint)`,
            [tree.id, after.node, after.position, last.node, last.position]);
        return true;
    } catch {
        return false; // which one cannot be read is found by reading each
    }
}

/**
 * @param {OpenTree} open
 * @param {Row} row
 * @returns {Promise<string | undefined>}
 */
async function problemOf({ engine, tree, objects }, { node, position, length, object }) {
    try {
        if (object !== null) {
            if (objects === undefined) return undefined; // which another check tells
            const bytes = await objects.get(object);
            return bytes.length < length ? `its object ${object} has ${bytes.length} bytes of ${length}` : undefined;
        }
        await engine.query('select md5(data) from kemvi_store.chunk where tree = $1 and node = $2 and position = $3', [tree.id, node, position]);
        return undefined;
    } catch (error) {
        const { message } = /** @type {Error} */ (error);
        if (!(error instanceof MissingObject)) return message;
        const now = await engine.query(
            'select from kemvi_store.chunk where tree = $1 and node = $2 and position = $3 and object = $4', [tree.id, node, position, object]);
        return now.length > 0 ? message : undefined; // replaced meanwhile
    }
}
