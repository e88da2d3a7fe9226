// What an examination has found, and how it is told.
import { checks } from './checks.mjs';

const longestShown = 300; // characters of a line that are shown to people

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
    constructor() {
        /** @type {Finding[]} */
        this.all = [];
    }

    /**
     * Of findings with the same consequence under one rule only the first is kept, with a count.
     * @param {string} check a key of `checks`
     * @param {'error' | 'warning'} severity
     * @param {string} problem
     * @param {string} consequence
     * @param {import('./conversation.mjs').Answer} [shown] the exchange that shows it
     */
    add(check, severity, problem, consequence, shown) {
        const name = checks[check];
        const alike = this.all.find(
            (known) => known.check === name && known.consequence === consequence && known.severity === severity,
        );
        if (alike) {
            alike.more++;
            return;
        }
        const { request = '', line = '', said = '' } = shown ?? {};
        this.all.push({ check: name, severity, problem, consequence, request, answer: line, said, more: 0 });
    }

    /** @param {'error' | 'warning'} severity */
    of(severity) {
        return this.all.filter((finding) => finding.severity === severity);
    }

    /** @param {string} check */
    failed(check) {
        return this.of('error').some((finding) => finding.check === checks[check]);
    }
}

/** Thrown by `check` where a rule is broken: the message says all that `kemvi check` would. */
export class CheckError extends Error {
    /** @param {CheckResult} result */
    constructor(result) {
        const count = new Set(result.errors.map(({ check }) => check)).size;
        super(`${count} ${count === 1 ? 'rule is' : 'rules are'} broken\n` + result.errors.map(text).join(''));
        this.name = 'CheckError';
        this.errors = result.errors;
        this.warnings = result.warnings;
    }
}

/** @param {Finding} finding */
function text(finding) {
    const lines = [
        ['request:', finding.request], ['answer: ', finding.answer], ['said:   ', finding.said.trimEnd()],
        ['wrong:  ', finding.problem], ['so:     ', finding.consequence],
    ];
    const shown = lines.filter(([, value]) => value !== '').map(([label, value]) => `    ${label} ${shorten(value)}\n`);
    const more = finding.more > 0 ? `    and ${finding.more} more like it\n` : '';
    return `  ${finding.check}\n${shown.join('')}${more}`;
}

/** @param {string} line */
function shorten(line) {
    return line.length > longestShown ? `${line.slice(0, longestShown)}... (${Buffer.byteLength(line)} bytes)` : line;
}
