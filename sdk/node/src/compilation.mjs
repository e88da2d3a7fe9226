// How soon node compiles what a helper runs often: a setting of the whole process, made by the helpers that ship, whose
// process is theirs alone. The kit itself leaves the process of its user as it is.
import v8 from 'node:v8';

// V8 counts the bytecode a function has run and hands it to the optimising compiler after some 67 000 bytes, which a
// helper's functions reach one after the other within its first thousands of requests. Compiling them takes about 200 ms
// of processor time, just while a new mount is busiest, and gains some microseconds per request: it pays after tens of
// thousands of them. So it is left until there have been that many.
const interruptBudget = 8 * 67_584;

/** Lets node compile later than it would by itself. Takes effect for the whole process. */
export function compileLate() {
    v8.setFlagsFromString(`--interrupt-budget=${interruptBudget}`);
}
