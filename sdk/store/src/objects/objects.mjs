// Where chunks lie that do not lie in the database: named bytes that are written once and never changed.
import { PosixError } from 'kemvi-helper';

/**
 * @typedef {{name: string, size: number, age: number}} Listed `age` in milliseconds, by the clock of the store
 */
/**
 * Every function waits for a store that cannot be reached, up to a limit, and then throws a PosixError.
 * @typedef {object} Objects
 * @property {(name: string, bytes: Uint8Array) => Promise<void>} put `bytes` must not change before it is done
 * @property {(name: string) => Promise<Buffer>} get throws `MissingObject` where there is none
 * @property {(names: string[]) => Promise<void>} remove those that are there; any number
 * @property {(after?: string) => Promise<{objects: Listed[], next: string | undefined}>} list some, in the order of their
 *     names, that come after one; `next` is to be handed to the next call, undefined after the last
 * @property {() => void} [end]
 */

/** There is no such object, or it is being replaced. */
export class MissingObject extends PosixError {
    /** @param {string} name */
    constructor(name) {
        super('EIO', `there is no object ${name}`);
        this.objectName = name;
    }
}
