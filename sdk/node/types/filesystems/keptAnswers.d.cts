/** @param {string} path */
export function parentOf(path: string): string;
/** @param {string} path */
export function nameOf(path: string): string;
/**
 * @param {string} folder
 * @param {string} name
 */
export function beneath(folder: string, name: string): string;
export const recordLength: 200;
/**
 * @typedef {object} Kept
 * @property {any} value
 * @property {number} at when it came, in milliseconds
 * @property {number} weight in bytes
 * @property {number} since the latest drop when it was asked for
 */
/**
 * What is kept has a key "KIND:PATH". A drop only notes its number at the path, so that it costs the same however much is
 * kept; an answer that was asked for before the drop no longer counts, neither a kept one nor one that is still to come.
 */
export class KeptAnswers {
    /**
     * @param {number} memory bytes
     * @param {number} ttl milliseconds
     * @param {() => number} now milliseconds
     */
    constructor(memory: number, ttl: number, now: () => number);
    memory_: number;
    ttl_: number;
    now_: () => number;
    weight: number;
    /** @type {Map<string, Kept>} the one used longest ago first */
    kept_: Map<string, Kept>;
    /** @type {Map<string, {promise: Promise<any>, since: number}>} */
    underWay_: Map<string, {
        promise: Promise<any>;
        since: number;
    }>;
    /** @type {Map<string, number>} paths, with all beneath, and keys, alone: the number of their latest drop */
    dropped_: Map<string, number>;
    lastDrop_: number;
    sweptAt_: number;
    /**
     * @param {string} key
     * @param {number} [ttl] milliseconds; for ever with Infinity
     * @returns {Kept | undefined}
     */
    find(key: string, ttl?: number | undefined): Kept | undefined;
    /**
     * Whether it is kept or about to come.
     * @param {string} key
     * @param {number} [ttl]
     */
    has(key: string, ttl?: number | undefined): boolean;
    /**
     * What is kept or, where nothing is, what `make` gives, which is kept then. An error is not.
     * @param {string} key
     * @param {() => Promise<any>} make
     * @param {(value: any) => number} weigh bytes; 0 for what is not to be kept
     * @param {number} [ttl]
     * @returns {Promise<any>}
     */
    ask(key: string, make: () => Promise<any>, weigh: (value: any) => number, ttl?: number | undefined): Promise<any>;
    /**
     * Forgets everything of a path and of what is beneath it.
     * @param {string} path
     */
    drop(path: string): void;
    /**
     * Forgets one answer.
     * @param {string} key
     */
    dropAlone(key: string): void;
    /**
     * @param {string} key
     * @param {() => Promise<any>} make
     * @param {(value: any) => number} weigh
     */
    make_(key: string, make: () => Promise<any>, weigh: (value: any) => number): Promise<any>;
    /** @param {string} key */
    comingFor_(key: string): {
        promise: Promise<any>;
        since: number;
    } | undefined;
    /**
     * Whether nothing was dropped of it since.
     * @param {string} key
     * @param {number} since
     */
    counts_(key: string, since: number): boolean;
    /** @param {string} pathOrKey */
    note_(pathOrKey: string): void;
    /** Carries out what was noted. What is under way is given to who waits for it, and not kept. */
    sweep_(): void;
}
export type Kept = {
    value: any;
    /**
     * when it came, in milliseconds
     */
    at: number;
    /**
     * in bytes
     */
    weight: number;
    /**
     * the latest drop when it was asked for
     */
    since: number;
};
