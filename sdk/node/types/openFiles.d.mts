/** @typedef {{file: any, read: boolean, write: boolean, path: string}} OpenFile `path`: with which it was opened */
export class OpenFiles {
    /** @param {import('./fileSystem.mjs').FileSystem} fileSystem */
    constructor(fileSystem: import('./fileSystem.mjs').FileSystem);
    fileSystem_: import("./fileSystem.mjs").FileSystem<any>;
    /** @type {Map<number, OpenFile>} */
    files_: Map<number, OpenFile>;
    lastHandle_: number;
    /** Whether no file was opened yet. */
    get isFresh(): boolean;
    /**
     * @param {any} file
     * @param {import('./fileSystem.mjs').OpenFlags} flags with which it was opened
     * @param {string} path with which it was opened
     * @returns {number} a number that was never used before
     */
    add(file: any, { read, write }: import('./fileSystem.mjs').OpenFlags, path: string): number;
    /** @param {unknown} handle @returns {OpenFile} */
    get(handle: unknown): OpenFile;
    /** @param {unknown} handle @returns {string | undefined} for messages; undefined where it is not open */
    pathOf(handle: unknown): string | undefined;
    /** Those that are open now. */
    handles(): number[];
    /**
     * Forgets a handle and gives its file back.
     * @param {unknown} handle
     */
    release(handle: unknown): import("./fileSystem.mjs").MaybeAsync<void> | undefined;
}
/**
 * `path`: with which it was opened
 */
export type OpenFile = {
    file: any;
    read: boolean;
    write: boolean;
    path: string;
};
