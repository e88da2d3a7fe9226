// What a collection of garbage would remove.

/**
 * @param {import('./openTree.mjs').OpenTree} open
 * @param {number} age milliseconds
 */
export async function countGarbage({ engine, tree, objects }, age) {
    const seconds = Math.ceil(age / 1000);
    const [{ uploads }] = await engine.query(
        `select count(*) as uploads from kemvi_store.upload where tree = $1 and since <= now() - $2::int * interval '1 second'`,
        [tree.id, seconds],
    );
    const done = { looked: 0, removed: 0, uploads };
    if (objects === undefined) return done;
    const all = 2 ** 31 - 1;
    const [{ count }] = await engine.query('select count(*) as count from kemvi_store.old_garbage($1, $2, $3)', [tree.id, seconds, all]);
    done.removed = count;
    for (let after = /** @type {string | undefined} */ (undefined); ; ) {
        const page = await objects.list(after);
        const old = page.objects.filter((listed) => listed.age >= age).map(({ name }) => name);
        done.looked += page.objects.length;
        if (old.length > 0) done.removed += (await engine.query('select * from kemvi_store.unreferenced($1, $2)', [tree.id, old])).length;
        if (page.next === undefined) return done;
        after = page.next;
    }
}
