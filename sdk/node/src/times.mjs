// Times as the protocol writes them: YYYY-MM-DDTHH:MM:SS.mmmZ, always UTC, always three fractional digits.

const minute = 60_000;
const earliest = Date.parse('0001-01-01T00:00:00.000Z');
const latest = Date.parse('9999-12-31T23:59:59.999Z');

const secondTexts = Array.from({ length: 60 }, (_, second) => String(second).padStart(2, '0') + '.');
const fractionTexts = Array.from({ length: 1000 }, (_, fraction) => String(fraction).padStart(3, '0') + 'Z');

// Neighbouring entries of a listing mostly share their minute, so most times cost three table look-ups.
let knownMinute = NaN;
let knownText = '';

/**
 * @param {number} time milliseconds since 1970; a fraction is cut off, and what four digits of a year cannot say is
 *     moved to the nearest time that they can
 * @returns {string}
 */
export function timeText(time) {
    let whole = Math.floor(time);
    if (!(whole >= earliest)) whole = earliest;
    else if (whole > latest) whole = latest;
    const inMinute = ((whole % minute) + minute) % minute;
    if (whole - inMinute !== knownMinute) {
        knownMinute = whole - inMinute;
        knownText = new Date(knownMinute).toISOString().slice(0, 17);
    }
    const fraction = inMinute % 1000;
    return knownText + secondTexts[(inMinute - fraction) / 1000] + fractionTexts[fraction];
}

const timeForm = /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d+(?:Z|[+-]\d\d:\d\d)$/;

/**
 * @param {string} text
 * @returns {Date | undefined} undefined when the text is not a time in the protocol's form
 */
export function parseTime(text) {
    if (!timeForm.test(text)) return undefined;
    const time = new Date(text);
    return Number.isNaN(time.getTime()) ? undefined : time;
}
