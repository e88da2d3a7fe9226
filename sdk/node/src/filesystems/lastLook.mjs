// What was last seen at a real path. A request that opens, makes or removes a file mostly follows one that has just
// looked at it, and need not look again.
import fs from 'node:fs';

const { S_IFMT, S_IFREG } = fs.constants;

// As long as the place of a folder is believed; whoever relies on it bears that the file is another one by then.
const believedMilliseconds = 100;

export class LastLook {
    constructor() {
        this.real_ = '';
        this.type_ = 0; // 0: there was nothing
        this.since_ = 0;
    }

    /**
     * @param {string} real
     * @param {number} mode of what is there, links not followed; 0 when nothing is
     */
    saw(real, mode) {
        this.real_ = real;
        this.type_ = mode & S_IFMT;
        this.since_ = Date.now();
    }

    /** @param {string} real */
    foundNothing(real) {
        return this.type_ === 0 && this.real_ === real;
    }

    /** @param {string} real */
    foundPlainFile(real) {
        if (this.type_ !== S_IFREG || this.real_ !== real) return false;
        const age = Date.now() - this.since_;
        return age >= 0 && age < believedMilliseconds; // the clock may have been set back
    }

    /** To be called when names have been changed. */
    forget() {
        this.real_ = '';
    }
}
