export class InAdvance {
    /** @param {number} most at the same time */
    constructor(most: number);
    most: number;
    underWay_: number;
    /**
     * Asks, if there is room. If that fails, whoever asks for it later is told.
     * @param {() => Promise<any>} ask
     */
    run(ask: () => Promise<any>): Promise<void>;
}
