/**
 * @param {number} time milliseconds since 1970; a fraction is cut off, and what four digits of a year cannot say is
 *     moved to the nearest time that they can
 * @returns {string}
 */
export function timeText(time: number): string;
/**
 * @param {string} text
 * @returns {Date | undefined} undefined when the text is not a time in the protocol's form
 */
export function parseTime(text: string): Date | undefined;
