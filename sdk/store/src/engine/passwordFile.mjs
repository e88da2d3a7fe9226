// The password file of PostgreSQL's own clients: lines HOST:PORT:DATABASE:USER:PASSWORD, the first that fits counts.
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

/**
 * @param {{host: string, port: number, database: string, user: string}} login
 * @param {(text: string) => void} say
 * @returns {string | undefined}
 */
export function filedPassword({ host, port, database, user }, say) {
    const file = process.env.PGPASSFILE || path.join(os.homedir(), '.pgpass');
    const lines = readPrivate(file, say);
    const names = host.startsWith('/') ? [host, 'localhost'] : [host];
    const rest = [String(port), database, user];
    for (const line of lines) {
        const [lineHost, ...fields] = fieldsOf(line);
        const isFor = (/** @type {string} */ value, /** @type {number} */ index) => ['*', value].includes(fields[index]);
        const isHost = lineHost === '*' || names.includes(lineHost);
        if (fields.length >= 4 && isHost && rest.every(isFor)) return fields.slice(3).join(':');
    }
    return undefined;
}

/** @param {string} file @param {(text: string) => void} say */
function readPrivate(file, say) {
    try {
        const { mode } = fs.statSync(file);
        if ((mode & 0o077) !== 0) {
            say(`${file}: not used, because others can read it; chmod 600 it`);
            return [];
        }
        return fs.readFileSync(file, 'utf8').split('\n').filter((line) => line !== '' && !line.startsWith('#'));
    } catch (error) {
        if (/** @type {any} */ (error).code !== 'ENOENT') say(`${file}: not used (${/** @type {Error} */ (error).message})`);
        return [];
    }
}

/** @param {string} line in which a backslash takes the next character as it is */
function fieldsOf(line) {
    const fields = [''];
    for (let at = 0; at < line.length; at++) {
        if (line[at] === ':') fields.push('');
        else fields[fields.length - 1] += line[at] === '\\' && at + 1 < line.length ? line[++at] : line[at];
    }
    return fields;
}
