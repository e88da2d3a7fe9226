// Brings the schema of a store to what this program needs, forward only.
//
// Programs that are at work meanwhile are told (newerSchema.mjs). A change that they cannot live with raises `leastVersion`
// and, in its script, drops the functions that they call, so that none of them does anything between the two.
import { createHash } from 'node:crypto';
import fs from 'node:fs';

/** @typedef {import('../engine/engine.mjs').Engine} Engine */
/** @typedef {import('../engine/engine.mjs').TransactionQuery} TransactionQuery */
/** @typedef {{version: number, functions?: string}} Meta `functions` from version 4 on */

const here = new URL('./', import.meta.url);
const scripts = fs.readdirSync(here).filter((name) => name.endsWith('.sql')).sort();
// Each is done once, in order. What functions do may change with any of them, so all are made anew after the last.
const migrations = scripts.filter((name) => /^\d{4}-/.test(name));
const functions = scripts.filter((name) => !migrations.includes(name)).map(readScript);

export const schemaVersion = migrations.length;
/** Programs that know the schema up to this version may go on with it as it is now. */
export const leastVersion = 4;

const program = JSON.parse(fs.readFileSync(new URL('../../package.json', here), 'utf8')).version;
const ours = `${program} ${createHash('sha256').update(functions.join('\n')).digest('hex').slice(0, 16)}`;

/**
 * Makes the schema, or brings it forward. Several may do so at the same time.
 * @param {Engine} engine
 * @throws {Error} when the schema is newer than the program, or may not be made
 */
export async function migrate(engine) {
    if (isDone(await presentMeta((...asked) => engine.query(...asked)))) return;
    try {
        await engine.transaction(bringForward);
    } catch (error) {
        if (/** @type {any} */ (error).code !== '42501') throw error;
        throw new Error(
            'the schema kemvi_store belongs to another user of the database, who has to bring it to what this program needs: ' +
                'run kemvi-store create as that one',
        );
    }
}

/** @param {TransactionQuery} query */
async function bringForward(query) {
    await query("select pg_advisory_xact_lock(hashtext('kemvi_store'))");
    await makeSchema(query);
    const present = /** @type {Meta} */ (await presentMeta(query));
    if (isDone(present)) return; // somebody else was faster
    for (const name of migrations.slice(present.version)) await query.script(readScript(name));
    for (const text of functions) await query.script(text);
    await query('update kemvi_store.meta set version = $1, least = $2, functions = $3', [schemaVersion, leastVersion, ours]);
    if (present.version < schemaVersion) await query('select pg_notify($1, $2)', ['kemvi_store', '{"schema": true}']);
}

/** @param {Meta | undefined} meta */
function isDone(meta) {
    return meta?.version === schemaVersion && (meta.functions === ours || isOfNewerProgram(meta.functions ?? ''));
}

/** @param {string} owner of the functions that are there, such as "1.2.3 0123456789abcdef" */
function isOfNewerProgram(owner) {
    const [theirs, mine] = [owner, ours].map((each) => each.split(' ')[0].split('.').map(Number));
    const differing = mine.findIndex((number, at) => number !== theirs[at]);
    return differing >= 0 && theirs[differing] > mine[differing];
}

/**
 * @param {(text: string, params?: any[]) => Promise<any[]>} query
 * @returns {Promise<Meta | undefined>} undefined when there is no schema
 * @throws {Error} when it is newer than the program
 */
export async function presentMeta(query) {
    // Not by to_regclass, whose answer may come from before the lock.
    const found = await query("select from pg_catalog.pg_tables where schemaname = 'kemvi_store' and tablename = 'meta'");
    if (found.length === 0) return undefined;
    const [row] = await query('select * from kemvi_store.meta');
    if (row?.version > schemaVersion) throw new Error(newerText(row.version));
    return row;
}

/** @param {TransactionQuery} query */
async function makeSchema(query) {
    if ((await presentMeta(query)) !== undefined) return;
    try {
        await query.script(`
            create schema if not exists kemvi_store;
            create table kemvi_store.meta (version int not null);
            insert into kemvi_store.meta values (0)`);
    } catch (error) {
        if (/** @type {any} */ (error).code !== '42501') throw error;
        throw new Error(
            'the schema kemvi_store may not be made here: grant create on the database to this user, ' +
                'or run kemvi-store create as its owner',
        );
    }
}

/** @param {number} version */
export function newerText(version) {
    return `the store has a schema of version ${version}, this program knows versions up to ${schemaVersion}: update it`;
}

/** @param {string} name */
function readScript(name) {
    return fs.readFileSync(new URL(name, here), 'utf8');
}
