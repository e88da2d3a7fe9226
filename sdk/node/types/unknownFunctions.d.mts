/**
 * @param {any} fileSystem
 * @param {string[]} known the functions that are called
 * @returns {string[]} a line for each function of the file system that looks like a mistake
 */
export function unknownFunctions(fileSystem: any, known: string[]): string[];
/**
 * `text`: what to know; then it is told even where there is the right one
 */
export type Meant = {
    right: string;
    text?: string;
};
