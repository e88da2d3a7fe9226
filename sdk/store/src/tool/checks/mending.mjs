// What repairs are made of. Nothing is deleted that anybody could miss: what has lost its place goes into a folder of its own.

/** @typedef {import('./finding.mjs').Tree} Tree */
/** @typedef {import('./finding.mjs').TransactionQuery} TransactionQuery */

const longestName = 255; // bytes

export class Mending {
    /** @param {TransactionQuery} query @param {Tree} tree */
    constructor(query, tree) {
        this.query = query;
        this.tree = tree;
        /** @type {{id: number, name: string} | undefined} */
        this.lostAndFound_ = undefined;
    }

    /**
     * Puts a node, with all beneath it, among what was lost.
     * @param {{id: number, name: string}} node
     * @returns {Promise<string>} its path
     */
    async adopt({ id, name }) {
        const folder = await this.folder_();
        const free = await this.freeName(folder.id, `${id}-${name}`);
        await this.query('update kemvi_store.node set parent = $1, name = $2 where id = $3', [folder.id, free, id]);
        return `/${folder.name}/${free}`;
    }

    /**
     * Makes chunks that are of no file the contents of one.
     * @param {number} node whose they were
     * @param {string} name
     * @param {'all' | 'outside'} which all of them, or those before the start and behind the end of the file
     * @returns {Promise<string>} its path
     */
    async rescue(node, name, which) {
        const folder = await this.folder_();
        const free = await this.freeName(folder.id, `${node}-${name}`);
        const { id: tree, chunkSize } = this.tree;
        const outside = 'and (position < 0 or position * $4::bigint >= (select size from kemvi_store.node where id = $2))';
        const [made] = await this.query("select kemvi_store.new_node_id() as id");
        const params = [tree, node, made.id, chunkSize];
        await this.query(
            `update kemvi_store.chunk set node = $3, position = position - least(0, (
                select min(position) from kemvi_store.chunk where tree = $1 and node = $2))
            where tree = $1 and node = $2 and $4::bigint > 0 ${which === 'outside' ? outside : ''}`, params);
        await this.query(
            `insert into kemvi_store.node (tree, id, parent, name, kind, size, mtime, mode, version)
            select $1::bigint, $3::bigint, $5::bigint, $6::text, 'f', max(position * $4::bigint + length), kemvi_store.now_ms(), 384, max(version) + 1
            from kemvi_store.chunk where tree = $1 and node = $3 and $2::bigint is not null`,
            [...params, folder.id, free]);
        if (which === 'outside') await this.countVersion(node);
        return `/${folder.name}/${free}`;
    }

    /**
     * A file has other contents now: whoever has read it before has to look again.
     * @param {number} node
     */
    async countVersion(node) {
        await this.query('update kemvi_store.node set version = version + 1 where id = $1', [node]);
    }

    /**
     * @param {number} folder
     * @param {string} wanted
     * @returns {Promise<string>} like what was wanted, and used by nobody there
     */
    async freeName(folder, wanted) {
        const plain = cut(wanted.replaceAll('/', '_'), longestName - 8);
        for (let number = 1; ; number++) {
            const name = number === 1 ? plain : `${plain}-${number}`;
            const used = await this.query('select from kemvi_store.node where parent = $1 and name = $2', [folder, name]);
            if (used.length === 0) return name;
        }
    }

    async folder_() {
        this.lostAndFound_ ??= await this.makeFolder_();
        return this.lostAndFound_;
    }

    async makeFolder_() {
        const root = -this.tree.id;
        const name = await this.freeName(root, `lost+found-${new Date().toISOString().slice(0, 10)}`);
        const [{ id }] = await this.query(
            `insert into kemvi_store.node (tree, id, parent, name, kind, mtime, mode)
            values ($1, kemvi_store.new_node_id(), $2, $3, 'd', kemvi_store.now_ms(), 448) returning id`,
            [this.tree.id, root, name],
        );
        return { id, name };
    }
}

/**
 * Cuts between two characters.
 * @param {string} text
 * @param {number} bytes
 */
function cut(text, bytes) {
    let shorter = text;
    while (Buffer.byteLength(shorter) > bytes) shorter = [...shorter].slice(0, -1).join('');
    return shorter;
}
