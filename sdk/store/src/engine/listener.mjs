// Listens to one channel over a connection of its own, and makes a new one when that is lost.

/** @typedef {import('./connections.mjs').connectTo} connectTo */
/** @typedef {{onNotice: (text: string) => void, onLost: () => void, onBack: () => void}} Events */

const firstPause = 50; // milliseconds between attempts; doubled for each
const longestPause = 5000;

export class Listener {
    /**
     * @param {(events: {onclose: () => void, onnotify: (channel: string, text: string) => void}) => ReturnType<connectTo>}
     *     connect makes connections, at most one, to the host that is in use
     * @param {string} channel a plain word
     * @param {Events} events
     */
    constructor(connect, channel, events) {
        this.connect_ = connect;
        this.channel_ = channel;
        this.events_ = events;
        /** @type {ReturnType<connectTo> | undefined} */
        this.connection_ = undefined;
        this.isListening_ = false;
        this.isEnded_ = false;
        this.pause_ = firstPause;
        /** @type {(() => void) | undefined} */
        this.onFirst_ = undefined;
    }

    /**
     * Done when it listens, or has not come to that within the time: it goes on trying, and tells with `onBack`.
     * @param {number} limit milliseconds
     */
    async start(limit) {
        let timer;
        await new Promise((resolve) => {
            this.onFirst_ = () => resolve(undefined);
            timer = setTimeout(resolve, limit, undefined);
            this.proceed_();
        });
        clearTimeout(timer);
        this.onFirst_ = undefined;
    }

    /** Another host is in use now. */
    move() {
        const old = this.connection_;
        if (old === undefined || !this.isListening_) return; // it is looking for one anyway
        this.lost_(old);
        old.end({ timeout: 0 }).catch(() => {});
    }

    close() {
        this.isEnded_ = true;
        this.connection_?.end({ timeout: 0 }).catch(() => {});
    }

    async proceed_() {
        if (this.isEnded_) return;
        /** @type {ReturnType<connectTo>} */
        const connection = this.connect_({
            onclose: () => this.lost_(connection),
            onnotify: (channel, text) => {
                if (channel === this.channel_ && connection === this.connection_) this.events_.onNotice(text);
            },
        });
        this.connection_ = connection;
        try {
            await connection.unsafe(`listen ${this.channel_}`);
        } catch {
            this.lost_(connection);
            connection.end({ timeout: 0 }).catch(() => {});
            return;
        }
        if (connection !== this.connection_ || this.isEnded_) return;
        this.isListening_ = true;
        this.pause_ = firstPause;
        this.onFirst_ ? this.onFirst_() : this.events_.onBack();
    }

    /** @param {ReturnType<connectTo>} connection */
    lost_(connection) {
        if (connection !== this.connection_ || this.isEnded_) return;
        this.connection_ = undefined;
        if (this.isListening_) this.events_.onLost();
        this.isListening_ = false;
        setTimeout(() => this.proceed_(), this.pause_).unref();
        this.pause_ = Math.min(2 * this.pause_, longestPause);
    }
}
