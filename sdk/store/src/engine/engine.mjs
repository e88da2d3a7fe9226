// The engine of names: one interface, whether it is a server or runs within this process.
import { openEmbedded } from './pglite.mjs';
import { PostgresEngine } from './postgres.mjs';

/** @typedef {Record<string, any>} Row */
/**
 * @typedef {(text: string, params?: any[]) => Promise<Row[]>} Query one statement with $1, $2, ...; numbers of 64 bits come
 *     as numbers, bytea as Buffer, json parsed; an array of a parameter is an array, bytea a Buffer
 */
/**
 * @typedef {Query & {script: (text: string) => Promise<void>}} TransactionQuery `script` takes several statements without
 *     parameters
 */
/**
 * @typedef {object} Engine
 * @property {Query} query one round trip. A lost engine is waited for, up to `reconnect` seconds; then it throws a PosixError
 *     EIO. A statement that changes something may be done twice then: that is what `change` is for.
 * @property {Query} change a call of one of the functions that change something. Two parameters are added at the end: the id
 *     of the request, which is the same in every attempt, and the origin. Deadlocks, serialization failures and lost
 *     connections are tried again, without doing anything twice.
 * @property {<T>(work: (query: TransactionQuery) => Promise<T>) => Promise<T>} transaction one transaction, tried once, for
 *     as long as it takes
 * @property {(channel: string, onNotice: (text: string) => void, onLost: () => void, onBack: () => void) => Promise<void>} listen
 *     hears notices from now on. `onLost`: some may be missed from now on; `onBack`: none is from now on. Done when
 *     listening for the first time.
 * @property {(reason: string) => void} refuse everything that is asked from now on fails with EIO for this reason
 * @property {string} origin uuid of this process, which its own notices bear
 * @property {() => Promise<void>} close
 */
/** @typedef {{reconnect: number, say?: (text: string) => void}} EngineOptions `reconnect` in seconds; `say` takes lines for people */

/**
 * @param {import('./address.mjs').Address} address
 * @param {EngineOptions} options
 * @returns {Promise<Engine>}
 * @throws {Error} when the folder is in use or cannot be used; a server is connected to when it is first asked
 */
export async function openEngine(address, options) {
    return address.kind === 'pglite' ? openEmbedded(address.folder, options.say) : new PostgresEngine(address, options);
}
