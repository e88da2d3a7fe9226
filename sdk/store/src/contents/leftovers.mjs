// What was written to files and could not be committed when their last handle went.
//
// Programs may still have such a file open: a host gives handles back between their calls and asks for new ones. So it is
// kept, shown on this machine, and committed with the next handle's writes, or from here when the engines are back; but not
// over what another machine has written since.

/** @typedef {import('./sharedFile.mjs').SharedFile} SharedFile */

const firstPause = 500; // milliseconds between attempts; doubled for each
const longestPause = 8000;
const lastWait = 3000; // milliseconds for the attempt at the end, whoever waits for that

export class Leftovers {
    /**
     * @param {import('./databaseChunks.mjs').DatabaseChunks} database
     * @param {(text: string) => void} say takes lines for people
     */
    constructor(database, say) {
        this.database_ = database;
        this.say_ = say;
        /** @type {Map<SharedFile, number>} with the version that the file had then */
        this.files_ = new Map();
        this.pause_ = firstPause;
        /** @type {NodeJS.Timeout | undefined} there is one only while something is kept */
        this.timer_ = undefined;
    }

    /** @param {SharedFile} file @param {Error} [failure] */
    add(file, failure) {
        if (this.files_.has(file)) return;
        this.files_.set(file, file.rows.facts.version);
        const reason = failure?.message ?? 'told before';
        this.say_(`${file.path}: not committed, and tried again until this helper ends: ${file.unsaved}: ${reason}`);
        this.pause_ = firstPause;
        this.wait_();
    }

    /**
     * Somebody asks for the file, and the database has told its version: what is kept may be out of date.
     * @param {SharedFile} file
     * @param {number} version
     */
    async look(file, version) {
        const before = this.files_.get(file);
        if (before === undefined || file.handles > 0 || version <= before || !file.isChanged) return;
        if (await this.database_.wasCommitted(file.batch)) return; // by this machine: only the answer was lost
        file.abandon(new Error('another machine has written the file since'));
        this.files_.delete(file);
    }

    async end() {
        clearTimeout(this.timer_);
        const files = [...this.files_.keys()];
        let timer;
        await Promise.race([
            Promise.allSettled(files.map((file) => this.attempt_(file))),
            new Promise((resolve) => (timer = setTimeout(resolve, files.length === 0 ? 0 : lastWait, undefined))),
        ]);
        clearTimeout(timer);
        for (const file of files) file.abandon(new Error('this helper ends'));
        this.files_.clear();
    }

    wait_() {
        this.timer_ ??= setTimeout(() => this.retry_(), this.pause_).unref();
        this.pause_ = Math.min(2 * this.pause_, longestPause);
    }

    async retry_() {
        for (const file of this.files_.keys()) await this.attempt_(file).catch(() => {});
        this.timer_ = undefined;
        if (this.files_.size > 0) this.wait_();
    }

    /** @param {SharedFile} file */
    async attempt_(file) {
        try {
            if (!file.isChanged) return;
            await this.look(file, (await this.database_.chunks(file.node, 0, 0)).facts.version);
            if (!file.isChanged) return;
            await file.flush();
            this.say_(`${file.path}: committed after all`);
        } catch (error) {
            if (/** @type {any} */ (error).code === 'ESTALE') file.lose(/** @type {any} */ (error));
            throw error;
        } finally {
            if (!file.isChanged) this.files_.delete(file);
        }
    }
}
