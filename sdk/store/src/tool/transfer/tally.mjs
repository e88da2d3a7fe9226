// What an import or an export has done, and what it has left out.
import { bytesText, countText } from '../text.mjs';
import { Progress } from '../progress.mjs';

export class Tally {
    /** @param {Progress} progress */
    constructor(progress) {
        this.progress_ = progress;
        this.files = 0;
        this.folders = 0;
        this.bytes = 0;
        this.there = 0;
        this.leftOut = 0;
        this.shown_ = 0; // bytes
        this.passed_ = 0; // files
        /** @type {string[]} lines that would break the bar */
        this.waiting_ = [];
    }

    /** @param {number} bytes that went over, or need not */
    passed(bytes) {
        this.shown_ += bytes;
        this.progress_.at(this.shown_, this.passed_);
    }

    /** @param {number} bytes */
    done(bytes) {
        this.files++;
        this.bytes += bytes;
        this.fileEnds_();
    }

    /** @param {number} bytes */
    wasThere(bytes) {
        this.there++;
        this.passed(bytes);
        this.fileEnds_();
    }

    /** @param {string} path @param {string} reason */
    leaveOut(path, reason) {
        this.leftOut++;
        this.waiting_.push(`left out: ${JSON.stringify(path)}: ${reason}`);
        if (!Progress.isShown()) this.flush_();
        this.fileEnds_();
    }

    end() {
        this.progress_.end();
        this.flush_();
    }

    /** @param {string} verb such as "imported" */
    text(verb) {
        const parts = [`${verb} ${countText(this.files, 'file')} of ${bytesText(this.bytes)} and ${countText(this.folders, 'folder')}`];
        if (this.there > 0) parts.push(`${this.there} were there already`);
        if (this.leftOut > 0) parts.push(`${this.leftOut} left out`);
        return parts.join('; ');
    }

    /**
     * The error as people are told it.
     * @param {Error} error
     */
    brokenOff(error) {
        if (this.passed_ > 0) error.message = `broken off after ${countText(this.passed_, 'file')} (the same command goes on): ${error.message}`;
        return error;
    }

    fileEnds_() {
        this.passed_++;
        this.progress_.at(this.shown_, this.passed_);
    }

    flush_() {
        for (const line of this.waiting_) console.error(line);
        this.waiting_ = [];
    }
}
