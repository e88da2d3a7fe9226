// Numbers among the options that an author gives.
import { cameInstead } from './errors.mjs';

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
export function numberOption(caller, options, name, usual, known, least = 0) {
    const strange = Object.keys(options).find((each) => !known.includes(each));
    if (strange !== undefined) throw new TypeError(`${caller}: there is no option ${strange}; there are ${known.join(', ')}`);
    const value = options[name] ?? usual;
    if (Number.isSafeInteger(value) && value >= least) return value;
    throw new TypeError(`${caller}: ${name} is ${cameInstead(value, `a whole number, ${least} or more, such as ${usual}`)}`);
}
