/**
 * @param {string} text
 * @returns {string} the text as a JSON string, quotes included
 */
export function quote(text: string): string;
