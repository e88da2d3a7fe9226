// Lines for people.
import fs from 'node:fs';

/**
 * Says something on standard error, where the mount passes it to its log.
 * @param {string} text
 */
export function report(text) {
    try {
        fs.writeSync(2, `kemvi-helper: ${text}\n`);
    } catch {
        // Standard error is gone; there is nobody to tell.
    }
}
