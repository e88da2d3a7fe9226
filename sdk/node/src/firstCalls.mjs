// Looks once at each operation for what its function leaves going on in the process. A forgotten await shows there, and
// nowhere else: in the blocking loop what was begun would never go on, in node's event loop it would end after the answer.

const ofPrinting = new Set(['PipeWrap', 'TTYWrap']); // show up as soon as something was printed

export class FirstCalls {
    constructor() {
        /** @type {Set<string>} */
        this.seen_ = new Set();
        /** @type {string[]} */
        this.before_ = [];
    }

    /**
     * @param {string} op
     * @returns {boolean} whether it is called for the first time
     */
    begin(op) {
        if (this.seen_.has(op)) return false;
        this.seen_.add(op);
        this.before_ = process.getActiveResourcesInfo();
        return true;
    }

    /** What goes on now and did not when the call began, by node's names. */
    end() {
        const known = [...this.before_];
        /** @type {Set<string>} */
        const more = new Set();
        for (const name of process.getActiveResourcesInfo()) {
            const place = known.indexOf(name);
            if (place >= 0) known.splice(place, 1);
            else if (!ofPrinting.has(name)) more.add(name);
        }
        return [...more];
    }
}
