// The statement that finds a node by its path: a join for each step, so that the server has nothing to do but look these up
// in its index. A function that goes from step to step takes as long again for each call of itself and for each step. The comment
// in front is for who reads the server's log.

const longest = 12; // steps; paths of more go by the function

/**
 * What has to be asked, and with which parameters, for what is at a path.
 * @typedef {{text: string, params: any[]}} Question
 */

/**
 * Answered with no row when the first step leads nowhere.
 * @param {number} tree
 * @param {string} path
 * @returns {Question}
 */
export function attributesAt(tree, path) {
    const steps = stepsOf(path);
    if (steps.length > longest) return { text: 'select * from kemvi_store.getattr($1, $2)', params: [tree, path] };
    return { text: (attributeTexts[steps.length] ??= attributesText(steps.length)), params: [tree, ...steps] };
}

/**
 * The same for what is in a folder.
 * @param {number} tree
 * @param {string} path
 * @returns {Question}
 */
export function membersAt(tree, path) {
    const steps = stepsOf(path);
    if (steps.length > longest) return { text: 'select * from kemvi_store.readdir($1, $2)', params: [tree, path] };
    return { text: (memberTexts[steps.length] ??= membersText(steps.length)), params: [tree, ...steps] };
}

/** @type {string[]} by the number of steps, as `memberTexts` */
const attributeTexts = [];
/** @type {string[]} */
const memberTexts = [];

/** @param {string} path */
function stepsOf(path) {
    return path === '/' ? [] : path.slice(1).split('/');
}

/** @param {number} count of steps */
function attributesText(count) {
    const last = `n${count}`;
    return `/* kemvi_store.getattr */ select ${codeText(count)} as code, ${last}.id as node,
        ${last}.kind, ${last}.size, ${last}.mtime, ${last}.mode, ${last}.version
        from ${walkText(count)}`;
}

/** @param {number} count of steps */
function membersText(count) {
    const last = `n${count}`;
    return `/* kemvi_store.readdir */ select case when ${last}.kind = 'f' then 'ENOTDIR' else ${codeText(count)} end as code, m.names, m.facts
        from ${walkText(count)}
        left join lateral kemvi_store.members(case ${last}.kind when 'd' then ${last}.id end) m on true`;
}

/**
 * Why there is nothing at the end of the way; null if there is.
 * @param {number} count of steps
 */
function codeText(count) {
    const onTheWay = Array.from({ length: Math.max(0, count - 1) }, (_, index) => `n${index + 1}.kind`);
    const throughFile = onTheWay.length > 0 ? `when 'f' in (${onTheWay}) then 'ENOTDIR'` : '';
    return `case when n${count}.id is not null then null ${throughFile} else 'ENOENT' end`;
}

/**
 * n1, n2, ...: the nodes at the steps; those of steps that lead nowhere are null, from the second on. n0: the root, if there
 * are no steps.
 * @param {number} count of steps
 */
function walkText(count) {
    if (count === 0) return '(select * from kemvi_store.node where id = -$1::bigint) n0';
    const first = '(select * from kemvi_store.node where parent = -$1::bigint and name = $2) n1';
    const others = Array.from({ length: count - 1 }, (_, index) =>
        `left join kemvi_store.node n${index + 2} on n${index + 2}.parent = n${index + 1}.id and n${index + 2}.name = $${index + 3}`);
    return [first, ...others].join('\n        ');
}
