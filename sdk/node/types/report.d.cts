/**
 * Says something on standard error, where the mount passes it to its log.
 * @param {string} text
 */
export function report(text: string): void;
