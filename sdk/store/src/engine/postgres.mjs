// A PostgreSQL server, or several of which one can be written to: asks there, waits while there is none.
import { randomUUID } from 'node:crypto';
import { PosixError } from 'kemvi-helper';
import { addressText } from './address.mjs';
import { connectTo } from './connections.mjs';
import { failureLine, isLost, isRepeatable } from './failures.mjs';
import { Listener } from './listener.mjs';
import { arrayText } from './arrays.mjs';
import { requestId } from './requestId.mjs';

/** @typedef {import('./address.mjs').Server} Server */
/** @typedef {import('./engine.mjs').Row} Row */
/** @typedef {import('./engine.mjs').TransactionQuery} TransactionQuery */
/** @typedef {ReturnType<typeof connectTo>} Connections */

const prepared = /** @type {{prepare: true}} */ ({ prepare: true, simple: false });
const mostConnections = 4;
const firstPause = 20; // milliseconds between attempts; doubled for each
const longestPause = 500;
const bytesPerSecond = 512 * 1024; // of a slow line: what is sent is given that much longer to be answered

export class PostgresEngine {
    /**
     * @param {Server} server
     * @param {import('./engine.mjs').EngineOptions} options
     */
    constructor(server, { reconnect, say = () => {} }) {
        this.origin = randomUUID();
        this.server_ = server;
        this.reconnect_ = reconnect * 1000;
        // An answer that does not come: the network may drop what is sent. Another connection then, perhaps elsewhere.
        this.patience_ = Math.max(1000, this.reconnect_ / 3);
        this.say_ = say;
        this.host_ = 0;
        this.isClosed_ = false;
        this.connections_ = this.connectAll_();
        /**
         * Those that have answered something.
         * @type {Connections | undefined}
         */
        this.answering_ = undefined;
        this.isLost_ = false;
        /** Why connections were given up last. @type {unknown} */
        this.reason_ = undefined;
        /** Why nothing is asked any more. @type {PosixError | undefined} */
        this.refusedFor_ = undefined;
        /** @type {Listener | undefined} */
        this.listener_ = undefined;
    }

    /** @param {string} text @param {any[]} [params] @returns {Promise<Row[]>} */
    query(text, params = []) {
        return this.untilAnswered_(text, params.map(parameter));
    }

    /** @param {string} text @param {any[]} [params] @returns {Promise<Row[]>} */
    change(text, params = []) {
        return this.untilAnswered_(text, [...params.map(parameter), requestId(), this.origin]);
    }

    /**
     * @template T
     * @param {(query: TransactionQuery) => Promise<T>} work
     * @returns {Promise<T>}
     */
    transaction(work) {
        return this.untilConnected_(async (connections) => {
            /** @type {any} */
            const result = await connections.begin(async (sql) => {
                const query = (/** @type {string} */ text, /** @type {any[]} */ params = []) =>
                    sql.unsafe(text, params.map(parameter), prepared);
                const script = async (/** @type {string} */ text) => void (await sql.unsafe(text));
                return { done: await work(/** @type {any} */ (Object.assign(query, { script }))) };
            });
            return result.done;
        });
    }

    /**
     * @param {string} channel
     * @param {(text: string) => void} onNotice
     * @param {() => void} onLost
     * @param {() => void} onBack
     */
    async listen(channel, onNotice, onLost, onBack) {
        const connect = (/** @type {object} */ events) => this.connect_(events);
        this.listener_ = new Listener(connect, channel, { onNotice, onLost, onBack });
        await this.listener_.start(this.reconnect_);
    }

    /** @param {string} reason */
    refuse(reason) {
        if (this.refusedFor_ === undefined) this.say_(`${addressText(this.server_)}: ${reason}`);
        this.refusedFor_ = new PosixError('EIO', `${addressText(this.server_)}: ${reason}`);
    }

    async close() {
        this.isClosed_ = true;
        this.listener_?.close();
        await this.connections_.end({ timeout: 2 });
    }

    /**
     * Those for what is asked. One that is closed, whether anything was under way or not, may have been to a server that
     * another has replaced since: then all are given up, and what is known with them, before anything is asked anew.
     */
    connectAll_() {
        /** @type {Connections} */
        const connections = this.connect_({
            max: mostConnections,
            onclose: () => {
                if (connections === this.answering_) this.lost_(connections, new Error('the connection was closed'));
            },
        });
        return connections;
    }

    /** @param {object} more options of a connection */
    connect_(more) {
        const connectSeconds = Math.max(1, this.patience_ / 1000);
        const host = this.server_.hosts[this.host_];
        return connectTo(this.server_, host, { max: 1, connectSeconds, say: this.say_, ...more });
    }

    /** @param {string} text @param {any[]} params */
    async untilAnswered_(text, params) {
        const end = performance.now() + this.reconnect_;
        const patience = this.patience_ + (1000 * sizeOf(params)) / bytesPerSecond;
        for (let pause = firstPause; ; pause = Math.min(2 * pause, longestPause)) {
            if (this.refusedFor_) throw this.refusedFor_;
            const connections = this.connections_;
            try {
                const rows = await this.attempt_(connections, text, params, patience);
                if (connections === this.connections_) this.answering_ = connections;
                if (this.isLost_) this.found_();
                return rows;
            } catch (error) {
                if (isLost(error)) this.lost_(connections, error);
                else if (!isRepeatable(error)) throw this.refusal_(error);
                if (performance.now() + pause > end) throw this.refusal_(error);
            }
            await new Promise((resolve) => setTimeout(resolve, pause * (0.5 + Math.random() / 2)));
        }
    }

    /**
     * @param {Connections} connections
     * @param {string} text
     * @param {any[]} params
     * @param {number} patience milliseconds
     */
    async attempt_(connections, text, params, patience) {
        const timer = setTimeout(() => this.lost_(connections, new Error('no answer')), patience);
        try {
            return await connections.unsafe(text, params, prepared);
        } catch (error) {
            throw connections.explain(error);
        } finally {
            clearTimeout(timer);
        }
    }

    /**
     * Gives up the connections, of which one has failed, and takes the next host. Whatever was asked through them fails
     * as lost. The one that hears of changes goes too: the same name may lead to another server now.
     * @param {Connections} connections
     * @param {unknown} error
     */
    lost_(connections, error) {
        if (connections !== this.connections_ || this.isClosed_) return; // others have seen it before
        if (!this.isLost_) this.say_(`${addressText(this.server_)}: lost: ${failureLine(error)}; trying again`);
        this.isLost_ = true;
        this.reason_ = error;
        this.host_ = (this.host_ + 1) % this.server_.hosts.length;
        this.connections_ = this.connectAll_();
        connections.end({ timeout: 0 }).catch(() => {});
        this.listener_?.move();
    }

    found_() {
        this.isLost_ = false;
        this.say_(`${addressText(this.server_)}: found again`);
    }

    /**
     * Once connected, a transaction is tried no more: whether it was committed may not be known.
     * @template T
     * @param {(connections: Connections) => Promise<T>} work
     */
    async untilConnected_(work) {
        await this.query('select 1');
        try {
            return await work(this.connections_);
        } catch (error) {
            throw isLost(error) ? this.refusal_(error) : error;
        }
    }

    /** @param {any} error */
    refusal_(error) {
        const isGivenUp = error.code === 'CONNECTION_DESTROYED'; // by us, for another reason
        return new PosixError('EIO', `${addressText(this.server_)}: ${failureLine(isGivenUp ? this.reason_ : error)}`);
    }
}

/** @param {any} value */
function parameter(value) {
    return Array.isArray(value) ? arrayText(value) : value === undefined ? null : value;
}

/** @param {any[]} params */
function sizeOf(params) {
    return params.reduce((sum, each) => sum + (each?.length ?? 0), 0);
}
