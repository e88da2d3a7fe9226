// Damage to names and folders.
import { nodeText } from './finding.mjs';

/** @typedef {import('./finding.mjs').Finding} Finding */
/** @typedef {import('./finding.mjs').Query} Query */
/** @typedef {import('./finding.mjs').Tree} Tree */
/** @typedef {{id: number, parent: number, name: string, kind: string, foreign: boolean, parent_kind: string | null}} Unreachable */

/**
 * @param {Query} query
 * @param {Tree} tree
 * @returns {Promise<Finding[]>}
 */
export async function structureFindings(query, tree) {
    const root = await rootFindings(query, tree);
    if (root.length > 0) return root; // everything else hangs on it
    return [
        ...(await sequenceFindings(query)),
        ...(await unreachableFindings(query, tree)),
        ...(await duplicateFindings(query, tree)),
        ...(await nameFindings(query, tree)),
        ...(await sizeFindings(query, tree)),
        ...(await keyFindings(query)),
    ];
}

/** @param {Query} query @param {Tree} tree @returns {Promise<Finding[]>} */
async function rootFindings(query, { id: tree }) {
    const [root] = await query('select tree, parent, name, kind from kemvi_store.node where id = $1', [-tree]);
    const right = `($1::bigint, -$1::bigint, 0, $1::bigint::text, 'd', kemvi_store.now_ms(), 493)`;
    if (root === undefined) {
        const mend = async (/** @type {import('./mending.mjs').Mending} */ mending) => {
            await mending.query(`insert into kemvi_store.node (tree, id, parent, name, kind, mtime, mode) values ${right}`, [tree]);
            return 'made anew';
        };
        return [{ text: 'the root folder is missing', mend }];
    }
    if (root.tree === tree && root.parent === 0 && root.name === String(tree) && root.kind === 'd') return [];
    const mend = async (/** @type {import('./mending.mjs').Mending} */ mending) => {
        await mending.query(
            `update kemvi_store.node set tree = $1::bigint, parent = 0, name = $1::bigint::text, kind = 'd', size = 0
            where id = -$1::bigint`, [tree]);
        return 'made the root again';
    };
    return [{ text: `the root folder is node ${-tree} of kind ${root.kind} in folder ${root.parent}, and should be a folder in none`, mend }];
}

const keys = [
    { name: 'node_pkey', table: 'node', definition: 'primary key (id)' },
    { name: 'node_parent_name_key', table: 'node', definition: 'unique (parent, name)' },
    { name: 'chunk_pkey', table: 'chunk', definition: 'primary key (tree, node, position)' },
    { name: 'garbage_pkey', table: 'garbage', definition: 'primary key (tree, object)' },
];

/**
 * What keeps names from being there twice.
 * @param {Query} query
 * @returns {Promise<Finding[]>}
 */
async function keyFindings(query) {
    const there = await query("select conname as name from pg_constraint where connamespace = 'kemvi_store'::regnamespace and convalidated");
    const missing = keys.filter(({ name }) => !there.some((each) => each.name === name));
    return missing.map(({ name, table, definition }) => ({
        text: `the tables lack the key ${name}, ${definition}, so that rows can be there twice`,
        isLast: true, // what it forbids has to be mended first
        mend: async ({ query: change }) => {
            await change.script(`alter table kemvi_store.${table} add constraint ${name} ${definition}`);
            return 'made again';
        },
    }));
}

/** @param {Query} query @returns {Promise<Finding[]>} */
async function sequenceFindings(query) {
    const [{ next, most }] = await query(`
        select (last_value + case when is_called then 1 else 0 end) << 20 as next, (select coalesce(max(id), 0) from kemvi_store.node) as most
        from kemvi_store.node_id`);
    if (next > most) return [];
    const mend = async (/** @type {import('./mending.mjs').Mending} */ mending) => {
        await mending.query("select setval('kemvi_store.node_id', $1::bigint >> 20)", [most]);
        return 'set behind the last';
    };
    return [{ text: `the next new node would be about ${next}, and there are nodes up to ${most}`, mend }];
}

// `offset 0` keeps a join a look at the index for each row: in whole, tables are of all trees.

/** @param {Query} query @param {Tree} tree @returns {Promise<Finding[]>} */
async function unreachableFindings(query, { id: tree }) {
    const nodes = /** @type {Unreachable[]} */ (await query(`
        with recursive reached (id, kind) as (
            select n.id, n.kind from kemvi_store.node n where n.id = -$1::bigint
            union all
            select n.id, n.kind
            from reached r cross join lateral (select * from kemvi_store.node where parent = r.id offset 0) n
            where r.kind = 'd' and n.tree = $1 and n.id > 0
        )
        select n.id, n.parent, n.name, n.kind, p.kind as parent_kind, coalesce(p.tree <> n.tree, false) as foreign
        from kemvi_store.node n left join lateral (select * from kemvi_store.node where id = n.parent offset 0) p on true
        where -n.tree = -$1::bigint and not exists (select from reached r where r.id = n.id)
        order by n.id`, [tree]));
    return topsOf(nodes).map(({ top, beneath, problem }) => {
        const more = beneath > 0 ? `; what lies beneath it cannot be reached: ${beneath} nodes` : '';
        return { text: `${nodeText(top)}: ${problem}${more}`, mend: async (mending) => `moved to ${await mending.adopt(top)}` };
    });
}

/**
 * Where each part that cannot be reached begins.
 * @param {Unreachable[]} nodes
 */
function topsOf(nodes) {
    const byId = new Map(nodes.map((node) => [node.id, node]));
    /** @type {Map<number, number>} */
    const members = new Map(); // of each top, itself included
    /** @type {Map<number, number>} */
    const topOf = new Map();
    /** @type {Map<number, string>} */
    const problems = new Map();
    for (const node of nodes) {
        const way = /** @type {Set<number>} */ (new Set());
        let at = node;
        while (!topOf.has(at.id) && !problemOf(at) && !way.has(at.id)) {
            way.add(at.id);
            at = byId.get(at.parent) ?? at;
        }
        const top = topOf.get(at.id) ?? at.id;
        if (!problems.has(top)) problems.set(top, problemOf(at) ?? 'lies in itself: a cycle of folders');
        for (const id of [...way, at.id]) topOf.set(id, top);
    }
    for (const top of topOf.values()) members.set(top, (members.get(top) ?? 0) + 1);
    return [...members].map(([id, count]) => ({
        top: /** @type {Unreachable} */ (byId.get(id)), beneath: count - 1, problem: /** @type {string} */ (problems.get(id)),
    }));
}

/** @param {Unreachable} node */
function problemOf({ parent, parent_kind: kind, foreign }) {
    if (kind === null) return `its parent, node ${parent}, is not there`;
    if (kind !== 'd') return `its parent, node ${parent}, is a file`;
    return foreign ? `its parent, node ${parent}, is of another tree` : undefined;
}

/** @param {Query} query @param {Tree} tree @returns {Promise<Finding[]>} */
async function duplicateFindings(query, { id: tree }) {
    const rows = await query(`
        select parent, name, string_agg(id::text, ' ' order by id) as ids from kemvi_store.node where -tree = -$1::bigint
        group by parent, name having count(*) > 1 order by parent, name`, [tree]);
    return rows.flatMap(({ parent, name, ids }) => ids.split(' ').slice(1).map(Number).map((/** @type {number} */ id) => ({
        text: `${nodeText({ id, name })}: another node of that name is in the same folder, node ${parent}`,
        mend: async (/** @type {import('./mending.mjs').Mending} */ mending) => rename(mending, parent, id, `${name}-${id}`),
    })));
}

/** @param {Query} query @param {Tree} tree @returns {Promise<Finding[]>} */
async function nameFindings(query, { id: tree }) {
    const rows = await query(`
        select id, parent, name from kemvi_store.node
        where -tree = -$1::bigint and id > 0 and (name in ('', '.', '..') or position('/' in name) > 0 or octet_length(name) > 255)`, [tree]);
    return rows.map(({ id, parent, name }) => ({
        text: `${nodeText({ id, name })}: no file can have that name`,
        mend: async (mending) => rename(mending, parent, id, `${id}-${name}`),
    }));
}

/**
 * @param {import('./mending.mjs').Mending} mending
 * @param {number} parent
 * @param {number} id
 * @param {string} wanted
 */
async function rename(mending, parent, id, wanted) {
    const name = await mending.freeName(parent, wanted);
    await mending.query('update kemvi_store.node set name = $1 where id = $2', [name, id]);
    return `renamed to ${JSON.stringify(name)}`;
}

/** @param {Query} query @param {Tree} tree @returns {Promise<Finding[]>} */
async function sizeFindings(query, { id: tree }) {
    const rows = await query(`
        select id, name, kind, size from kemvi_store.node where -tree = -$1::bigint and (size < 0 or (kind = 'd' and size <> 0))`, [tree]);
    return rows.map(({ id, name, kind, size }) => ({
        text: `${nodeText({ id, name })}: has a size of ${size}, ${kind === 'd' ? 'and is a folder' : 'which no file can have'}`,
        mend: async (mending) => {
            // All that there is of a file counts then.
            const [row] = await mending.query(
                `update kemvi_store.node n set version = version + 1, size = case when n.kind = 'd' then 0 else coalesce((
                    select max(c.position * $2::bigint + c.length) from kemvi_store.chunk c
                    where c.tree = n.tree and c.node = n.id), 0) end
                where n.id = $1 returning n.size`, [id, mending.tree.chunkSize]);
            return `the size is ${row.size}`;
        },
    }));
}
