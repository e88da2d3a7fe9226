// A bar on a terminal; nothing elsewhere.
import { createRequire } from 'node:module';
import { bytesText } from './text.mjs';

/** @typedef {{bytes: number, files: number}} Amount */

export class Progress {
    /** @param {any} bar undefined: nobody looks */
    constructor(bar) {
        this.bar_ = bar;
    }

    static isShown() {
        return Boolean(process.stderr.isTTY);
    }

    /**
     * @param {string} label
     * @param {Amount | undefined} total undefined: it is not known, and what is counted is shown alone
     */
    static async start(label, total) {
        if (!Progress.isShown()) return new Progress(undefined);
        const { SingleBar, Presets } = createRequire(import.meta.url)('cli-progress');
        const format = total === undefined
            ? `${label}: {value}`
            : `${label} {bar} {percentage}% | {done} of ${bytesText(total.bytes)} | {files} of ${total.files} files`;
        const bar = new SingleBar({ format, stream: process.stderr, hideCursor: true, clearOnComplete: true, fps: 5 }, Presets.shades_classic);
        bar.start(Math.max(total?.bytes ?? 1, 1), 0, { done: bytesText(0), files: 0 });
        return new Progress(bar);
    }

    /** @param {number} value @param {number} [files] */
    at(value, files = 0) {
        this.bar_?.update(value, { done: bytesText(value), files });
    }

    end() {
        this.bar_?.stop();
    }
}
