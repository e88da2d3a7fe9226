// Damage to the rows of chunks.
import { countText } from '../text.mjs';

/** @typedef {import('./finding.mjs').Finding} Finding */
/** @typedef {import('./finding.mjs').Query} Query */
/** @typedef {import('./finding.mjs').Tree} Tree */
/** @typedef {import('./mending.mjs').Mending} Mending */
/** @typedef {{node: number, name: string | null, problem: string, position: number, length: number, has: number | null, size: number}} Row */

/**
 * @param {Query} query
 * @param {Tree} tree
 * @returns {Promise<Finding[]>}
 */
export async function chunkFindings(query, tree) {
    const rows = /** @type {Row[]} */ (await query(`
        select * from (
            select c.node, n.name, c.position, c.length, octet_length(c.data) as has, coalesce(n.size, 0) as size, case
                when c.node < 0 and u.id is null then 'upload'
                when c.node < 0 then null
                when n.id is null then 'orphan'
                when n.kind = 'd' then 'folder'
                when n.size < 0 then null -- which is told, and mended first
                when c.position < 0 or c.position * $2::bigint >= n.size then 'outside'
                when c.length < 1 or c.length > $2 or c.position * $2::bigint + c.length > n.size
                    or octet_length(c.data) < c.length then 'length'
                when c.object is not null and $3 = 'database' then 'place'
            end as problem
            from kemvi_store.chunk c
            left join lateral ( -- for each one a look at the index: the table is of all trees
                select * from kemvi_store.node where id = c.node offset 0
            ) n on n.tree = c.tree
            left join kemvi_store.upload u on u.tree = c.tree and u.id = -c.node
            where c.tree = $1
        ) checked where problem is not null order by node, position`, [tree.id, tree.chunkSize, tree.contents]));
    const single = rows.filter(({ problem }) => problem === 'length' || problem === 'place');
    const groups = groupedBy(rows.filter((row) => !single.includes(row)), ({ node, problem }) => `${node} ${problem}`);
    return [...groups.map(groupFinding), ...single.map((row) => (row.problem === 'place' ? placeFinding(row) : lengthFinding(row)))];
}

/** @param {Row[]} rows @returns {Finding} */
function groupFinding(rows) {
    const [{ node, name, problem, size }] = rows;
    const chunks = countText(rows.length, 'chunk');
    const rescue = (/** @type {string} */ as, /** @type {'all' | 'outside'} */ which) =>
        async (/** @type {Mending} */ mending) => `kept as ${await mending.rescue(node, as, which)}`;
    if (problem === 'upload') {
        return {
            text: `${chunks} put away for an upload that is not there, ${-node}`,
            mend: async ({ query, tree }) => {
                await query('select kemvi_store.drop_uploads($1, $2, null, null)', [tree.id, [-node]]);
                return 'removed: no file has ever had them';
            },
        };
    }
    if (problem === 'orphan') return { text: `${chunks} of node ${node}, which is not there`, mend: rescue('contents', 'all') };
    if (problem === 'folder') {
        return { text: `node ${node} ${JSON.stringify(name)}: is a folder, and has ${chunks}`, mend: rescue('contents of the folder', 'all') };
    }
    return {
        text: `node ${node} ${JSON.stringify(name)}: has ${chunks} beyond its end, at ${size} bytes`,
        mend: rescue(`beyond the end of ${name}`, 'outside'),
    };
}

/** @param {Row} row @returns {Finding} */
function lengthFinding({ node, name, position, length, has, size }) {
    const where = `node ${node} ${JSON.stringify(name)}: chunk ${position}`;
    const stored = has === null ? '' : `, ${has} of them stored`;
    return {
        text: `${where} has a length of ${length} bytes${stored}, in a file of ${size}`,
        mend: async (mending) => {
            const { id: tree, chunkSize } = mending.tree;
            const most = Math.min(chunkSize, size - position * chunkSize, has ?? (length < 1 ? chunkSize : length));
            const counted = length < 1 ? most : Math.min(length, most);
            const text = counted < 1
                ? 'delete from kemvi_store.chunk where tree = $1 and node = $2 and position = $3 and $4::int < 1'
                : `update kemvi_store.chunk c set length = $4, version = n.version + 1 from kemvi_store.node n
                    where n.id = c.node and c.tree = $1 and c.node = $2 and c.position = $3`;
            await mending.query(text, [tree, node, position, counted]);
            await mending.countVersion(node);
            return `the length is ${Math.max(counted, 0)}; what is missing reads as zeros`;
        },
    };
}

/** @param {Row} row @returns {Finding} */
function placeFinding({ node, name, position }) {
    return {
        text: `node ${node} ${JSON.stringify(name)}: chunk ${position} is an object, and the tree keeps its contents in the database`,
        advice: 'see who has changed "contents" of the tree, in the table kemvi_store.tree',
    };
}

/**
 * @template T
 * @param {T[]} items
 * @param {(item: T) => string} keyOf
 */
function groupedBy(items, keyOf) {
    /** @type {Map<string, T[]>} */
    const groups = new Map();
    for (const item of items) {
        const group = groups.get(keyOf(item));
        if (group) group.push(item);
        else groups.set(keyOf(item), [item]);
    }
    return [...groups.values()];
}
