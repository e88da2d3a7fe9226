export class FirstCalls {
    /** @type {Set<string>} */
    seen_: Set<string>;
    /** @type {string[]} */
    before_: string[];
    /**
     * @param {string} op
     * @returns {boolean} whether it is called for the first time
     */
    begin(op: string): boolean;
    /** What goes on now and did not when the call began, by node's names. */
    end(): string[];
}
