export class LastLook {
    real_: string;
    type_: number;
    since_: number;
    /**
     * @param {string} real
     * @param {number} mode of what is there, links not followed; 0 when nothing is
     */
    saw(real: string, mode: number): void;
    /** @param {string} real */
    foundNothing(real: string): boolean;
    /** @param {string} real */
    foundPlainFile(real: string): boolean;
    /** To be called when names have been changed. */
    forget(): void;
}
