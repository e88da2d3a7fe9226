// Tells of an answer that does not come: a promise that is never settled keeps a mount waiting without a word.

export class LateAnswers {
    /**
     * @param {number} lateAfter milliseconds
     * @param {(text: string) => void} report takes lines for people
     */
    constructor(lateAfter, report) {
        this.lateAfter_ = lateAfter;
        this.report_ = report;
        /** @type {{refresh: () => unknown} | undefined} one for all requests: each pushes it on, so that it goes off in quiet times */
        this.timer_ = undefined;
        /** @type {(() => string) | undefined} */
        this.awaited_ = undefined;
        this.toldSince_ = 0;
    }

    /** @param {() => string} subject tells what is awaited */
    await(subject) {
        this.awaited_ = subject;
        if (this.timer_ === undefined) this.timer_ = setTimeout(() => this.tell_(), this.lateAfter_).unref();
        else this.timer_.refresh();
    }

    /** What was awaited has come. */
    came() {
        if (this.toldSince_ !== 0 && this.awaited_ !== undefined) {
            const seconds = (performance.now() - this.toldSince_ + this.lateAfter_) / 1000;
            this.report_(`${this.awaited_()} is answered after ${seconds.toFixed(1)} s`);
        }
        this.toldSince_ = 0;
        this.awaited_ = undefined;
    }

    tell_() {
        if (this.awaited_ === undefined) return;
        this.toldSince_ = performance.now();
        const seconds = this.lateAfter_ / 1000;
        const question = 'and the mount waits: is its promise ever settled?';
        this.report_(`${this.awaited_()} has not been answered for ${seconds} s, ${question}`);
    }
}
