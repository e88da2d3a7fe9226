/** @typedef {import('./fileSystem.mjs').Stat} Stat */
/**
 * @param {Stat} stat
 * @param {string} quotedPath
 * @param {string} quotedName
 * @returns {string}
 */
export function statText(stat: Stat, quotedPath: string, quotedName: string): string;
/**
 * @param {string} path
 * @returns {string} its last component; "/" for the root
 */
export function baseName(path: string): string;
/** Makes the texts of the members of one folder. */
export class EntryTexts {
    /** @param {string} folder */
    constructor(folder: string);
    folder_: string;
    quotedPrefix_: string;
    /** @param {import('./fileSystem.mjs').Entry} entry */
    text(entry: import('./fileSystem.mjs').Entry): string;
    /**
     * @param {unknown} name
     * @param {unknown} entry
     * @returns {string} its JSON text without the first quote
     */
    checkedName_(name: unknown, entry: unknown): string;
}
export type Stat = import('./fileSystem.mjs').Stat;
