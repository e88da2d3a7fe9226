// JSON text of strings, for answers that are put together by hand.

const needsEscape = /[\u0000-\u001f"\\\ud800-\udfff]/; // lone surrogates too: JSON.stringify escapes them

/**
 * @param {string} text
 * @returns {string} the text as a JSON string, quotes included
 */
export function quote(text) {
    return needsEscape.test(text) ? JSON.stringify(text) : '"' + text + '"';
}
