// Microseconds that the kit's codec takes for 64 KiB: node bench/kit/base64.mjs [ROUNDS]
import { randomBytes } from 'node:crypto';
import { VectorCodec } from '../../sdk/node/src/base64/codec.mjs';

const size = 64 * 1024;
const rounds = Number(process.argv[2] ?? 300);
const codec = new VectorCodec();
const text = codec.allocate(3 * size);
const data = codec.allocate(size);

/** @param {(round: number) => number} once gives the time of one call */
function report(name, once) {
    const times = Array.from({ length: rounds + 50 }, (_, round) => once(round)).slice(50); // the first ones warm up
    times.sort((a, b) => a - b);
    const shown = [0, 0.5].map((part) => times[Math.floor(times.length * part)].toFixed(1).padStart(6));
    console.log(`${name.padEnd(36)} least ${shown[0]}  median ${shown[1]}`);
}

function timed(call) {
    const start = process.hrtime.bigint();
    call();
    return Number(process.hrtime.bigint() - start) / 1000;
}

const kinds = [
    ['random', Array.from({ length: 16 }, () => randomBytes(size))],
    ['slashes only', [Buffer.alloc(size, 0xff)]],
    ['no slash', [Buffer.alloc(size)]],
];
for (const [name, buffers] of kinds) {
    const texts = buffers.map((bytes) => Buffer.from(bytes.toString('base64').replaceAll('/', '\\/')));
    report(`decode, slashes escaped, ${name}`, (round) => {
        const source = texts[round % texts.length];
        source.copy(text);
        return timed(() => codec.decodeInPlace(text, 0, source.length));
    });
    report(`encode, ${name}`, (round) => {
        buffers[round % buffers.length].copy(data);
        return timed(() => codec.encode(data, 0, size, text, 0));
    });
}
