// The memory for what is written and not committed, of all files together.

/** @typedef {{weight: number, putAway: () => Promise<void>}} Writer */

export class Room {
    /** @param {number} limit bytes */
    constructor(limit) {
        this.limit = limit;
        /** Bytes, counted by the layers. */
        this.used = 0;
        /** @type {Set<Writer>} */
        this.writers = new Set();
    }

    /** @param {number} bytes */
    has(bytes) {
        return this.used + bytes <= this.limit || this.used === 0;
    }

    /**
     * Has those who hold most put it away until there is room.
     * @param {number} bytes
     * @throws what kept them from it
     */
    async make(bytes) {
        while (!this.has(bytes)) {
            const before = this.used;
            await this.largest_().putAway();
            if (this.used === before) await new Promise((resolve) => setImmediate(resolve));
        }
    }

    largest_() {
        return [...this.writers].reduce((most, writer) => (writer.weight > most.weight ? writer : most));
    }
}
