// What is asked for before anybody has: so many at a time, and never felt by whoever asks.

export class InAdvance {
    /** @param {number} most at the same time */
    constructor(most) {
        this.most = most;
        this.underWay_ = 0;
    }

    /**
     * Asks, if there is room. If that fails, whoever asks for it later is told.
     * @param {() => Promise<any>} ask
     */
    async run(ask) {
        if (this.underWay_ >= this.most) return;
        this.underWay_++;
        try {
            await ask();
        } catch {
            // not kept: it is asked for again
        }
        this.underWay_--;
    }
}
