// What the tool ends with, and what is said of failures: what to do next.

/** Scripts test them. */
export const ExitCode = { success: 0, failure: 1, leftOut: 3, damage: 4 };

/** Told as it is. */
export class ToolError extends Error {}

/** Of the command line. */
export class UsageError extends ToolError {}

const unreachable = '; see that the server runs and can be reached from here (host, port, firewall, listen_addresses)';
const login = '; put the password into ~/.pgpass (chmod 600), or as PGPASSWORD=... into mount-secrets.env beside mount-config.json, ' +
    'and see that pg_hba.conf lets this user in from here';
/** @type {Record<string, string>} */
const advice = {
    ECONNREFUSED: unreachable,
    ECONNRESET: unreachable,
    ETIMEDOUT: unreachable,
    EHOSTUNREACH: unreachable,
    ENETUNREACH: unreachable,
    CONNECT_TIMEOUT: unreachable,
    CONNECTION_CLOSED: unreachable,
    CONNECTION_DESTROYED: unreachable,
    ENOENT: '; no server listens on that socket: see that it runs, and its unix_socket_directories',
    ENOTFOUND: '; no host has that name: look at its spelling',
    EAI_AGAIN: '; the name of the host cannot be looked up just now',
    '28P01': login,
    '28000': login,
    SASL_SIGNATURE_MISMATCH: login,
    '3D000': '; make the database first: createdb NAME',
    42501: '; this user may not do that: see what it was granted, or name the user that owns the store',
    25006: '; this server is a copy: name the one that can be written to, or all of them',
    53300: '; the server has no connection to spare: raise max_connections, or unmount something',
    '57P03': '; the server is starting or stopping: wait a moment',
};

/**
 * What to do next, to be put behind the message.
 * @param {Error} error
 */
export function adviceFor(error) {
    if (error.message.includes('in use by process')) return '; unmount it first ("kemvi list" shows what is mounted)';
    const code = /\((\w+)\)$/.exec(error.message)?.[1];
    if (code === undefined) return error.message.endsWith('no answer') ? unreachable : '';
    return advice[code] ?? '';
}
