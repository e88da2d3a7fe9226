/**
 * @param {string} caller for the message
 * @param {Record<string, any>} options
 * @param {string} name
 * @param {number} usual when it is left out
 * @param {string[]} known all options that there are
 * @param {number} [least]
 * @returns {number} a whole number
 * @throws {TypeError} naming the option and what was wanted
 */
export function numberOption(caller: string, options: Record<string, any>, name: string, usual: number, known: string[], least?: number | undefined): number;
