// kemvi-store fsck: looks for damage, and mends it.
import { treeOption } from '../arguments.mjs';
import { chunkFindings } from '../checks/chunks.mjs';
import { Mending } from '../checks/mending.mjs';
import { objectFindings } from '../checks/objects.mjs';
import { readingFindings } from '../checks/reading.mjs';
import { structureFindings } from '../checks/structure.mjs';
import { ExitCode, UsageError } from '../failures.mjs';
import { withTree } from '../openTree.mjs';
import { readPlace } from '../place.mjs';
import { Progress } from '../progress.mjs';
import { countText } from '../text.mjs';
import { ofWholeTree } from '../wholeTree.mjs';

/** @typedef {import('../checks/finding.mjs').Finding} Finding */
/** @typedef {import('../checks/finding.mjs').TransactionQuery} TransactionQuery */
/** @typedef {import('../openTree.mjs').OpenTree} OpenTree */

const mostRounds = 4; // what was hidden by other damage is found in the next round

/** @type {import('../arguments.mjs').Command} */
export const command = {
    name: 'fsck',
    summary: 'look for damage, and mend it',
    about: 'Looks for damage in a tree: in its folders, in the chunks of its files, and in the bucket. Mounts can go on meanwhile; with ' +
        '--repair their changes wait while rows are mended. What has lost its place is moved to /lost+found-DATE, and nothing that a ' +
        'file has is deleted. Objects that nothing names are told when they are older than an hour. Exit codes: 0 nothing was found, ' +
        'or all was mended; 1 it could not be looked; 4 damage is left.',
    takes: [{ word: 'SOURCE' }],
    options: {
        ...treeOption,
        repair: { help: 'mend what is found, with a line for each' },
        zeros: { help: 'with --repair: where the bytes of a chunk are lost, zeros are read from now on' },
        contents: { value: 'read', help: 'read all contents, too (as long as an export would take)' },
    },
    run({ words, options }) {
        const place = readPlace(/** @type {string} */ (words.SOURCE), { tree: options.tree });
        if (options.contents !== undefined && options.contents !== 'read') {
            throw new UsageError(`--contents: "${options.contents}" must be read: that is all that can be done with them`);
        }
        if (options.zeros && !options.repair) throw new UsageError('--zeros: gives bytes up, and needs --repair');
        const wanted = { repairs: Boolean(options.repair), zeros: Boolean(options.zeros), reads: Boolean(options.contents) };
        return withTree(place, (open) => check(open, wanted));
    },
};

/**
 * @param {OpenTree} open
 * @param {{repairs: boolean, zeros: boolean, reads: boolean}} wanted
 * @returns {Promise<number>} the exit code
 */
export async function check(open, { repairs, zeros, reads }) {
    const count = { found: 0, left: 0 };
    const tell = (/** @type {{found: number, left: number}} */ { found, left }) => {
        count.found += found;
        count.left += left;
    };
    tell(await (repairs ? mendRows(open) : lookAtRows(open)));
    if (open.objects) tell(await lookAtObjects(open, repairs, zeros));
    if (reads) tell(await readAll(open));
    console.log(summary(open, count));
    return count.left > 0 ? ExitCode.damage : ExitCode.success;
}

/** @param {OpenTree} open @param {{found: number, left: number}} count */
function summary({ tree }, { found, left }) {
    if (found === 0) return `the tree "${tree.name}" is clean`;
    const rest = left === 0 ? 'all of it mended' : `${left} left`;
    return `the tree "${tree.name}": damage was found in ${countText(found, 'place')}, ${rest}`;
}

/** @param {TransactionQuery} query @param {import('../checks/finding.mjs').Tree} tree */
async function rowFindings(query, tree) {
    return [...(await structureFindings(query, tree)), ...(await chunkFindings(query, tree))];
}

/**
 * One moment of the tree.
 * @param {OpenTree} open
 */
async function lookAtRows({ engine, tree }) {
    const findings = await ofWholeTree(engine, async (query) => {
        await query.script('set transaction isolation level repeatable read, read only');
        return rowFindings(query, tree);
    });
    for (const finding of findings) console.log(finding.text);
    return { found: findings.length, left: findings.length };
}

/**
 * All in one transaction, in which nobody else changes the tree.
 * @param {OpenTree} open
 */
async function mendRows({ engine, tree }) {
    return ofWholeTree(engine, async (query) => {
        await query('select pg_advisory_xact_lock(1802333814, $1::int)', [tree.id]);
        const mending = new Mending(query, tree);
        const told = /** @type {Set<string>} */ (new Set());
        for (let round = 1; ; round++) {
            const findings = await rowFindings(query, tree);
            const left = findings.filter(({ mend, text }) => !mend || round > mostRounds || told.has(text));
            const mended = findings.filter((finding) => !left.includes(finding));
            for (const finding of [...mended.filter(({ isLast }) => !isLast), ...mended.filter(({ isLast }) => isLast)]) {
                told.add(finding.text);
                console.log(`${finding.text}: ${await finding.mend?.(mending)}`);
            }
            if (mended.length > 0) continue;
            for (const { text, advice } of left) console.log(`${text}: left${advice ? `; ${advice}` : ''}`);
            if (told.size > 0) await query('select kemvi_store.announce($1, $2, $3)', [tree.id, engine.origin, ['/']]);
            return { found: told.size + left.filter(({ text }) => !told.has(text)).length, left: left.length };
        }
    });
}

/** @param {OpenTree} open @param {boolean} repairs @param {boolean} zeros */
async function lookAtObjects(open, repairs, zeros) {
    const progress = await Progress.start('objects looked at', undefined);
    const findings = await objectFindings(open, { zeros, onProgress: (objects) => progress.at(objects) }).finally(() => progress.end());
    let left = 0;
    for (const { text, mend, advice } of findings) {
        if (mend && repairs) {
            console.log(`${text}: ${await mendOne(open, mend)}`);
        } else {
            console.log(advice ? `${text}; ${advice}` : text);
            left++;
        }
    }
    return { found: findings.length, left };
}

/** @param {OpenTree} open @param {NonNullable<Finding['mend']>} mend */
function mendOne({ engine, tree }, mend) {
    return engine.transaction(async (query) => {
        await query('select pg_advisory_xact_lock(1802333814, $1::int)', [tree.id]);
        const done = await mend(new Mending(query, tree));
        await query('select kemvi_store.announce($1, $2, $3)', [tree.id, engine.origin, ['/']]);
        return done;
    });
}

/** @param {OpenTree} open */
async function readAll(open) {
    const progress = await Progress.start('chunks read', undefined);
    const findings = await readingFindings(open, (chunks) => progress.at(chunks)).finally(() => progress.end());
    for (const { text, advice } of findings) console.log(`${text}; ${advice}`);
    return { found: findings.length, left: findings.length };
}
