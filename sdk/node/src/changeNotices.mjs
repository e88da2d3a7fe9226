// Tells a mount of changes over its control channel: one request at a time, whatever gathers meanwhile in the next.
import net from 'node:net';

/** @typedef {{write: (text: string) => boolean, destroy: () => void}} Connection to the mount */

const mostWaiting = 10_000; // paths; more of them are told as a change of everything
const mostPerRequest = 64 * 1024; // characters; whatever they are escaped to, the channel takes it
const firstPause = 50; // milliseconds, before another attempt to connect; doubled for each
const longestPause = 5000;

export class ChangeNotices {
    /**
     * @param {string} address path of the mount's socket
     * @param {(text: string) => void} say takes lines for people
     */
    constructor(address, say) {
        this.address_ = address;
        this.say_ = say;
        /** @type {Set<string>} */
        this.waiting_ = new Set();
        /** @type {string[] | undefined} the paths of the request that is not answered yet */
        this.asked_ = undefined;
        /** @type {Connection | undefined} */
        this.socket_ = undefined;
        this.isGreeted_ = false; // the mount has spoken first, as it does
        this.isScheduled_ = false;
        this.isEnded_ = false;
        this.pause_ = firstPause;
        this.received_ = '';
        /** @type {Set<string>} what was said already */
        this.said_ = new Set();
    }

    /** @param {string} path */
    add(path) {
        if (this.isEnded_) return;
        this.waiting_.add(path);
        if (this.waiting_.size > mostWaiting) this.waiting_ = new Set(['/']);
        if (this.isScheduled_) return;
        this.isScheduled_ = true;
        setImmediate(() => {
            this.isScheduled_ = false;
            this.proceed_();
        });
    }

    /** Nothing more is told. */
    end() {
        this.isEnded_ = true;
        this.socket_?.destroy();
    }

    /** @param {string} text */
    sayOnce(text) {
        if (this.said_.has(text)) return;
        this.said_.add(text);
        this.say_(text);
    }

    proceed_() {
        if (this.isEnded_ || this.asked_ !== undefined || this.waiting_.size === 0) return;
        if (this.socket_ === undefined) this.connect_();
        else if (this.isGreeted_) this.ask_(this.socket_);
    }

    connect_() {
        const socket = net.createConnection({ path: this.address_ });
        this.socket_ = socket;
        this.received_ = '';
        socket.unref(); // the helper ends when its input does
        socket.setEncoding('utf8');
        socket.on('data', (text) => this.take_(socket, text));
        socket.on('error', (error) => {
            const reason = /** @type {any} */ (error).code;
            this.sayOnce(`changed: the mount is not to be reached at ${this.address_} (${reason}); goes on trying`);
        });
        socket.on('close', () => this.lost_());
    }

    /** @param {Connection} socket */
    ask_(socket) {
        this.asked_ = [];
        let length = 0;
        for (const path of this.waiting_) {
            if (length > 0 && length + path.length > mostPerRequest) break;
            this.asked_.push(path);
            this.waiting_.delete(path);
            length += path.length + 1;
        }
        socket.write(JSON.stringify({ op: 'invalidate', paths: this.asked_ }) + '\n');
    }

    /**
     * @param {Connection} socket
     * @param {string} text
     */
    take_(socket, text) {
        const lines = (this.received_ + text).split('\n');
        this.received_ = /** @type {string} */ (lines.pop());
        for (const line of lines) {
            try {
                this.heard_(JSON.parse(line));
            } catch {
                socket.destroy(); // whoever that is
                return;
            }
        }
    }

    /** @param {{ok?: boolean, error?: {message?: string, code?: string}}} said */
    heard_(said) {
        this.isGreeted_ = true;
        this.pause_ = firstPause;
        this.asked_ = undefined;
        if (said.ok === false && said.error?.code !== 'ending') this.sayOnce(`changed: ${said.error?.message}`);
        this.proceed_();
    }

    lost_() {
        this.socket_ = undefined;
        this.isGreeted_ = false;
        for (const path of this.asked_ ?? []) this.waiting_.add(path);
        this.asked_ = undefined;
        if (this.isEnded_) return;
        setTimeout(() => this.proceed_(), this.pause_).unref();
        this.pause_ = Math.min(2 * this.pause_, longestPause);
    }
}
