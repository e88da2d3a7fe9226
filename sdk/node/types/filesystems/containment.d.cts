/**
 * The error of a call of node:fs, told with the path of the tree instead of the real one.
 * @param {unknown} error
 * @param {string} path
 */
export function withoutRealPath(error: unknown, path: string): unknown;
/** @typedef {{real: string, since: number}} Place `since` is a time of Date.now, the cheapest clock by far */
export class Containment {
    /** @param {string} root an existing folder */
    constructor(root: string);
    root: string;
    prefix_: string;
    /** @type {Map<string, Place>} */
    places_: Map<string, Place>;
    lastFolder_: string;
    /**
     * Where a path of the tree lies. Its folder is followed through links, its last component is not.
     * @param {string} path
     * @returns {string}
     * @throws {PosixError} EACCES when it would lead out of the tree; ENOENT, ENOTDIR when its folder is none
     */
    locate(path: string): string;
    /**
     * Requests come in rows for one folder. While they do, its path stays one and the same string, whose hash is known.
     * @param {string} path
     * @param {number} slash the last one
     */
    folderOf_(path: string, slash: number): string;
    /**
     * The real path of a folder of the tree, links followed.
     * @param {string} path
     * @returns {string}
     */
    folder(path: string): string;
    /**
     * The real path of anything in the tree, all links followed, asked anew.
     * @param {string} path
     * @returns {string}
     */
    follow(path: string): string;
    /** To be called after a change that may have moved folders. */
    forget(): void;
}
/**
 * `since` is a time of Date.now, the cheapest clock by far
 */
export type Place = {
    real: string;
    since: number;
};
