// Connections to one host of a server, as postgres.js makes them.
import os from 'node:os';
import path from 'node:path';
import postgres from 'postgres';
import { Encryption } from './encryption.mjs';
import { filedPassword } from './passwordFile.mjs';

/** @typedef {import('./address.mjs').Host} Host */
/** @typedef {import('./address.mjs').Server} Server */

// Tables grow faster than the server notices: a plan made when one was small must not read it whole later.
const session = {
    enable_seqscan: 'off',
    plan_cache_mode: 'force_generic_plan',
    jit: 'off',
    default_transaction_isolation: 'read committed',
    client_min_messages: 'error',
};
const keepAlive = 5; // seconds without a word, after which the kernel asks whether the other side is still there
const wholeNumber = { to: 20, from: [20], serialize: String, parse: Number };

/**
 * Connects when the first query comes. Every failure is told at once: trying again is the caller's affair. `explain` says
 * more of a failure where that is known.
 * @param {Server} server
 * @param {Host} host
 * @param {{max: number, connectSeconds: number, say: (text: string) => void, onclose?: () => void,
 *     onnotify?: (channel: string, text: string) => void}} how
 */
export function connectTo(server, host, { max, connectSeconds, say, onclose, onnotify }) {
    const user = server.user ?? process.env.PGUSER ?? os.userInfo().username;
    const login = { ...host, database: server.database, user };
    const isLocal = host.host.startsWith('/');
    const encryption = new Encryption(host, server.options);
    /** @type {any} */
    const options = {
        ...(isLocal ? { path: path.join(host.host, `.s.PGSQL.${host.port}`) } : { socket: () => encryption.socket() }),
        host: isLocal ? 'localhost' : host.host,
        port: host.port,
        database: server.database,
        user,
        pass: () => process.env.PGPASSWORD ?? filedPassword(login, say) ?? '',
        ssl: isLocal ? false : encryption.setting,
        max,
        fetch_types: false,
        connect_timeout: connectSeconds,
        idle_timeout: null,
        max_lifetime: null,
        keep_alive: keepAlive,
        backoff: 0,
        target_session_attrs: 'primary',
        connection: { application_name: server.options.application_name ?? 'kemvi', ...session },
        types: { wholeNumber },
        onnotice: () => {},
        onclose,
        onnotify,
        no_subscribe: true,
    };
    return Object.assign(postgres(options), { explain: (/** @type {any} */ error) => encryption.explain(error) });
}
