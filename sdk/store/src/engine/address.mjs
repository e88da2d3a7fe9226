// Where an engine is: pglite:DIR, or a URL of PostgreSQL with one or several hosts.

/** @typedef {{host: string, port: number}} Host `host` with a slash in front: the folder of a Unix socket */
/** @typedef {{kind: 'pglite', folder: string}} Embedded */
/**
 * @typedef {object} Server
 * @property {'postgres'} kind
 * @property {Host[]} hosts one or more, the first to be tried first
 * @property {string} database
 * @property {string | undefined} user
 * @property {Record<string, string>} options of those that are known
 */
/** @typedef {Embedded | Server} Address */

const wanted = 'pglite:DIR or postgres://USER@HOST/DATABASE, such as pglite:/srv/tree or postgres://kemvi@db.example.org/files';
const knownOptions = [
    'host', 'port', 'user', 'sslmode', 'sslrootcert', 'sslcert', 'sslkey', 'application_name', 'target_session_attrs',
];
const sslModes = ['disable', 'allow', 'prefer', 'require', 'verify-ca', 'verify-full'];

/**
 * @param {string | undefined} text
 * @returns {Address}
 * @throws {Error} that says what is wrong and what was expected
 */
export function parseAddress(text) {
    if (text === undefined) throw new Error(`is not set; it must be ${wanted}`);
    if (text.startsWith('pglite:')) return parseEmbedded(text.slice('pglite:'.length));
    const match = /^postgres(?:ql)?:\/\/(?:([^@/?]*)@)?([^@/?]*)(?:\/([^?]*))?(?:\?(.*))?$/.exec(text);
    if (!match) throw new Error(`"${withoutPassword(text)}" must be ${wanted}`);
    const [, login = '', place, path = '', query = ''] = match;
    const options = parseOptions(query);
    if (login.includes(':')) {
        throw new Error(
            'a password does not belong here, where others can read it; put it in ~/.pgpass, ' +
                'or as PGPASSWORD=... in mount-secrets.env beside mount-config.json',
        );
    }
    const database = decodeURIComponent(path);
    if (database === '') throw new Error(`"${text}" names no database; it must be ${wanted}`);
    const user = decodeURIComponent(login) || options.user;
    return { kind: 'postgres', hosts: parseHosts(place, options, text), database, user, options };
}

/** @param {string} folder */
function parseEmbedded(folder) {
    if (folder.startsWith('/')) return /** @type {Embedded} */ ({ kind: 'pglite', folder });
    throw new Error(`"pglite:${folder}" must name a folder by its whole path, such as pglite:/srv/tree`);
}

/** @param {string} query */
function parseOptions(query) {
    /** @type {Record<string, string>} */
    const options = {};
    for (const [name, value] of new URLSearchParams(query)) {
        if (name === 'password') {
            throw new Error('a password does not belong here, where others can read it; put it in ~/.pgpass, ' +
                'or as PGPASSWORD=... in mount-secrets.env beside mount-config.json');
        }
        if (!knownOptions.includes(name)) {
            throw new Error(`there is no option "${name}"; there are ${knownOptions.join(', ')}`);
        }
        options[name] = value;
    }
    const { sslmode = 'prefer', target_session_attrs: target = 'read-write' } = options;
    if (!sslModes.includes(sslmode)) throw new Error(`sslmode "${sslmode}" must be one of ${sslModes.join(', ')}`);
    if (target !== 'read-write' && target !== 'primary') {
        throw new Error(`target_session_attrs "${target}" must be read-write: a tree is kept where it can be changed`);
    }
    return options;
}

/**
 * @param {string} place
 * @param {Record<string, string>} options
 * @param {string} text
 * @returns {Host[]}
 */
function parseHosts(place, options, text) {
    if (place === '') {
        const hosts = (options.host ?? 'localhost').split(',');
        const ports = (options.port ?? '5432').split(',');
        return hosts.map((host, index) => ({ host, port: portNumber(ports[index] ?? ports[0], text) }));
    }
    return place.split(',').map((each) => {
        const match = /^(\[[0-9a-fA-F:.]+\]|[^:]+)(?::(\d+))?$/.exec(each);
        if (!match) throw new Error(`"${each}" in "${text}" must be a host, such as db.example.org or db.example.org:5432`);
        const host = decodeURIComponent(match[1].replace(/^\[(.*)\]$/, '$1'));
        return { host, port: portNumber(match[2] ?? options.port ?? '5432', text) };
    });
}

/** @param {string} port @param {string} text */
function portNumber(port, text) {
    const value = /^\d{1,5}$/.test(port) ? Number(port) : 0;
    if (value >= 1 && value <= 65_535) return value;
    throw new Error(`the port "${port}" in "${text}" must be a number from 1 to 65535`);
}

/** @param {string} text */
function withoutPassword(text) {
    return text.replace(/:[^:@/]*@/, ':...@');
}

/**
 * An address for people and for the messages; it never holds a secret.
 * @param {Address} address
 */
export function addressText(address) {
    if (address.kind === 'pglite') return `pglite:${address.folder}`;
    const hosts = address.hosts.map(({ host, port }) => `${host}:${port}`).join(',');
    return `PostgreSQL at ${hosts}, database ${address.database}`;
}
