// Hears what other machines change in the tree, and tells the mount.
//
// Nothing is remembered of what was missed while the connection was lost: everything may have changed then.

/** @typedef {import('../engine/engine.mjs').Engine} Engine */

export const channel = 'kemvi_store';

export class ForeignChanges {
    /**
     * @param {Engine} engine
     * @param {{id: number}} tree
     * @param {object} takers
     * @param {(paths: string[]) => void} takers.changed something has changed at these paths, or beneath
     * @param {() => void} takers.doubted anything may have changed
     * @param {() => void} takers.migrated the schema may be another one
     */
    constructor(engine, tree, { changed, doubted, migrated }) {
        this.engine_ = engine;
        this.tree_ = tree.id;
        this.changed_ = changed;
        this.doubted_ = doubted;
        this.migrated_ = migrated;
    }

    /** Done when it hears. */
    async begin() {
        // Twice for each break: what is asked between the two may be out of date when it is answered.
        const onBack = () => {
            this.doubted_();
            this.migrated_();
        };
        await this.engine_.listen(channel, (text) => this.take_(text), () => this.doubted_(), onBack);
    }

    /** @param {string} text of a notice */
    async take_(text) {
        const { tree, origin, paths, number, schema } = JSON.parse(text);
        if (schema) this.migrated_();
        if (tree !== this.tree_ || origin === this.engine_.origin) return;
        if (paths) {
            this.changed_(paths);
            return;
        }
        try {
            const ask = 'select paths from kemvi_store.change where tree = $1 and number = $2';
            const [row] = await this.engine_.query(ask, [tree, number]);
            if (row) this.changed_(row.paths);
            else this.doubted_();
        } catch {
            this.doubted_(); // the engine is lost, which is told by who asks it for something
        }
    }
}
