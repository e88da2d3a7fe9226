// The helper of the soak: serves a folder of this machine, and is slow now and then. KEMVI_SOAK_SEED decides when;
// KEMVI_SOAK_FAULT (wrong, lost) makes it serve wrong bytes or lose a write now and then, to see that this is found.
const sdk = process.env.KEMVI_SOAK_SDK;
const { serve, LocalFileSystem } = await import(`${sdk}/src/index.mjs`);

const fault = process.env.KEMVI_SOAK_FAULT;
const faultEvery = 40;
let state = (Number(process.env.KEMVI_SOAK_SEED) | 0) || 1;

// Marsaglia's xorshift: the delays of a run are those of the next run with its seed.
function random() {
    state ^= state << 13;
    state ^= state >>> 17;
    state ^= state << 5;
    return (state >>> 0) / 2 ** 32;
}

const cell = new Int32Array(new SharedArrayBuffer(4));

/** Mostly none; never more than 1.5 seconds. */
function delay() {
    const lot = random();
    const milliseconds = lot < 0.0002 ? 200 + 1300 * random() : lot < 0.01 ? 20 * random() : 0;
    if (milliseconds >= 1) Atomics.wait(cell, 0, 0, milliseconds);
}

class Unsteady extends LocalFileSystem {
    #calls = 0;

    /** @param {any[]} told */
    read(...told) {
        delay();
        const length = super.read(...told);
        if (fault === 'wrong' && length > 0 && ++this.#calls % faultEvery === 0) told[3][length >> 1] ^= 1;
        return length;
    }

    /** @param {any[]} told */
    write(...told) {
        delay();
        if (fault === 'lost' && ++this.#calls % faultEvery === 0) return;
        super.write(...told);
    }
}

for (const name of ['getattr', 'readdir', 'open', 'flush', 'release', 'mkdir', 'unlink', 'rename', 'chmod', 'utimes', 'statfs']) {
    const plain = LocalFileSystem.prototype[name];
    Unsteady.prototype[name] = function (...told) {
        delay();
        return plain.apply(this, told);
    };
}

await serve(new Unsteady(process.env.KEMVI_REPO_ROOT));
