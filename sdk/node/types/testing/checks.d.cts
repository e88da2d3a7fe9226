/** @type {Record<string, string>} */
export const checks: Record<string, string>;
/**
 * Those that no file system can break, because the kit writes the answers: it refuses a value that would (and then
 * another rule is broken, with a message that names the value).
 */
export const keptByTheKit: string[];
export const readingChecks: string[];
export const writingChecks: string[];
