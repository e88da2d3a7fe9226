// TLS to a server as `sslmode` asks for it, which means what it means to libpq: never plain text where TLS was asked for, never
// another host where the host was.
import fs from 'node:fs';
import net from 'node:net';
import tls from 'node:tls';

/** @typedef {import('./address.mjs').Host} Host */

export class Encryption {
    /**
     * @param {Host} host
     * @param {Record<string, string>} options of the address
     * @throws {Error} when a file cannot be read
     */
    constructor(host, options) {
        this.host_ = host;
        this.options_ = options;
        this.mode_ = options.sslmode === 'allow' ? 'prefer' : (options.sslmode ?? 'prefer');
        this.isRefused_ = false;
        /** What the library is told of it. */
        this.setting = this.newSetting_();
    }

    newSetting_() {
        if (this.mode_ === 'disable') return false;
        if (this.mode_ === 'prefer') return 'prefer';
        const { host } = this.host_;
        return {
            ca: this.read_('sslrootcert'),
            cert: this.read_('sslcert'),
            key: this.read_('sslkey'),
            // As libpq has it: whoever names a root wants it used.
            rejectUnauthorized: this.mode_ !== 'require' || this.options_.sslrootcert !== undefined,
            // Of the host that was asked for, also when that is an address, of which the library says nothing.
            checkServerIdentity: (/** @type {string} */ _, /** @type {tls.PeerCertificate} */ certificate) =>
                this.mode_ === 'verify-full' ? tls.checkServerIdentity(host, certificate) : undefined,
        };
    }

    /**
     * A socket that begins to connect. What the server answers to the question for TLS is noted: the library goes on all
     * the same, in TLS, and then knows only that the connection has ended.
     */
    socket() {
        const socket = Object.assign(net.connect(this.host_), this.host_);
        if (typeof this.setting === 'object') socket.once('data', ([letter]) => (this.isRefused_ = letter !== 'S'.charCodeAt(0)));
        return socket;
    }

    /**
     * The same failure, or one that says more.
     * @param {any} error
     */
    explain(error) {
        const { code = '', message } = error;
        const { host } = this.host_;
        const { sslrootcert } = this.options_;
        if (this.isRefused_ && typeof this.setting === 'object') {
            return new Error(`the server offers no TLS, which sslmode=${this.mode_} asks for; set ssl=on there, or another sslmode here`);
        }
        if (code === 'ERR_TLS_CERT_ALTNAME_INVALID') return new Error(`the certificate of the server is not for ${host}: ${message}`);
        if (!isOfCertificate(code)) return error;
        const trusted = sslrootcert === undefined ? 'what this machine trusts; name its root with sslrootcert=FILE' : sslrootcert;
        return new Error(`the certificate of the server does not hold by ${trusted}: ${message} (${code})`);
    }

    /** @param {string} option */
    read_(option) {
        const file = this.options_[option];
        if (file === undefined) return undefined;
        try {
            lastRead.set(file, fs.readFileSync(file));
        } catch (error) {
            if (!lastRead.has(file)) throw new Error(`${option}: ${/** @type {Error} */ (error).message}`);
        }
        return lastRead.get(file);
    }
}

/** @type {Map<string, Buffer>} by file: one that is gone for a moment does no harm to a mount that stands */
const lastRead = new Map();

const certificateCodes = /^(UNABLE_TO_|CERT_|DEPTH_ZERO_|SELF_SIGNED_|INVALID_CA|INVALID_PURPOSE|PATH_LENGTH|HOSTNAME_MISMATCH)/;

/**
 * The other side has a certificate, which is not believed.
 * @param {unknown} code of an error of node
 */
export function isOfCertificate(code) {
    return typeof code === 'string' && certificateCodes.test(code);
}
