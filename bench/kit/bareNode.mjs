// The bare loop with what node offers for base64. Its decoder passes over the backslashes of escaped slashes: of all
// ways in JavaScript alone the fastest.
import { runBareLoop } from './bareLoop.mjs';

runBareLoop({
    allocate: (size) => Buffer.allocUnsafeSlow(size),
    encode: (source, from, to, target, at) => target.latin1Write(source.base64Slice(from, to), at),
    decodeInPlace: (buffer, from, to) => from + buffer.base64Write(buffer.latin1Slice(from, to), from),
});
