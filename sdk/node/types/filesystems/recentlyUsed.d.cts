/** @template T */
export class RecentlyUsed<T> {
    /**
     * @param {number} capacity the weight of all values together
     * @param {(value: T) => number} [weigh] 1 for each when left out
     */
    constructor(capacity: number, weigh?: ((value: T) => number) | undefined);
    capacity_: number;
    weigh_: (value: T) => number;
    weight_: number;
    /** @type {Map<string, T>} the one used longest ago first */
    values_: Map<string, T>;
    /**
     * @param {string} key
     * @param {() => Promise<T>} make
     * @returns {Promise<T>}
     */
    get(key: string, make: () => Promise<T>): Promise<T>;
}
