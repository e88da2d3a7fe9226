export class LateAnswers {
    /**
     * @param {number} lateAfter milliseconds
     * @param {(text: string) => void} report takes lines for people
     */
    constructor(lateAfter: number, report: (text: string) => void);
    lateAfter_: number;
    report_: (text: string) => void;
    /** @type {{refresh: () => unknown} | undefined} one for all requests: each pushes it on, so that it goes off in quiet times */
    timer_: {
        refresh: () => unknown;
    } | undefined;
    /** @type {(() => string) | undefined} */
    awaited_: (() => string) | undefined;
    toldSince_: number;
    /** @param {() => string} subject tells what is awaited */
    await(subject: () => string): void;
    /** What was awaited has come. */
    came(): void;
    tell_(): void;
}
