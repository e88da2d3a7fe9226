/**
 * Something that is wrong with a file system.
 * @typedef {object} Finding
 * @property {string} check the rule, as `kemvi check` names it
 * @property {'error' | 'warning'} severity
 * @property {string} problem
 * @property {string} consequence what a user of the mount would see because of it
 * @property {string} request the line that shows it; empty where there is none
 * @property {string} answer the same
 * @property {string} said what the kit said meanwhile: the stack of a mistake is in it
 * @property {number} more how many of the same kind were found after it
 */
/**
 * @typedef {object} CheckResult
 * @property {Finding[]} errors empty unless it was thrown
 * @property {Finding[]} warnings
 * @property {string[]} examined the rules, as `kemvi check` names them
 * @property {string[]} skipped those that were not examined, such as those about changes in a read-only file system
 */
export class Findings {
    /** @type {Finding[]} */
    all: Finding[];
    /**
     * Of findings with the same consequence under one rule only the first is kept, with a count.
     * @param {string} check a key of `checks`
     * @param {'error' | 'warning'} severity
     * @param {string} problem
     * @param {string} consequence
     * @param {import('./conversation.mjs').Answer} [shown] the exchange that shows it
     */
    add(check: string, severity: 'error' | 'warning', problem: string, consequence: string, shown?: import("./conversation.mjs").Answer | undefined): void;
    /** @param {'error' | 'warning'} severity */
    of(severity: 'error' | 'warning'): Finding[];
    /** @param {string} check */
    failed(check: string): boolean;
}
/** Thrown by `check` where a rule is broken: the message says all that `kemvi check` would. */
export class CheckError extends Error {
    /** @param {CheckResult} result */
    constructor(result: CheckResult);
    errors: Finding[];
    warnings: Finding[];
}
/**
 * Something that is wrong with a file system.
 */
export type Finding = {
    /**
     * the rule, as `kemvi check` names it
     */
    check: string;
    severity: 'error' | 'warning';
    problem: string;
    /**
     * what a user of the mount would see because of it
     */
    consequence: string;
    /**
     * the line that shows it; empty where there is none
     */
    request: string;
    /**
     * the same
     */
    answer: string;
    /**
     * what the kit said meanwhile: the stack of a mistake is in it
     */
    said: string;
    /**
     * how many of the same kind were found after it
     */
    more: number;
};
export type CheckResult = {
    /**
     * empty unless it was thrown
     */
    errors: Finding[];
    warnings: Finding[];
    /**
     * the rules, as `kemvi check` names them
     */
    examined: string[];
    /**
     * those that were not examined, such as those about changes in a read-only file system
     */
    skipped: string[];
};
