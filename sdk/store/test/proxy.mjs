// Stands between a helper and its server, and can lose what one says to the other.
import net from 'node:net';
import { after } from 'node:test';

export class Proxy {
    /** @param {{folder: string, port: number}} server its Unix socket */
    constructor({ folder, port }) {
        this.target_ = `${folder}/.s.PGSQL.${port}`;
        /** What becomes of what the server says next. @type {'passed' | 'lost' | 'held'} */
        this.answers = 'passed';
        /** Answers that were lost, each with its connection. */
        this.lost = 0;
        /** @type {Set<{client: net.Socket, server: net.Socket}>} */
        this.pairs_ = new Set();
        this.listener_ = net.createServer((client) => this.serve_(client));
    }

    /** @returns {Promise<string>} what a helper is told */
    async listen() {
        await new Promise((resolve) => this.listener_.listen(0, '127.0.0.1', () => resolve(undefined)));
        after(() => this.close());
        const { port } = /** @type {net.AddressInfo} */ (this.listener_.address());
        return `postgres://postgres@127.0.0.1:${port}/postgres?sslmode=disable`;
    }

    /** Breaks all connections to helpers; the server does not hear of it before it speaks. */
    cut() {
        for (const { client } of this.pairs_) client.destroy();
    }

    /** Breaks the connection that was made first. */
    cutFirst() {
        const [{ client }] = this.pairs_;
        client.destroy();
    }

    close() {
        this.listener_.close();
        for (const { client, server } of this.pairs_) {
            client.destroy();
            server.destroy();
        }
    }

    /** @param {net.Socket} client */
    serve_(client) {
        const server = net.createConnection(this.target_);
        const pair = { client, server };
        this.pairs_.add(pair);
        client.on('error', () => {}).on('data', (bytes) => server.write(bytes));
        server.on('error', () => client.destroy()).on('close', () => {
            client.destroy();
            this.pairs_.delete(pair);
        });
        server.on('data', (bytes) => this.pass_(client, bytes));
    }

    /** @param {net.Socket} client @param {Buffer} bytes */
    pass_(client, bytes) {
        if (this.answers === 'held') return;
        if (this.answers === 'lost') {
            this.answers = 'passed'; // one
            this.lost++;
            client.destroy();
        } else if (!client.destroyed) {
            client.write(bytes);
        }
    }
}
