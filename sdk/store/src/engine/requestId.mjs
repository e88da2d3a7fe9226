// Ids of changing requests. They begin with the time, so that old ones lie together and are found without a look at all.
import { randomBytes } from 'node:crypto';

let random = Buffer.alloc(0);
let used = 0;

/**
 * @param {number} [time] milliseconds since 1970
 * @returns {string} a uuid of version 7
 */
export function requestId(time = Date.now()) {
    if (used === random.length) {
        random = randomBytes(1000);
        used = 0;
    }
    const tail = random.toString('hex', used, (used += 10));
    return idText(time, tail);
}

/**
 * Less than every id of that time or later.
 * @param {number} time milliseconds since 1970
 */
export function leastRequestId(time) {
    return idText(time, '0'.repeat(20));
}

/** @param {number} time @param {string} tail 20 hexadecimal digits */
function idText(time, tail) {
    const head = time.toString(16).padStart(12, '0');
    return `${head.slice(0, 8)}-${head.slice(8)}-7${tail.slice(0, 3)}-8${tail.slice(3, 6)}-${tail.slice(6, 18)}`;
}
